#include <vips/vips8>

#include <QTemporaryDir>
#include <QTest>

#include "EngineFixtures.h"
#include "engine/ImageDecoder.h"
#include "engine/ImageScaler.h"
#include "engine/VipsRuntime.h"

using namespace EngineFixtures;

namespace {

/// `image` as 8-bit sRGB samples, as the decoder hands images on.
vips::VImage srgb8(const vips::VImage& image)
{
    return image.cast(VIPS_FORMAT_UCHAR)
        .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

} // namespace

class TestImageDecoder final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(VipsRuntime::ensureStarted()); }

    void decodesEveryInputFormat_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("bands");
        QTest::addColumn<QString>("asName");
        QTest::newRow("jpeg") << "orient1-360x240.jpg" << QSize(360, 240) << 3 << "photo.jpeg";
        QTest::newRow("png rgba") << "rgba-32x32.png" << QSize(32, 32) << 4 << "";
        QTest::newRow("png 16-bit") << "rgb16-32x32.png" << QSize(32, 32) << 3 << "";
        QTest::newRow("png grey") << "grey-32x32.png" << QSize(32, 32) << 3 << "";
        QTest::newRow("heif with alpha") << "colors-alpha-64x64.heic" << QSize(64, 64) << 4 << "colors.heif";
        QTest::newRow("tif 1-bit, orientation 6") << "g4-orient6-88x590.tif" << QSize(590, 88) << 3 << "";
        QTest::newRow("tiff first of 3 pages") << "multipage-3-10x10.tiff" << QSize(10, 10) << 3 << "";
        QTest::newRow("bmp palette") << "pal8-127x64.bmp" << QSize(127, 64) << 3 << "";
        QTest::newRow("gif first of 5 frames") << "cogs-5frames-85x77.gif" << QSize(85, 77) << 4 << "";
        QTest::newRow("webp with alpha") << "transparent-200x150.webp" << QSize(200, 150) << 4 << "";
        QTest::newRow("avif") << "colors-srgb-200x200.avif" << QSize(200, 200) << 3 << "";
        QTest::newRow("cmyk jpeg") << "cmyk-100x100.jpg" << QSize(100, 100) << 3 << "";
    }
    void decodesEveryInputFormat()
    {
        QFETCH(QString, fixture);
        QFETCH(QSize, size);
        QFETCH(int, bands);
        QFETCH(QString, asName);
        QTemporaryDir dir;
        const QString path = copyFixture(fixture, dir.path(), asName);
        const auto expected = ImageDecoder::decode(path);
        const auto image = ImageDecoder::decodeLazily(path); // header read, pixels not yet
        QVERIFY(expected && image);
        // The decoder reads its own copy of the bytes: a file cut short while its pixels are
        // decoded (a download still being written) cannot pull them away.
        QVERIFY(QFile::resize(path, 0));
        QCOMPARE(meanDifference(*image, *expected), 0.0);
        QCOMPARE(QSize(expected->width(), expected->height()), size);
        QCOMPARE(expected->bands(), bands);
        QCOMPARE(expected->format(), VIPS_FORMAT_UCHAR);
        QCOMPARE(expected->interpretation(), VIPS_INTERPRETATION_sRGB);
        QVERIFY(expected->max() > 0); // real pixels, not an empty canvas
    }

    // Common sRGB profiles are taken as they are (a transform would change nothing but cost a pass
    // over every pixel); other profiles are converted with an intent they hold, and broken ones
    // ignored without harm.
    void convertsColourToSRGB_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<int>("intent"); // of the expected transform; -1: the pixels stay as stored
        QTest::addColumn<QString>("edit");
        QTest::newRow("sRGB IEC61966-2.1 kept") << "srgb-icc-302x403.jpg" << -1 << "";
        QTest::newRow("sRGB profile truncated") << "srgb-icc-302x403.jpg" << -1 << "truncate";
        QTest::newRow("channel-swapping profile")
            << "rgb-to-gbr-250.jpg" << int(VIPS_INTENT_PERCEPTUAL) << "";
        // With another intent the picture turns green.
        QTest::newRow("perceptual-only profile")
            << "xyb-perceptual-only-48x32.jpg" << int(VIPS_INTENT_PERCEPTUAL) << "";
        // Colour converted from 16 bits, alpha kept: 82 of 255 stays 82, not clipped opaque.
        QTest::newRow("16-bit RGBA with Adobe RGB")
            << "shoes-adobergb-150x100.jpg" << int(VIPS_INTENT_PERCEPTUAL) << "rgba16";
    }
    void convertsColourToSRGB()
    {
        QFETCH(QString, fixture);
        QFETCH(int, intent);
        QFETCH(QString, edit);
        const vips::VImage stored = loaded(dataPath(fixture));
        vips::VImage image = stored.copy();
        if (edit == QLatin1String("rgba16")) {
            image = (image.bandjoin_const({82}).cast(VIPS_FORMAT_USHORT) * 257)
                        .cast(VIPS_FORMAT_USHORT)
                        .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16));
        } else if (edit == QLatin1String("truncate")) {
            size_t length = 0;
            const void* data = stored.get_blob(VIPS_META_ICC_NAME, &length);
            vips_image_set_blob_copy(image.get_image(), VIPS_META_ICC_NAME, data,
                                     std::min<size_t>(length, 200));
        }
        vips::VImage decoded = ImageDecoder::toSRGB8(image);
        if (edit == QLatin1String("rgba16")) {
            QCOMPARE(decoded.bands(), 4);
            QCOMPARE(decoded.extract_band(3).min(), 82.0);
            QCOMPARE(decoded.extract_band(3).max(), 82.0);
            decoded = decoded.extract_band(0, vips::VImage::option()->set("n", 3));
        }
        const vips::VImage expected =
            intent < 0
                ? stored
                : stored.icc_transform(
                      "srgb",
                      vips::VImage::option()->set("embedded", true)->set("depth", 8)->set("intent", intent));
        // Exact when taken as stored; to rounding (16 bits round apart from 8) when transformed.
        const double difference =
            intent < 0 ? maxDifference(decoded, expected) : meanDifference(decoded, expected);
        QVERIFY2(difference <= (intent < 0 ? 0.0 : 0.5), qPrintable(QString::number(difference)));
        QVERIFY(intent < 0 || meanDifference(stored, expected) > 4); // the check can tell them apart
    }

    void resizesToTheLongestEdge_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("bands");
        QTest::addColumn<int>("maxEdge");
        QTest::addColumn<QSize>("expected");
        QTest::newRow("portrait with alpha") << QSize(1500, 2000) << 4 << 1000 << QSize(750, 1000);
        QTest::newRow("smaller is untouched") << QSize(1000, 800) << 3 << 2048 << QSize(1000, 800);
        QTest::newRow("truncates, not rounds") << QSize(2049, 1000) << 4 << 2048 << QSize(2048, 999);
        QTest::newRow("too thin to scale") << QSize(10000, 1) << 3 << 2048 << QSize(10000, 1);
    }
    void resizesToTheLongestEdge()
    {
        QFETCH(QSize, size);
        QFETCH(int, bands);
        QFETCH(int, maxEdge);
        QFETCH(QSize, expected);
        const vips::VImage image = srgb8(
            vips::VImage::black(size.width(), size.height(), vips::VImage::option()->set("bands", bands)) +
            128);
        const vips::VImage out = ImageScaler::resize(image, maxEdge);
        QCOMPARE(QSize(out.width(), out.height()), expected);
        QCOMPARE(out.bands(), bands);
        QCOMPARE(out.format(), VIPS_FORMAT_UCHAR);
        QVERIFY(std::abs(out.avg() - 128.0) < 1.0);
    }

    // Colour under alpha 0 does not bleed into the visible pixels beside it.
    void resizeKeepsHiddenColourOut()
    {
        const vips::VImage hiddenRed = vips::VImage::black(200, 200).new_from_image({255, 0, 0, 0});
        const vips::VImage blue = vips::VImage::black(200, 200).new_from_image({0, 0, 255, 255});
        const vips::VImage out =
            ImageScaler::resize(srgb8(hiddenRed.join(blue, VIPS_DIRECTION_HORIZONTAL)), 100);
        const vips::VImage visibleRed = (out.extract_band(3) > 8).ifthenelse(out.extract_band(0), 0);
        QVERIFY2(visibleRed.max() < 16, qPrintable(QString::number(visibleRed.max())));
    }
};

QTEST_GUILESS_MAIN(TestImageDecoder)
#include "tst_imagedecoder.moc"
