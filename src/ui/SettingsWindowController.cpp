#include "ui/SettingsWindowController.h"

#include <utility>

#include <QApplication>
#include <QScreen>
#include <QScrollArea>
#include <QVBoxLayout>
#include <QWidget>

namespace {
constexpr int kWidth = 420;
constexpr int kHeight = 560;
} // namespace

SettingsWindowController::SettingsWindowController(QObject* parent) : QObject(parent) {}

SettingsWindowController::~SettingsWindowController()
{
    delete m_window;
}

SettingsWindowController& SettingsWindowController::shared()
{
    // Deliberately never destroyed: the window lives until the process ends.
    static auto* const instance = new SettingsWindowController;
    return *instance;
}

void SettingsWindowController::configure(UpdateControl* updater, LaunchAtLoginHooks launchAtLogin)
{
    m_updater = updater;
    m_launchAtLogin = std::move(launchAtLogin);
}

void SettingsWindowController::showSettings()
{
    if (!m_window) {
        auto* window = new QWidget(nullptr, Qt::Window);
        window->setWindowTitle(QStringLiteral("Brevona Settings"));
        window->setObjectName(QStringLiteral("settingsWindow"));

        m_view = new SettingsView(m_updater, m_launchAtLogin, m_bundle, m_chooser);
        auto* scroll = new QScrollArea;
        scroll->setWidget(m_view);
        scroll->setWidgetResizable(true);
        scroll->setFrameShape(QFrame::NoFrame);
        scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
        auto* layout = new QVBoxLayout(window);
        layout->setContentsMargins(0, 0, 0, 0);
        // The form is a fixed-width column; a wider window centres it.
        scroll->setFixedWidth(kWidth);
        layout->addWidget(scroll, 0, Qt::AlignHCenter);

        window->resize(kWidth, kHeight);
        if (const QScreen* screen = QGuiApplication::primaryScreen()) {
            QRect frame(QPoint(), window->size());
            frame.moveCenter(screen->availableGeometry().center());
            window->move(frame.topLeft());
        }
        m_window = window;
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}
