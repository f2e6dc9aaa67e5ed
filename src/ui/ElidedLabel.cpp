#include "ui/ElidedLabel.h"

#include <QFontMetrics>

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent)
{
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
}

void ElidedLabel::setFullText(const QString& text)
{
    m_fullText = text;
    setToolTip(text);
    updateGeometry();
    updateElision();
}

QSize ElidedLabel::minimumSizeHint() const
{
    // Allow shrinking to almost nothing; the elision keeps the text readable.
    return {fontMetrics().horizontalAdvance(QStringLiteral("…")) * 4, QLabel::minimumSizeHint().height()};
}

QSize ElidedLabel::sizeHint() const
{
    return {fontMetrics().horizontalAdvance(m_fullText), QLabel::sizeHint().height()};
}

void ElidedLabel::resizeEvent(QResizeEvent* event)
{
    QLabel::resizeEvent(event);
    updateElision();
}

void ElidedLabel::updateElision()
{
    setText(fontMetrics().elidedText(m_fullText, Qt::ElideMiddle, contentsRect().width()));
}
