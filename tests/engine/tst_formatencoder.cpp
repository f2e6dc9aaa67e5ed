#include <vips/vips8>

#include <QTemporaryDir>
#include <QTest>

#include "EngineFixtures.h"
#include "engine/FormatEncoder.h"
#include "engine/ImageDecoder.h"

using namespace EngineFixtures;

namespace {

vips::VImage photo()
{
    return *ImageDecoder::decode(dataPath(QStringLiteral("orient1-360x240.jpg")));
}

/// 64 x 64 alpha: opaque on the left, half transparent on the right, clear in the top eight rows.
vips::VImage alphaMask()
{
    const vips::VImage xy = vips::VImage::xyz(64, 64);
    const vips::VImage half = (xy.extract_band(0) < 32).ifthenelse(std::vector<double>{255}, {128});
    return (xy.extract_band(1) < 8).ifthenelse(std::vector<double>{0}, half).cast(VIPS_FORMAT_UCHAR);
}

vips::VImage decodeBytes(const QByteArray& bytes)
{
    // The loader reads the buffer lazily; copy_memory decodes everything while `bytes` lives.
    return vips::VImage::new_from_buffer(bytes.constData(), size_t(bytes.size()), "").copy_memory();
}

} // namespace

class TestFormatEncoder final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Lossy types also give smaller files at a lower quality; no type writes metadata.
    void roundTripsWithinTolerance_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<double>("quality");
        QTest::addColumn<QString>("loader");
        QTest::addColumn<double>("tolerance"); // mean absolute difference per sample
        QTest::addColumn<QString>("chroma");   // JPEG chroma subsampling; empty: not JPEG
        QTest::newRow("jpeg 0.95") << "public.jpeg" << 0.95 << "jpegload_buffer" << 2.5 << "4:4:4";
        QTest::newRow("jpeg 0.80") << "public.jpeg" << 0.80 << "jpegload_buffer" << 4.0 << "4:2:0";
        QTest::newRow("png") << "public.png" << 1.0 << "pngload_buffer" << 0.0 << "";
        QTest::newRow("webp 0.82") << "webp" << 0.82 << "webpload_buffer" << 5.0 << "";
        QTest::newRow("avif 1.0") << "public.avif" << 1.0 << "heifload_buffer" << 2.0 << "";
        QTest::newRow("avif 0.82") << "public.avif" << 0.82 << "heifload_buffer" << 5.0 << "";
    }
    void roundTripsWithinTolerance()
    {
        QFETCH(QString, type);
        QFETCH(double, quality);
        QFETCH(QString, loader);
        QFETCH(double, tolerance);
        QFETCH(QString, chroma);
        const vips::VImage source = photo();
        const auto bytes = FormatEncoder::encode(source, type, quality);
        QVERIFY(bytes && !bytes->isEmpty());
        const vips::VImage decoded = decodeBytes(*bytes);
        QCOMPARE(QString::fromUtf8(decoded.get_string("vips-loader")), loader);
        if (!chroma.isEmpty())
            QCOMPARE(QString::fromUtf8(decoded.get_string("jpeg-chroma-subsample")), chroma);
        QCOMPARE(QSize(decoded.width(), decoded.height()), QSize(source.width(), source.height()));
        const double difference =
            meanDifference(decoded.extract_band(0, vips::VImage::option()->set("n", 3)), source);
        QVERIFY2(difference <= tolerance, qPrintable(QString::number(difference)));
        if (type != QLatin1String("public.png")) {
            const auto lower = FormatEncoder::encode(source, type, quality - 0.2);
            QVERIFY(lower);
            QVERIFY2(lower->size() < bytes->size(),
                     qPrintable(QStringLiteral("%1 >= %2").arg(lower->size()).arg(bytes->size())));
        }
        for (const char* field :
             {VIPS_META_EXIF_NAME, VIPS_META_ICC_NAME, VIPS_META_XMP_NAME, VIPS_META_IPTC_NAME})
            QVERIFY2(decoded.get_typeof(field) == 0, field);
        if (!chroma.isEmpty()) {
            // Not even a JFIF header: no APPn or COM segment before the first scan.
            for (qsizetype at = 2; at + 4 <= bytes->size() && uchar(bytes->at(at + 1)) != 0xDA;
                 at += 2 + (uchar(bytes->at(at + 2)) << 8 | uchar(bytes->at(at + 3)))) {
                const int marker = uchar(bytes->at(at + 1));
                QVERIFY2(marker < 0xE0 || marker > 0xFE, qPrintable(QString::number(marker, 16)));
            }
        }
    }

    // Exact, and reduced without loss: grey, an exact palette at the smallest depth, opaque alpha
    // dropped. Files that optipng -o2 wrote must come out no larger: it found the same reductions.
    void pngIsExactAndReduced_data()
    {
        QTest::addColumn<QString>("name"); // made from the photo, or a file of tests/data
        QTest::addColumn<int>(
            "colourType");              // in the header: 0 grey, 2 RGB, 3 palette, 4 grey + alpha, 6 RGBA
        QTest::addColumn<int>("depth"); // bits per sample or palette index
        QTest::newRow("grey") << "grey" << 0 << 8;
        QTest::newRow("grey + alpha") << "grey alpha" << 4 << 8;
        QTest::newRow("black and white") << "black white" << 0 << 1;
        QTest::newRow("16 grey levels") << "grey levels" << 0 << 4;
        QTest::newRow("palette with tRNS") << "eight colours alpha" << 3 << 8; // 8 x 3 alphas
        QTest::newRow("8 colours") << "eight colours" << 3 << 4;
        QTest::newRow("opaque RGBA") << "opaque rgba" << 2 << 8;
        QTest::newRow("> 256 colours") << "photo" << 2 << 8;
        QTest::newRow("optipng 4-bit palette") << "basn3p04-optipng.png" << 3 << 4;
        QTest::newRow("optipng RGBA") << "basn6a08-optipng.png" << 6 << 8;
        QTest::newRow("optipng palette, clear background")
            << "libavif-circle-trns-after-plte-optipng.png" << 3 << 8;
    }
    void pngIsExactAndReduced()
    {
        QFETCH(QString, name);
        QFETCH(int, colourType);
        QFETCH(int, depth);
        const vips::VImage colour = photo();
        const vips::VImage grey = colour.extract_band(1);
        const vips::VImage alpha =
            alphaMask().resize(double(colour.width()) / 64, vips::VImage::option()
                                                                ->set("vscale", double(colour.height()) / 64)
                                                                ->set("kernel", VIPS_KERNEL_NEAREST));
        const vips::VImage bw = grey > 128;
        const vips::VImage levels = (grey / 17).cast(VIPS_FORMAT_UCHAR) * 17;
        const QHash<QString, vips::VImage> sources{
            {"grey", vips::VImage::bandjoin({grey, grey, grey})},
            {"grey alpha", vips::VImage::bandjoin({grey, grey, grey, alpha})},
            {"black white", vips::VImage::bandjoin({bw, bw, bw})},
            {"grey levels", vips::VImage::bandjoin({levels, levels, levels})},
            {"eight colours alpha", (colour > 128).bandjoin(alpha)},
            {"eight colours", colour > 128},
            {"opaque rgba", colour.bandjoin_const({255})},
            {"photo", colour},
        };
        const bool file = name.endsWith(QLatin1String(".png"));
        const vips::VImage source = file ? *ImageDecoder::decode(dataPath(name))
                                         : sources.value(name).cast(VIPS_FORMAT_UCHAR).copy_memory();
        const auto bytes = FormatEncoder::encode(source, QStringLiteral("public.png"), 1.0);
        QVERIFY(bytes);
        QCOMPARE(pngDifference(decodeBytes(*bytes), source), 0.0);
        QCOMPARE(FormatEncoder::encodedPNGSize(source), qint64(bytes->size()));
        QCOMPARE(int(uint8_t(bytes->at(25))), colourType); // IHDR, after signature, length and type
        QCOMPARE(int(uint8_t(bytes->at(24))), depth);
        if (file) {
            const qint64 input = QFileInfo(dataPath(name)).size();
            QVERIFY2(bytes->size() <= input,
                     qPrintable(QStringLiteral("%1 > %2").arg(bytes->size()).arg(input)));
        }
    }
};

QTEST_GUILESS_MAIN(TestFormatEncoder)
#include "tst_formatencoder.moc"
