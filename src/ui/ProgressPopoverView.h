#pragma once

#include <QPointer>
#include <QStringList>
#include <QWidget>

#include "session/CompressionState.h"

class ProgressBarView;

/**
 * A small dark card, 300 pixels wide, showing the batch from the shared state: a header (bolt and
 * "Brevona"), then the count line, the bar and the current file while a batch runs (or nothing
 * has run), or the summary once it is complete. Only reads the state.
 */
class ProgressPopoverView final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kWidth = 300;
    static constexpr int kPadding = 16;
    static constexpr int kRowSpacing = 12;
    static constexpr int kLineSpacing = 6;
    static constexpr int kHeaderSpacing = 8;

    explicit ProgressPopoverView(CompressionState* state, QWidget* parent = nullptr);

    ProgressBarView* progressBar() const { return m_bar; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    struct Layout
    {
        QRectF icon;
        QRectF title;
        QRectF countLine;
        QRectF bar;
        QRectF fileLine;
        QRectF summary;
        int height = 0;
    };
    Layout layout() const;
    void stateChanged();
    QString elidedFileName() const;

    QPointer<CompressionState> m_state;
    ProgressBarView* m_bar = nullptr;
};
