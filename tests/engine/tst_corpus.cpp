#include <vips/vips8>

#include <QDirIterator>
#include <QTemporaryDir>
#include <QTest>
#include <QtConcurrent>

#include "EngineFixtures.h"
#include "engine/ImageCompressor.h"
#include "engine/ImageDecoder.h"
#include "engine/ImageScaler.h"
#include "engine/InputFile.h"

using namespace EngineFixtures;

namespace {

// Files above this size are left out so that the suite stays quick on two cores; they are the
// large camera photos and long PDFs, which the benchmarks cover.
constexpr qint64 kMaxFileSize = 1'000'000;

const QString kCorpus = QStringLiteral(BREVONA_CORPUS);

/// path -> the strict decode column of the corpus inventory.
QHash<QString, QString> inventory()
{
    QHash<QString, QString> rows;
    QFile file(kCorpus + QStringLiteral("/inventory.tsv"));
    if (!file.open(QIODevice::ReadOnly))
        return rows;
    file.readLine(); // header
    while (!file.atEnd()) {
        const QStringList columns = QString::fromUtf8(file.readLine()).chopped(1).split(QLatin1Char('\t'));
        if (columns.size() >= 8)
            rows.insert(columns[0], columns[7]);
    }
    return rows;
}

/// Whether libvips alone decodes the file when one thread computes every tile. With more
/// threads it can lose a loader's failure and hand on black pixels, so an inventory made that
/// way lists some undecodable files as readable.
bool decodesOnOneThread(const QString& path)
{
    const int threads = vips_concurrency_get();
    vips_concurrency_set(1);
    bool decoded = true;
    try {
        vips::VImage::new_from_file(path.toUtf8().constData(),
                                    vips::VImage::option()->set("fail_on", VIPS_FAIL_ON_ERROR))
            .copy_memory();
    } catch (const vips::VError&) {
        vips_error_clear();
        decoded = false;
    }
    vips_concurrency_set(threads);
    return decoded;
}

/// What went wrong with one file (empty: nothing), and whether it ended in an error.
struct Outcome
{
    QString problem;
    bool failed = false;
};

} // namespace

class TestCorpus final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!QFileInfo(kCorpus).isDir())
            QSKIP("the shared test corpus is not present next to the source tree");
    }

    void everyFileEndsInAResult_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<qint64>("limitKB"); // 0: no size limit
        for (const char* folder : {"photos", "formats", "raw", "pdf", "malformed"})
            QTest::newRow(folder) << QString::fromLatin1(folder) << OutputFormat::Jpeg << qint64(0);
        // PNG to PNG keeps every pixel.
        QTest::newRow("png") << "png" << OutputFormat::Png << qint64(0);
        // The size-limited search encodes one decoded copy many times; it must hold nothing
        // that a loader owns (an AVIF's profile, say) once the loader is gone.
        QTest::newRow("avif to jpeg under 10 KB")
            << "formats/avif/libavif" << OutputFormat::Jpeg << qint64(10);
        QTest::newRow("avif to png under 10 KB") << "formats/avif/libavif" << OutputFormat::Png << qint64(10);
    }
    void everyFileEndsInAResult()
    {
        QFETCH(QString, folder);
        QFETCH(OutputFormat, format);
        QFETCH(qint64, limitKB);
        const auto expected = inventory();
        QStringList relatives;
        QDirIterator it(kCorpus + QLatin1Char('/') + folder, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString relative = QDir(kCorpus).relativeFilePath(it.next());
            if (QFileInfo(it.filePath()).size() > kMaxFileSize &&
                !relative.startsWith(QLatin1String("malformed/bombs/")))
                continue;
            if (expected.contains(relative)) // not the licences and READMEs
                relatives.append(relative);
        }

        // Files run side by side, as a batch's jobs do, each into a folder of its own so that no
        // two race for one output name.
        QTemporaryDir out;
        const auto check = [&](const QString& relative) -> Outcome {
            const QString path = kCorpus + QLatin1Char('/') + relative;
            // The longest edge limited keeps the encode of the larger files short.
            CompressionSettings settings = settingsFor(format, 2048, int(limitKB));
            settings.outputLocation = OutputLocation::CustomFolder;
            settings.customFolderURL = QDir(out.path()).filePath(relative);
            QDir().mkpath(*settings.customFolderURL);
            const QByteArray before = sha256(path);
            // A PDF comes in as its pages, never scaled; the first stands for the rest.
            const bool pdf = InputFile::formatForExtension(path) == InputFile::Format::Pdf;
            const CompressionResult result =
                pdf ? ImageCompressor::shared().compressPDFPage(path, 0, settings)
                    : ImageCompressor::shared().compressOne(path, settings);
            if (sha256(path) != before || result.sourceURL != path)
                return {QStringLiteral("original changed or not named")};
            if (!result.succeeded())
                return {result.error == CompressorError::CannotDecode ? QString()
                                                                      : QStringLiteral("other error"),
                        true};
            if (relative.startsWith(QLatin1String("malformed/bombs/")) &&
                relative.contains(QLatin1String("giant")))
                return {QStringLiteral("a decompression bomb was decoded")};
            const vips::VImage written = loaded(*result.outputURL);
            if ((!pdf && std::max(written.width(), written.height()) > settings.longestEdgePx) ||
                result.compressedSize != QFileInfo(*result.outputURL).size())
                return {QStringLiteral("output too large or its size misreported")};
            if (format == OutputFormat::Png && limitKB == 0) {
                const auto decoded = ImageDecoder::decode(path);
                if (!decoded)
                    return {QStringLiteral("compressed, but the decoder alone fails on it")};
                if (pngDifference(written, ImageScaler::resize(*decoded, settings.longestEdgePx)) != 0)
                    return {QStringLiteral("PNG pixels changed")};
            }
            QFile::remove(*result.outputURL);
            return {};
        };
        const QList<Outcome> outcomes = QtConcurrent::blockingMapped(relatives, check);

        QStringList problems;
        QStringList surprises;
        for (qsizetype i = 0; i < relatives.size(); ++i) {
            if (!outcomes[i].problem.isEmpty())
                problems.append(relatives[i] + QLatin1String(": ") + outcomes[i].problem);
            // Outside the deliberately broken files, what libvips reads strictly must come out,
            // when its name is one we accept (drops filter the others out).
            const QString path = kCorpus + QLatin1Char('/') + relatives[i];
            if (outcomes[i].failed && folder != QLatin1String("malformed") &&
                InputFile::formatForExtension(path) &&
                (expected.value(relatives[i]) == QLatin1String("ok") ||
                 expected.value(relatives[i]) == QLatin1String("page 1 renders")) &&
                decodesOnOneThread(path))
                surprises.append(relatives[i]);
        }
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
        QVERIFY2(surprises.isEmpty(), qPrintable(surprises.join(QLatin1Char(' '))));
        // Neither an output of a failed file nor a temporary file is left behind.
        QDirIterator left(out.path(), QDir::Files | QDir::Hidden | QDir::System,
                          QDirIterator::Subdirectories);
        QVERIFY2(!left.hasNext(), qPrintable(left.hasNext() ? left.next() : QString()));
    }
};

QTEST_GUILESS_MAIN(TestCorpus)
#include "tst_corpus.moc"
