#pragma once

#include <QVariantAnimation>
#include <QWidget>

/**
 * A thin amber bar on a faint track, 4 pixels high, with a soft glow around the fill. Changes of
 * progress slide over 0.2 s, easing in and out. The widget keeps a margin of kGlowMargin on every
 * side for the glow; the bar itself is the rectangle inside it.
 */
class ProgressBarView final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kBarHeight = 4;
    static constexpr int kGlowMargin = 4;
    static constexpr int kAnimationMs = 200;

    explicit ProgressBarView(QWidget* parent = nullptr);

    /// The target value (normally 0 to 1); `animated` false jumps there at once.
    void setProgress(double progress, bool animated = true);
    double progress() const { return m_progress; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    /// The bar inside the glow margin.
    QRectF barRect() const;

    double m_progress = 0.0;
    double m_displayed = 0.0;
    QVariantAnimation m_animation;
};
