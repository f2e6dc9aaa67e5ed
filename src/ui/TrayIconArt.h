#pragma once

#include <QColor>
#include <QIcon>

class QImage;

/**
 * The tray icon's bolt. Hosts that take an icon name (status-notifier trays) get the themed
 * symbolic icon `brevona-symbolic`, which they recolour like their other symbolic icons; hosts
 * that take only pixels get the bolt drawn in a colour that reads on their background.
 */
class TrayIconArt final
{
public:
    static inline const QString kThemeName = QStringLiteral("brevona-symbolic");

    /// The installed theme icon, or the bundled artwork when no theme has it.
    static QIcon themed();

    /// The bolt drawn in `tint` at `opacity`, at the usual tray sizes.
    static QIcon drawn(const QColor& tint, double opacity);

    /**
     * White on a dark background, near-black on a light one, judged by the mean luminance of
     * the image's border pixels (the tray around the icon); invalid for an empty image.
     */
    static QColor tintFor(const QImage& background);
};
