#pragma once

#include <QColor>
#include <QWidget>

class QPushButton;

/**
 * The content of the welcome window: the yellow bolt, the title, the three numbered steps and
 * "Get Started", which closes the active window (Return presses it).
 */
class OnboardingView final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OnboardingView)

public:
    static inline const QColor kYellow = QColor(255, 204, 0);

    explicit OnboardingView(QWidget* parent = nullptr);

    QPushButton* getStartedButton() const { return m_getStarted; }

private:
    QPushButton* m_getStarted = nullptr;
};
