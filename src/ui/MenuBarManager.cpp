#include "ui/MenuBarManager.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QKeySequence>
#include <QScreen>
#include <QTimer>

#include "engine/VipsRuntime.h"
#include "ui/DropZonePanelController.h"
#include "ui/PanelPlacement.h"
#include "ui/ProgressPopoverView.h"
#include "ui/TrayIconArt.h"

namespace {
constexpr int kPulseLegMs = 700;
// An XEmbed tray embeds the icon asynchronously; its background is sampled once it is in place.
constexpr int kSampleDelayMs = 1000;
// Around a click point, the square whose edges lie on the tray beside the icon.
constexpr int kClickSampleSide = 40;
// The artwork's own grey, readable on light and dark panels, until the tray has been seen.
const QColor kUnknownTrayTint(0xbe, 0xbe, 0xbe);
} // namespace

MenuBarManager::MenuBarManager(BatchRunner::Engine engine, TrayHostWatcher::Probe trayProbe, QObject* parent)
    : QObject(parent), m_runner(m_compressionState, *this, std::move(engine)), m_pulse(this),
      m_trayHosts(std::move(trayProbe))
{
    m_pulse.setDuration(2 * kPulseLegMs); // one leg down to 0.4 and one back up
    m_pulse.setKeyValueAt(0.0, 1.0);
    m_pulse.setKeyValueAt(0.5, 0.4);
    m_pulse.setKeyValueAt(1.0, 1.0);
    m_pulse.setLoopCount(-1);
    connect(&m_pulse, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { setIconOpacity(value.toDouble()); });

    // Status-notifier hosts draw this menu themselves, so it is attached once and its items are
    // rebuilt when it opens (and after each batch, for hosts that read it ahead of time).
    connect(&m_menu, &QMenu::aboutToShow, this, &MenuBarManager::rebuildMenu);
    connect(&m_runner, &BatchRunner::batchFinished, this, &MenuBarManager::rebuildMenu);
    // A tray program runs all day: what a batch needed goes back to the system when it ends.
    connect(&m_runner, &BatchRunner::batchFinished, this, [] { VipsRuntime::releaseMemory(); });
    rebuildMenu();

    const QPointer<MenuBarManager> guard(this);
    auto onFiles = [guard](const QStringList& paths) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [guard, paths] {
                if (guard)
                    guard->handleFiles(paths);
            },
            Qt::QueuedConnection);
    };
    auto onSettings = [guard] {
        if (guard)
            emit guard->settingsRequested();
    };
    auto onQuit = [guard] {
        if (guard)
            guard->quit();
    };
    const bool hasTray = m_trayHosts.isAvailable();
    auto& panel = DropZonePanelController::shared();
    panel.setup(&m_compressionState, onFiles, onSettings, onQuit,
                hasTray ? DropZonePanel::Mode::Floating : DropZonePanel::Mode::Windowed);
    setTrayAvailable(hasTray);
    connect(&m_trayHosts, &TrayHostWatcher::availabilityChanged, this, &MenuBarManager::setTrayAvailable);
}

MenuBarManager::~MenuBarManager()
{
    delete m_popover.data();
    DropZonePanelController::shared().teardown();
}

void MenuBarManager::setTrayAvailable(bool available)
{
    auto& panel = DropZonePanelController::shared();
    if (!available) {
        delete m_trayIcon;
        m_trayIcon = nullptr;
        m_lastClick.reset();
        panel.setMode(DropZonePanel::Mode::Windowed);
        panel.show(QRect());
        return;
    }
    if (m_trayIcon)
        return;
    panel.setMode(DropZonePanel::Mode::Floating);
    m_trayIcon = new QSystemTrayIcon(this);
    m_trayIcon->setIcon(iconAt(m_iconOpacity));
    m_trayIcon->setToolTip(QStringLiteral("Brevona"));
    m_trayIcon->setContextMenu(&m_menu);
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, &MenuBarManager::onActivated);
    m_trayIcon->show();
    QTimer::singleShot(kSampleDelayMs, this, &MenuBarManager::sampleTrayBackground);
}

void MenuBarManager::sampleTrayBackground()
{
    QRect area = anchorRect();
    if (area.isEmpty() && m_lastClick) {
        area = QRect(QPoint(), QSize(kClickSampleSide, kClickSampleSide));
        area.moveCenter(*m_lastClick);
    }
    QScreen* screen = area.isEmpty() ? nullptr : QGuiApplication::screenAt(area.center());
    if (!screen)
        return;
    const QRect local = area.translated(-screen->geometry().topLeft());
    const QColor tint = TrayIconArt::tintFor(
        screen->grabWindow(0, local.x(), local.y(), local.width(), local.height()).toImage());
    if (!tint.isValid() || tint == m_tint)
        return;
    m_tint = tint;
    m_iconCache.clear();
    if (m_trayIcon)
        m_trayIcon->setIcon(iconAt(m_iconOpacity));
}

void MenuBarManager::handleFiles(const QStringList& paths)
{
    m_runner.handleFiles(paths);
}

void MenuBarManager::rebuildMenu()
{
    m_menu.clear();
    const QString summary = m_runner.lastSessionSummary();
    if (!summary.isEmpty()) {
        QAction* last = m_menu.addAction(QStringLiteral("Last session: ") + summary);
        last->setEnabled(false);
        m_menu.addSeparator();
    }
    QAction* settings = m_menu.addAction(QStringLiteral("Settings..."));
    settings->setShortcut(QKeySequence(QStringLiteral("Ctrl+,")));
    connect(settings, &QAction::triggered, this, &MenuBarManager::settingsRequested);
    m_menu.addSeparator();
    QAction* quitAction = m_menu.addAction(QStringLiteral("Quit Brevona"));
    quitAction->setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));
    connect(quitAction, &QAction::triggered, this, &MenuBarManager::quit);
}

void MenuBarManager::onActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason != QSystemTrayIcon::Trigger && reason != QSystemTrayIcon::MiddleClick)
        return; // the menu opens by itself on a context click; a double click already toggled once
    // Status-notifier hosts tell nobody where the icon is; the pointer is on it now.
    m_lastClick = QCursor::pos();
    if (anchorRect().isEmpty() && !m_tint.isValid())
        sampleTrayBackground();
    if (reason == QSystemTrayIcon::Trigger)
        togglePanel();
    else
        togglePopover();
}

QRect MenuBarManager::anchorRect() const
{
    return m_trayIcon ? m_trayIcon->geometry() : QRect();
}

void MenuBarManager::showPanelAnchored()
{
    DropZonePanelController::shared().show(anchorRect(), m_lastClick,
                                           DropZonePanelController::Opening::ByBatch);
}

void MenuBarManager::hidePanel()
{
    DropZonePanelController::shared().hidePanel();
}

void MenuBarManager::togglePanel()
{
    DropZonePanelController::shared().toggle(anchorRect(), m_lastClick);
}

void MenuBarManager::togglePopover()
{
    if (!m_popover) {
        m_popover = new ProgressPopoverView(&m_compressionState);
        m_popover->setWindowFlags(Qt::Popup | Qt::FramelessWindowHint);
        m_popover->installEventFilter(this);
    }
    if (m_popover->isVisible()) {
        m_popover->hide();
        return;
    }
    m_popover->move(PanelPlacement::placeOnScreen(anchorRect(), m_lastClick, m_popover->sizeHint()));
    m_popover->show();
}

bool MenuBarManager::eventFilter(QObject* watched, QEvent* event)
{
    // The popover's height follows its content; placing it again from the same anchor keeps the
    // edge that faces the tray where it was (its bottom edge above a bottom tray).
    if (watched == m_popover && event->type() == QEvent::Resize && m_popover->isVisible())
        m_popover->move(PanelPlacement::placeOnScreen(anchorRect(), m_lastClick, m_popover->size()));
    return QObject::eventFilter(watched, event);
}

void MenuBarManager::setIconPulsing(bool pulsing)
{
    // Starting again while pulsing restarts the cycle, as a replaced animation would.
    m_pulse.stop();
    if (pulsing)
        m_pulse.start();
    else
        setIconOpacity(1.0);
}

void MenuBarManager::setIconOpacity(double opacity)
{
    const double snapped = qRound(opacity / kPulseStep) * kPulseStep;
    if (qFuzzyCompare(snapped, m_iconOpacity))
        return;
    m_iconOpacity = snapped;
    if (m_trayIcon)
        m_trayIcon->setIcon(iconAt(snapped));
}

QIcon MenuBarManager::iconAt(double opacity)
{
    const int key = qRound(opacity / kPulseStep);
    if (const auto it = m_iconCache.constFind(key); it != m_iconCache.constEnd())
        return *it;
    // At rest, hosts that take a name recolour the themed symbolic icon; a tray whose background
    // has been seen gets pixels that read on it. Names cannot fade, so the pulse is drawn.
    const bool steady = key == qRound(1.0 / kPulseStep);
    const bool pixelsOnly = !anchorRect().isEmpty();
    QIcon icon;
    if (steady && (!pixelsOnly || !m_tint.isValid()))
        icon = TrayIconArt::themed();
    else
        icon = TrayIconArt::drawn(m_tint.isValid() ? m_tint : kUnknownTrayTint, opacity);
    m_iconCache.insert(key, icon);
    return icon;
}

void MenuBarManager::quit()
{
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}
