#include <QApplication>

#include "app/PlatformChoice.h"
#include "engine/AppGroupDefaults.h"
#include "ui/MenuBarManager.h"

int main(int argc, char* argv[])
{
    PlatformChoice::apply();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Brevona"));
    // The tray icon keeps the application alive; closing the panel is not quitting.
    QApplication::setQuitOnLastWindowClosed(false);

    AppGroupDefaults::registerDefaults();
    MenuBarManager manager;
    return app.exec();
}
