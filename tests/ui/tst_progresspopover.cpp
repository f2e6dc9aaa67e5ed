#include <QFontMetricsF>
#include <QTest>

#include "session/CompressionState.h"
#include "ui/ColorHex.h"
#include "ui/PaintKit.h"
#include "ui/ProgressBarView.h"
#include "ui/ProgressPopoverView.h"

namespace {
bool isAmber(QRgb pixel)
{
    return qRed(pixel) > 240 && qGreen(pixel) > 195 && qGreen(pixel) < 230 && qBlue(pixel) < 40;
}
} // namespace

class TestProgressPopover : public QObject
{
    Q_OBJECT

private slots:
    void colorFromHex_data()
    {
        QTest::addColumn<QString>("hex");
        QTest::addColumn<QColor>("color");
        QTest::newRow("bare") << "FFD60A" << QColor(255, 214, 10);
        QTest::newRow("with hash") << "#FFD60A" << QColor(255, 214, 10);
        QTest::newRow("lower case") << "#ffd60a" << QColor(255, 214, 10);
        QTest::newRow("background") << "#1A1A1A" << QColor(26, 26, 26);
        QTest::newRow("spaces and punctuation trimmed") << "  #1a1a1a; " << QColor(26, 26, 26);
        QTest::newRow("0x prefix") << "0xFFD60A" << QColor(255, 214, 10);
        QTest::newRow("trailing letters stop the scan") << "FFD60Azz" << QColor(255, 214, 10);
        QTest::newRow("unparsable is black") << "zz" << QColor(0, 0, 0);
        QTest::newRow("empty is black") << "" << QColor(0, 0, 0);
        QTest::newRow("alpha byte lands in red's place") << "#80FFD60A" << QColor(255, 214, 10);
        QTest::newRow("short form is a number") << "#FFF" << QColor(0, 15, 255);
    }
    void colorFromHex()
    {
        QFETCH(QString, hex);
        QFETCH(QColor, color);
        const QColor c = ::colorFromHex(hex);
        QCOMPARE(c.rgba(), color.rgba());
    }

    void fillWidth_data()
    {
        QTest::addColumn<double>("progress");
        QTest::addColumn<double>("width");
        QTest::newRow("negative draws nothing") << -0.3 << 0.0;
        QTest::newRow("zero") << 0.0 << 0.0;
        QTest::newRow("half") << 0.5 << 134.0;
        QTest::newRow("full fills the track exactly") << 1.0 << 268.0;
        QTest::newRow("past the end is not limited") << 1.25 << 335.0;
    }
    void fillWidth()
    {
        QFETCH(double, progress);
        QFETCH(double, width);
        QCOMPARE(ProgressBarView::fillWidth(268, progress), width);
    }

    void barPixels_data()
    {
        QTest::addColumn<double>("progress");
        QTest::addColumn<bool>("startAmber");
        QTest::addColumn<bool>("endAmber");
        QTest::newRow("negative") << -0.5 << false << false;
        QTest::newRow("full") << 1.0 << true << true;
        QTest::newRow("a tenth") << 0.1 << true << false;
    }
    void barPixels()
    {
        QFETCH(double, progress);
        QFETCH(bool, startAmber);
        QFETCH(bool, endAmber);
        ProgressBarView bar;
        bar.resize(100 + 2 * ProgressBarView::kGlowMargin, bar.height());
        bar.setProgress(progress, false);
        QImage image(bar.size(), QImage::Format_ARGB32_Premultiplied);
        image.fill(QColor(26, 26, 26));
        bar.render(&image);
        const int row = ProgressBarView::kGlowMargin + 2;
        QCOMPARE(isAmber(image.pixel(ProgressBarView::kGlowMargin + 2, row)), startAmber);
        QCOMPARE(isAmber(image.pixel(ProgressBarView::kGlowMargin + 97, row)), endAmber);
    }

    void barSlides()
    {
        ProgressBarView bar;
        bar.setProgress(0.5);
        QCOMPARE(bar.progress(), 0.5);
        QVERIFY(bar.displayedProgress() < 0.5);
        QTRY_COMPARE(bar.displayedProgress(), 0.5);
    }

    void texts_data()
    {
        QTest::addColumn<int>("total");
        QTest::addColumn<QString>("file");
        QTest::addColumn<bool>("complete");
        QTest::addColumn<QStringList>("texts");
        QTest::newRow("idle") << 0 << "" << false << QStringList{"Brevona", "Optimizing 0 images..."};
        QTest::newRow("singular") << 1 << "a.jpg" << false
                                  << QStringList{"Brevona", "Optimizing 1 image...", "a.jpg"};
        QTest::newRow("plural without file")
            << 12 << "" << false << QStringList{"Brevona", "Optimizing 12 images..."};
        QTest::newRow("complete") << 3 << "c.png" << true
                                  << QStringList{"Brevona", "3 images optimized · 1.2 MB saved"};
    }
    void texts()
    {
        QFETCH(int, total);
        QFETCH(QString, file);
        QFETCH(bool, complete);
        QFETCH(QStringList, texts);
        CompressionState state;
        ProgressPopoverView view(&state);
        state.start(total);
        state.update(1, file);
        if (complete)
            state.complete(QStringLiteral("3 images optimized · 1.2 MB saved"));
        QCOMPARE(view.drawnTexts(), texts);
        QCOMPARE(view.progressBar()->isVisibleTo(&view), !complete);
    }

    // Width 300, padding 16, a 12-pixel gap under the header, 6 between the lines of the body:
    // the file line adds exactly its own height and one gap.
    void layoutMetrics()
    {
        CompressionState state;
        ProgressPopoverView view(&state);
        QCOMPARE(view.width(), 300);
        state.start(2);
        const int withoutFile = view.sizeHint().height();
        state.update(1, QStringLiteral("b.png"));
        const int withFile = view.sizeHint().height();
        const qreal fileLine = QFontMetricsF(PaintKit::systemFont(11)).height();
        QVERIFY(qAbs(withFile - withoutFile - (6 + fileLine)) <= 1.0);
        const qreal header =
            std::max(QFontMetricsF(PaintKit::systemFont(14, QFont::DemiBold)).height(), 14.0 * 14 / 12);
        const qreal count = QFontMetricsF(PaintKit::systemFont(12)).height();
        QVERIFY(qAbs(withoutFile - (16 + header + 12 + count + 6 + 4 + 16)) <= 1.0);
        QCOMPARE(view.progressBar()->barRect().width(), 268.0);
        QCOMPARE(view.progressBar()->geometry().x() + ProgressBarView::kGlowMargin, 16);
    }

    void longFileNameIsShortened()
    {
        CompressionState state;
        ProgressPopoverView view(&state);
        state.start(1);
        const QString longName = QString(200, QLatin1Char('x')) + QStringLiteral(".jpg");
        state.update(0, longName);
        const QString drawn = view.drawnTexts().last();
        QVERIFY(drawn.size() < longName.size());
        QVERIFY(drawn.endsWith(QStringLiteral(".jpg")));
    }
};

QTEST_MAIN(TestProgressPopover)
#include "tst_progresspopover.moc"
