#include <optional>

#include <QTest>

#include "ui/PanelPlacement.h"

class TestPanelPlacement : public QObject
{
    Q_OBJECT

private slots:
    // Where the 280 x 220 panel goes under or above the tray icon. Status-notifier trays report
    // no icon geometry; the click point stands in for it.
    void topLeft_data()
    {
        QTest::addColumn<QRect>("icon");
        QTest::addColumn<std::optional<QPoint>>("click");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QPoint>("expected");
        const auto icon = [](const char* name, QRect icon, QRect available, QPoint expected) {
            QTest::newRow(name) << icon << std::optional<QPoint>() << available << expected;
        };
        const auto click = [](const char* name, std::optional<QPoint> click, QRect available,
                              QPoint expected) {
            QTest::newRow(name) << QRect() << click << available << expected;
        };
        const QRect topBar(0, 25, 1440, 875); // a 1440 x 900 screen under a 25-pixel bar
        icon("centred under the icon", {700, 2, 22, 22}, topBar, {711 - 140, 32});
        icon("far right is clamped", {1410, 2, 22, 22}, topBar, {1440 - 288, 32});
        icon("offset screen, left", {1925, 2, 22, 22}, {1920, 25, 1280, 999}, {1928, 32});
        icon("narrow screen: left bound wins", {100, 0, 22, 22}, {0, 24, 200, 576}, {8, 30});
        // A bottom panel: no room below the icon, so the panel sits 8 pixels above it.
        icon("flip above a bottom tray", {1380, 1050, 24, 30}, {0, 0, 1920, 1044},
             {1392 - 140, 1050 - 8 - 220});
        icon("exactly fits below", {600, 100, 20, 20}, {0, 0, 1280, 348}, {610 - 140, 128});
        icon("one pixel short flips", {600, 100, 20, 20}, {0, 0, 1280, 347}, {610 - 140, 100 - 228});
        const QRect underTopBar(0, 28, 1920, 1052);
        const QRect overBottomBar(0, 0, 1920, 1052);
        QTest::newRow("icon geometry wins over the click")
            << QRect(1380, 1052, 24, 28) << std::optional<QPoint>(QPoint(900, 1066)) << overBottomBar
            << QPoint(1392 - 140, 1052 - 8 - 220);
        click("click in a top bar: 8 below the bar", QPoint(1500, 14), underTopBar, {1360, 28 + 8});
        click("click in a bottom bar: flipped, 8 above it", QPoint(1500, 1066), overBottomBar,
              {1360, 1052 - 8 - 220});
        click("click without bars: the 1 x 1 point", QPoint(700, 400), {0, 0, 1920, 1080}, {560, 409});
        click("no click: the substitute anchor", std::nullopt, overBottomBar, {1920 - 300, 32});
    }
    void topLeft()
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
