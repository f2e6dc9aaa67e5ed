// Renders the settings window in several states, and both update alerts, into PNG files.
#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QMessageBox>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>

#include "IsolatedConfig.h"
#include "app/MessageBoxAlertPresenter.h"
#include "app/UpdateChecker.h"
#include "engine/AppGroupDefaults.h"
#include "platform/FolderBookmark.h"
#include "ui/RadioRow.h"
#include "ui/SettingsWindowController.h"

namespace {

class StillChecking final : public UpdateControl
{
public:
    bool isChecking() const override { return m_checking; }
    void checkForUpdates() override {}
    void setChecking(bool on)
    {
        m_checking = on;
        emit isCheckingChanged(on);
    }

private:
    bool m_checking = false;
};

void settle()
{
    for (int i = 0; i < 5; ++i)
        QApplication::processEvents();
}

void save(QWidget* widget, const QString& file)
{
    settle();
    widget->grab().save(file);
}

void click(QWidget* view, const QString& text)
{
    for (QAbstractButton* b : view->findChildren<QAbstractButton*>()) {
        if (b->text() == text) {
            b->click();
            return;
        }
    }
    qFatal("no button %s", qPrintable(text));
}

// Grabs the alert once it is up, then presses its last button.
void grabAlertWhenShown(const QString& file)
{
    QTimer::singleShot(400, [file] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box)
            qFatal("no alert");
        box->grab().save(file);
        box->buttons().constLast()->click();
    });
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    const QString out = app.arguments().value(1, QStringLiteral("."));
    QDir().mkpath(out);
    IsolatedConfig config;
    AppGroupDefaults::registerDefaults();

    StillChecking updater;
    SettingsWindowController controller;
    controller.configure(&updater, {[] { return false; }, [](bool) {}});
    controller.showSettings();
    QWidget* window = controller.window();
    SettingsView* view = controller.view();
    auto* scroll = window->findChild<QScrollArea*>();

    settle();
    // The whole screen, to see where the window was placed.
    QGuiApplication::primaryScreen()->grabWindow(0).save(out + QStringLiteral("/00-screen.png"));
    save(window, out + QStringLiteral("/01-defaults-window.png"));
    save(view, out + QStringLiteral("/02-defaults-full.png"));

    click(view, QStringLiteral("Limit output file size"));
    save(view, out + QStringLiteral("/03-size-limit-on.png"));
    click(view, QStringLiteral("Keep original if not smaller by at least"));
    click(view, QStringLiteral("Limit longest edge"));
    click(view, QStringLiteral("Custom folder"));
    click(view, QStringLiteral("Keep original format"));
    save(view, out + QStringLiteral("/04-all-toggles-on-custom-folder-not-set.png"));

    click(view, QStringLiteral("Limit output file size"));
    save(view, out + QStringLiteral("/05-saving-only.png"));
    click(view, QStringLiteral("Keep original if not smaller by at least"));
    click(view, QStringLiteral("Limit longest edge"));

    Defaults suite = AppGroupDefaults::open();
    suite.set(AppGroupDefaults::Keys::customFolderBookmark,
              *FolderBookmark::create(
                  QStringLiteral("/home/someone/Pictures/Exports/2026/Holiday in the mountains/web")));
    suite.sync();
    window->hide();
    controller.showSettings();
    updater.setChecking(true);
    save(view, out + QStringLiteral("/06-missing-folder-checking.png"));
    scroll->verticalScrollBar()->setValue(scroll->verticalScrollBar()->maximum());
    save(window, out + QStringLiteral("/07-window-scrolled-to-bottom.png"));
    updater.setChecking(false);
    window->resize(520, 420);
    scroll->verticalScrollBar()->setValue(0);
    save(window, out + QStringLiteral("/08-window-resized.png"));

    // The alerts as the application shows them.
    const auto alerts = std::make_shared<MessageBoxAlertPresenter>();
    grabAlertWhenShown(out + QStringLiteral("/09-update-alert.png"));
    alerts->runAlert(UpdateChecker::updateAlert(
        {QStringLiteral("2.5.0"), 42, QStringLiteral("Faster AVIF encoding and a smaller drop panel."),
         QStringLiteral("https://example.invalid/b.zip"), false}));
    grabAlertWhenShown(out + QStringLiteral("/10-up-to-date-alert.png"));
    alerts->runAlert(UpdateChecker::upToDateAlert(std::nullopt));
    return 0;
}
