#include <QApplication>

#include "app/AppDelegate.h"
#include "app/PlatformChoice.h"
#include "app/SingleInstance.h"

int main(int argc, char* argv[])
{
    PlatformChoice::apply();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Brevona"));
    QApplication::setDesktopFileName(QStringLiteral("com.orvik.Brevona"));
    // The tray icon keeps the application alive; closing a window is not quitting.
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance instance(SingleInstance::defaultKey());
    if (!instance.claim())
        return 0; // the running instance brings its panel forward

    AppDelegate delegate;
    QObject::connect(&instance, &SingleInstance::activationRequested, &delegate,
                     &AppDelegate::bringPanelForward);
    delegate.applicationDidFinishLaunching();
    return app.exec();
}
