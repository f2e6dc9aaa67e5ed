#include <atomic>
#include <memory>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vips/vips8>

#include <QMap>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include "EngineFixtures.h"
#include "engine/ImageCompressor.h"
#include "engine/ImageDecoder.h"
#include "engine/ImageScaler.h"

using namespace EngineFixtures;

namespace {

using Progress = std::tuple<int, int, QString>;

CompressionSettings defaults()
{
    return CompressionSettings{}; // jpeg, balanced, "-web", same folder, no limits
}

/// The defaults with another format, scaled to `maxEdge` and kept under `limitKB` when not 0.
CompressionSettings withLimits(OutputFormat format, qint64 maxEdge, qint64 limitKB)
{
    CompressionSettings settings = defaults();
    settings.outputFormat = format;
    settings.limitLongestEdge = maxEdge > 0;
    settings.longestEdgePx = maxEdge;
    settings.limitOutputFileSize = limitKB > 0;
    settings.maxFileSizeKB = limitKB;
    return settings;
}

QSize imageSize(const QString& path)
{
    const vips::VImage image = vips::VImage::new_from_file(path.toUtf8().constData());
    return {image.width(), image.height()};
}

} // namespace

class TestImageCompressor final : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QMap<QString, QByteArray> m_originals;

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
    /// A plain grey-and-gradient JPEG of the given size.
    QString generated(const QString& name, int width, int height)
    {
        const vips::VImage image =
            (vips::VImage::xyz(width, height).extract_band(0) % 256).cast(VIPS_FORMAT_UCHAR);
        image.write_to_file(m_dir->filePath(name).toUtf8().constData());
        m_originals.insert(m_dir->filePath(name), sha256(m_dir->filePath(name)));
        return m_dir->filePath(name);
    }
    QString path(const QString& name) const { return m_dir->filePath(name); }

    static SessionResult run(const QStringList& paths, const CompressionSettings& settings,
                             QList<Progress>* progress = nullptr)
    {
        return ImageCompressor::shared().compressBatch(paths, settings,
                                                       [progress](int i, int total, const QString& label) {
                                                           if (progress)
                                                               progress->append({i, total, label});
                                                       });
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_originals.clear();
    }
    void cleanup()
    {
        for (auto it = m_originals.cbegin(); it != m_originals.cend(); ++it)
            QVERIFY2(sha256(it.key()) == it.value(), qPrintable(it.key() + QStringLiteral(" changed")));
        QCOMPARE(entries(m_dir->path()).filter(QStringLiteral(".tmp")), QStringList{});
    }

    void sameFileTwiceGetsNumberedNames()
    {
        const QString a = source(QStringLiteral("rgba-32x32.png"), QStringLiteral("a.png"));
        const SessionResult session = run({a, a}, defaults());
        QCOMPARE(session.results.size(), 2);
        QCOMPARE(session.results[0].outputURL, std::optional(path(QStringLiteral("a-web.jpg"))));
        QCOMPARE(session.results[1].outputURL, std::optional(path(QStringLiteral("a-web_2.jpg"))));
        for (const CompressionResult& result : session.results) {
            QVERIFY(result.succeeded());
            QCOMPARE(result.sourceURL, a);
            QCOMPARE(result.originalSize, QFileInfo(a).size());
            QCOMPARE(result.compressedSize, QFileInfo(*result.outputURL).size());
        }
    }

    void emptySuffixNeverOverwritesTheSource_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<QString>("expected");
        QTest::newRow("jpg kept as jpg")
            << "orient1-360x240.jpg" << OutputFormat::Original << "orient1-360x240_2.jpg";
        QTest::newRow("png to png") << "rgba-32x32.png" << OutputFormat::Png << "rgba-32x32_2.png";
        QTest::newRow("webp kept as webp")
            << "transparent-200x150.webp" << OutputFormat::Original << "transparent-200x150_2.webp";
    }
    void emptySuffixNeverOverwritesTheSource()
    {
        QFETCH(QString, fixture);
        QFETCH(OutputFormat, format);
        QFETCH(QString, expected);
        const QString input = source(fixture);
        CompressionSettings settings = defaults();
        settings.suffix.clear();
        settings.outputFormat = format;
        const CompressionResult result = ImageCompressor::shared().compressOne(input, settings);
        QVERIFY(result.succeeded());
        QCOMPARE(*result.outputURL, path(expected)); // the source itself stays as it was (see cleanup)
    }

    void resolvedFormat_data()
    {
        QTest::addColumn<OutputFormat>("chosen");
        QTest::addColumn<QString>("file");
        QTest::addColumn<OutputFormat>("expected");
        QTest::newRow("jpg") << OutputFormat::Original << "a.jpg" << OutputFormat::Jpeg;
        QTest::newRow("JPEG upper case") << OutputFormat::Original << "a.JPEG" << OutputFormat::Jpeg;
        QTest::newRow("png") << OutputFormat::Original << "a.png" << OutputFormat::Png;
        QTest::newRow("webp") << OutputFormat::Original << "a.webp" << OutputFormat::Webp;
        QTest::newRow("AVIF") << OutputFormat::Original << "a.AVIF" << OutputFormat::Avif;
        QTest::newRow("HEIC becomes jpeg") << OutputFormat::Original << "photo.HEIC" << OutputFormat::Jpeg;
        QTest::newRow("tiff becomes jpeg") << OutputFormat::Original << "a.tiff" << OutputFormat::Jpeg;
        QTest::newRow("gif becomes jpeg") << OutputFormat::Original << "a.gif" << OutputFormat::Jpeg;
        QTest::newRow("bmp becomes jpeg") << OutputFormat::Original << "a.bmp" << OutputFormat::Jpeg;
        QTest::newRow("dng becomes jpeg") << OutputFormat::Original << "a.dng" << OutputFormat::Jpeg;
        QTest::newRow("no extension") << OutputFormat::Original << "README" << OutputFormat::Jpeg;
        QTest::newRow("png chosen for a jpg") << OutputFormat::Png << "a.jpg" << OutputFormat::Png;
        QTest::newRow("avif chosen for a png") << OutputFormat::Avif << "a.png" << OutputFormat::Avif;
    }
    void resolvedFormat()
    {
        QFETCH(OutputFormat, chosen);
        QFETCH(QString, file);
        QFETCH(OutputFormat, expected);
        QCOMPARE(ImageCompressor::resolvedFormat(chosen, QStringLiteral("/photos/") + file), expected);
    }

    void writesTheResolvedFormat_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("loader");
        QTest::newRow("heic as original")
            << "colors-alpha-64x64.heic" << OutputFormat::Original << "colors-alpha-64x64-web.jpg"
            << "jpegload";
        QTest::newRow("png as original") << "rgba-32x32.png" << OutputFormat::Original << "rgba-32x32-web.png"
                                         << "pngload";
        QTest::newRow("avif as original")
            << "colors-srgb-200x200.avif" << OutputFormat::Original << "colors-srgb-200x200-web.avif"
            << "heifload";
        QTest::newRow("gif to webp") << "cogs-5frames-85x77.gif" << OutputFormat::Webp
                                     << "cogs-5frames-85x77-web.webp"
                                     << "webpload";
        QTest::newRow("bmp to png") << "pal8-127x64.bmp" << OutputFormat::Png << "pal8-127x64-web.png"
                                    << "pngload";
    }
    void writesTheResolvedFormat()
    {
        QFETCH(QString, fixture);
        QFETCH(OutputFormat, format);
        QFETCH(QString, expected);
        QFETCH(QString, loader);
        CompressionSettings settings = defaults();
        settings.outputFormat = format;
        const CompressionResult result = ImageCompressor::shared().compressOne(source(fixture), settings);
        QVERIFY(result.succeeded());
        QCOMPARE(*result.outputURL, path(expected));
        const vips::VImage written = vips::VImage::new_from_file(result.outputURL->toUtf8().constData());
        QCOMPARE(QString::fromUtf8(written.get_string("vips-loader")), loader);
    }

    void scalesOnlyWhenAsked_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<bool>("limit");
        QTest::addColumn<QSize>("expected");
        QTest::newRow("4000x3000 at 2048") << QSize(4000, 3000) << true << QSize(2048, 1536);
        QTest::newRow("1000x800 untouched") << QSize(1000, 800) << true << QSize(1000, 800);
        QTest::newRow("limit off") << QSize(3000, 2500) << false << QSize(3000, 2500);
    }
    void scalesOnlyWhenAsked()
    {
        QFETCH(QSize, size);
        QFETCH(bool, limit);
        QFETCH(QSize, expected);
        CompressionSettings settings = defaults();
        settings.limitLongestEdge = limit;
        const QString input = generated(QStringLiteral("big.jpg"), size.width(), size.height());
        const CompressionResult result = ImageCompressor::shared().compressOne(input, settings);
        QVERIFY(result.succeeded());
        QCOMPARE(imageSize(*result.outputURL), expected);
    }

    void expandsPDFPages_data()
    {
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<QString>("extension");
        QTest::newRow("original becomes jpeg") << OutputFormat::Original << "jpg";
        QTest::newRow("jpeg") << OutputFormat::Jpeg << "jpg";
        QTest::newRow("png") << OutputFormat::Png << "png";
    }
    void expandsPDFPages()
    {
        QFETCH(OutputFormat, format);
        QFETCH(QString, extension);
        const QString pdf = source(QStringLiteral("three-pages-200x100pt.pdf"), QStringLiteral("report.pdf"));
        CompressionSettings settings = defaults();
        settings.outputFormat = format;
        settings.limitLongestEdge = true;
        settings.longestEdgePx = 100; // pages are never scaled
        QList<Progress> progress;
        const SessionResult session = run({pdf}, settings, &progress);

        const QList<Progress> expectedProgress{{0, 3, QStringLiteral("report.pdf p1")},
                                               {1, 3, QStringLiteral("report.pdf p2")},
                                               {2, 3, QStringLiteral("report.pdf p3")},
                                               {3, 3, QString()}};
        QCOMPARE(progress, expectedProgress);
        QCOMPARE(session.results.size(), 3);
        for (int page = 0; page < 3; ++page) {
            const CompressionResult& result = session.results[page];
            QVERIFY(result.succeeded());
            QCOMPARE(result.sourceURL, pdf);
            QCOMPARE(*result.outputURL,
                     path(QStringLiteral("report-web-p%1.%2").arg(page + 1).arg(extension)));
            QCOMPARE(result.originalSize, QFileInfo(pdf).size() / 3);
            QCOMPARE(result.compressedSize, QFileInfo(*result.outputURL).size());
            QCOMPARE(imageSize(*result.outputURL), QSize(400, 200));
        }
    }

    void keepsJobOrderAcrossMixedInputs()
    {
        const QString png = source(QStringLiteral("rgba-32x32.png"), QStringLiteral("a.png"));
        const QString pdf = source(QStringLiteral("three-pages-200x100pt.pdf"), QStringLiteral("doc.PDF"));
        const QString broken = made(QStringLiteral("broken.pdf"), "not a pdf at all");
        const QString jpg = source(QStringLiteral("orient1-360x240.jpg"), QStringLiteral("b.jpg"));
        QList<Progress> progress;
        const SessionResult session = run({png, pdf, broken, jpg}, defaults(), &progress);
        QStringList labels;
        for (const auto& [i, total, label] : progress) {
            QCOMPARE(total, 6);
            QCOMPARE(i, labels.size());
            labels.append(label);
        }
        QCOMPARE(labels,
                 (QStringList{"a.png", "doc.PDF p1", "doc.PDF p2", "doc.PDF p3", "broken.pdf", "b.jpg", ""}));
        QCOMPARE(session.results.size(), 6);
        QCOMPARE(session.results[4].sourceURL, broken);
        QCOMPARE(session.results[4].error, std::optional(CompressorError::CannotDecode));
        QCOMPARE(session.results[4].compressedSize, 0);
        QVERIFY(!session.results[4].outputURL);
        QCOMPARE(session.succeededCount(), 5);
    }

    // Jobs that finish out of order (the first sleeps longest) are still reported, named,
    // written and judged by the minimum-saving rule in job order.
    void jobsFinishingOutOfOrderCommitInOrder_data()
    {
        QTest::addColumn<int>("jobs");
        QTest::newRow("one at a time") << 1;
        QTest::newRow("two") << 2;
        QTest::newRow("four") << 4;
    }
    void jobsFinishingOutOfOrderCommitInOrder()
    {
        QFETCH(int, jobs);
        const QByteArray original(1000, 'o');
        const QString a = made(QStringLiteral("a.png"), original);
        const QString grows = made(QStringLiteral("x.png"), original); // its output would be larger
        const QString bad = made(QStringLiteral("bad.png"), original);
        const QString shrinks = made(QStringLiteral("x.jpg"), original); // takes the name x.png gave up
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
        CompressionSettings settings = defaults();
        settings.requireMinSavingPercent = true;
        QList<Progress> progress;
        const SessionResult session = engine.compressBatch(
            paths, settings,
            [&progress](int i, int total, const QString& label) {
                progress.append({i, total, label});
            },
            jobs);

        QCOMPARE(progress, (QList<Progress>{{0, 6, "a.png"},
                                            {1, 6, "a.png"},
                                            {2, 6, "x.png"},
                                            {3, 6, "bad.png"},
                                            {4, 6, "a.png"},
                                            {5, 6, "x.jpg"},
                                            {6, 6, QString()}}));
        QStringList sources;
        QStringList outputs;
        for (const CompressionResult& result : session.results) {
            sources.append(QFileInfo(result.sourceURL).fileName());
            outputs.append(result.outputURL ? QFileInfo(*result.outputURL).fileName()
                                            : CompressorErrors::errorDescription(*result.error));
        }
        QCOMPARE(sources, (QStringList{"a.png", "a.png", "x.png", "bad.png", "a.png", "x.jpg"}));
        QCOMPARE(outputs,
                 (QStringList{"a-web.jpg", "a-web_2.jpg",
                              CompressorErrors::errorDescription(CompressorError::SavingsBelowThreshold),
                              CompressorErrors::errorDescription(CompressorError::CannotDecode),
                              "a-web_3.jpg", "x-web.jpg"}));
        QFile taken(path(QStringLiteral("x-web.jpg")));
        QVERIFY(taken.open(QIODevice::ReadOnly));
        QCOMPARE(taken.readAll(), QByteArray(100, 'x'));
        QVERIFY(mostInFlight <= jobs);
        if (jobs > 1)
            QVERIFY(mostInFlight > 1);
    }

    void emptyBatchReportsOnce()
    {
        QList<Progress> progress;
        const SessionResult session = run({}, defaults(), &progress);
        QVERIFY(session.results.isEmpty());
        QCOMPARE(progress, (QList<Progress>{{0, 0, QString()}}));
    }

    void keepsOutput_data()
    {
        QTest::addColumn<qint64>("original");
        QTest::addColumn<qint64>("compressed");
        QTest::addColumn<bool>("rule");
        QTest::addColumn<qint64>("minimum");
        QTest::addColumn<bool>("kept");
        QTest::newRow("15 % under 20 %") << qint64(100000) << qint64(85000) << true << qint64(20) << false;
        QTest::newRow("exactly 20 %") << qint64(100000) << qint64(80000) << true << qint64(20) << true;
        QTest::newRow("19.999 % truncates to 19")
            << qint64(100000) << qint64(80001) << true << qint64(20) << false;
        QTest::newRow("33.3 % truncates to 33") << qint64(3) << qint64(2) << true << qint64(33) << true;
        QTest::newRow("larger output with rule")
            << qint64(100000) << qint64(120000) << true << qint64(20) << false;
        QTest::newRow("larger output without rule")
            << qint64(100000) << qint64(120000) << false << qint64(20) << true;
        QTest::newRow("unknown original size") << qint64(0) << qint64(500) << true << qint64(20) << true;
        QTest::newRow("half a percent under 1 %")
            << qint64(100000) << qint64(99500) << true << qint64(1) << false;
    }
    void keepsOutput()
    {
        QFETCH(qint64, original);
        QFETCH(qint64, compressed);
        QFETCH(bool, rule);
        QFETCH(qint64, minimum);
        QFETCH(bool, kept);
        CompressionSettings settings = defaults();
        settings.requireMinSavingPercent = rule;
        settings.minSavingPercent = minimum;
        QCOMPARE(ImageCompressor::keepsOutput(original, compressed, settings), kept);
    }

    void minimumSavingDeletesOnlyItsOwnOutput_data()
    {
        QTest::addColumn<bool>("rule");
        QTest::newRow("rule on") << true;
        QTest::newRow("rule off keeps a larger output") << false;
    }
    void minimumSavingDeletesOnlyItsOwnOutput()
    {
        QFETCH(bool, rule);
        // 184 bytes of PNG become a larger JPEG.
        const QString input = source(QStringLiteral("rgba-32x32.png"), QStringLiteral("a.png"));
        const QString earlier = made(QStringLiteral("a-web.jpg"), "an earlier output");
        CompressionSettings settings = defaults();
        settings.requireMinSavingPercent = rule;
        const CompressionResult result = ImageCompressor::shared().compressOne(input, settings);
        QCOMPARE(result.originalSize, qint64(184));
        if (rule) {
            QCOMPARE(result.error, std::optional(CompressorError::SavingsBelowThreshold));
            QVERIFY(!result.outputURL);
            QCOMPARE(result.compressedSize, result.originalSize);
            QCOMPARE(entries(m_dir->path()), (QStringList{"a-web.jpg", "a.png"}));
        } else {
            QVERIFY(result.succeeded());
            QCOMPARE(*result.outputURL, path(QStringLiteral("a-web_2.jpg")));
            QVERIFY(result.compressedSize > result.originalSize);
        }
        Q_UNUSED(earlier) // its bytes are checked in cleanup()
    }

    void badInputFailsAndTheBatchGoesOn_data()
    {
        QTest::addColumn<QString>("fixture"); // empty: `content` is written; "fifo", "zero": special files
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("missing file") << ""
                                      << "missing.jpg" << QByteArray();
        QTest::newRow("empty file") << ""
                                    << "empty.jpg" << QByteArray("");
        QTest::newRow("text named jpg") << ""
                                        << "notes.jpg" << QByteArray("hello, world\n");
        QTest::newRow("truncated jpeg") << "truncated.jpg"
                                        << "" << QByteArray();
        QTest::newRow("canvas over the pixel limit") << "bomb-30000x30000.png"
                                                     << "" << QByteArray();
        QTest::newRow("raw without image data") << "headers-only.nef"
                                                << "" << QByteArray();
        QTest::newRow("avif libheif cannot read") << "undecodable-rotate90.avif"
                                                  << "" << QByteArray();
        QTest::newRow("pdf that does not open") << ""
                                                << "broken.pdf" << QByteArray("%PDF-1.7\n%%EOF\n");
        QTest::newRow("svg named jpg") << ""
                                       << "photo.jpg"
                                       << QByteArray("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"8\" "
                                                     "height=\"8\"><rect width=\"8\" height=\"8\"/></svg>");
        // Never opened: the batch must not wait on a FIFO or read /dev/zero for ever.
        QTest::newRow("fifo named jpg") << "fifo"
                                        << "x.jpg" << QByteArray();
        QTest::newRow("fifo named pdf") << "fifo"
                                        << "x.pdf" << QByteArray();
        QTest::newRow("link to /dev/zero named pdf") << "zero"
                                                     << "x.pdf" << QByteArray();
    }
    void badInputFailsAndTheBatchGoesOn()
    {
        QFETCH(QString, fixture);
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        QString bad;
        const bool special = fixture == "fifo" || fixture == "zero";
        if (special) {
            bad = path(name);
            const QByteArray bytes = QFile::encodeName(bad);
            QCOMPARE(fixture == "fifo" ? ::mkfifo(bytes.constData(), 0600)
                                       : ::symlink("/dev/zero", bytes.constData()),
                     0);
        } else if (!fixture.isEmpty())
            bad = source(fixture);
        else if (content.isNull())
            bad = path(name);
        else
            bad = made(name, content);
        const QString good = source(QStringLiteral("rgba-32x32.png"));
        const SessionResult session = run({bad, good}, defaults());
        QCOMPARE(session.results.size(), 2);
        const CompressionResult& failed = session.results[0];
        QCOMPARE(failed.error, std::optional(CompressorError::CannotDecode));
        QVERIFY(!failed.outputURL);
        QCOMPARE(failed.compressedSize, 0);
        QCOMPARE(failed.originalSize, QFileInfo(bad).isFile() ? QFileInfo(bad).size() : 0);
        QVERIFY(session.results[1].succeeded());
        // only the good file's output
        QCOMPARE(entries(m_dir->path()).size(), m_originals.size() + (special ? 2 : 1));
    }

    // Qt paths cannot carry bytes that are not UTF-8: such a name arrives with U+FFFD in their
    // place, which may name another file. It is refused, and the other file is never read.
    void nameThatIsNotUtf8IsRefused_data()
    {
        QTest::addColumn<bool>("sibling"); // a file really named with U+FFFD beside it
        QTest::newRow("alone") << false;
        QTest::newRow("beside a U+FFFD name") << true;
    }
    void nameThatIsNotUtf8IsRefused()
    {
        QFETCH(bool, sibling);
        QFile fixture(dataPath(QStringLiteral("rgba-32x32.png")));
        QVERIFY(fixture.open(QIODevice::ReadOnly));
        const QByteArray bytes = fixture.readAll();
        const QByteArray latin1Name = QFile::encodeName(m_dir->path()) + "/\xff.png";
        const int fd = ::open(latin1Name.constData(), O_WRONLY | O_CREAT | O_EXCL, 0600);
        QVERIFY(fd >= 0);
        QCOMPARE(::write(fd, bytes.constData(), size_t(bytes.size())), ssize_t(bytes.size()));
        ::close(fd);
        const QString held = QFile::decodeName(latin1Name); // all that a Qt caller can hold
        QCOMPARE(QFileInfo(held).fileName(), QString(QChar::ReplacementCharacter) + QStringLiteral(".png"));
        if (sibling)
            source(QStringLiteral("orient1-360x240.jpg"), QFileInfo(held).fileName());

        const CompressionResult result = ImageCompressor::shared().compressOne(held, defaults());
        QCOMPARE(result.error, std::optional(CompressorError::InvalidFileName));
        QVERIFY(!result.outputURL);
        QCOMPARE(result.originalSize, bytes.size());
        QVERIFY(!QFileInfo::exists(path(QString(QChar::ReplacementCharacter) + QStringLiteral("-web.jpg"))));
        QCOMPARE(::unlink(latin1Name.constData()), 0); // Qt could not remove it
    }

    // Jobs that encode once read the decoder's output while encoding, so a file that breaks off
    // fails inside the encoder; it must still count as undecodable and leave nothing behind.
    void truncatedInputCannotDecodeWhicheverWayItIsRead_data()
    {
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<qint64>("maxEdge"); // 0: not scaled
        QTest::addColumn<qint64>("limitKB"); // 0: no size limit
        QTest::newRow("jpeg") << OutputFormat::Jpeg << qint64(0) << qint64(0);
        QTest::newRow("jpeg, scaled") << OutputFormat::Jpeg << qint64(100) << qint64(0);
        QTest::newRow("png") << OutputFormat::Png << qint64(0) << qint64(0);
        QTest::newRow("webp, scaled") << OutputFormat::Webp << qint64(100) << qint64(0);
        QTest::newRow("avif") << OutputFormat::Avif << qint64(0) << qint64(0);
        QTest::newRow("jpeg under a size limit") << OutputFormat::Jpeg << qint64(0) << qint64(50);
    }
    void truncatedInputCannotDecodeWhicheverWayItIsRead()
    {
        QFETCH(OutputFormat, format);
        QFETCH(qint64, maxEdge);
        QFETCH(qint64, limitKB);
        const CompressionSettings settings = withLimits(format, maxEdge, limitKB);
        const QString input = source(QStringLiteral("truncated.jpg"));
        const CompressionResult result = ImageCompressor::shared().compressOne(input, settings);
        QCOMPARE(result.error, std::optional(CompressorError::CannotDecode));
        QVERIFY(!result.outputURL);
        QCOMPARE(entries(m_dir->path()), QStringList{QStringLiteral("truncated.jpg")});
    }

    // Whether a job streams (one encode) or decodes into memory first (size limit), its output
    // holds the same upright, sRGB, scaled pixels as the in-memory decode.
    void outputMatchesTheDecodedImage_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<qint64>("maxEdge");   // 0: not scaled
        QTest::addColumn<qint64>("limitKB");   // 0: no size limit
        QTest::addColumn<double>("tolerance"); // mean absolute difference per sample
        const auto none = qint64(0);
        QTest::newRow("turned to jpeg") << "orient6-360x240.jpg" << OutputFormat::Jpeg << none << none << 5.0;
        QTest::newRow("turned to png") << "orient6-360x240.jpg" << OutputFormat::Png << none << none << 0.0;
        QTest::newRow("turned to png, scaled")
            << "orient6-360x240.jpg" << OutputFormat::Png << qint64(200) << none << 0.0;
        QTest::newRow("turned to png, size limit")
            << "orient6-360x240.jpg" << OutputFormat::Png << none << qint64(10000) << 0.0;
        QTest::newRow("adobe rgb to png")
            << "shoes-adobergb-150x100.jpg" << OutputFormat::Png << none << none << 0.0;
        QTest::newRow("adobe rgb to png, scaled")
            << "shoes-adobergb-150x100.jpg" << OutputFormat::Png << qint64(60) << none << 0.0;
        QTest::newRow("alpha to png, scaled")
            << "rgba-32x32.png" << OutputFormat::Png << qint64(16) << none << 0.0;
        QTest::newRow("16-bit to png") << "rgb16-32x32.png" << OutputFormat::Png << none << none << 0.0;
        QTest::newRow("cmyk to png") << "cmyk-100x100.jpg" << OutputFormat::Png << none << none << 0.0;
        QTest::newRow("grey to webp") << "grey-32x32.png" << OutputFormat::Webp << none << none << 3.0;
        QTest::newRow("grey to avif, scaled")
            << "grey-32x32.png" << OutputFormat::Avif << qint64(20) << none << 3.0;
    }
    void outputMatchesTheDecodedImage()
    {
        QFETCH(QString, fixture);
        QFETCH(OutputFormat, format);
        QFETCH(qint64, maxEdge);
        QFETCH(qint64, limitKB);
        QFETCH(double, tolerance);
        const CompressionSettings settings = withLimits(format, maxEdge, limitKB);
        const QString input = source(fixture);
        const CompressionResult result = ImageCompressor::shared().compressOne(input, settings);
        QVERIFY(result.succeeded());

        std::optional<vips::VImage> expected = ImageDecoder::decode(input);
        QVERIFY(expected);
        if (maxEdge > 0)
            expected = ImageScaler::resize(*expected, maxEdge);
        const vips::VImage written = vips::VImage::new_from_file(result.outputURL->toUtf8().constData());
        QCOMPARE(written.width(), expected->width());
        QCOMPARE(written.height(), expected->height());
        QCOMPARE(written.bands(), expected->bands());
        const double difference =
            (written.cast(VIPS_FORMAT_DOUBLE) - expected->cast(VIPS_FORMAT_DOUBLE)).abs().avg();
        QVERIFY2(difference <= tolerance, qPrintable(QString::number(difference)));
    }

    void unreadableFileFails()
    {
        if (::geteuid() == 0)
            QSKIP("running as root: file permissions do not stop reads");
        const QString input = source(QStringLiteral("orient1-360x240.jpg"));
        QVERIFY(QFile::setPermissions(input, {}));
        const CompressionResult result = ImageCompressor::shared().compressOne(input, defaults());
        QFile::setPermissions(input, QFile::ReadOwner | QFile::WriteOwner);
        QCOMPARE(result.error, std::optional(CompressorError::CannotDecode));
    }

    void unwritableDestinationFails_data()
    {
        QTest::addColumn<bool>("pdf");
        QTest::newRow("image") << false;
        QTest::newRow("pdf page") << true;
    }
    void unwritableDestinationFails()
    {
        QFETCH(bool, pdf);
        // Nothing can create files in /proc, not even root; a read-only folder is checked too
        // when the test does not run as root.
        QStringList folders{QStringLiteral("/proc")};
        QTemporaryDir readOnly;
        if (::geteuid() != 0) {
            QVERIFY(QFile::setPermissions(readOnly.path(), QFile::ReadOwner | QFile::ExeOwner));
            folders.append(readOnly.path());
        }
        const QString input = pdf ? source(QStringLiteral("three-pages-200x100pt.pdf"))
                                  : source(QStringLiteral("orient1-360x240.jpg"));
        for (const QString& folder : folders) {
            CompressionSettings settings = defaults();
            settings.outputLocation = OutputLocation::CustomFolder;
            settings.customFolderURL = folder;
            const CompressionResult result =
                pdf ? ImageCompressor::shared().compressPDFPage(input, 1, settings)
                    : ImageCompressor::shared().compressOne(input, settings);
            QCOMPARE(result.error, std::optional(CompressorError::FinalizeFailed));
            QVERIFY(!result.outputURL);
            QCOMPARE(result.compressedSize, 0);
            QCOMPARE(result.originalSize, QFileInfo(input).size()); // a page's failure reports the whole PDF
        }
        QFile::setPermissions(readOnly.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(entries(readOnly.path()), QStringList{});
    }

    void customFolder_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::newRow("present") << true;
        QTest::newRow("deleted falls back to the source folder") << false;
    }
    void customFolder()
    {
        QFETCH(bool, exists);
        QTemporaryDir out;
        const QString folder = exists ? out.path() : out.filePath(QStringLiteral("gone"));
        CompressionSettings settings = defaults();
        settings.outputLocation = OutputLocation::CustomFolder;
        settings.customFolderURL = folder;
        const CompressionResult result =
            ImageCompressor::shared().compressOne(source(QStringLiteral("rgba-32x32.png")), settings);
        QVERIFY(result.succeeded());
        QCOMPARE(*result.outputURL,
                 QDir(exists ? folder : m_dir->path()).filePath(QStringLiteral("rgba-32x32-web.jpg")));
    }

    void compressRunsOnTheWorker()
    {
        const QString input = source(QStringLiteral("rgba-32x32.png"));
        QThread* progressThread = nullptr;
        QFuture<SessionResult> future = ImageCompressor::shared().compress(
            {input}, defaults(),
            [&progressThread](int, int, const QString&) { progressThread = QThread::currentThread(); });
        const SessionResult session = future.result();
        QCOMPARE(session.results.size(), 1);
        QVERIFY(session.results[0].succeeded());
        QVERIFY(progressThread && progressThread != QThread::currentThread());
    }
};

QTEST_GUILESS_MAIN(TestImageCompressor)
#include "tst_imagecompressor.moc"
