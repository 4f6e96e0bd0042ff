#include "platform/systeminfo.h"

#include "platform/codepage.h"

#include <QtEndian>

namespace klangor {

bool GetKeyValue(Registry &registry, RegistryRoot keyRoot, const QString &keyName,
                 const QString &subKeyRef, QString &keyVal)
{
    const std::optional<RegistryValue> value = registry.queryValue(keyRoot, keyName, subKeyRef);
    if (!value || value->data.size() > RegistryValueBufferSize) {
        keyVal.clear();
        return false;
    }

    // The size the query reports counts a stored terminating NUL; a zero byte at that
    // position is dropped, any other byte is kept.
    const QByteArray &data = value->data;
    const qsizetype size = data.size();
    const QByteArray text = (size > 0 && data.at(size - 1) == '\0') ? data.left(size - 1) : data;

    switch (value->type) {
    case RegSz:
        keyVal = fromWindows1252(text);
        break;
    case RegDword: {
        // The number in decimal: the bytes are the little-endian DWORD, a dropped high zero
        // byte changes nothing.
        char bytes[4] = {0, 0, 0, 0};
        for (qsizetype i = 0; i < std::min<qsizetype>(text.size(), 4); ++i)
            bytes[i] = text.at(i);
        keyVal = QString::number(qFromLittleEndian<quint32>(bytes));
        break;
    }
    default:
        break;
    }
    return true;
}

bool StartSysInfo(Registry *registry, ProgramLauncher *launcher)
{
    if (!registry || !launcher)
        return false;
    QString path;
    if (!GetKeyValue(*registry, RegistryRoot::LocalMachine,
                     QStringLiteral("SOFTWARE\\Microsoft\\Shared Tools\\MSINFO"),
                     QStringLiteral("PATH"), path)) {
        if (!GetKeyValue(*registry, RegistryRoot::LocalMachine,
                         QStringLiteral("SOFTWARE\\Microsoft\\Shared Tools Location"),
                         QStringLiteral("MSINFO"), path))
            return false;
        const QString program = path + QStringLiteral("\\MSINFO32.EXE");
        if (!launcher->fileExists(program))
            return false;
        path = program;
    }
    return launcher->startDetached(path);
}

UserMessage sysInfoUnavailableMessage()
{
    return {QStringLiteral("Systeminformationen sind momentan nicht verfügbar"),
            QStringLiteral("Klangor"), MessageIcon::None};
}

} // namespace klangor
