#include "ui/RadioRow.h"

#include <utility>

#include <QPainter>
#include <QPainterPath>

namespace {
constexpr int kSpacing = 8;
constexpr int kVerticalPadding = 2;
} // namespace

RadioRow::RadioRow(const QString& label, std::function<void()> action, QWidget* parent)
    : QAbstractButton(parent), m_action(std::move(action))
{
    setText(label);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
    setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    connect(this, &QAbstractButton::clicked, this, [this] {
        if (m_action)
            m_action();
    });
}

void RadioRow::setSelected(bool selected)
{
    if (m_selected == selected)
        return;
    m_selected = selected;
    setAccessibleDescription(selected ? QStringLiteral("selected") : QString());
    update();
}

int RadioRow::indicatorSize() const
{
    return fontMetrics().height() - 2;
}

QSize RadioRow::sizeHint() const
{
    const QFontMetrics fm = fontMetrics();
    return {indicatorSize() + kSpacing + fm.horizontalAdvance(text()) + 2,
            fm.height() + 2 * kVerticalPadding};
}

void RadioRow::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);

    const int d = indicatorSize();
    const QRectF circle(1.0, (height() - d) / 2.0, d - 2.0, d - 2.0);
    const QColor primary = palette().color(QPalette::WindowText);
    QColor secondary = primary;
    secondary.setAlphaF(0.5);

    // Selected: ring with a filled centre in the primary colour; otherwise a plain ring in the
    // secondary colour.
    p.setPen(QPen(m_selected ? primary : secondary, 1.4));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(circle);
    if (m_selected) {
        const qreal inset = circle.width() * 0.27;
        p.setPen(Qt::NoPen);
        p.setBrush(primary);
        p.drawEllipse(circle.adjusted(inset, inset, -inset, -inset));
    }

    p.setPen(primary);
    const QRect textRect(d + kSpacing, 0, width() - d - kSpacing, height());
    p.drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft, text());

    if (hasFocus()) {
        QColor focus = palette().color(QPalette::Highlight);
        p.setPen(QPen(focus, 1));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
    }
}
