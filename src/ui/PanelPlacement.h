#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

class QScreen;

/**
 * Where a floating window goes relative to the tray icon, in screen coordinates (y downwards).
 *
 * Centred under the anchor with an 8-pixel gap, kept 8 pixels inside the available area
 * horizontally (the left bound wins on a screen too narrow for both), and flipped above the
 * anchor when it would reach below the available area.
 */
class PanelPlacement final
{
public:
    static constexpr int kGap = 8;
    static constexpr int kMargin = 8;

    /// Top-left corner for a window of `size` under `anchor`.
    static QPoint topLeft(const QRect& anchor, const QRect& available, QSize size);

    /**
     * The anchor to use when the tray gives no icon geometry (status-notifier hosts do not): a
     * strip 280 x 22 ending 20 pixels from the right edge of the full screen, 2 to 24 pixels from
     * its top, where a top bar's tray usually sits.
     */
    static QRect substituteAnchor(const QRect& screenGeometry);

    /// The screen that holds the anchor's centre, else the primary screen, else the first one.
    static QScreen* screenFor(const QRect& anchor);

    /// topLeft() on the anchor's screen, with the substitute anchor when `anchor` is empty.
    static QPoint placeOnScreen(const QRect& anchor, QSize size);
};
