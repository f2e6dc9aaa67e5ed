#pragma once

#include <QString>
#include <QWidget>

/// One numbered instruction of the welcome window: a yellow 18 by 18 badge with the number,
/// then the text in the secondary text colour.
class OnboardingStep final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OnboardingStep)

public:
    OnboardingStep(QString number, QString text, QWidget* parent = nullptr);

    QString number() const { return m_number; }
    QString text() const { return m_text; }

private:
    QString m_number;
    QString m_text;
};
