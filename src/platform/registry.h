#pragma once

#include <memory>
#include <optional>
#include <QByteArray>
#include <QString>

namespace klangor {

enum class RegistryRoot : quint32
{
    LocalMachine = 0x80000002u
};

enum RegistryValueType : quint32
{
    RegSz = 1,
    RegDword = 4
};

struct RegistryValue
{
    quint32 type = RegSz;
    QByteArray data; // the bytes as the query returns them, terminating NUL included if stored
};

class Registry
{
public:
    virtual ~Registry() = default;
    // nullopt when the key cannot be opened or the value cannot be read.
    virtual std::optional<RegistryValue> queryValue(RegistryRoot root, const QString &key,
                                                    const QString &valueName) = 0;
};

// The machine's registry; on systems without one every query fails.
std::unique_ptr<Registry> createSystemRegistry();

} // namespace klangor
