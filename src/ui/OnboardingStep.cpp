#include "ui/OnboardingStep.h"

#include <QHBoxLayout>
#include <QLabel>

#include "ui/OnboardingView.h"
#include "ui/PaintKit.h"

OnboardingStep::OnboardingStep(QString number, QString text, QWidget* parent)
    : QWidget(parent), m_number(std::move(number)), m_text(std::move(text))
{
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(10);
    row->setAlignment(Qt::AlignTop);

    auto* badge = new QLabel(m_number, this);
    badge->setObjectName(QStringLiteral("badge"));
    badge->setFixedSize(18, 18);
    badge->setAlignment(Qt::AlignCenter);
    badge->setFont(PaintKit::systemFont(11, QFont::DemiBold));
    badge->setAutoFillBackground(true);
    QPalette badgePalette = badge->palette();
    badgePalette.setColor(QPalette::Window, OnboardingView::kYellow);
    badgePalette.setColor(QPalette::WindowText, Qt::black);
    badge->setPalette(badgePalette);
    row->addWidget(badge, 0, Qt::AlignTop);

    auto* label = new QLabel(m_text, this);
    label->setObjectName(QStringLiteral("text"));
    label->setFont(PaintKit::systemFont(13));
    label->setWordWrap(true);
    QPalette textPalette = label->palette();
    QColor secondary = textPalette.color(QPalette::WindowText);
    secondary.setAlphaF(0.55);
    textPalette.setColor(QPalette::WindowText, secondary);
    label->setPalette(textPalette);
    row->addWidget(label, 1, Qt::AlignTop);
}
