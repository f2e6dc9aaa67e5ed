#pragma once

#include <functional>

#include <QStringList>
#include <QWidget>

class CompressionState;
class DropZoneView;

/**
 * The 280 x 220 window that holds the drop-zone view.
 *
 * Floating: frameless, translucent (the view paints its own rounded card), above other windows,
 * without a taskbar or pager entry, on every workspace, moved by dragging its background, hidden
 * by Esc. Without a compositor, translucency is not available and a window shape cuts the
 * corners round instead. Windowed (used when there is no
 * system tray): an ordinary titled window that the window manager places, and whose closing ends
 * the application, since nothing else would be left to reach it by.
 */
class DropZonePanel final : public QWidget
{
    Q_OBJECT

public:
    enum class Mode
    {
        Floating,
        Windowed
    };
    static constexpr QSize kSize{280, 220};

    explicit DropZonePanel(Mode mode = Mode::Floating);

    Mode mode() const { return m_mode; }
    DropZoneView* dropZoneView() const { return m_dropZoneView; }

    /// Hands the state and the three callbacks to the view, in that order.
    void configure(CompressionState* state, std::function<void(const QStringList&)> onFiles,
                   std::function<void()> onSettings, std::function<void()> onQuit);
    /// Repaints the view.
    void refresh();

    /// The window shape for a panel of `size`: the card's rounded rectangle.
    static QRegion roundedShape(QSize size);

protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    Mode m_mode;
    DropZoneView* m_dropZoneView = nullptr;
    std::function<void()> m_onQuit;
};
