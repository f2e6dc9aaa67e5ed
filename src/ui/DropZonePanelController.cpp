#include "ui/DropZonePanelController.h"

#include <QApplication>

#include "session/CompressionState.h"
#include "ui/PanelPlacement.h"

DropZonePanelController& DropZonePanelController::shared()
{
    static DropZonePanelController instance; // thread-safe one-time initialisation
    return instance;
}

DropZonePanelController::~DropZonePanelController()
{
    // Static destruction runs after the application object is gone, when widgets can no
    // longer be deleted; the process is ending, so they are left to it.
    if (!QCoreApplication::instance()) {
        (void)m_panel.release();
        (void)m_timer.release();
    }
}

void DropZonePanelController::teardown()
{
    m_timer.reset();
    m_panel.reset();
}

void DropZonePanelController::setup(CompressionState* state, std::function<void(const QStringList&)> onFiles,
                                    std::function<void()> onSettings, std::function<void()> onQuit,
                                    DropZonePanel::Mode mode)
{
    m_state = state;
    m_onFiles = std::move(onFiles);
    m_onSettings = std::move(onSettings);
    m_onQuit = std::move(onQuit);
    createPanel(mode);

    m_timer = std::make_unique<QTimer>();
    m_timer->setInterval(kRedrawIntervalMs);
    QObject::connect(m_timer.get(), &QTimer::timeout, [this] {
        if (m_panel)
            m_panel->refresh();
    });
    m_timer->start();
}

void DropZonePanelController::createPanel(DropZonePanel::Mode mode)
{
    m_panel = std::make_unique<DropZonePanel>(mode);
    m_panel->configure(m_state, m_onFiles, m_onSettings, m_onQuit);
}

void DropZonePanelController::setMode(DropZonePanel::Mode mode)
{
    if (m_panel && m_panel->mode() != mode)
        createPanel(mode);
}

void DropZonePanelController::show(const QRect& anchor, std::optional<QPoint> click, Opening opening)
{
    if (!m_panel)
        return;
    if (m_state && m_state->isComplete())
        m_state->reset();
    const bool byUser = opening == Opening::ByUser;
    if (m_panel->mode() == DropZonePanel::Mode::Floating)
        m_panel->move(PanelPlacement::placeOnScreen(anchor, click, DropZonePanel::kSize));
    // Typing in another window is never interrupted by a batch that shows the panel.
    m_panel->setAttribute(Qt::WA_ShowWithoutActivating, !byUser);
    m_panel->show();
    m_panel->raise();
    if (byUser)
        m_panel->activateWindow();
}

void DropZonePanelController::toggle(const QRect& anchor, std::optional<QPoint> click)
{
    if (!m_panel)
        return;
    if (m_panel->isVisible())
        m_panel->hide();
    else
        show(anchor, click);
}

void DropZonePanelController::hidePanel()
{
    if (m_panel && m_panel->mode() == DropZonePanel::Mode::Floating)
        m_panel->hide();
}
