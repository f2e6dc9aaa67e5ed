#include "ui/PanelPlacement.h"

#include <algorithm>

#include <QGuiApplication>
#include <QScreen>

QPoint PanelPlacement::topLeft(const QRect& anchor, const QRect& available, QSize size)
{
    const int centred = anchor.x() + anchor.width() / 2 - size.width() / 2;
    const int minX = available.x() + kMargin;
    const int maxX = available.x() + available.width() - size.width() - kMargin;
    const int x = std::max(minX, std::min(maxX, centred));

    int y = anchor.y() + anchor.height() + kGap;
    if (y + size.height() > available.y() + available.height())
        y = anchor.y() - kGap - size.height();
    return {x, y};
}

QRect PanelPlacement::substituteAnchor(const QRect& screenGeometry)
{
    const int right = screenGeometry.x() + screenGeometry.width();
    return {right - 280 - 20, screenGeometry.y() + 24 - 22, 280, 22};
}

QRect PanelPlacement::effectiveAnchor(const QRect& iconGeometry, std::optional<QPoint> click,
                                      const QRect& screenGeometry, const QRect& available)
{
    if (!iconGeometry.isEmpty())
        return iconGeometry;
    if (!click)
        return substituteAnchor(screenGeometry);
    const int x = click->x();
    if (click->y() < available.top() && click->y() >= screenGeometry.top())
        return {x, screenGeometry.top(), 1, available.top() - screenGeometry.top()};
    if (click->y() > available.bottom() && click->y() <= screenGeometry.bottom())
        return {x, available.bottom() + 1, 1, screenGeometry.bottom() - available.bottom()};
    return {*click, QSize(1, 1)};
}

QScreen* PanelPlacement::screenFor(const QRect& anchor)
{
    if (!anchor.isEmpty()) {
        if (QScreen* screen = QGuiApplication::screenAt(anchor.center()))
            return screen;
    }
    if (QScreen* primary = QGuiApplication::primaryScreen())
        return primary;
    const QList<QScreen*> screens = QGuiApplication::screens();
    return screens.isEmpty() ? nullptr : screens.first();
}

QPoint PanelPlacement::placeOnScreen(const QRect& iconGeometry, std::optional<QPoint> click, QSize size)
{
    const QRect known = iconGeometry.isEmpty() && click ? QRect(*click, QSize(1, 1)) : iconGeometry;
    QScreen* screen = screenFor(known);
    if (!screen)
        return {};
    const QRect available = screen->availableGeometry();
    return topLeft(effectiveAnchor(iconGeometry, click, screen->geometry(), available), available, size);
}
