#pragma once

#include <functional>

/// Reads and writes the launch-at-login registration for the settings window. Either may be
/// empty: an empty reader reads false, an empty writer ignores the change.
struct LaunchAtLoginHooks
{
    std::function<bool()> isEnabled;
    std::function<void(bool)> setEnabled;
};
