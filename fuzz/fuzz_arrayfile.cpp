// Any bytes as an array file: parsing must refuse or accept cleanly, and what it accepts must
// write back to a file that reads as the same array.
#include "project/arrayfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const auto parsed = klangor::parseArrayFile(bytes, QStringLiteral("fuzz.arr"));
    if (!parsed)
        return 0;
    const auto written = klangor::arrayFileBytes(parsed.value());
    if (!written)
        return 0; // more than ten dimensions cannot be read in the first place
    const auto again = klangor::parseArrayFile(written.value(), QStringLiteral("again.arr"));
    if (!again || !(again.value() == parsed.value()))
        __builtin_trap();
    return 0;
}
