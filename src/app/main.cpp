#include <QApplication>
#include <QIcon>

#include "app/AppDelegate.h"
#include "app/PlatformChoice.h"
#include "app/SingleInstance.h"

int main(int argc, char* argv[])
{
    PlatformChoice::apply();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Brevona"));
    QApplication::setDesktopFileName(QStringLiteral("com.orvik.Brevona"));
    // Every window (settings, onboarding, alerts) carries it; docks match windows to the launcher
    // through the desktop file name on Wayland and the window class on X11.
    QApplication::setWindowIcon(
        QIcon::fromTheme(QStringLiteral("brevona"), QIcon(QStringLiteral(":/app/brevona.svg"))));

    SingleInstance instance(SingleInstance::defaultKey());
    if (!instance.claim())
        return 0; // the running instance brings its panel forward

    AppDelegate delegate;
    QObject::connect(&instance, &SingleInstance::activationRequested, &delegate,
                     &AppDelegate::bringPanelForward);
    delegate.applicationDidFinishLaunching();
    return app.exec();
}
