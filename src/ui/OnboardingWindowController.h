#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

/**
 * Owns the one "Welcome to Brevona" window: 400 by 300, titled, closable, not resizable.
 *
 * The window is built on the first `show()` and centred on the screen; closing it only hides it,
 * and later calls bring the same window back where it was.
 */
class OnboardingWindowController final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OnboardingWindowController)

public:
    static constexpr QSize kContentSize{400, 300};

    explicit OnboardingWindowController(QObject* parent = nullptr);
    ~OnboardingWindowController() override;

    /// The process's one controller, created on first use and never destroyed.
    static OnboardingWindowController& shared();

    /// The window; null until the first `show()`.
    QWidget* window() const { return m_window; }

    /// Builds the window if needed, shows it, raises it and asks for keyboard focus.
    void show();

private:
    QPointer<QWidget> m_window;
};
