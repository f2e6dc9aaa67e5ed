#pragma once

#include <optional>

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

    /**
     * What a window opened from the tray hangs under: the icon's rectangle when the tray reports
     * one, else a 1 x 1 rectangle at the pointer position of the click that opened it, else (no
     * click: a batch or start-up opened it) the substitute anchor on `screenGeometry`. A click
     * on a bar along the top or bottom edge (outside `available`) stretches the click anchor over
     * the bar's height there, so the window keeps its gap from the bar the icon sits in rather
     * than from the pointer inside it.
     */
    static QRect effectiveAnchor(const QRect& iconGeometry, std::optional<QPoint> click,
                                 const QRect& screenGeometry, const QRect& available);

    /// The screen that holds the anchor's centre, else the primary screen, else the first one.
    static QScreen* screenFor(const QRect& anchor);

    /// topLeft() on the anchor's screen, with the anchor chosen by effectiveAnchor().
    static QPoint placeOnScreen(const QRect& iconGeometry, std::optional<QPoint> click, QSize size);
};
