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
    m_panel = std::make_unique<DropZonePanel>(mode);
    m_panel->configure(state, std::move(onFiles), std::move(onSettings), std::move(onQuit));

    m_timer = std::make_unique<QTimer>();
    m_timer->setInterval(kRedrawIntervalMs);
    QObject::connect(m_timer.get(), &QTimer::timeout, m_panel.get(),
                     [panel = QPointer<DropZonePanel>(m_panel.get())] {
                         if (panel)
                             panel->refresh();
                     });
    m_timer->start();
}

void DropZonePanelController::show(const QRect& anchor)
{
    if (!m_panel)
        return;
    if (m_state && m_state->isComplete())
        m_state->reset();
    if (m_panel->mode() == DropZonePanel::Mode::Floating)
        m_panel->move(PanelPlacement::placeOnScreen(anchor, DropZonePanel::kSize));
    m_panel->show();
    m_panel->raise();
    m_panel->activateWindow();
}

void DropZonePanelController::toggle(const QRect& anchor)
{
    if (!m_panel)
        return;
    if (m_panel->isVisible())
        m_panel->hide();
    else
        show(anchor);
}

void DropZonePanelController::hidePanel()
{
    if (m_panel && m_panel->mode() == DropZonePanel::Mode::Floating)
        m_panel->hide();
}
