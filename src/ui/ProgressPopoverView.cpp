#include "ui/ProgressPopoverView.h"

#include <algorithm>

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

#include "session/CompressionState.h"
#include "ui/ColorHex.h"
#include "ui/DropZoneView.h"
#include "ui/PaintKit.h"
#include "ui/ProgressBarView.h"

namespace {
const QString kTitle = QStringLiteral("Brevona");
constexpr int kContentWidth = ProgressPopoverView::kWidth - 2 * ProgressPopoverView::kPadding;

QFont headerFont()
{
    return PaintKit::systemFont(14, QFont::DemiBold);
}
QFont countFont()
{
    return PaintKit::systemFont(12);
}
QFont fileFont()
{
    return PaintKit::systemFont(11);
}
QColor white(float alpha)
{
    return QColor::fromRgbF(1, 1, 1, alpha);
}
} // namespace

ProgressPopoverView::ProgressPopoverView(CompressionState* state, QWidget* parent)
    : QWidget(parent), m_state(state), m_bar(new ProgressBarView(this))
{
    setFixedWidth(kWidth);
    if (m_state) {
        for (auto signal : {&CompressionState::currentChanged, &CompressionState::totalChanged,
                            &CompressionState::currentFileChanged, &CompressionState::isCompleteChanged,
                            &CompressionState::completionMessageChanged, &CompressionState::isRunningChanged})
            connect(m_state, signal, this, &ProgressPopoverView::stateChanged);
        m_bar->setProgress(m_state->progress(), false);
    }
    stateChanged();
}

ProgressPopoverView::Layout ProgressPopoverView::layout() const
{
    Layout l;
    const QSizeF boltNatural = PaintKit::symbolSize(QStringLiteral("bolt.fill"));
    // The artwork is drawn for a 12-pixel font; scale it to the header's 14.
    const QSizeF bolt = boltNatural.isEmpty() ? QSizeF() : boltNatural * (14.0 / 12.0);
    const QFontMetricsF header(headerFont());
    const qreal titleWidth = header.horizontalAdvance(kTitle);
    const qreal rowHeight = std::max(bolt.height(), header.height());
    qreal y = kPadding;
    l.icon = QRectF(kPadding, y + (rowHeight - bolt.height()) / 2, bolt.width(), bolt.height());
    const qreal titleX = bolt.isEmpty() ? kPadding : l.icon.right() + kHeaderSpacing;
    l.title = QRectF(titleX, y + (rowHeight - header.height()) / 2, titleWidth, header.height());
    y += rowHeight + kRowSpacing;

    if (m_state && m_state->isComplete()) {
        const QFontMetricsF metrics(countFont());
        const QRectF text = metrics.boundingRect(QRectF(0, 0, kContentWidth, 10000), Qt::TextWordWrap,
                                                 m_state->completionMessage());
        l.summary = QRectF(kPadding, y, kContentWidth, std::max(text.height(), metrics.height()));
        y = l.summary.bottom();
    } else {
        const qreal countHeight = QFontMetricsF(countFont()).height();
        l.countLine = QRectF(kPadding, y, kContentWidth, countHeight);
        y += countHeight + kLineSpacing;
        l.bar = QRectF(kPadding, y, kContentWidth, ProgressBarView::kBarHeight);
        y += ProgressBarView::kBarHeight;
        if (m_state && !m_state->currentFile().isEmpty()) {
            y += kLineSpacing;
            const qreal fileHeight = QFontMetricsF(fileFont()).height();
            l.fileLine = QRectF(kPadding, y, kContentWidth, fileHeight);
            y += fileHeight;
        }
    }
    l.height = qCeil(y + kPadding);
    return l;
}

QString ProgressPopoverView::elidedFileName() const
{
    if (!m_state)
        return {};
    return QFontMetricsF(fileFont()).elidedText(m_state->currentFile(), Qt::ElideMiddle, kContentWidth);
}

QSize ProgressPopoverView::sizeHint() const
{
    return {kWidth, layout().height};
}

void ProgressPopoverView::stateChanged()
{
    const Layout l = layout();
    const bool showBar = !l.bar.isNull();
    m_bar->setVisible(showBar);
    if (showBar) {
        m_bar->setGeometry(l.bar
                               .adjusted(-ProgressBarView::kGlowMargin, -ProgressBarView::kGlowMargin,
                                         ProgressBarView::kGlowMargin, ProgressBarView::kGlowMargin)
                               .toRect());
        m_bar->setProgress(m_state ? m_state->progress() : 0.0);
    }
    setFixedHeight(l.height);
    update();
}

void ProgressPopoverView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), colorFromHex(QStringLiteral("#1A1A1A")));
    const Layout l = layout();
    const QColor accent = colorFromHex(QStringLiteral("#FFD60A"));

    const QImage bolt =
        PaintKit::tintedSymbol(QStringLiteral("bolt.fill"), l.icon.size(), accent, devicePixelRatioF());
    if (!bolt.isNull())
        painter.drawImage(l.icon.topLeft(), bolt);
    painter.setFont(headerFont());
    painter.setPen(Qt::white);
    painter.drawText(l.title, Qt::AlignLeft | Qt::AlignVCenter, kTitle);

    if (m_state && m_state->isComplete()) {
        painter.setFont(countFont());
        painter.setPen(white(0.85f));
        painter.drawText(l.summary, Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap,
                         m_state->completionMessage());
        return;
    }
    painter.setFont(countFont());
    painter.setPen(white(0.85f));
    painter.drawText(l.countLine, Qt::AlignLeft | Qt::AlignVCenter,
                     DropZoneView::countLine(m_state ? m_state->total() : 0));
    if (!l.fileLine.isNull()) {
        painter.setFont(fileFont());
        painter.setPen(white(0.5f));
        painter.drawText(l.fileLine, Qt::AlignLeft | Qt::AlignVCenter, elidedFileName());
    }
}
