#include <atomic>
#include <filesystem>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vips/vips8>

#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include "EngineFixtures.h"
#include "engine/ImageCompressor.h"
#include "engine/ImageDecoder.h"
#include "engine/ImageScaler.h"

using namespace EngineFixtures;

class TestImageCompressor final : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QMap<QString, QByteArray> m_originals;
    QStringList m_progress; // "current/total label"
    QSet<QThread*> m_progressThreads;

    ImageCompressor::ProgressCallback recorder()
    {
        return [this](int current, int total, const QString& label) {
            m_progress.append(QStringLiteral("%1/%2 %3").arg(current).arg(total).arg(label));
            m_progressThreads.insert(QThread::currentThread());
        };
    }

    /// A fixture copied into this test's folder; its bytes are checked again after the test.
    QString source(const QString& fixture, const QString& asName = {})
    {
        const QString path = copyFixture(fixture, m_dir->path(), asName);
        m_originals.insert(path, sha256(path));
        return path;
    }
    QString made(const QString& name, const QByteArray& bytes)
    {
        const QString path = m_dir->filePath(name);
        writeFile(path, bytes);
        m_originals.insert(path, sha256(path));
        return path;
    }
    QString path(const QString& name) const { return m_dir->filePath(name); }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_originals.clear();
        m_progress.clear();
        m_progressThreads.clear();
    }
    void cleanup()
    {
        for (auto it = m_originals.cbegin(); it != m_originals.cend(); ++it)
            QVERIFY2(sha256(it.key()) == it.value(), qPrintable(it.key() + QStringLiteral(" changed")));
        QCOMPARE(entries(m_dir->path()).filter(QStringLiteral(".tmp")), QStringList{});
    }

    // "original" follows the source's extension (jpg, jpeg, png, webp, avif) and means JPEG for
    // the rest; an empty suffix never overwrites the source. Whether a job streams (one encode) or
    // decodes into memory first (size limit), its output holds the upright, sRGB, scaled pixels of
    // the reference's decode.
    void writesTheDecodedImage_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<QString>("asName");
        QTest::addColumn<int>("maxEdge");       // 0: not scaled; below 0: that edge, the limit off
        QTest::addColumn<int>("limitKB");       // 0: no size limit
        QTest::addColumn<QString>("expected");  // the output's name; without "-web": the suffix left empty
        QTest::addColumn<double>("tolerance");  // mean absolute difference per sample
        QTest::addColumn<QString>("reference"); // the fixture whose decode the output shows; "": its own
        const auto original = OutputFormat::Original;
        const auto png = OutputFormat::Png;
        QTest::newRow("heic as original, flattened onto white")
            << "colors-alpha-64x64.heic" << original << "v1.2.heic" << 0 << 0 << "v1.2-web.jpg" << 3.0 << "";
        QTest::newRow("PNG as original")
            << "rgba-32x32.png" << original << "A.PNG" << 0 << 0 << "A-web.png" << 0.0 << "";
        QTest::newRow("avif as original")
            << "colors-srgb-200x200.avif" << original << "c.avif" << 0 << 0 << "c-web.avif" << 3.0 << "";
        QTest::newRow("gif to webp") << "cogs-5frames-85x77.gif" << OutputFormat::Webp << "c.gif" << 0 << 0
                                     << "c-web.webp" << 8.0 << "";
        QTest::newRow("bmp to png") << "pal8-127x64.bmp" << png << "p.bmp" << 0 << 0 << "p-web.png" << 0.0
                                    << "";
        QTest::newRow("webp as original, no suffix")
            << "transparent-200x150.webp" << original << "t.webp" << 0 << 0 << "t_2.webp" << 8.0 << "";
        QTest::newRow("turned to jpeg, limit off, like its upright twin")
            << "orient6-360x240.jpg" << OutputFormat::Jpeg << "o.jpg" << -100 << 0 << "o-web.jpg" << 3.0
            << "orient1-360x240.jpg";
        QTest::newRow("turned to png, scaled")
            << "orient6-360x240.jpg" << png << "o.jpg" << 200 << 0 << "o-web.png" << 0.0 << "";
        QTest::newRow("turned to png, size limit")
            << "orient6-360x240.jpg" << png << "o.jpg" << 0 << 10000 << "o-web.png" << 0.0 << "";
        QTest::newRow("adobe rgb to jpeg, like its sRGB twin")
            << "shoes-adobergb-150x100.jpg" << OutputFormat::Jpeg << "s.jpg" << 0 << 0 << "s-web.jpg" << 3.0
            << "shoes-srgb-150x100.jpg";
        QTest::newRow("grey to avif, scaled")
            << "grey-32x32.png" << OutputFormat::Avif << "g.png" << 20 << 0 << "g-web.avif" << 3.0 << "";
    }
    void writesTheDecodedImage()
    {
        QFETCH(QString, fixture);
        QFETCH(OutputFormat, format);
        QFETCH(QString, asName);
        QFETCH(int, maxEdge);
        QFETCH(int, limitKB);
        QFETCH(QString, expected);
        QFETCH(double, tolerance);
        QFETCH(QString, reference);
        CompressionSettings settings = settingsFor(format, maxEdge, limitKB);
        if (!expected.contains(settings.suffix))
            settings.suffix.clear();
        const QString input = source(fixture, asName);
        const CompressionResult result = ImageCompressor::shared().compressOne(input, settings);
        QVERIFY(result.succeeded());
        QCOMPARE(result.sourceURL, input);
        QCOMPARE(*result.outputURL, path(expected)); // the source itself stays as it was (see cleanup)
        QCOMPARE(result.originalSize, QFileInfo(input).size());
        QCOMPARE(result.compressedSize, QFileInfo(*result.outputURL).size());
        const vips::VImage written = loaded(*result.outputURL);
        const QHash<QString, QString> loaders{
            {"jpg", "jpegload"}, {"png", "pngload"}, {"webp", "webpload"}, {"avif", "heifload"}};
        QCOMPARE(QString::fromUtf8(written.get_string("vips-loader")),
                 loaders.value(QFileInfo(expected).suffix()));
        std::optional<vips::VImage> decoded =
            ImageDecoder::decode(dataPath(reference.isEmpty() ? fixture : reference));
        QVERIFY(decoded);
        if (maxEdge > 0)
            decoded = ImageScaler::resize(*decoded, maxEdge);
        if (written.bands() < decoded->bands()) // over white, never the colour hidden under alpha 0
            decoded = decoded->flatten(vips::VImage::option()->set("background", std::vector<double>{255}));
        QCOMPARE(QSize(written.width(), written.height()), QSize(decoded->width(), decoded->height()));
        QCOMPARE(written.bands(), decoded->bands());
        // Twins went through separate JPEG encodes: compared in 8 x 8 blocks, their noise averages
        // out, but a colour shift or a turn does not.
        const double difference = reference.isEmpty()
                                      ? meanDifference(written, *decoded)
                                      : meanDifference(written.shrink(8, 8), decoded->shrink(8, 8));
        QVERIFY2(difference <= tolerance, qPrintable(QString::number(difference)));
    }

    // Each page is its own job, rendered at twice its size in points (truncated) on white paper,
    // never scaled, and credited with its share of the PDF's size.
    void expandsPDFPages_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<QList<QSize>>("sizes"); // per page
        QTest::addColumn<QList<int>>("bands");   // per page, the band of its filled rectangle
        const QList<QSize> three(3, QSize(400, 200));
        QTest::newRow("original becomes jpeg")
            << "three-pages-200x100pt.pdf" << OutputFormat::Original << three << QList{0, 1, 2};
        QTest::newRow("A4 truncated, not rounded")
            << "a4-red-595.276x841.89pt.pdf" << OutputFormat::Jpeg << QList{QSize(1190, 1683)} << QList{0};
        // Page 1's crop box is a corner of its media box; page 2 is turned a quarter.
        QTest::newRow("media box, turned page") << "crop-box-and-rotation-300x200pt.pdf" << OutputFormat::Jpeg
                                                << QList{QSize(600, 400), QSize(400, 600)} << QList{2, 2};
    }
    void expandsPDFPages()
    {
        QFETCH(QString, fixture);
        QFETCH(OutputFormat, format);
        QFETCH(QList<QSize>, sizes);
        QFETCH(QList<int>, bands);
        const int pages = int(sizes.size());
        const QString pdf = source(fixture, QStringLiteral("report.pdf"));
        const SessionResult session =
            ImageCompressor::shared().compressBatch({pdf}, settingsFor(format, 100), recorder());
        QStringList expectedProgress;
        for (int page = 0; page < pages; ++page)
            expectedProgress.append(
                QStringLiteral("%1/%2 report.pdf p%3").arg(page).arg(pages).arg(page + 1));
        QCOMPARE(m_progress, expectedProgress << QStringLiteral("%1/%1 ").arg(pages));
        QCOMPARE(session.results.size(), pages);
        for (int page = 0; page < pages; ++page) {
            const CompressionResult& result = session.results[page];
            QVERIFY(result.succeeded());
            QCOMPARE(result.sourceURL, pdf);
            QCOMPARE(*result.outputURL, path(QStringLiteral("report-web-p%1.jpg").arg(page + 1)));
            QCOMPARE(result.originalSize, QFileInfo(pdf).size() / pages);
            QCOMPARE(result.compressedSize, QFileInfo(*result.outputURL).size());
            const vips::VImage written = loaded(*result.outputURL);
            const QSize size = sizes[page];
            QCOMPARE(QSize(written.width(), written.height()), size);
            const auto centre = pixel(written, size.width() / 2, size.height() / 2);
            const auto paper = pixel(written, 5, 5);
            for (int band = 0; band < 3; ++band) {
                QCOMPARE(centre[band] > 128, band == bands[page]);
                QVERIFY(paper[band] > 245);
            }
        }
    }

    // Jobs that finish out of order (the first sleeps longest) are still reported, named,
    // written and judged by the minimum-saving rule in job order, off the caller's thread.
    void jobsFinishingOutOfOrderCommitInOrder_data()
    {
        QTest::addColumn<int>("jobs");
        QTest::newRow("one at a time") << 1;
        QTest::newRow("two") << 2;
    }
    void jobsFinishingOutOfOrderCommitInOrder()
    {
        QFETCH(int, jobs);
        const QByteArray original(1000, 'o');
        const QString a = made(QStringLiteral("a.png"), original);
        const QString grows = made(QStringLiteral("x.png"), original); // its output would be larger
        const QString bad = made(QStringLiteral("bad.png"), original);
        const QString shrinks = made(QStringLiteral("x.jpg"), original); // takes the name x.png gave up
        made(QStringLiteral("x-web.jpg"), "an earlier output");          // left alone
        const QStringList paths{a, a, grows, bad, a, shrinks};

        std::atomic<int> calls = 0;
        std::atomic<int> inFlight = 0;
        std::atomic<int> mostInFlight = 0;
        ImageCompressor engine([&](const QString& sourcePath, const CompressionSettings&) {
            const int now = ++inFlight;
            for (int most = mostInFlight; now > most && !mostInFlight.compare_exchange_weak(most, now);) {
            }
            QThread::msleep(40 * (paths.size() - calls++));
            --inFlight;
            const QString name = QFileInfo(sourcePath).fileName();
            return name == QLatin1String("bad.png")
                       ? std::nullopt
                       : std::optional(
                             QByteArray(name == QLatin1String("x.png") ? 2000 : 100, name.at(0).toLatin1()));
        });
        CompressionSettings settings = settingsFor();
        settings.requireMinSavingPercent = true;
        const SessionResult session = engine.compress(paths, settings, recorder(), jobs).result();
        QCOMPARE(m_progress, (QStringList{"0/6 a.png", "1/6 a.png", "2/6 x.png", "3/6 bad.png", "4/6 a.png",
                                          "5/6 x.jpg", "6/6 "}));
        QCOMPARE(m_progressThreads.size(), 1);
        QVERIFY(!m_progressThreads.contains(QThread::currentThread()));
        QStringList outcomes; // source: output or error, and the size reported
        for (const CompressionResult& result : session.results) {
            outcomes.append(QStringLiteral("%1: %2 %3")
                                .arg(QFileInfo(result.sourceURL).fileName(),
                                     result.outputURL ? QFileInfo(*result.outputURL).fileName()
                                                      : CompressorErrors::errorDescription(*result.error))
                                .arg(result.compressedSize));
        }
        const QString belowThreshold =
            CompressorErrors::errorDescription(CompressorError::SavingsBelowThreshold);
        const QString cannotDecode = CompressorErrors::errorDescription(CompressorError::CannotDecode);
        QCOMPARE(outcomes,
                 (QStringList{"a.png: a-web.jpg 100", "a.png: a-web_2.jpg 100",
                              "x.png: " + belowThreshold + " 1000", "bad.png: " + cannotDecode + " 0",
                              "a.png: a-web_3.jpg 100", "x.jpg: x-web_2.jpg 100"}));
        QCOMPARE(readFile(path(QStringLiteral("x-web_2.jpg"))), QByteArray(100, 'x'));
        QVERIFY(mostInFlight <= jobs);
        if (jobs > 1)
            QVERIFY(mostInFlight > 1);
    }

    void keepsOutput_data()
    {
        QTest::addColumn<int>("original");
        QTest::addColumn<int>("compressed");
        QTest::addColumn<bool>("rule");
        QTest::addColumn<int>("minimum");
        QTest::addColumn<bool>("kept");
        QTest::newRow("exactly 20 %") << 100000 << 80000 << true << 20 << true;
        QTest::newRow("19.999 % truncates to 19") << 100000 << 80001 << true << 20 << false;
        QTest::newRow("larger output without rule") << 100000 << 120000 << false << 20 << true;
        QTest::newRow("unknown original size") << 0 << 500 << true << 20 << true;
    }
    void keepsOutput()
    {
        QFETCH(int, original);
        QFETCH(int, compressed);
        QFETCH(bool, rule);
        QFETCH(int, minimum);
        QFETCH(bool, kept);
        CompressionSettings settings = settingsFor();
        settings.requireMinSavingPercent = rule;
        settings.minSavingPercent = minimum;
        QCOMPARE(ImageCompressor::keepsOutput(original, compressed, settings), kept);
    }

    // A bad input fails alone with a clear error, whichever way it would be read, and leaves
    // nothing behind; the next file is still compressed.
    void badInputFailsAndTheBatchGoesOn_data()
    {
        // "NAME CONTENT": a file NAME holding CONTENT; "NAME @x": a copy of tests/data/x (or x is
        // missing, fifo, zero: a link to /dev/zero, unreadable, beside: a U+FFFD name beside it).
        QTest::addColumn<QString>("file");
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<int>("limitKB");
        const auto jpeg = OutputFormat::Jpeg;
        QTest::newRow("missing file") << "missing.jpg @missing" << jpeg << 0;
        QTest::newRow("empty file") << "empty.jpg " << jpeg << 0;
        QTest::newRow("svg named jpg") << "photo.jpg <svg xmlns=\"http://www.w3.org/2000/svg\" width=\"8\" "
                                          "height=\"8\"><rect width=\"8\" height=\"8\"/></svg>"
                                       << jpeg << 0;
        // Only the loader that the extension and the first bytes agree on may read a file.
        QTest::newRow("numbers named jpg (matrix loader)") << "m.jpg 2 2\n0 255\n255 0\n" << jpeg << 0;
        QTest::newRow("png named jpg") << "photo.jpg @rgba-32x32.png" << jpeg << 0;
        QTest::newRow("accepted bytes, other extension") << "photo.jxl @orient1-360x240.jpg" << jpeg << 0;
        // A job that encodes once reads the decoder's output while encoding, so a file that
        // breaks off fails inside the encoder; it still counts as undecodable.
        QTest::newRow("truncated jpeg") << "t.jpg @truncated.jpg" << jpeg << 0;
        QTest::newRow("truncated, to png") << "t.jpg @truncated.jpg" << OutputFormat::Png << 0;
        QTest::newRow("truncated, under a size limit") << "t.jpg @truncated.jpg" << jpeg << 50;
        QTest::newRow("truncated arw") << "t.arw @truncated.arw" << jpeg << 0;
        QTest::newRow("raw without image data") << "h.nef @headers-only.nef" << jpeg << 0;
        QTest::newRow("avif libheif cannot read") << "u.avif @undecodable-rotate90.avif" << jpeg << 0;
        QTest::newRow("canvas over the pixel limit") << "b.png @bomb-30000x30000.png" << jpeg << 0;
        QTest::newRow("pdf that does not open") << "broken.pdf %PDF-1.7\n%%EOF\n" << jpeg << 0;
        // Never opened: the batch must not wait on a FIFO or read /dev/zero for ever.
        QTest::newRow("fifo named pdf") << "x.pdf @fifo" << jpeg << 0;
        QTest::newRow("link to /dev/zero named gif") << "x.gif @zero" << jpeg << 0;
        QTest::newRow("unreadable file") << "u.jpg @unreadable" << jpeg << 0;
        // Qt paths cannot carry bytes that are not UTF-8: such a name arrives with U+FFFD in their
        // place, which may name another file. It is refused, and the other file is never read.
        QTest::newRow("name not UTF-8 beside a U+FFFD name") << "\xff.png @beside" << jpeg << 0;
    }
    void badInputFailsAndTheBatchGoesOn()
    {
        QFETCH(QString, file);
        QFETCH(OutputFormat, format);
        QFETCH(int, limitKB);
        const QString name = file.section(u' ', 0, 0);
        const QString content = file.section(u' ', 1);
        const QString fixture = content.startsWith(u'@') ? content.mid(1) : QString();
        // A U+FFFD in the name goes to the file system as the one byte 0xFF: not UTF-8.
        const QByteArray native =
            QFile::encodeName(m_dir->path()) + '/' + name.toUtf8().replace("\xef\xbf\xbd", "\xff");
        const QString bad = QFile::decodeName(native); // all that a Qt caller can hold
        const bool latin1 = native.contains('\xff');
        if (fixture == QLatin1String("fifo")) {
            QCOMPARE(::mkfifo(native.constData(), 0600), 0);
        } else if (fixture == QLatin1String("zero")) {
            QCOMPARE(::symlink("/dev/zero", native.constData()), 0);
        } else if (fixture == QLatin1String("unreadable")) {
            if (::geteuid() == 0)
                QSKIP("running as root: file permissions do not stop reads");
            QVERIFY(QFile::setPermissions(source(QStringLiteral("orient1-360x240.jpg"), name), {}));
        } else if (latin1) {
            QVERIFY(std::filesystem::copy_file(dataPath(QStringLiteral("rgba-32x32.png")).toStdString(),
                                               native.toStdString()));
            QCOMPARE(QFileInfo(bad).fileName(),
                     QString(QChar::ReplacementCharacter) + QStringLiteral(".png"));
            if (fixture == QLatin1String("beside"))
                source(QStringLiteral("orient1-360x240.jpg"), QFileInfo(bad).fileName());
        } else if (fixture.isEmpty()) {
            made(name, content.toUtf8());
        } else if (fixture != QLatin1String("missing")) {
            source(fixture, name);
        }
        struct stat info = {};
        const qint64 size =
            ::stat(native.constData(), &info) == 0 && S_ISREG(info.st_mode) ? info.st_size : 0;
        const QString good = source(QStringLiteral("rgba-32x32.png"), QStringLiteral("good.png"));
        QStringList expected = entries(m_dir->path());

        const SessionResult session =
            ImageCompressor::shared().compressBatch({bad, good}, settingsFor(format, 0, limitKB), {});
        QFile::setPermissions(bad, QFile::ReadOwner | QFile::WriteOwner);
        QCOMPARE(session.results.size(), 2);
        const CompressionResult& failed = session.results[0];
        QCOMPARE(failed.error,
                 std::optional(latin1 ? CompressorError::InvalidFileName : CompressorError::CannotDecode));
        QVERIFY(!failed.outputURL);
        QCOMPARE(failed.compressedSize, 0);
        QCOMPARE(failed.originalSize, size);
        QVERIFY(session.results[1].succeeded());
        expected.append(QFileInfo(*session.results[1].outputURL).fileName()); // and nothing else
        QStringList now = entries(m_dir->path());
        now.sort();
        expected.sort();
        QCOMPARE(now, expected);
        if (latin1)
            QCOMPARE(::unlink(native.constData()), 0); // Qt could not remove it
    }

    // A loader that fails halfway (here a checksum error in the second half of a PNG's data) fails
    // on one of libvips' worker threads, and the others are handed black lines in its place. The
    // job must fail however many threads read it, whichever way it is encoded.
    void failureHalfwayIsNeverLost_data()
    {
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<int>("limitKB");
        QTest::newRow("jpeg") << OutputFormat::Jpeg << 0;
        QTest::newRow("png") << OutputFormat::Png << 0;
        QTest::newRow("webp") << OutputFormat::Webp << 0;
        QTest::newRow("decoded into memory first") << OutputFormat::Jpeg << 50;
    }
    void failureHalfwayIsNeverLost()
    {
        QFETCH(OutputFormat, format);
        QFETCH(int, limitKB);
        const QString bad = source(QStringLiteral("crc-error-32x32.png"));
        const int threads = vips_concurrency_get();
        vips_concurrency_set(8);
        // Lost or not depends on timing: without a guard, most runs on eight threads lose it.
        QStringList written;
        for (int run = 0; run < 40; ++run) {
            const CompressionResult result =
                ImageCompressor::shared().compressOne(bad, settingsFor(format, 0, limitKB));
            if (result.error != CompressorError::CannotDecode)
                written.append(QString::number(run));
        }
        vips_concurrency_set(threads);
        QVERIFY2(written.isEmpty(), qPrintable(QStringLiteral("runs not failed: ") + written.join(u' ')));
    }

    // Outputs go to the custom folder while it exists, else beside the source; a folder that
    // cannot take the file fails the job before it is encoded, with the system's reason in the log,
    // and a page's failure reports the PDF.
    void destination_data()
    {
        QTest::addColumn<QString>("folder");   // "out", "gone": made, deleted custom folders; a path
        QTest::addColumn<bool>("pdf");         // page 2 of a PDF instead of an image
        QTest::addColumn<int>("suffixLength"); // 0: "-web"
        QTest::addColumn<QString>("expected"); // the output's folder ("out", "source"), or why the job fails
        QTest::newRow("custom folder") << "out" << false << 0 << "out";
        QTest::newRow("deleted custom folder: beside the source") << "gone" << false << 0 << "source";
        QTest::newRow("custom folder, pdf page") << "out" << true << 0 << "out";
        // Root may pass the folder check of /proc, and fails at the file.
        QTest::newRow("unwritable folder, pdf page")
            << "/proc" << true << 0 << "Permission denied|No such file or directory";
        QTest::newRow("name too long") << "out" << false << 300 << "File name too long";
    }
    void destination()
    {
        QFETCH(QString, folder);
        QFETCH(bool, pdf);
        QFETCH(int, suffixLength);
        QFETCH(QString, expected);
        QTemporaryDir out;
        CompressionSettings settings = settingsFor();
        settings.outputLocation = OutputLocation::CustomFolder;
        settings.customFolderURL = folder.startsWith(u'/') ? folder : out.filePath(folder);
        if (suffixLength > 0)
            settings.suffix = QString(suffixLength, u'a');
        QVERIFY(folder == QLatin1String("gone") || folder.startsWith(u'/') || QDir(out.path()).mkdir(folder));
        const bool fails = expected != QLatin1String("out") && expected != QLatin1String("source");
        if (fails)
            QTest::ignoreMessage(
                QtWarningMsg,
                QRegularExpression(QStringLiteral("^Write FAILED path=.* err=(%1)$").arg(expected)));
        const QString input =
            source(pdf ? QStringLiteral("three-pages-200x100pt.pdf") : QStringLiteral("orient1-360x240.jpg"));
        const CompressionResult result = pdf ? ImageCompressor::shared().compressPDFPage(input, 1, settings)
                                             : ImageCompressor::shared().compressOne(input, settings);
        const QString name = pdf ? QStringLiteral("three-pages-200x100pt%1-p2.jpg").arg(settings.suffix)
                                 : QStringLiteral("orient1-360x240%1.jpg").arg(settings.suffix);
        const QString folderWritten =
            expected == QLatin1String("out") ? out.filePath(expected) : m_dir->path();
        QCOMPARE(result.outputURL, fails ? std::nullopt : std::optional(QDir(folderWritten).filePath(name)));
        QCOMPARE(result.error, fails ? std::optional(CompressorError::FinalizeFailed) : std::nullopt);
        QCOMPARE(result.compressedSize, fails ? 0 : QFileInfo(*result.outputURL).size());
        QCOMPARE(result.originalSize, pdf && !fails ? QFileInfo(input).size() / 3 : QFileInfo(input).size());
        if (fails && !folder.startsWith(u'/'))
            QCOMPARE(entries(*settings.customFolderURL), QStringList{});
    }
};

QTEST_GUILESS_MAIN(TestImageCompressor)
#include "tst_imagecompressor.moc"
