#include <filesystem>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include "IsolatedConfig.h"

namespace {

struct Run
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

QString fixture(const QString& name)
{
    return QStringLiteral(BREVONA_TEST_DATA "/") + name;
}

} // namespace

class TestCli final : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QTemporaryDir> m_data; // XDG_DATA_HOME

    Run cli(const QStringList& arguments) const
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_config->path());
        environment.insert(QStringLiteral("XDG_DATA_HOME"), m_data->path());
        process.setProcessEnvironment(environment);
        process.start(qEnvironmentVariable("BREVONA_CLI"), arguments);
        process.waitForFinished(120'000);
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                process.readAllStandardOutput(), process.readAllStandardError()};
    }
    QString copy(const QString& name, const QString& asName = {}) const
    {
        const QString target = m_dir->filePath(asName.isEmpty() ? name : asName);
        QFile::copy(fixture(name), target);
        return target;
    }
    QString write(const QString& name, const QByteArray& bytes) const
    {
        QFile file(m_dir->filePath(name));
        file.open(QIODevice::WriteOnly);
        file.write(bytes);
        return file.fileName();
    }
    QJsonObject storedSuite() const
    {
        QFile file(m_config->path() + QStringLiteral("/orvik/Q7LM2XK9RT.com.orvik.shared.json"));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QJsonDocument::fromJson(file.readAll()).object();
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!QFileInfo(qEnvironmentVariable("BREVONA_CLI")).isExecutable())
            QSKIP("BREVONA_CLI does not point at the built brevona-cli");
    }
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
        m_dir = std::make_unique<QTemporaryDir>();
        m_data = std::make_unique<QTemporaryDir>();
    }

    void jsonReportsEveryJob()
    {
        const QString png = copy(QStringLiteral("rgba-32x32.png"));
        const QString pdf = copy(QStringLiteral("three-pages-200x100pt.pdf"), QStringLiteral("doc.pdf"));
        const QString broken = write(QStringLiteral("broken.jpg"), "not an image");
        const QString jpg = copy(QStringLiteral("orient1-360x240.jpg"));
        const Run run = cli({QStringLiteral("compress"), QStringLiteral("--json"), png, pdf, broken, jpg});
        QCOMPARE(run.exitCode, 1);
        QJsonParseError error;
        const QJsonObject report = QJsonDocument::fromJson(run.out, &error).object();
        QVERIFY2(error.error == QJsonParseError::NoError, run.out.constData());
        QCOMPARE(report.value(QStringLiteral("summary")).toString(),
                 QStringLiteral("5/6 optimized · 1 failed"));
        const QJsonArray results = report.value(QStringLiteral("results")).toArray();
        QCOMPARE(results.size(), 6);
        const QStringList sources{png, pdf, pdf, pdf, broken, jpg};
        for (int i = 0; i < results.size(); ++i) {
            const QJsonObject result = results[i].toObject();
            QCOMPARE(result.value(QStringLiteral("source")).toString(), sources[i]);
            QVERIFY(result.value(QStringLiteral("originalSize")).isDouble());
            QVERIFY(result.value(QStringLiteral("compressedSize")).isDouble());
            if (i == 4) {
                QVERIFY(result.value(QStringLiteral("output")).isNull());
                QCOMPARE(result.value(QStringLiteral("error")).toString(),
                         QStringLiteral("Cannot decode image"));
                QCOMPARE(result.value(QStringLiteral("compressedSize")).toInteger(), 0);
            } else {
                QVERIFY(result.value(QStringLiteral("error")).isNull());
                const QString output = result.value(QStringLiteral("output")).toString();
                QVERIFY(QFileInfo::exists(output));
                QCOMPARE(result.value(QStringLiteral("compressedSize")).toInteger(),
                         QFileInfo(output).size());
            }
        }
        QCOMPARE(results[2].toObject().value(QStringLiteral("output")).toString(),
                 m_dir->filePath(QStringLiteral("doc-web-p2.jpg")));
        QVERIFY(run.err.contains("doc.pdf p3")); // progress goes to stderr
    }

    void exitCodes_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("lastLine");
        QTest::addColumn<QStringList>("stored"); // key, value, ... set before the run
        QTest::newRow("all written (small originals)")
            << QStringList{} << 0 << "Done · files were already optimized" << QStringList{};
        QTest::newRow("already optimized counts as success")
            << QStringList{"--min-saving", "100"} << 0 << "Already optimized · no changes needed"
            << QStringList{};
        QTest::newRow("flags change the output")
            << QStringList{"--format", "png", "--max-edge", "100", "--suffix", "_s"} << 0 << ""
            << QStringList{};
        QTest::newRow("stored saving rule off for one run")
            << QStringList{"--no-min-saving"} << 0 << "Done · files were already optimized"
            << QStringList{"requireMinSavingPercent", "true", "minSavingPercent", "100"};
        QTest::newRow("stored size limit off for one run")
            << QStringList{"--no-max-size", "--no-max-edge"} << 0 << "Done · files were already optimized"
            << QStringList{"limitOutputFileSize", "true", "maxFileSizeKB", "1",
                           "limitLongestEdge",    "true", "longestEdgePx", "8"};
        QTest::newRow("one job at a time")
            << QStringList{"--jobs", "1"} << 0 << "Done · files were already optimized" << QStringList{};
    }
    void exitCodes()
    {
        QFETCH(QStringList, options);
        QFETCH(int, exitCode);
        QFETCH(QString, lastLine);
        QFETCH(QStringList, stored);
        for (qsizetype i = 0; i + 1 < stored.size(); i += 2)
            QCOMPARE(cli({QStringLiteral("settings"), stored[i], stored[i + 1]}).exitCode, 0);
        const QString a = copy(QStringLiteral("orient1-360x240.jpg"), QStringLiteral("a.jpg"));
        const QString b = copy(QStringLiteral("shoes-srgb-150x100.jpg"), QStringLiteral("b.jpg"));
        const Run run = cli(QStringList{QStringLiteral("compress")} + options + QStringList{a, b});
        QCOMPARE(run.exitCode, exitCode);
        const QStringList lines = QString::fromUtf8(run.out).trimmed().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3); // one line per job, then the summary
        if (!lastLine.isEmpty())
            QCOMPARE(lines.last(), lastLine);
        if (options.contains(QStringLiteral("_s")))
            QVERIFY(QFileInfo::exists(m_dir->filePath(QStringLiteral("a_s.png"))));
        QVERIFY(storedSuite().isEmpty() ||
                !storedSuite().contains(QStringLiteral("outputFormat"))); // nothing saved
        if (!stored.isEmpty()) // an 8-pixel edge or a 1 KB limit would give a file under 1 KB
            QVERIFY(QFileInfo(m_dir->filePath(QStringLiteral("a-web.jpg"))).size() > 1024);
    }

    void usageErrors_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message"); // part of what stderr says
        QTest::newRow("nothing") << QStringList{} << "usage:";
        QTest::newRow("unknown command") << QStringList{"frobnicate"} << "unknown command";
        QTest::newRow("no files") << QStringList{"compress", "--json"} << "no files";
        QTest::newRow("unknown option") << QStringList{"compress", "--bogus", "x.jpg"} << "bogus";
        QTest::newRow("unknown format") << QStringList{"compress", "--format", "gif", "x.jpg"} << "avif";
        QTest::newRow("unknown mode") << QStringList{"compress", "--mode", "turbo", "x.jpg"} << "balanced";
        QTest::newRow("zero edge") << QStringList{"compress", "--max-edge", "0", "x.jpg"} << "whole number";
        QTest::newRow("edge not a number") << QStringList{"compress", "--max-edge", "big", "x.jpg"} << "";
        QTest::newRow("saving above 100") << QStringList{"compress", "--min-saving", "101", "x.jpg"} << "100";
        QTest::newRow("zero jobs") << QStringList{"compress", "--jobs", "0", "x.jpg"} << "--jobs";
        QTest::newRow("jobs not a number") << QStringList{"compress", "--jobs", "all", "x.jpg"} << "--jobs";
        QTest::newRow("missing out folder")
            << QStringList{"compress", "--out", "/nonexistent/folder", "x.jpg"} << "does not exist";
        QTest::newRow("a limit and its opposite")
            << QStringList{"compress", "--max-size", "9", "--no-max-size", "x.jpg"} << "together";
        QTest::newRow("help for nothing known") << QStringList{"help", "frobnicate"} << "usage:";
        QTest::newRow("settings with three words") << QStringList{"settings", "a", "b", "c"} << "usage:";
        QTest::newRow("integer setting from text")
            << QStringList{"settings", "maxFileSizeKB", "lots"} << "expected a whole number from 0 up";
        QTest::newRow("negative size") << QStringList{"settings", "maxFileSizeKB", "-5"} << "whole number";
        QTest::newRow("fractional edge") << QStringList{"settings", "longestEdgePx", "1.5"} << "whole number";
        QTest::newRow("percent above 100")
            << QStringList{"settings", "minSavingPercent", "150"} << "0 to 100";
        QTest::newRow("bool setting from text")
            << QStringList{"settings", "limitOutputFileSize", "maybe"} << "expected true or false";
        QTest::newRow("capitalised mode") << QStringList{"settings", "compressionMode", "Balanced"}
                                          << "expected one of lossless, balanced, aggressive";
        QTest::newRow("unknown format setting")
            << QStringList{"settings", "outputFormat", "gif"} << "jpeg, png, webp, avif, original";
        QTest::newRow("unknown location")
            << QStringList{"settings", "outputLocation", "desktop"} << "sameFolder, customFolder";
        QTest::newRow("quality above 1") << QStringList{"settings", "quality", "80"} << "0 to 1";
        QTest::newRow("bookmark of a missing folder")
            << QStringList{"settings", "customFolderBookmark", "/nonexistent/folder"} << "existing folder";
        QTest::newRow("hand-off list as text") << QStringList{"settings", "pendingFiles", "/a.png"} << "send";
    }
    void usageErrors()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const Run run = cli(arguments);
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.err.contains(message.toUtf8()), run.err.constData());
        QVERIFY2(!run.err.contains("qlonglong") && !run.err.contains("QString"), run.err.constData());
        QVERIFY(run.out.isEmpty());
        QVERIFY(!storedSuite().contains(QStringLiteral("maxFileSizeKB")));
        QVERIFY(!storedSuite().contains(QStringLiteral("compressionMode")));
    }

    void helpAndVersion_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("firstLine");
        QTest::newRow("version") << QStringList{"--version"} << "brevona-cli 0.1.0";
        QTest::newRow("help") << QStringList{"help"} << "usage:";
        QTest::newRow("--help") << QStringList{"--help"} << "usage:";
        QTest::newRow("help compress")
            << QStringList{"help", "compress"} << "usage: brevona-cli compress [OPTION...] FILE|FOLDER...";
        QTest::newRow("compress --help among options")
            << QStringList{"compress", "--json", "--help"}
            << "usage: brevona-cli compress [OPTION...] FILE|FOLDER...";
        QTest::newRow("send --help") << QStringList{"send", "--help"}
                                     << "usage: brevona-cli send [--] FILE...";
        QTest::newRow("settings -h") << QStringList{"settings", "-h"}
                                     << "usage: brevona-cli settings [KEY [VALUE]] | settings --delete KEY";
        QTest::newRow("install-actions --help")
            << QStringList{"install-actions", "--help"} << "usage: brevona-cli install-actions";
    }
    void helpAndVersion()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, firstLine);
        const Run run = cli(arguments);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(QString::fromUtf8(run.out).section(u'\n', 0, 0), firstLine);
        QVERIFY(run.err.isEmpty());
    }

    void foldersExpand_data()
    {
        QTest::addColumn<QStringList>("files"); // created under the folder (all the same image)
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("processed"); // sources in order, relative, with any error
        QTest::newRow("recursive, in path order")
            << QStringList{"b.png", "a/z.png", "a.png", "a/b/c.PNG"} << QStringList{}
            << QStringList{"a.png", "a/b/c.PNG", "a/z.png", "b.png"};
        QTest::newRow("hidden files and folders, other types")
            << QStringList{".h.png", ".hidden/a.png", "notes.txt", "k.png"} << QStringList{}
            << QStringList{"k.png"};
        QTest::newRow("own outputs of the suffix in force")
            << QStringList{"a.png", "a-web.png", "a-web_2.jpg", "d-web-p3.png", "s_s.png"} << QStringList{}
            << QStringList{"a.png", "s_s.png"};
        QTest::newRow("own outputs of --suffix")
            << QStringList{"a.png", "a-web.png", "s_s.png"} << QStringList{"--suffix", "_s"}
            << QStringList{"a-web.png", "a.png"};
        QTest::newRow("name that is not UTF-8 refused alone")
            << QStringList{"a.png", "b\u00ff.png", "c.png"} << QStringList{}
            << QStringList{"a.png", "b\\xFF.png: File name is not valid UTF-8", "c.png"};
    }
    void foldersExpand()
    {
        QFETCH(QStringList, files);
        QFETCH(QStringList, options);
        QFETCH(QStringList, processed);
        const QString folder = m_dir->filePath(QStringLiteral("in"));
        for (const QString& file : files) {
            // Names go to the file system as Latin-1 bytes, so "\xff" stays one byte 0xFF.
            const QByteArray path = folder.toUtf8() + '/' + file.toLatin1();
            QDir().mkpath(QFileInfo(QString::fromUtf8(path)).absolutePath());
            QVERIFY(std::filesystem::copy_file(fixture(QStringLiteral("rgba-32x32.png")).toStdString(),
                                               path.toStdString()));
        }
        const Run run = cli(QStringList{QStringLiteral("compress"), QStringLiteral("--json")} + options +
                            QStringList{folder});
        QCOMPARE(run.exitCode, processed.join(u' ').contains(u':') ? 1 : 0);
        QStringList sources;
        for (const QJsonValue result :
             QJsonDocument::fromJson(run.out).object().value(QStringLiteral("results")).toArray()) {
            const QString error = result[QStringLiteral("error")].toString();
            sources.append(result[QStringLiteral("source")].toString().mid(folder.size() + 1) +
                           (error.isEmpty() ? QString() : QStringLiteral(": ") + error));
        }
        QCOMPARE(sources, processed);
    }

    void outFolderReceivesOutputs()
    {
        QTemporaryDir out;
        const QString a = copy(QStringLiteral("rgba-32x32.png"));
        const Run run = cli({QStringLiteral("compress"), QStringLiteral("--out"), out.path(),
                             QStringLiteral("--format"), QStringLiteral("webp"), a});
        QCOMPARE(run.exitCode, 0);
        QVERIFY(QFileInfo::exists(QDir(out.path()).filePath(QStringLiteral("rgba-32x32-web.webp"))));
    }

    void installActionsMergesWithTheUsersOwn_data()
    {
        QTest::addColumn<QByteArray>("before"); // the user's uca.xml; empty: none
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("ours"); // our actions in uca.xml afterwards
        const QByteArray own =
            "<?xml version=\"1.0\"?>\n<actions>\n<action><unique-id>1-1</unique-id></action>\n"
            "</actions>\n";
        QTest::newRow("no uca.xml yet") << QByteArray() << 0 << 1;
        QTest::newRow("the user's actions kept") << own << 0 << 1;
        QTest::newRow("unreadable file left alone") << QByteArray("<actions><action>") << 1 << 0;
    }
    void installActionsMergesWithTheUsersOwn()
    {
        QFETCH(QByteArray, before);
        QFETCH(int, exitCode);
        QFETCH(int, ours);
        const QString uca = m_config->path() + QStringLiteral("/Thunar/uca.xml");
        if (!before.isEmpty()) {
            QDir().mkpath(QFileInfo(uca).absolutePath());
            QFile file(uca);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(before);
        }
        for (int run = 0; run < 2; ++run) // a second run changes nothing
            QCOMPARE(cli({QStringLiteral("install-actions")}).exitCode, exitCode);
        QFile file(uca);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray after = file.readAll();
        QCOMPARE(after.count("<unique-id>brevona-optimize-1</unique-id>"), ours);
        if (before.contains("1-1"))
            QVERIFY(after.startsWith(before.left(before.indexOf("</actions>"))));
        if (ours == 0)
            QCOMPARE(after, before);
        const QFileInfo script(m_data->path() + QStringLiteral("/nautilus/scripts/Optimize with Brevona"));
        QVERIFY(script.isExecutable());
    }

    void settingsWriteTypedValues_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("printed");
        QTest::addColumn<QJsonValue>("stored");
        QTest::newRow("integer") << "maxFileSizeKB"
                                 << "300"
                                 << "300" << QJsonValue(300);
        QTest::newRow("bool") << "limitOutputFileSize"
                              << "yes"
                              << "true" << QJsonValue(true);
        QTest::newRow("double") << "quality"
                                << "0.5"
                                << "0.5" << QJsonValue(0.5);
        QTest::newRow("string") << "suffix"
                                << "_small"
                                << "_small" << QJsonValue(QStringLiteral("_small"));
        QTest::newRow("empty string") << "suffix"
                                      << ""
                                      << "" << QJsonValue(QString());
        QTest::newRow("folder bookmark as the settings window stores it")
            << "customFolderBookmark" << QDir::tempPath() << QDir::tempPath()
            << QJsonValue(QJsonObject{
                   {QStringLiteral("$data"), QString::fromLatin1(QDir::tempPath().toUtf8().toBase64())}});
        QTest::newRow("unregistered key") << "note"
                                          << "42"
                                          << "42" << QJsonValue(QStringLiteral("42"));
    }
    void settingsWriteTypedValues()
    {
        QFETCH(QString, key);
        QFETCH(QString, value);
        QFETCH(QString, printed);
        QFETCH(QJsonValue, stored);
        QCOMPARE(cli({QStringLiteral("settings"), key, value}).exitCode, 0);
        const Run read = cli({QStringLiteral("settings"), key});
        QCOMPARE(read.exitCode, 0);
        QCOMPARE(QString::fromUtf8(read.out), printed + QLatin1Char('\n'));
        QCOMPARE(storedSuite().value(key), stored);
    }

    void settingsListDeleteAndUse()
    {
        Run list = cli({QStringLiteral("settings")});
        QCOMPARE(list.exitCode, 0);
        QVERIFY(list.out.startsWith("outputFormat = jpeg (default)\n"));
        QCOMPARE(list.out.count(" (default)\n"), 12); // every registered key, none stored yet
        QVERIFY(list.out.endsWith("\ngroupDefaultsMigrated_v1 = true\n"));

        QCOMPARE(
            cli({QStringLiteral("settings"), QStringLiteral("outputFormat"), QStringLiteral("png")}).exitCode,
            0);
        QCOMPARE(cli({QStringLiteral("settings"), QStringLiteral("extra"), QStringLiteral("x")}).exitCode, 0);
        list = cli({QStringLiteral("settings")});
        QVERIFY(list.out.startsWith("outputFormat = png\n"));
        QVERIFY(list.out.contains("\nextra = x\n"));

        // The stored setting applies to a batch.
        const QString a = copy(QStringLiteral("orient1-360x240.jpg"), QStringLiteral("a.jpg"));
        QCOMPARE(cli({QStringLiteral("compress"), a}).exitCode, 0);
        QVERIFY(QFileInfo::exists(m_dir->filePath(QStringLiteral("a-web.png"))));

        QCOMPARE(cli({QStringLiteral("settings"), QStringLiteral("--delete"), QStringLiteral("outputFormat")})
                     .exitCode,
                 0);
        QCOMPARE(cli({QStringLiteral("settings"), QStringLiteral("outputFormat")}).out, QByteArray("jpeg\n"));
        QVERIFY(!storedSuite().contains(QStringLiteral("outputFormat")));
        QCOMPARE(cli({QStringLiteral("settings"), QStringLiteral("neverSet")}).exitCode, 1);
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
