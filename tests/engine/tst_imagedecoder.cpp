#include <cmath>

#include <sys/stat.h>
#include <unistd.h>

#include <vips/vips8>

#include <QTemporaryDir>
#include <QTest>

#include "EngineFixtures.h"
#include "engine/ImageDecoder.h"
#include "engine/ImageScaler.h"

using namespace EngineFixtures;

namespace {

/// Mean of |a - b| over every pixel and band.
double meanDifference(const vips::VImage& a, const vips::VImage& b)
{
    return (a.cast(VIPS_FORMAT_FLOAT) - b.cast(VIPS_FORMAT_FLOAT)).abs().avg();
}

std::vector<double> pixel(const vips::VImage& image, int x, int y)
{
    return const_cast<vips::VImage&>(image).getpoint(x, y);
}

} // namespace

class TestImageDecoder final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decodesEveryInputFormat_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<QString>("asName");
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::addColumn<int>("bands");
        QTest::newRow("jpg") << "orient1-360x240.jpg"
                             << "" << 360 << 240 << 3;
        QTest::newRow("jpeg") << "orient1-360x240.jpg"
                              << "photo.jpeg" << 360 << 240 << 3;
        QTest::newRow("png rgba") << "rgba-32x32.png"
                                  << "" << 32 << 32 << 4;
        QTest::newRow("png 16-bit") << "rgb16-32x32.png"
                                    << "" << 32 << 32 << 3;
        QTest::newRow("png grey") << "grey-32x32.png"
                                  << "" << 32 << 32 << 3;
        QTest::newRow("heic with alpha") << "colors-alpha-64x64.heic"
                                         << "" << 64 << 64 << 4;
        QTest::newRow("heif") << "colors-alpha-64x64.heic"
                              << "colors.heif" << 64 << 64 << 4;
        QTest::newRow("tif 1-bit, orientation 6") << "g4-orient6-88x590.tif"
                                                  << "" << 590 << 88 << 3;
        QTest::newRow("tiff first of 3 pages") << "multipage-3-10x10.tiff"
                                               << "" << 10 << 10 << 3;
        QTest::newRow("bmp palette") << "pal8-127x64.bmp"
                                     << "" << 127 << 64 << 3;
        QTest::newRow("gif first of 5 frames") << "cogs-5frames-85x77.gif"
                                               << "" << 85 << 77 << 4;
        QTest::newRow("webp with alpha") << "transparent-200x150.webp"
                                         << "" << 200 << 150 << 4;
        QTest::newRow("avif") << "colors-srgb-200x200.avif"
                              << "" << 200 << 200 << 3;
        QTest::newRow("cmyk jpeg") << "cmyk-100x100.jpg"
                                   << "" << 100 << 100 << 3;
    }
    void decodesEveryInputFormat()
    {
        QFETCH(QString, fixture);
        QFETCH(QString, asName);
        QFETCH(int, width);
        QFETCH(int, height);
        QFETCH(int, bands);
        QTemporaryDir dir;
        const QString path = copyFixture(fixture, dir.path(), asName);
        const auto image = ImageDecoder::decode(path);
        QVERIFY(image);
        QCOMPARE(image->width(), width);
        QCOMPARE(image->height(), height);
        QCOMPARE(image->bands(), bands);
        QCOMPARE(image->format(), VIPS_FORMAT_UCHAR);
        QCOMPARE(image->interpretation(), VIPS_INTERPRETATION_sRGB);
        QVERIFY(image->max() > 0); // real pixels, not an empty canvas
    }

    void refusesWhatItCannotDecode_data()
    {
        QTest::addColumn<QString>("fixture"); // empty: made by the test
        QTest::addColumn<QString>("asName");
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("truncated jpeg") << "truncated.jpg"
                                        << "" << QByteArray();
        QTest::newRow("truncated arw") << "truncated.arw"
                                       << "" << QByteArray();
        QTest::newRow("nef without image data") << "headers-only.nef"
                                                << "" << QByteArray();
        QTest::newRow("cr2 without image data") << "headers-only.cr2"
                                                << "" << QByteArray();
        QTest::newRow("dng without image data") << "headers-only.dng"
                                                << "" << QByteArray();
        QTest::newRow("raw without image data") << "headers-only.raw"
                                                << "" << QByteArray();
        QTest::newRow("avif libheif cannot read") << "undecodable-rotate90.avif"
                                                  << "" << QByteArray();
        QTest::newRow("canvas over the pixel limit") << "bomb-30000x30000.png"
                                                     << "" << QByteArray();
        QTest::newRow("text named jpg") << ""
                                        << "notes.jpg" << QByteArray("just some text\n");
        QTest::newRow("empty file") << ""
                                    << "empty.png" << QByteArray("");
        QTest::newRow("png signature only") << ""
                                            << "cut.png" << QByteArray("\x89PNG\r\n\x1a\n", 8);
        QTest::newRow("missing file") << ""
                                      << "missing.jpg" << QByteArray();
        // Only the loader that the extension and the first bytes agree on may read a file.
        QTest::newRow("numbers named jpg (matrix loader)") << ""
                                                           << "m.jpg" << QByteArray("2 2\n0 255\n255 0\n");
        QTest::newRow("svg named jpg") << ""
                                       << "photo.jpg"
                                       << QByteArray("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"8\" "
                                                     "height=\"8\"><rect width=\"8\" height=\"8\"/></svg>");
        QTest::newRow("png named jpg") << "rgba-32x32.png"
                                       << "photo.jpg" << QByteArray();
        QTest::newRow("jpeg named webp") << "orient1-360x240.jpg"
                                         << "photo.webp" << QByteArray();
        QTest::newRow("accepted bytes, other extension") << "orient1-360x240.jpg"
                                                         << "photo.jxl" << QByteArray();
    }
    void refusesWhatItCannotDecode()
    {
        QFETCH(QString, fixture);
        QFETCH(QString, asName);
        QFETCH(QByteArray, content);
        QTemporaryDir dir;
        QString path;
        if (!fixture.isEmpty()) {
            path = copyFixture(fixture, dir.path(), asName);
        } else {
            path = dir.filePath(asName);
            if (!content.isNull())
                QVERIFY(writeFile(path, content));
        }
        QVERIFY(!ImageDecoder::decode(path));
    }

    // Refused before they are opened: a FIFO would block the open for ever, /dev/zero never ends.
    void refusesWhatIsNotARegularFile_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("name");
        QTest::newRow("folder") << "folder"
                                << "album.jpg";
        QTest::newRow("fifo named jpg") << "fifo"
                                        << "x.jpg";
        QTest::newRow("fifo named dng") << "fifo"
                                        << "x.dng";
        QTest::newRow("link to /dev/zero named gif") << "zero"
                                                     << "x.gif";
        QTest::newRow("link to /dev/zero named webp") << "zero"
                                                      << "x.webp";
    }
    void refusesWhatIsNotARegularFile()
    {
        QFETCH(QString, kind);
        QFETCH(QString, name);
        QTemporaryDir dir;
        const QByteArray path = QFile::encodeName(dir.filePath(name));
        if (kind == "folder")
            QVERIFY(QDir(dir.path()).mkdir(name));
        else if (kind == "fifo")
            QCOMPARE(::mkfifo(path.constData(), 0600), 0);
        else
            QCOMPARE(::symlink("/dev/zero", path.constData()), 0);
        QVERIFY(!ImageDecoder::decode(dir.filePath(name)));
        QVERIFY(!ImageDecoder::decodeLazily(dir.filePath(name)));
    }

    // The decoder reads from its own copy of the file's bytes: a file cut short while its pixels
    // are still being decoded (a download still being written) cannot pull them away.
    void survivesTheFileBeingTruncatedWhileDecoding_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::newRow("webp") << "transparent-200x150.webp";
        QTest::newRow("gif") << "cogs-5frames-85x77.gif";
        QTest::newRow("jpeg") << "orient1-360x240.jpg";
        QTest::newRow("tiff") << "multipage-3-10x10.tiff";
    }
    void survivesTheFileBeingTruncatedWhileDecoding()
    {
        QFETCH(QString, fixture);
        QTemporaryDir dir;
        const QString path = copyFixture(fixture, dir.path());
        const auto expected = ImageDecoder::decode(path);
        const auto image = ImageDecoder::decodeLazily(path); // header read, pixels not yet
        QVERIFY(expected && image);
        QVERIFY(QFile::resize(path, 0));
        QCOMPARE(meanDifference(*image, *expected), 0.0);
    }

    void refusesAnUnreadableFile()
    {
        if (::geteuid() == 0)
            QSKIP("running as root: file permissions do not stop reads");
        QTemporaryDir dir;
        const QString path = copyFixture(QStringLiteral("orient1-360x240.jpg"), dir.path());
        QVERIFY(QFile::setPermissions(path, {}));
        QVERIFY(!ImageDecoder::decode(path));
    }

    void appliesOrientation()
    {
        const auto upright = ImageDecoder::decode(dataPath(QStringLiteral("orient1-360x240.jpg")));
        const auto turned = ImageDecoder::decode(dataPath(QStringLiteral("orient6-360x240.jpg")));
        QVERIFY(upright && turned);
        QCOMPARE(turned->width(), 360); // stored 240 x 360
        QCOMPARE(turned->height(), 240);
        // The same picture: only JPEG requantisation separates them.
        QVERIFY2(meanDifference(*upright, *turned) < 6.0,
                 qPrintable(QString::number(meanDifference(*upright, *turned))));
        const auto a = pixel(*upright, 90, 60);
        const auto b = pixel(*turned, 90, 60);
        for (int band = 0; band < 3; ++band)
            QVERIFY(std::abs(a[band] - b[band]) < 24);
    }

    void convertsAProfileThatSwapsChannels_data()
    {
        QTest::addColumn<int>("x");
        QTest::addColumn<int>("y");
        QTest::addColumn<int>("dominant"); // band that must stand out after conversion
        QTest::newRow("red at the top") << 125 << 5 << 0;
        QTest::newRow("green at the bottom left") << 60 << 240 << 1;
        QTest::newRow("blue at the bottom right") << 200 << 240 << 2;
    }
    void convertsAProfileThatSwapsChannels()
    {
        QFETCH(int, x);
        QFETCH(int, y);
        QFETCH(int, dominant);
        const auto image = ImageDecoder::decode(dataPath(QStringLiteral("rgb-to-gbr-250.jpg")));
        QVERIFY(image);
        const auto value = pixel(*image, x, y);
        QVERIFY2(value[dominant] > 200, qPrintable(QString::number(value[dominant])));
        for (int band = 0; band < 3; ++band) {
            if (band != dominant)
                QVERIFY2(value[band] < value[dominant] - 60, qPrintable(QString::number(value[band])));
        }
    }

    void convertsAdobeRGBToItsSRGBTwin()
    {
        // Compared by the mean of each channel: the twins went through separate JPEG encodes, so
        // single pixels are noisy, but a profile that is ignored shifts whole channels.
        const auto adobe = ImageDecoder::decode(dataPath(QStringLiteral("shoes-adobergb-150x100.jpg")));
        const auto srgb = ImageDecoder::decode(dataPath(QStringLiteral("shoes-srgb-150x100.jpg")));
        QVERIFY(adobe && srgb);
        const vips::VImage unconverted =
            vips::VImage::new_from_file(BREVONA_TEST_DATA "/shoes-adobergb-150x100.jpg");
        double converted = 0;
        double ignored = 0;
        for (int band = 0; band < 3; ++band) {
            const double expected = srgb->extract_band(band).avg();
            converted = std::max(converted, std::abs(adobe->extract_band(band).avg() - expected));
            ignored = std::max(ignored, std::abs(unconverted.extract_band(band).avg() - expected));
        }
        QVERIFY2(converted < 2.5, qPrintable(QString::number(converted)));
        QVERIFY2(ignored > 5.0, qPrintable(QString::number(ignored))); // the check can tell them apart
    }

    void rendersPDFPages_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<int>("page");
        QTest::addColumn<int>("band");   // the filled rectangle's colour
        QTest::addColumn<QSize>("size"); // twice the page's size in points, truncated
        QTest::addColumn<int>("pages");
        QTest::newRow("page 1 red") << "three-pages-200x100pt.pdf" << 0 << 0 << QSize(400, 200) << 3;
        QTest::newRow("page 2 green") << "three-pages-200x100pt.pdf" << 1 << 1 << QSize(400, 200) << 3;
        QTest::newRow("page 3 blue") << "three-pages-200x100pt.pdf" << 2 << 2 << QSize(400, 200) << 3;
        QTest::newRow("A4 truncated, not rounded")
            << "a4-red-595.276x841.89pt.pdf" << 0 << 0 << QSize(1190, 1683) << 1;
        QTest::newRow("media box, not crop box")
            << "crop-box-and-rotation-300x200pt.pdf" << 0 << 2 << QSize(600, 400) << 2;
        QTest::newRow("turned page") << "crop-box-and-rotation-300x200pt.pdf" << 1 << 2 << QSize(400, 600)
                                     << 2;
    }
    void rendersPDFPages()
    {
        QFETCH(QString, fixture);
        QFETCH(int, page);
        QFETCH(int, band);
        QFETCH(QSize, size);
        QFETCH(int, pages);
        const QString pdf = dataPath(fixture);
        QCOMPARE(ImageDecoder::pdfPageCount(pdf), pages);
        const auto image = ImageDecoder::renderPDFPage(pdf, page);
        QVERIFY(image);
        QCOMPARE(QSize(image->width(), image->height()), size);
        QCOMPARE(image->bands(), 3);
        QCOMPARE(ImageDecoder::pageCountOf(*image), pages);
        const auto centre = pixel(*image, size.width() / 2, size.height() / 2);
        for (int b = 0; b < 3; ++b)
            QCOMPARE(centre[b] > 128, b == band);
        QCOMPARE(pixel(*image, 5, 5), (std::vector<double>{255, 255, 255})); // opaque white paper
    }

    void refusesMissingPDFPages()
    {
        const QString pdf = dataPath(QStringLiteral("three-pages-200x100pt.pdf"));
        QVERIFY(!ImageDecoder::renderPDFPage(pdf, 3));
        QVERIFY(!ImageDecoder::renderPDFPage(pdf, -1));
        QTemporaryDir dir;
        const QString fake = dir.filePath(QStringLiteral("fake.pdf"));
        QVERIFY(writeFile(fake, "%PDF-1.4 nothing else"));
        QCOMPARE(ImageDecoder::pdfPageCount(fake), 0);
        QCOMPARE(ImageDecoder::pdfPageCount(dir.filePath(QStringLiteral("missing.pdf"))), 0);
    }

    void scaledSize_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<qint64>("maxEdge");
        QTest::addColumn<QSize>("expected");
        QTest::newRow("landscape") << QSize(4000, 3000) << qint64(2048) << QSize(2048, 1536);
        QTest::newRow("portrait") << QSize(3000, 4000) << qint64(2048) << QSize(1536, 2048);
        QTest::newRow("smaller is untouched") << QSize(1000, 800) << qint64(2048) << QSize(1000, 800);
        QTest::newRow("equal is untouched") << QSize(2048, 100) << qint64(2048) << QSize(2048, 100);
        QTest::newRow("truncates") << QSize(2049, 1000) << qint64(2048) << QSize(2048, 999);
        QTest::newRow("square") << QSize(5000, 5000) << qint64(1000) << QSize(1000, 1000);
        QTest::newRow("thin side truncates to zero") << QSize(10000, 1) << qint64(2048) << QSize(2048, 0);
    }
    void scaledSize()
    {
        QFETCH(QSize, size);
        QFETCH(qint64, maxEdge);
        QFETCH(QSize, expected);
        QCOMPARE(ImageScaler::scaledSize(size, maxEdge), expected);
    }

    void resizeHitsTheExactSize_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::addColumn<int>("bands");
        QTest::addColumn<QSize>("expected");
        QTest::newRow("4000x3000") << 4000 << 3000 << 3 << QSize(2048, 1536);
        QTest::newRow("odd ratio with alpha") << 2049 << 1000 << 4 << QSize(2048, 999);
        QTest::newRow("1000x800 untouched") << 1000 << 800 << 3 << QSize(1000, 800);
        QTest::newRow("too thin to scale") << 10000 << 1 << 3 << QSize(10000, 1);
    }
    void resizeHitsTheExactSize()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        QFETCH(int, bands);
        QFETCH(QSize, expected);
        const vips::VImage image =
            (vips::VImage::black(width, height, vips::VImage::option()->set("bands", bands)) + 128)
                .cast(VIPS_FORMAT_UCHAR)
                .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
        const vips::VImage out = ImageScaler::resize(image, 2048);
        QCOMPARE(QSize(out.width(), out.height()), expected);
        QCOMPARE(out.bands(), bands);
        QCOMPARE(out.format(), VIPS_FORMAT_UCHAR);
        QVERIFY(std::abs(out.avg() - 128.0) < 1.0);
    }

    void resizeKeepsHiddenColourOutOfVisibleEdges()
    {
        // Left half: red but fully transparent. Right half: opaque blue.
        const vips::VImage left = vips::VImage::black(200, 200).new_from_image({255, 0, 0, 0});
        const vips::VImage right = vips::VImage::black(200, 200).new_from_image({0, 0, 255, 255});
        const vips::VImage image =
            left.join(right, VIPS_DIRECTION_HORIZONTAL)
                .cast(VIPS_FORMAT_UCHAR)
                .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
        const vips::VImage out = ImageScaler::resize(image, 100);
        QCOMPARE(out.width(), 100);
        for (int x = 40; x < 60; ++x) {
            const auto value = pixel(out, x, 25);
            if (value[3] > 8)
                QVERIFY2(value[0] < 16, qPrintable(QStringLiteral("x=%1 red=%2").arg(x).arg(value[0])));
        }
    }
};

QTEST_GUILESS_MAIN(TestImageDecoder)
#include "tst_imagedecoder.moc"
