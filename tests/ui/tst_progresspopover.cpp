#include <QTest>

#include "PaintRecorder.h"
#include "session/CompressionState.h"
#include "ui/ColorHex.h"
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
        QTest::newRow("spaces and punctuation trimmed") << "  #1a1a1a; " << QColor(26, 26, 26);
        QTest::newRow("unparsable is black") << "zz" << QColor(0, 0, 0);
    }
    void colorFromHex()
    {
        QFETCH(QString, hex);
        QFETCH(QColor, color);
        const QColor c = ::colorFromHex(hex);
        QCOMPARE(c.rgba(), color.rgba());
    }

    void barPixels_data()
    {
        QTest::addColumn<double>("progress");
        QTest::addColumn<bool>("startAmber");
        QTest::addColumn<bool>("endAmber");
        QTest::addColumn<bool>("animated"); // slides there from 0 first
        QTest::newRow("negative") << -0.5 << false << false << false;
        QTest::newRow("full") << 1.0 << true << true << false;
        QTest::newRow("a tenth") << 0.1 << true << false << false;
        QTest::newRow("full, sliding") << 1.0 << true << true << true;
    }
    void barPixels()
    {
        QFETCH(double, progress);
        QFETCH(bool, startAmber);
        QFETCH(bool, endAmber);
        QFETCH(bool, animated);
        ProgressBarView bar;
        bar.resize(100 + 2 * ProgressBarView::kGlowMargin, bar.height());
        bar.setProgress(progress, animated);
        const auto amberAt = [&bar](int x) {
            QImage image(bar.size(), QImage::Format_ARGB32_Premultiplied);
            image.fill(QColor(26, 26, 26));
            bar.render(&image);
            return isAmber(image.pixel(ProgressBarView::kGlowMargin + x, ProgressBarView::kGlowMargin + 2));
        };
        if (animated)
            QVERIFY(!amberAt(97));
        QTRY_COMPARE(amberAt(2), startAmber);
        QTRY_COMPARE(amberAt(97), endAmber);
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
        QCOMPARE(PaintRecorder::texts(view), texts);
        QCOMPARE(view.progressBar()->isVisibleTo(&view), !complete);
    }

    void longFileNameIsShortened()
    {
        CompressionState state;
        ProgressPopoverView view(&state);
        state.start(1);
        const QString longName = QString(200, QLatin1Char('x')) + QStringLiteral(".jpg");
        state.update(0, longName);
        const QString drawn = PaintRecorder::texts(view).last();
        QVERIFY(drawn.size() < longName.size());
        QVERIFY(drawn.endsWith(QStringLiteral(".jpg")));
    }
};

QTEST_MAIN(TestProgressPopover)
#include "tst_progresspopover.moc"
