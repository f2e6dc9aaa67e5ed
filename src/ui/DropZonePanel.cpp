#include "ui/DropZonePanel.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QPainterPath>
#include <QRegion>
#include <QVBoxLayout>

#include "ui/DropZoneView.h"
#include "ui/X11Desktop.h"

namespace {
constexpr qreal kCornerRadius = 12;
} // namespace

DropZonePanel::DropZonePanel(Mode mode) : QWidget(nullptr), m_mode(mode)
{
    if (m_mode == Mode::Floating) {
        setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
        setAttribute(Qt::WA_TranslucentBackground);
    } else {
        setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                       Qt::WindowMinimizeButtonHint);
        // The card's rounded corners show the window's own background; make it the card's colour.
        QPalette dark = palette();
        dark.setColor(QPalette::Window, QColor::fromRgbF(0.08f, 0.08f, 0.08f));
        setPalette(dark);
        setAutoFillBackground(true);
    }
    setWindowTitle(QStringLiteral("Brevona"));
    setFixedSize(kSize);

    m_dropZoneView = new DropZoneView(this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_dropZoneView);
}

void DropZonePanel::configure(CompressionState* state, std::function<void(const QStringList&)> onFiles,
                              std::function<void()> onSettings, std::function<void()> onQuit)
{
    m_dropZoneView->setCompressionState(state);
    m_dropZoneView->setOnFiles(std::move(onFiles));
    m_dropZoneView->setOnSettings(std::move(onSettings));
    m_onQuit = onQuit;
    m_dropZoneView->setOnQuit(std::move(onQuit));
}

void DropZonePanel::refresh()
{
    m_dropZoneView->refresh();
}

QRegion DropZonePanel::roundedShape(QSize size)
{
    QPainterPath path;
    path.addRoundedRect(QRectF(QPointF(0, 0), QSizeF(size)), kCornerRadius, kCornerRadius);
    return QRegion(path.toFillPolygon().toPolygon());
}

void DropZonePanel::showEvent(QShowEvent* event)
{
    if (m_mode == Mode::Floating) {
        // The hints go on before the window manager sees the window, and again once it has.
        X11Desktop::makeFloatingPanel(this, false);
        QMetaObject::invokeMethod(
            this, [this] { X11Desktop::makeFloatingPanel(this, true); }, Qt::QueuedConnection);
        if (X11Desktop::isActive() && !X11Desktop::hasCompositor())
            setMask(roundedShape(size()));
        else
            clearMask();
    }
    QWidget::showEvent(event);
}

void DropZonePanel::keyPressEvent(QKeyEvent* event)
{
    if (m_mode == Mode::Floating && event->key() == Qt::Key_Escape) {
        hide();
        return;
    }
    QWidget::keyPressEvent(event);
}

void DropZonePanel::closeEvent(QCloseEvent* event)
{
    if (m_mode == Mode::Windowed && m_onQuit) {
        event->accept();
        m_onQuit();
        return;
    }
    QWidget::closeEvent(event);
}
