#include "platform/BundleInfo.h"

#include <utility>

namespace {
std::optional<QString> nonEmpty(const char* value)
{
    const QString s = QString::fromUtf8(value);
    return s.isEmpty() ? std::nullopt : std::optional<QString>(s);
}
} // namespace

BundleInfo::BundleInfo(std::optional<QString> shortVersion, std::optional<QString> buildVersion)
    : m_shortVersion(std::move(shortVersion)), m_buildVersion(std::move(buildVersion))
{
}

BundleInfo BundleInfo::main()
{
    return BundleInfo(nonEmpty(BREVONA_VERSION), nonEmpty(BREVONA_BUILD_NUMBER));
}
