#pragma once

#include <optional>

#include <QString>

/**
 * The application's version strings, compiled in from the build system.
 *
 * Either value may be absent (an empty CMake value, or a test that builds its own BundleInfo), so
 * every consumer decides its own fallback.
 * @code
 * const QString shown = BundleInfo::main().shortVersion().value_or(QStringLiteral("1.0.0"));
 * @endcode
 */
class BundleInfo final
{
public:
    BundleInfo(std::optional<QString> shortVersion, std::optional<QString> buildVersion);

    /// The running build's values ("CFBundleShortVersionString" and "CFBundleVersion" elsewhere).
    static BundleInfo main();

    std::optional<QString> shortVersion() const { return m_shortVersion; }
    std::optional<QString> buildVersion() const { return m_buildVersion; }

private:
    std::optional<QString> m_shortVersion;
    std::optional<QString> m_buildVersion;
};
