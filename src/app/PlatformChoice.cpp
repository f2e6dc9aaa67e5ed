#include "app/PlatformChoice.h"

#include <QByteArray>
#include <QtGlobal>

bool PlatformChoice::shouldPreferXcb(bool hasWaylandDisplay, bool hasX11Display, bool platformChosen)
{
    return hasWaylandDisplay && hasX11Display && !platformChosen;
}

void PlatformChoice::apply()
{
    if (shouldPreferXcb(!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"),
                        !qEnvironmentVariableIsEmpty("DISPLAY"),
                        !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")))
        qputenv("QT_QPA_PLATFORM", QByteArrayLiteral("xcb"));
}
