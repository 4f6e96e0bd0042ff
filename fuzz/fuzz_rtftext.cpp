// Any bytes as RTF: the reader must end in one pass, and no byte can give more than one
// character of text.
#include "programming/rtftext.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    if (klangor::plainTextFromRtf(bytes).size() > bytes.size())
        __builtin_trap();
    return 0;
}
