#include "ui/ProgressBarView.h"

#include <algorithm>

#include <QPainter>
#include <QPainterPath>

#include "ui/ColorHex.h"

ProgressBarView::ProgressBarView(QWidget* parent) : QWidget(parent)
{
    setFixedHeight(kBarHeight + 2 * kGlowMargin);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    m_animation.setDuration(kAnimationMs);
    QEasingCurve easeInOut(QEasingCurve::BezierSpline);
    easeInOut.addCubicBezierSegment(QPointF(0.42, 0.0), QPointF(0.58, 1.0), QPointF(1.0, 1.0));
    m_animation.setEasingCurve(easeInOut);
    connect(&m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        m_displayed = value.toDouble();
        update();
    });
}

void ProgressBarView::setProgress(double progress, bool animated)
{
    if (progress == m_progress && (animated || m_displayed == progress))
        return;
    m_progress = progress;
    m_animation.stop();
    if (!animated) {
        m_displayed = progress;
        update();
        return;
    }
    m_animation.setStartValue(m_displayed);
    m_animation.setEndValue(progress);
    m_animation.start();
}

QRectF ProgressBarView::barRect() const
{
    return QRectF(kGlowMargin, kGlowMargin, width() - 2 * kGlowMargin, kBarHeight);
}

QSize ProgressBarView::sizeHint() const
{
    return {100 + 2 * kGlowMargin, kBarHeight + 2 * kGlowMargin};
}

void ProgressBarView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF bar = barRect();
    QPainterPath track;
    track.addRoundedRect(bar, 2, 2);
    painter.fillPath(track, QColor::fromRgbF(1, 1, 1, 0.1f));

    const double width = std::max(0.0, bar.width() * m_displayed); // not limited above
    if (width <= 0)
        return;
    const QColor accent = colorFromHex(QStringLiteral("#FFD60A"));
    // The glow: the fill's shape widened step by step, fading outwards (accent at 0.8, radius 4).
    const QRectF fillRect(bar.x(), bar.y(), width, bar.height());
    for (int spread = kGlowMargin; spread >= 1; --spread) {
        QColor glow = accent;
        glow.setAlphaF(0.8f * 0.35f * float(kGlowMargin - spread + 1) / float(kGlowMargin + 1));
        QPainterPath halo;
        halo.addRoundedRect(fillRect.adjusted(-spread, -spread, spread, spread), 2 + spread, 2 + spread);
        painter.fillPath(halo, glow);
    }
    QPainterPath fill;
    fill.addRoundedRect(fillRect, 2, 2);
    painter.fillPath(fill, accent);
}
