#include "ui/BusyIndicator.h"

#include <QPainter>

BusyIndicator::BusyIndicator(int diameter, QWidget* parent) : QWidget(parent), m_diameter(diameter)
{
    setFixedSize(diameter, diameter);
    m_spin.setStartValue(0);
    m_spin.setEndValue(360);
    m_spin.setDuration(900);
    m_spin.setLoopCount(-1);
    connect(&m_spin, &QVariantAnimation::valueChanged, this, qOverload<>(&QWidget::update));
}

void BusyIndicator::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_spin.start();
}

void BusyIndicator::hideEvent(QHideEvent* event)
{
    m_spin.stop();
    QWidget::hideEvent(event);
}

void BusyIndicator::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal pen = qMax(1.5, m_diameter / 7.0);
    const QRectF r = QRectF(rect()).adjusted(pen / 2, pen / 2, -pen / 2, -pen / 2);
    QColor track = palette().color(QPalette::WindowText);
    track.setAlphaF(0.15);
    p.setPen(QPen(track, pen));
    p.drawEllipse(r);
    p.setPen(QPen(palette().color(QPalette::WindowText), pen, Qt::SolidLine, Qt::RoundCap));
    const int start = -m_spin.currentValue().toInt() * 16;
    p.drawArc(r, start, 100 * 16);
}
