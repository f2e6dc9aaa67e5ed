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

QPoint PanelPlacement::placeOnScreen(const QRect& anchor, QSize size)
{
    QScreen* screen = screenFor(anchor);
    if (!screen)
        return {};
    const QRect effective = anchor.isEmpty() ? substituteAnchor(screen->geometry()) : anchor;
    return topLeft(effective, screen->availableGeometry(), size);
}
