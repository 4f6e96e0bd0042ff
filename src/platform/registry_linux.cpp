#include "platform/registry.h"

namespace klangor {

namespace {

class NoRegistry final : public Registry
{
public:
    std::optional<RegistryValue> queryValue(RegistryRoot, const QString &, const QString &) override
    {
        return std::nullopt;
    }
};

} // namespace

std::unique_ptr<Registry> createSystemRegistry()
{
    return std::make_unique<NoRegistry>();
}

} // namespace klangor
