#pragma once

#include <QString>

/**
 * Where the running application keeps its single-instance lock ("KEY.lock") and its socket
 * ("KEY.socket"), so that brevona-cli can tell whether the application runs.
 */
class InstanceKey final
{
public:
    /// Per user (the runtime folder, else the user id) and per settings folder, so that a
    /// separate configuration (tests, a second profile) runs its own instance.
    static QString defaultKey();
};
