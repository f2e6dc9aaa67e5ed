#include <vips/vips8>

#include <QTest>

#include "engine/ImageDecoder.h"
#include "engine/VipsRuntime.h"

#include "EngineFixtures.h"

namespace {

/// The file's pixels exactly as stored, with no colour management.
vips::VImage rawPixels(const QString& path)
{
    return vips::VImage::new_from_file(path.toUtf8().constData()).copy_memory();
}

double maxDifference(const vips::VImage& a, const vips::VImage& b)
{
    return (a.cast(VIPS_FORMAT_INT) - b.cast(VIPS_FORMAT_INT)).abs().max();
}

QByteArray profileOf(const QString& path)
{
    const vips::VImage image = vips::VImage::new_from_file(path.toUtf8().constData());
    size_t length = 0;
    const void* data = image.get_blob(VIPS_META_ICC_NAME, &length);
    return {static_cast<const char*>(data), qsizetype(length)};
}

void putBigEndian32(QByteArray& bytes, qsizetype at, quint32 value)
{
    for (int i = 0; i < 4; ++i)
        bytes[at + i] = char(value >> (24 - 8 * i));
}

/// Offset of the tag table entry for `signature`, or -1.
qsizetype tagEntry(const QByteArray& icc, const char* signature)
{
    const auto count = (quint32(uchar(icc[128])) << 24) | (quint32(uchar(icc[129])) << 16) |
                       (quint32(uchar(icc[130])) << 8) | quint32(uchar(icc[131]));
    for (quint32 i = 0; i < count; ++i) {
        if (icc.mid(132 + 12 * i, 4) == signature)
            return 132 + 12 * i;
    }
    return -1;
}

} // namespace

// Common sRGB profiles are taken as they are (a transform would change nothing but cost a pass
// over every pixel); other profiles are converted, and broken ones ignored without harm.
class TestEmbeddedProfile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(VipsRuntime::ensureStarted()); }

    void profiles_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<QString>("edit"); // how the fixture's profile is altered first
        QTest::addColumn<bool>("converted");

        QTest::newRow("sRGB IEC61966-2.1 kept") << "srgb-icc-302x403.jpg"
                                                << "" << false;
        QTest::newRow("Adobe RGB converted") << "shoes-adobergb-150x100.jpg"
                                             << "" << true;
        QTest::newRow("channel-swapping profile converted") << "rgb-to-gbr-250.jpg"
                                                            << "" << true;
        // Colour converted from 16 bits, alpha kept: 82 of 255 stays 82, not clipped opaque.
        QTest::newRow("16-bit RGBA with Adobe RGB converted") << "shoes-adobergb-150x100.jpg"
                                                              << "rgba16" << true;
        // Damaged profiles: the name cannot be read, and the transform refuses them, so the
        // pixels stay as stored.
        QTest::newRow("sRGB profile truncated") << "srgb-icc-302x403.jpg"
                                                << "truncate" << false;
        QTest::newRow("description beyond the end") << "srgb-icc-302x403.jpg"
                                                    << "desc-offset" << false;
        QTest::newRow("description of absurd length") << "srgb-icc-302x403.jpg"
                                                      << "desc-length" << false;
    }
    void profiles()
    {
        QFETCH(QString, fixture);
        QFETCH(QString, edit);
        QFETCH(bool, converted);

        const vips::VImage stored = rawPixels(EngineFixtures::dataPath(fixture));
        vips::VImage image = stored.copy();
        if (!edit.isEmpty() && edit != "rgba16") {
            QByteArray icc = profileOf(EngineFixtures::dataPath(fixture));
            const qsizetype desc = tagEntry(icc, "desc");
            QVERIFY(desc > 0);
            if (edit == "truncate")
                icc.truncate(200);
            else if (edit == "desc-offset")
                putBigEndian32(icc, desc + 4, 0x7fffffff);
            else if (edit == "desc-length")
                putBigEndian32(icc, desc + 8, 0xffffffff);
            vips_image_set_blob_copy(image.get_image(), VIPS_META_ICC_NAME, icc.constData(),
                                     size_t(icc.size()));
        }
        if (edit == "rgba16") {
            image = (image.bandjoin_const({82}).cast(VIPS_FORMAT_USHORT) * 257)
                        .cast(VIPS_FORMAT_USHORT)
                        .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16));
            const vips::VImage decoded = ImageDecoder::toSRGB8(image);
            QCOMPARE(decoded.bands(), 4);
            QCOMPARE(decoded.extract_band(3).min(), 82.0);
            QCOMPARE(decoded.extract_band(3).max(), 82.0);
            QVERIFY(maxDifference(decoded.extract_band(0, vips::VImage::option()->set("n", 3)), stored) > 8);
            return;
        }

        const vips::VImage converted8 = ImageDecoder::toSRGB8(image);
        const double difference = maxDifference(converted8, stored);
        if (converted)
            QVERIFY2(difference > 8, qPrintable(QString::number(difference)));
        else
            QCOMPARE(difference, 0.0);
    }

    // The decode agrees with transforming through the profile with the intent it holds, to
    // rounding (an sRGB profile is taken as it is).
    void matchesTheTransform_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<int>("intent");
        QTest::newRow("sRGB taken as it is") << "srgb-icc-302x403.jpg" << int(VIPS_INTENT_RELATIVE);
        // With another intent the picture turns green.
        QTest::newRow("perceptual-only profile")
            << "xyb-perceptual-only-48x32.jpg" << int(VIPS_INTENT_PERCEPTUAL);
    }
    void matchesTheTransform()
    {
        QFETCH(QString, fixture);
        QFETCH(int, intent);
        const QString path = EngineFixtures::dataPath(fixture);
        const auto decoded = ImageDecoder::decode(path);
        QVERIFY(decoded);
        const vips::VImage transformed = rawPixels(path).icc_transform(
            "srgb", vips::VImage::option()->set("embedded", true)->set("depth", 8)->set("intent", intent));
        QVERIFY2(maxDifference(*decoded, transformed) <= 2,
                 qPrintable(QString::number(maxDifference(*decoded, transformed))));
    }
};

QTEST_GUILESS_MAIN(TestEmbeddedProfile)
#include "tst_embeddedprofile.moc"
