#include "ui/DropZoneView.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QWindow>

#include "engine/OutputFormat.h"
#include "platform/ScopedAccess.h"
#include "session/AcceptedFiles.h"
#include "session/CompressionState.h"
#include "ui/PaintKit.h"

namespace {
const QColor kBackground = QColor::fromRgbF(0.08f, 0.08f, 0.08f, 1.0f);
const QColor kAccent = QColor::fromRgbF(1.0f, 0.84f, 0.04f, 1.0f);

QColor white(float alpha)
{
    return QColor::fromRgbF(1.0f, 1.0f, 1.0f, alpha);
}
QColor accent(float alpha)
{
    QColor c = kAccent;
    c.setAlphaF(alpha);
    return c;
}

const QString kSeparator = QStringLiteral(" · ");
const QString kPromptIdle = QStringLiteral("Drop images here");
const QString kPromptTargeted = QStringLiteral("Release to optimize");
const QString kFormats = QStringLiteral("JPEG · PNG · HEIC · WebP · AVIF · PDF · RAW");
} // namespace

DropZoneView::DropZoneView(QWidget* parent) : QWidget(parent)
{
    setAcceptDrops(true);
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    m_settingsButton = makeButton(QStringLiteral("Settings..."), Qt::AlignLeft);
    connect(m_settingsButton, &QPushButton::clicked, this, &DropZoneView::didClickSettings);
    m_quitButton = makeButton(QStringLiteral("Quit"), Qt::AlignRight);
    connect(m_quitButton, &QPushButton::clicked, this, &DropZoneView::didClickQuit);
}

QPushButton* DropZoneView::makeButton(const QString& title, Qt::Alignment alignment)
{
    auto* button = new QPushButton(title, this);
    button->setFlat(true);
    button->setFocusPolicy(Qt::NoFocus);
    button->setCursor(Qt::PointingHandCursor);
    button->setFont(PaintKit::systemFont(11));
    button->setStyleSheet(
        QStringLiteral("QPushButton { border: none; background: transparent; padding: 0 4px;"
                       " color: rgba(255, 255, 255, 40%); text-align: %1; }"
                       "QPushButton:hover { color: rgba(255, 255, 255, 65%); }")
            .arg(alignment & Qt::AlignLeft ? QStringLiteral("left") : QStringLiteral("right")));
    return button;
}

void DropZoneView::setCompressionState(CompressionState* state)
{
    m_compressionState = state;
    update();
}

void DropZoneView::didClickSettings()
{
    if (m_onSettings)
        m_onSettings();
}

void DropZoneView::didClickQuit()
{
    if (m_onQuit)
        m_onQuit();
}

QString DropZoneView::settingsSummary(const CompressionSettings& settings)
{
    QStringList parts;
    parts << (settings.outputFormat == OutputFormat::Original
                  ? QStringLiteral("original")
                  : OutputFormats::fileExtension(settings.outputFormat).toUpper());
    if (settings.limitLongestEdge)
        parts << QStringLiteral("≤%1px").arg(settings.longestEdgePx);
    if (settings.limitOutputFileSize) {
        const qint64 kb = settings.maxFileSizeKB;
        parts << (kb < 1024 ? QStringLiteral("≤%1 KB").arg(kb) : QStringLiteral("≤%1 MB").arg(kb >> 10));
    }
    return parts.join(kSeparator);
}

QString DropZoneView::countLine(qint64 total)
{
    return QStringLiteral("Optimizing %1 image%2...")
        .arg(total)
        .arg(total == 1 ? QString() : QStringLiteral("s"));
}

DropZoneView::Body DropZoneView::body() const
{
    if (!m_compressionState)
        return Body::None;
    if (m_compressionState->isRunning())
        return Body::Progress;
    if (m_compressionState->isComplete() && !m_isTargeted)
        return Body::Result;
    return Body::DropPrompt;
}

QRectF DropZoneView::toWidget(const QRectF& rect) const
{
    return {rect.x(), height() - rect.y() - rect.height(), rect.width(), rect.height()};
}

void DropZoneView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const int h = width() / 2;
    m_settingsButton->setGeometry(toWidget(QRectF(8, 0, h - 8, 32)).toRect());
    m_quitButton->setGeometry(toWidget(QRectF(h, 0, h - 8, 32)).toRect());
}

void DropZoneView::drawSymbol(QPainter& painter, const QString& name, const QRectF& rect,
                              const QColor& color) const
{
    const QImage image = PaintKit::tintedSymbol(name, rect.size(), color, devicePixelRatioF());
    if (!image.isNull()) // missing artwork is skipped, the rest still draws
        painter.drawImage(rect.topLeft(), image);
}

void DropZoneView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const qreal w = width();
    const qreal h = height();

    QPainterPath card;
    card.addRoundedRect(QRectF(rect()), 12, 12);
    painter.fillPath(card, kBackground);

    drawSymbol(painter, QStringLiteral("bolt.fill"), toWidget(QRectF(14, h - 28, 12, 14)), kAccent);
    PaintKit::drawTextAtBottomLeft(painter, h, {30, h - 27}, PaintKit::systemFont(13, QFont::DemiBold),
                                   Qt::white, QStringLiteral("Brevona"));
    const QString summary = settingsSummary(CompressionSettings::current());
    if (!summary.isEmpty())
        PaintKit::drawTextAtBottomLeft(painter, h, {30, h - 41}, PaintKit::systemFont(10), white(0.3f),
                                       summary);

    painter.fillRect(toWidget(QRectF(0, h - 52, w, 1)), white(0.08f));
    painter.fillRect(toWidget(QRectF(0, 32, w, 1)), white(0.08f));

    switch (body()) {
    case Body::None:
        break;
    case Body::DropPrompt:
        drawPrompt(painter);
        break;
    case Body::Progress:
        drawProgress(painter);
        break;
    case Body::Result:
        drawResult(painter);
        break;
    }
}

QRectF DropZoneView::promptArea() const
{
    return QRectF(8, 40, width() - 16, height() - 100);
}

void DropZoneView::drawPrompt(QPainter& painter) const
{
    const qreal h = height();
    const QRectF area = promptArea();
    QPainterPath shape;
    shape.addRoundedRect(toWidget(area), 8, 8);
    painter.fillPath(shape, m_isTargeted ? accent(0.1f) : white(0.04f));
    QPen pen(m_isTargeted ? kAccent : white(0.12f), 1.5);
    pen.setDashPattern({5 / 1.5, 4 / 1.5}); // in units of the pen width
    pen.setDashOffset(0);
    painter.strokePath(shape, pen);

    const QSizeF iconSize = PaintKit::symbolSize(QStringLiteral("photo.stack"));
    drawSymbol(
        painter, QStringLiteral("photo.stack"),
        toWidget(QRectF(QPointF(area.center().x() - iconSize.width() / 2, area.center().y() + 8), iconSize)),
        m_isTargeted ? kAccent : white(0.22f));

    const QFont mainFont = PaintKit::systemFont(12, QFont::Medium);
    const QString main = m_isTargeted ? kPromptTargeted : kPromptIdle;
    PaintKit::drawTextAtBottomLeft(
        painter, h, {area.center().x() - PaintKit::textWidth(mainFont, main) / 2, area.center().y() - 6},
        mainFont, m_isTargeted ? kAccent : white(0.45f), main);
    const QFont smallFont = PaintKit::systemFont(10);
    PaintKit::drawTextAtBottomLeft(
        painter, h,
        {area.center().x() - PaintKit::textWidth(smallFont, kFormats) / 2, area.center().y() - 22}, smallFont,
        white(0.18f), kFormats);
}

void DropZoneView::drawProgress(QPainter& painter) const
{
    const qreal h = height();
    const qreal y0 = h - 80;
    PaintKit::drawTextAtBottomLeft(painter, h, {16, y0}, PaintKit::systemFont(12), white(0.85f),
                                   countLine(m_compressionState->total()));

    const QRectF track(16, y0 - 18, width() - 32, 4);
    QPainterPath trackPath;
    trackPath.addRoundedRect(toWidget(track), 2, 2);
    painter.fillPath(trackPath, white(0.1f));
    const qreal fillWidth = track.width() * m_compressionState->progress(); // not clamped
    if (fillWidth > 0) {
        QPainterPath fill;
        fill.addRoundedRect(toWidget(QRectF(track.x(), track.y(), fillWidth, track.height())), 2, 2);
        painter.fillPath(fill, kAccent);
    }

    const QString file = m_compressionState->currentFile();
    if (!file.isEmpty())
        PaintKit::drawTextAtBottomLeft(painter, h, {16, y0 - 34}, PaintKit::systemFont(10), white(0.35f),
                                       file);
}

void DropZoneView::drawResult(QPainter& painter) const
{
    const qreal h = height();
    const qreal midX = width() / 2.0;
    const QRectF disc = toWidget(QRectF(midX - 16, 102, 32, 32));
    painter.setPen(Qt::NoPen);
    painter.setBrush(accent(0.15f));
    painter.drawEllipse(disc);
    painter.setBrush(Qt::NoBrush);

    const QSizeF checkSize = PaintKit::symbolSize(QStringLiteral("checkmark"));
    drawSymbol(painter, QStringLiteral("checkmark"),
               QRectF(disc.center() - QPointF(checkSize.width() / 2, checkSize.height() / 2), checkSize),
               kAccent);

    const QStringList pieces = m_compressionState->completionMessage().split(kSeparator);
    const QFont firstFont = PaintKit::systemFont(13, QFont::DemiBold);
    const QString first = pieces.value(0);
    PaintKit::drawTextAtBottomLeft(painter, h, {midX - PaintKit::textWidth(firstFont, first) / 2, 86},
                                   firstFont, Qt::white, first);
    if (pieces.size() >= 2) {
        const QFont secondFont = PaintKit::systemFont(11, QFont::Medium);
        PaintKit::drawTextAtBottomLeft(painter, h,
                                       {midX - PaintKit::textWidth(secondFont, pieces.at(1)) / 2, 68},
                                       secondFont, kAccent, pieces.at(1));
    }
}

void DropZoneView::dragEnterEvent(QDragEnterEvent* event)
{
    if (AcceptedFiles::acceptedFileURLs(event->mimeData()).isEmpty()) {
        event->ignore();
        return;
    }
    m_isTargeted = true;
    update();
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void DropZoneView::dragMoveEvent(QDragMoveEvent* event)
{
    if (AcceptedFiles::acceptedFileURLs(event->mimeData()).isEmpty()) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void DropZoneView::dragLeaveEvent(QDragLeaveEvent* event)
{
    m_isTargeted = false;
    update();
    event->accept();
}

void DropZoneView::dropEvent(QDropEvent* event)
{
    m_isTargeted = false;
    update();
    const QStringList paths = AcceptedFiles::acceptedFileURLs(event->mimeData());
    if (paths.isEmpty()) {
        event->ignore();
        return;
    }
    for (const QString& path : paths)
        ScopedAccess::startAccessing(path); // held for the process; the batch reads them later
    // Handed over on a later turn of the event loop, so the drop is answered before the batch starts.
    QMetaObject::invokeMethod(
        this,
        [this, paths] {
            if (m_onFiles)
                m_onFiles(paths);
        },
        Qt::QueuedConnection);
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void DropZoneView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    // The panel is moved by dragging its background; the window manager does it where it can.
    m_movingByHand = false;
    QWindow* handle = window()->windowHandle();
    if (!handle || !handle->startSystemMove()) {
        m_movingByHand = true;
        m_dragOffset = event->globalPosition().toPoint() - window()->pos();
    }
    event->accept();
}

void DropZoneView::mouseMoveEvent(QMouseEvent* event)
{
    if (m_movingByHand && (event->buttons() & Qt::LeftButton)) {
        window()->move(event->globalPosition().toPoint() - m_dragOffset);
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}
