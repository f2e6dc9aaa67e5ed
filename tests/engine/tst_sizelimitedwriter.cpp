#include <cmath>

#include <vips/vips8>

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include "engine/ImageDecoder.h"
#include "engine/ImageScaler.h"
#include "engine/OutputTarget.h"
#include "engine/SizeLimitedWriter.h"
#include "engine/VipsRuntime.h"

#include "EngineFixtures.h"

using Qualities = QList<double>;
using Scales = QList<double>;

namespace {

const QString kPhoto = EngineFixtures::dataPath(QStringLiteral("portrait-1200x1800.jpg"));

CompressionSettings limitedTo(qint64 kb, CompressionMode mode = CompressionMode::Balanced)
{
    CompressionSettings settings;
    settings.compressionMode = mode;
    settings.limitOutputFileSize = true;
    settings.maxFileSizeKB = kb;
    return settings;
}

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

    // Without a limit: one encode at the mode's quality for the format (PNG is always lossless).
    void unlimited_data()
    {
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<CompressionMode>("mode");
        QTest::addColumn<double>("quality");
        QTest::newRow("jpeg lossless") << OutputFormat::Jpeg << CompressionMode::Lossless << 0.95;
        QTest::newRow("jpeg balanced") << OutputFormat::Jpeg << CompressionMode::Balanced << 0.80;
        QTest::newRow("jpeg aggressive") << OutputFormat::Jpeg << CompressionMode::Aggressive << 0.65;
        QTest::newRow("webp lossless") << OutputFormat::Webp << CompressionMode::Lossless << 1.0;
        QTest::newRow("webp balanced") << OutputFormat::Webp << CompressionMode::Balanced << 0.82;
        QTest::newRow("avif balanced") << OutputFormat::Avif << CompressionMode::Balanced << 0.82;
        QTest::newRow("avif aggressive") << OutputFormat::Avif << CompressionMode::Aggressive << 0.65;
        QTest::newRow("png aggressive") << OutputFormat::Png << CompressionMode::Aggressive << 1.0;
    }
    void unlimited()
    {
        QFETCH(OutputFormat, format);
        QFETCH(CompressionMode, mode);
        QFETCH(double, quality);
        CompressionSettings settings = limitedTo(1, mode);
        settings.limitOutputFileSize = false;
        QTemporaryDir dir;
        SizeLimitedWriter writer(format, settings, modelEncoder(5000, 1.0));
        const auto written = writer.write(vips::VImage::black(100, 50), OutputTarget(dir.path(), "a", "x"));
        QVERIFY(written);
        QCOMPARE(writer.attempts().size(), 1);
        QCOMPARE(writer.attempts().first().quality, quality);
        QCOMPARE(QFileInfo(*written).size(), 5000 + qint64(5000 * quality));
    }

    // The quality search on a 1000 x 500 image with a codec of known sizes; the expected
    // qualities are worked out by hand from lo = 0.05, hi = the mode's quality.
    void lossySearch_data()
    {
        QTest::addColumn<CompressionMode>("mode");
        QTest::addColumn<qint64>("limitKB");
        QTest::addColumn<qint64>("header");
        QTest::addColumn<Qualities>("firstQualities"); // at full scale
        QTest::addColumn<Scales>("scales");
        QTest::addColumn<int>("attempts");
        QTest::addColumn<qint64>("finalSize"); // the model's size pins the scale and quality written

        // 500,000 bytes at quality 1: everything fits, the search still ends below 0.80.
        QTest::newRow("fits at the mode's quality")
            << CompressionMode::Balanced << qint64(1000) << qint64(0)
            << Qualities{0.425, 0.6125, 0.70625, 0.753125, 0.7765625, 0.78828125, 0.794140625, 0.7970703125}
            << Scales{1.0} << 8 << qint64(398'535);
        // Fits up to quality 0.6144 (307,200 bytes); the last try that fitted is written.
        QTest::newRow("fits part way")
            << CompressionMode::Balanced << qint64(300) << qint64(0)
            << Qualities{0.425, 0.6125, 0.70625, 0.659375, 0.6359375, 0.62421875, 0.618359375, 0.6154296875}
            << Scales{1.0} << 8 << qint64(306'250);
        QTest::newRow("aggressive starts lower")
            << CompressionMode::Aggressive << qint64(1000) << qint64(0)
            << Qualities{0.35, 0.5, 0.575, 0.6125, 0.63125, 0.640625, 0.6453125} << Scales{1.0} << 7
            << qint64(322'656);
        // A 100,000-byte header: nothing fits until 300 x 150 at quality 0.0529 (2,381 bytes of
        // pixels); each scale before it costs 8 rounds and the floor at 0.05.
        QTest::newRow("fits after scaling")
            << CompressionMode::Balanced << qint64(100) << qint64(100'000)
            << Qualities{0.425,      0.2375,      0.14375,      0.096875, 0.0734375,
                         0.06171875, 0.055859375, 0.0529296875, 0.05}
            << Scales{1.0, 0.8, 0.7, 0.6, 0.5, 0.4, 0.3} << 62 << qint64(102'381);
        // Nothing ever fits: the ladder runs to 0.2 and its floor attempt stays, over the limit.
        QTest::newRow("never fits") << CompressionMode::Balanced << qint64(1) << qint64(2000)
                                    << Qualities{0.425,      0.2375,      0.14375,      0.096875, 0.0734375,
                                                 0.06171875, 0.055859375, 0.0529296875, 0.05}
                                    << Scales{1.0, 0.8, 0.7, 0.6, 0.5, 0.4, 0.3, 0.2} << 72 << qint64(3000);
    }
    void lossySearch()
    {
        QFETCH(CompressionMode, mode);
        QFETCH(qint64, limitKB);
        QFETCH(qint64, header);
        QFETCH(Qualities, firstQualities);
        QFETCH(Scales, scales);
        QFETCH(int, attempts);
        QFETCH(qint64, finalSize);

        QTemporaryDir dir;
        SizeLimitedWriter writer(OutputFormat::Jpeg, limitedTo(limitKB, mode), modelEncoder(header, 1.0));
        const auto written =
            writer.write(vips::VImage::black(1000, 500), OutputTarget(dir.path(), "a", "jpg"));
        QVERIFY(written);
        const auto& tried = writer.attempts();
        QList<double> qualities; // at full scale
        QList<double> triedScales;
        for (const auto& a : tried) {
            if (a.scale == 1.0)
                qualities.append(a.quality);
            if (triedScales.isEmpty() || triedScales.last() != a.scale)
                triedScales.append(a.scale);
        }
        QCOMPARE(numbers(qualities, 10), numbers(firstQualities, 10));
        QCOMPARE(numbers(triedScales, 10), numbers(scales, 10));
        QCOMPARE(tried.size(), attempts);
        // The file holds the chosen candidate's bytes; it is not encoded a second time.
        QCOMPARE(QFileInfo(*written).size(), finalSize);
        QVERIFY(
            std::any_of(tried.cbegin(), tried.cend(), [&](const auto& a) { return a.size == finalSize; }));
        QCOMPARE(EngineFixtures::entries(dir.path()), QStringList{"a.jpg"});
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
        QTest::newRow("one 0.8 step")
            << qint64(100) << qint64(50'000) << Scales{1.0, 0.218476, 0.174781} << QSize(174, 87);
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
        SizeLimitedWriter writer(OutputFormat::Png, limitedTo(limitKB), modelEncoder(header, 3.0));
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

    // A codec that fails from some quality on: the search stops there and keeps what it had.
    void encoderFailure_data()
    {
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<double>("failFrom"); // qualities at or above this fail; 0: everything fails
        QTest::addColumn<int>("attempts");
        QTest::addColumn<qint64>("written"); // 0: nothing written

        // WebP balanced is 0.82: 0.435 fits (217,500 bytes), 0.6275 fails: the bisection ends
        // and 0.435 is written.
        QTest::newRow("lossy, fails after a fit") << OutputFormat::Webp << 0.5 << 2 << qint64(217'500);
        // Every round and every floor attempt fails: one try per scale and its floor.
        QTest::newRow("lossy, always fails") << OutputFormat::Avif << 0.0 << 16 << qint64(0);
        // A failed PNG counts as the largest size, so the first scale is the 0.05 floor: 0.05 and
        // 0.04 fail, 0.028 is below 0.03, and the chosen 0.04 is tried once more when written.
        QTest::newRow("png, always fails") << OutputFormat::Png << 0.0 << 4 << qint64(0);
    }
    void encoderFailure()
    {
        QFETCH(OutputFormat, format);
        QFETCH(double, failFrom);
        QFETCH(int, attempts);
        QFETCH(qint64, written);

        const auto model = modelEncoder(0, 1.0);
        SizeLimitedWriter writer(format, limitedTo(1000),
                                 [&](const vips::VImage& image, double quality) -> std::optional<QByteArray> {
                                     if (quality >= failFrom)
                                         return std::nullopt;
                                     return model(image, quality);
                                 });
        QTemporaryDir dir;
        const auto path = writer.write(vips::VImage::black(1000, 500), OutputTarget(dir.path(), "a", "out"));
        QCOMPARE(writer.attempts().size(), attempts);
        QCOMPARE(path.has_value(), written > 0);
        if (path)
            QCOMPARE(QFileInfo(*path).size(), written);
        else
            QVERIFY(EngineFixtures::entries(dir.path()).isEmpty());
    }

    // PNG never loses pixels: over the limit only its dimensions shrink, and the pixels are
    // exactly the resized input's.
    void pngOverTheLimitOnlyShrinks()
    {
        const auto photo = ImageDecoder::decode(kPhoto);
        QVERIFY(photo);
        const vips::VImage input = ImageScaler::resize(*photo, 300);
        QTemporaryDir dir;
        SizeLimitedWriter writer(OutputFormat::Png, limitedTo(20));
        const auto written = writer.write(input, OutputTarget(dir.path(), "a", "png"));
        QVERIFY(written);
        QVERIFY(writer.attempts().size() > 1);
        QVERIFY(QFileInfo(*written).size() <= 20 * 1024);
        const auto out = EngineFixtures::loaded(*written);
        const vips::VImage expected =
            ImageScaler::resize(input, qint64(writer.attempts().last().scale * 300));
        QCOMPARE(QSize(out.width(), out.height()), QSize(expected.width(), expected.height()));
        QCOMPARE(EngineFixtures::maxDifference(out, expected), 0.0);
    }
};

QTEST_GUILESS_MAIN(TestSizeLimitedWriter)
#include "tst_sizelimitedwriter.moc"
