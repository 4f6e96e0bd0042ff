// Any bytes as a .spj file: reading must refuse or accept cleanly, and an accepted project may
// only restore the program's own files.
#include "project/soundprojectfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const auto project = klangor::parseProject(bytes, QStringLiteral("fuzz.spj"));
    if (!project)
        return 0;
    for (const auto &[name, contents] : project.value().files) {
        if (klangor::restoredFileName(name) != name)
            __builtin_trap();
    }
    return 0;
}
