#include "ui/MenuBarManager.h"

#include <QAction>
#include <QApplication>
#include <QKeySequence>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

#include "ui/DropZonePanelController.h"
#include "ui/PanelPlacement.h"
#include "ui/ProgressPopoverView.h"

namespace {
const QString kTrayArtwork = QStringLiteral(":/icons/brevona-tray.svg");
constexpr int kPulseLegMs = 700;
} // namespace

MenuBarManager::MenuBarManager(BatchRunner::Engine engine, QObject* parent)
    : QObject(parent), m_runner(m_compressionState, *this, std::move(engine))
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
    rebuildMenu();

    const bool hasTray = QSystemTrayIcon::isSystemTrayAvailable();
    if (hasTray) {
        m_trayIcon = new QSystemTrayIcon(this);
        m_trayIcon->setIcon(iconAt(1.0));
        m_trayIcon->setToolTip(QStringLiteral("Brevona"));
        m_trayIcon->setContextMenu(&m_menu);
        connect(m_trayIcon, &QSystemTrayIcon::activated, this, &MenuBarManager::onActivated);
        m_trayIcon->show();
    }

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
    auto& panel = DropZonePanelController::shared();
    panel.setup(&m_compressionState, onFiles, onSettings, onQuit,
                hasTray ? DropZonePanel::Mode::Floating : DropZonePanel::Mode::Windowed);
    if (!hasTray)
        panel.show(QRect());
}

MenuBarManager::~MenuBarManager()
{
    delete m_popover.data();
    DropZonePanelController::shared().teardown();
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
    switch (reason) {
    case QSystemTrayIcon::Trigger:
        togglePanel();
        break;
    case QSystemTrayIcon::MiddleClick:
        togglePopover();
        break;
    default: // the menu opens by itself on a context click; a double click already toggled once
        break;
    }
}

QRect MenuBarManager::anchorRect() const
{
    return m_trayIcon ? m_trayIcon->geometry() : QRect();
}

void MenuBarManager::showPanelAnchored()
{
    DropZonePanelController::shared().show(anchorRect());
}

void MenuBarManager::hidePanel()
{
    DropZonePanelController::shared().hidePanel();
}

void MenuBarManager::togglePanel()
{
    DropZonePanelController::shared().toggle(anchorRect());
}

void MenuBarManager::togglePopover()
{
    if (!m_popover) {
        m_popover = new ProgressPopoverView(&m_compressionState);
        m_popover->setWindowFlags(Qt::Popup | Qt::FramelessWindowHint);
    }
    if (m_popover->isVisible()) {
        m_popover->hide();
        return;
    }
    m_popover->move(PanelPlacement::placeOnScreen(anchorRect(), m_popover->sizeHint()));
    m_popover->show();
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

    // Monochrome artwork in the palette's text colour, which is what the tray's own labels use.
    const QColor tint = QApplication::palette().color(QPalette::WindowText);
    QSvgRenderer renderer(kTrayArtwork);
    QIcon icon;
    for (const int side : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(side, side);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, side, side));
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        QColor color = tint;
        color.setAlphaF(float(opacity));
        painter.fillRect(pixmap.rect(), color);
        painter.end();
        icon.addPixmap(pixmap);
    }
    icon.setIsMask(true);
    m_iconCache.insert(key, icon);
    return icon;
}

void MenuBarManager::quit()
{
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}
