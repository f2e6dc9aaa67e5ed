#include <cmath>

#include <vips/vips8>

#include <QTemporaryDir>
#include <QTest>

#include "engine/OutputTarget.h"
#include "engine/SizeLimitedWriter.h"
#include "engine/VipsRuntime.h"

#include "EngineFixtures.h"

using Scales = QList<double>;

namespace {

/// A stand-in codec whose output length is a known function of the pixel count and quality:
/// header + width x height x bytesPerPixel x quality. The bytes themselves are zeros.
SizeLimitedWriter::Encoder modelEncoder(qint64 header, double bytesPerPixel)
{
    return [=](const vips::VImage& image, double quality) -> std::optional<QByteArray> {
        const double pixels = double(image.width()) * image.height();
        return QByteArray(qsizetype(header + std::floor(pixels * bytesPerPixel * quality)), '\0');
    };
}

/// Numbers as text to `digits` decimals, so that a table compares them and shows them.
QString numbers(const QList<double>& values, int digits)
{
    QStringList parts;
    for (double v : values)
        parts << QString::number(v, 'f', digits);
    return parts.join(QStringLiteral(", "));
}

} // namespace

class TestSizeLimitedWriter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(VipsRuntime::ensureStarted()); }

    // The quality search on a 1000 x 500 image with a codec of known sizes; the results are worked
    // out by hand from lo = 0.05, hi = the mode's quality, eight rounds a scale. A codec that fails
    // ends the search at that point, and what fitted before is kept.
    void lossySearch_data()
    {
        QTest::addColumn<double>("failFrom"); // qualities at or above this fail
        QTest::addColumn<qint64>("limitKB");
        QTest::addColumn<qint64>("header");
        QTest::addColumn<Scales>("scales");
        QTest::addColumn<int>("attempts");
        QTest::addColumn<qint64>("finalSize"); // the model's size pins the scale and quality written; 0: none

        // 500,000 bytes at quality 1: everything fits, the search still ends below 0.80.
        QTest::newRow("fits at the mode's quality")
            << 2.0 << qint64(1000) << qint64(0) << Scales{1.0} << 8 << qint64(398'535);
        // Fits up to quality 0.6144 (307,200 bytes); the last try that fitted is written.
        QTest::newRow("fits part way")
            << 2.0 << qint64(300) << qint64(0) << Scales{1.0} << 8 << qint64(306'250);
        // A 100,000-byte header: nothing fits until 300 x 150 at quality 0.0529 (2,381 bytes of
        // pixels); each scale before it costs 8 rounds and the floor at 0.05.
        QTest::newRow("fits after scaling")
            << 2.0 << qint64(100) << qint64(100'000) << Scales{1.0, 0.8, 0.7, 0.6, 0.5, 0.4, 0.3} << 62
            << qint64(102'381);
        // Nothing ever fits: the ladder runs to 0.2 and its floor attempt stays, over the limit.
        QTest::newRow("never fits") << 2.0 << qint64(1) << qint64(2000)
                                    << Scales{1.0, 0.8, 0.7, 0.6, 0.5, 0.4, 0.3, 0.2} << 72 << qint64(3000);
        QTest::newRow("codec fails after a fit")
            << 0.5 << qint64(1000) << qint64(0) << Scales{1.0} << 2 << qint64(212'500);
        // One try per scale and its floor, and nothing written.
        QTest::newRow("codec always fails")
            << 0.0 << qint64(1000) << qint64(0) << Scales{1.0, 0.8, 0.7, 0.6, 0.5, 0.4, 0.3, 0.2} << 16
            << qint64(0);
    }
    void lossySearch()
    {
        QFETCH(double, failFrom);
        QFETCH(qint64, limitKB);
        QFETCH(qint64, header);
        QFETCH(Scales, scales);
        QFETCH(int, attempts);
        QFETCH(qint64, finalSize);

        QTemporaryDir dir;
        const auto model = modelEncoder(header, 1.0);
        SizeLimitedWriter writer(OutputFormat::Jpeg,
                                 EngineFixtures::settingsFor(OutputFormat::Jpeg, 0, int(limitKB)),
                                 [&](const vips::VImage& image, double quality) -> std::optional<QByteArray> {
                                     return quality >= failFrom ? std::nullopt : model(image, quality);
                                 });
        const auto written =
            writer.write(vips::VImage::black(1000, 500), OutputTarget(dir.path(), "a", "jpg"));
        const auto& tried = writer.attempts();
        QList<double> triedScales;
        for (const auto& a : tried) {
            if (triedScales.isEmpty() || triedScales.last() != a.scale)
                triedScales.append(a.scale);
        }
        QCOMPARE(numbers(triedScales, 10), numbers(scales, 10));
        QCOMPARE(tried.size(), attempts);
        QCOMPARE(EngineFixtures::entries(dir.path()), finalSize > 0 ? QStringList{"a.jpg"} : QStringList{});
        QCOMPARE(written.has_value(), finalSize > 0);
        // The file holds the chosen candidate's bytes; it is not encoded a second time.
        QCOMPARE(QFileInfo(written.value_or(QString())).size(), finalSize);
        QVERIFY(finalSize == 0 || std::any_of(tried.cbegin(), tried.cend(),
                                              [&](const auto& a) { return a.size == finalSize; }));
    }

    // The PNG search on a 1000 x 500 image with a codec of known sizes (header + 3 bytes a pixel);
    // scales worked out by hand: s0 = max(0.85 sqrt(target / size), 0.05), then x 0.8, x 0.7 ...
    void pngSearch_data()
    {
        QTest::addColumn<qint64>("limitKB");
        QTest::addColumn<qint64>("header");
        QTest::addColumn<Scales>("scales");
        QTest::addColumn<QSize>("finalSize");

        QTest::newRow("under the limit, unscaled")
            << qint64(2000) << qint64(0) << Scales{1.0} << QSize(1000, 500);
        QTest::newRow("first estimate fits")
            << qint64(100) << qint64(0) << Scales{1.0, 0.222087} << QSize(222, 111);
        QTest::newRow("0.8 then 0.7 steps")
            << qint64(60) << qint64(50'000) << Scales{1.0, 0.169231, 0.135384, 0.094769, 0.066338}
            << QSize(66, 33);
        // 1.5 MB against 1 KB would start at 0.022: clamped to 0.05, then 0.04, then 0.028 < 0.03.
        QTest::newRow("first factor clamped")
            << qint64(1) << qint64(0) << Scales{1.0, 0.05, 0.04} << QSize(40, 20);
        // Never fits: down to the last scale at or above 0.03, and that one is written.
        QTest::newRow("floor") << qint64(100) << qint64(200'000)
                               << Scales{1.0, 0.208614, 0.166892, 0.116824, 0.081777, 0.057244, 0.040071}
                               << QSize(40, 20);
    }
    void pngSearch()
    {
        QFETCH(qint64, limitKB);
        QFETCH(qint64, header);
        QFETCH(Scales, scales);
        QFETCH(QSize, finalSize);

        QTemporaryDir dir;
        SizeLimitedWriter writer(OutputFormat::Png,
                                 EngineFixtures::settingsFor(OutputFormat::Png, 0, int(limitKB)),
                                 modelEncoder(header, 3.0));
        const auto written =
            writer.write(vips::VImage::black(1000, 500, vips::VImage::option()->set("bands", 3)),
                         OutputTarget(dir.path(), "a", "png"));
        QVERIFY(written);
        const auto& tried = writer.attempts();
        QList<double> triedScales;
        for (const auto& a : tried) {
            QCOMPARE(a.quality, 1.0);
            triedScales.append(a.scale);
        }
        QCOMPARE(numbers(triedScales, 6), numbers(scales, 6));
        QCOMPARE(QFileInfo(*written).size(), header + 3 * finalSize.width() * finalSize.height());
    }
};

QTEST_GUILESS_MAIN(TestSizeLimitedWriter)
#include "tst_sizelimitedwriter.moc"
