#include <optional>

#include <QTest>

#include "ui/PanelPlacement.h"

class TestPanelPlacement : public QObject
{
    Q_OBJECT

private slots:
    void topLeft_data()
    {
        QTest::addColumn<QRect>("anchor");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QPoint>("expected");
        const QRect topBar(0, 25, 1440, 875); // a 1440 x 900 screen under a 25-pixel bar
        QTest::newRow("centred under the icon") << QRect(700, 2, 22, 22) << topBar << QPoint(711 - 140, 32);
        QTest::newRow("far right is clamped") << QRect(1410, 2, 22, 22) << topBar << QPoint(1440 - 288, 32);
        QTest::newRow("offset screen, left")
            << QRect(1925, 2, 22, 22) << QRect(1920, 25, 1280, 999) << QPoint(1928, 32);
        QTest::newRow("narrow screen: left bound wins")
            << QRect(100, 0, 22, 22) << QRect(0, 24, 200, 576) << QPoint(8, 30);
        // A bottom panel: no room below the icon, so the panel sits 8 pixels above it.
        QTest::newRow("flip above a bottom tray")
            << QRect(1380, 1050, 24, 30) << QRect(0, 0, 1920, 1044) << QPoint(1392 - 140, 1050 - 8 - 220);
        QTest::newRow("exactly fits below")
            << QRect(600, 100, 20, 20) << QRect(0, 0, 1280, 348) << QPoint(610 - 140, 128);
        QTest::newRow("one pixel short flips")
            << QRect(600, 100, 20, 20) << QRect(0, 0, 1280, 347) << QPoint(610 - 140, 100 - 228);
    }
    void topLeft()
    {
        QFETCH(QRect, anchor);
        QFETCH(QRect, available);
        QFETCH(QPoint, expected);
        QCOMPARE(PanelPlacement::topLeft(anchor, available, QSize(280, 220)), expected);
    }

    // Status-notifier trays report no icon geometry; the click point stands in for it.
    void anchorFromTheTray_data()
    {
        QTest::addColumn<QRect>("icon");
        QTest::addColumn<std::optional<QPoint>>("click");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QPoint>("expected");
        const QRect underTopBar(0, 28, 1920, 1052);
        const QRect overBottomBar(0, 0, 1920, 1052);
        const QRect noBars(0, 0, 1920, 1080);
        QTest::newRow("icon geometry wins over the click")
            << QRect(1380, 1052, 24, 28) << std::optional<QPoint>(QPoint(900, 1066)) << overBottomBar
            << QPoint(1392 - 140, 1052 - 8 - 220);
        QTest::newRow("click in a top bar: 8 below the bar")
            << QRect() << std::optional<QPoint>(QPoint(1500, 14)) << underTopBar << QPoint(1360, 28 + 8);
        QTest::newRow("click in a bottom bar: flipped, 8 above it")
            << QRect() << std::optional<QPoint>(QPoint(1500, 1066)) << overBottomBar
            << QPoint(1360, 1052 - 8 - 220);
        QTest::newRow("click without bars: the 1 x 1 point")
            << QRect() << std::optional<QPoint>(QPoint(700, 400)) << noBars << QPoint(560, 409);
        QTest::newRow("no click: the substitute anchor")
            << QRect() << std::optional<QPoint>() << overBottomBar << QPoint(1920 - 300, 32);
    }
    void anchorFromTheTray()
    {
        QFETCH(QRect, icon);
        QFETCH(std::optional<QPoint>, click);
        QFETCH(QRect, available);
        QFETCH(QPoint, expected);
        const QRect anchor = PanelPlacement::effectiveAnchor(icon, click, QRect(0, 0, 1920, 1080), available);
        QCOMPARE(PanelPlacement::topLeft(anchor, available, QSize(280, 220)), expected);
    }
};

QTEST_GUILESS_MAIN(TestPanelPlacement)
#include "tst_panelplacement.moc"
