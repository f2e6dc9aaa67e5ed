#include <filesystem>

#include <signal.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include "IsolatedConfig.h"
#include "engine/AppGroupDefaults.h"
#include "platform/InstanceKey.h"

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

// Drives the built brevona-cli as the separate process it is in use.
class TestCli final : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QTemporaryDir> m_data; // XDG_DATA_HOME
    QTemporaryDir m_standInDir;
    QString m_standIn;    // stands in for the application: logs its start, holds its lock
    QString m_standInLog; // one line per start

    /// Starts `program` (the built brevona-cli unless given) with its own data folder, the
    /// stand-in application, and a display only when asked for.
    QProcess* start(const QStringList& arguments, const QString& workingDirectory = {}, bool display = false,
                    const QString& program = {})
    {
        auto* process = new QProcess(this);
        process->setWorkingDirectory(workingDirectory);
        const QString cli = qEnvironmentVariable("BREVONA_CLI");
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // File managers' scripts call brevona-cli by name.
        environment.insert(QStringLiteral("PATH"),
                           QFileInfo(cli).absolutePath() + u':' + environment.value(QStringLiteral("PATH")));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), m_data->path());
        environment.insert(QStringLiteral("BREVONA_APP"), m_standIn);
        environment.insert(QStringLiteral("STANDIN_LOG"), m_standInLog);
        environment.insert(QStringLiteral("STANDIN_LOCK"),
                           InstanceKey::defaultKey() + QStringLiteral(".lock"));
        environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
        if (display)
            environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":97"));
        else
            environment.remove(QStringLiteral("DISPLAY"));
        process->setProcessEnvironment(environment);
        process->start(program.isEmpty() ? cli : program, arguments);
        return process;
    }
    Run cli(const QStringList& arguments)
    {
        const std::unique_ptr<QProcess> process(start(arguments));
        process->waitForFinished(120'000);
        return {process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -1,
                process->readAllStandardOutput(), process->readAllStandardError()};
    }
    QString copy(const QString& name, const QString& asName) const
    {
        QFile::copy(fixture(name), m_dir->filePath(asName));
        return m_dir->filePath(asName);
    }

    QJsonObject storedSuite() const
    {
        QFile file(m_config->path() + QStringLiteral("/orvik/Q7LM2XK9RT.com.orvik.shared.json"));
        return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                              : QJsonObject();
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
        m_standIn = m_standInDir.filePath(QStringLiteral("brevona"));
        m_standInLog = m_standInDir.filePath(QStringLiteral("starts.log"));
        QFile::remove(m_standInLog);
        QFile script(m_standIn);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write(
            "#!/bin/sh\necho started >> \"$STANDIN_LOG\"\necho $$ > \"$STANDIN_LOCK\"\nexec sleep 60\n");
        script.close();
        QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
    void cleanup()
    {
        // Stop the stand-in this test started, through the process id it left in the lock.
        const QString key = InstanceKey::defaultKey();
        QFile lock(key + QStringLiteral(".lock"));
        if (lock.open(QIODevice::ReadOnly)) {
            const qint64 pid = lock.readLine().trimmed().toLongLong();
            if (pid > 0)
                ::kill(static_cast<pid_t>(pid), SIGTERM);
            lock.remove();
        }
        QFile::remove(key + QStringLiteral(".start.lock"));
        m_config.reset();
    }

    // A batch prints a line per job, then the summary; options apply to this run only and
    // store nothing.
    void compressOptions_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("lastLine");
        QTest::addColumn<QStringList>("stored"); // key, value, ... set before the run
        QTest::newRow("already optimized counts as success")
            << QStringList{"--min-saving", "100"} << "Already optimized · no changes needed" << QStringList{};
        QTest::newRow("flags change the output")
            << QStringList{"--format", "png", "--max-edge", "100", "--suffix", "_s", "--out", "out"} << ""
            << QStringList{};
        QTest::newRow("stored limits off for one run")
            << QStringList{"--no-min-saving", "--no-max-size", "--no-max-edge"}
            << "Done · files were already optimized"
            << QStringList{"requireMinSavingPercent", "true", "minSavingPercent", "100",
                           "limitOutputFileSize",     "true", "maxFileSizeKB",    "1",
                           "limitLongestEdge",        "true", "longestEdgePx",    "8"};
    }
    void compressOptions()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, lastLine);
        QFETCH(QStringList, stored);
        for (qsizetype i = 0; i + 1 < stored.size(); i += 2)
            QCOMPARE(cli({QStringLiteral("settings"), stored[i], stored[i + 1]}).exitCode, 0);
        const QString a = copy(QStringLiteral("orient1-360x240.jpg"), QStringLiteral("a.jpg"));
        const QString b = copy(QStringLiteral("shoes-srgb-150x100.jpg"), QStringLiteral("b.jpg"));
        const int out = options.indexOf(QStringLiteral("--out")) + 1;
        if (out > 0) {
            options[out] = m_dir->filePath(options[out]);
            QVERIFY(QDir().mkdir(options[out]));
        }
        const Run run = cli(QStringList{QStringLiteral("compress")} + options + QStringList{a, b});
        QCOMPARE(run.exitCode, 0);
        const QStringList lines = QString::fromUtf8(run.out).trimmed().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3); // one line per job, then the summary
        if (!lastLine.isEmpty())
            QCOMPARE(lines.last(), lastLine);
        if (out > 0)
            QCOMPARE(QDir(options[out]).entryList(QDir::Files), (QStringList{"a_s.png", "b_s.png"}));
        QVERIFY(!storedSuite().contains(QStringLiteral("outputFormat"))); // nothing saved
        if (!stored.isEmpty()) // an 8-pixel edge or a 1 KB limit would give a file under 1 KB
            QVERIFY(QFileInfo(m_dir->filePath(QStringLiteral("a-web.jpg"))).size() > 1024);
    }

    // Usage errors exit 2 with the reason on stderr and store nothing; help and the version
    // exit 0 on stdout.
    void commandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message"); // stdout's first line; on an error part of stderr
        QTest::newRow("version") << QStringList{"--version"} << 0 << "brevona-cli 0.1.0";
        QTest::newRow("--help") << QStringList{"--help"} << 0 << "usage:";
        QTest::newRow("compress --help among options")
            << QStringList{"compress", "--json", "--help"} << 0
            << "usage: brevona-cli compress [OPTION...] FILE|FOLDER...";
        QTest::newRow("nothing") << QStringList{} << 2 << "usage:";
        QTest::newRow("unknown command") << QStringList{"frobnicate"} << 2 << "unknown command";
        QTest::newRow("no files") << QStringList{"compress", "--json"} << 2 << "no files";
        QTest::newRow("unknown option") << QStringList{"compress", "--bogus", "x.jpg"} << 2 << "bogus";
        QTest::newRow("unknown format") << QStringList{"compress", "--format", "gif", "x.jpg"} << 2 << "avif";
        QTest::newRow("zero edge") << QStringList{"compress", "--max-edge", "0", "x.jpg"} << 2
                                   << "whole number";
        QTest::newRow("zero jobs") << QStringList{"compress", "--jobs", "0", "x.jpg"} << 2 << "--jobs";
        QTest::newRow("missing out folder")
            << QStringList{"compress", "--out", "/nonexistent/folder", "x.jpg"} << 2 << "does not exist";
        QTest::newRow("a limit and its opposite")
            << QStringList{"compress", "--max-size", "9", "--no-max-size", "x.jpg"} << 2 << "together";
        QTest::newRow("send an option") << QStringList{"send", "--json", "/a.png"} << 2 << "usage:";
        QTest::newRow("settings with three words") << QStringList{"settings", "a", "b", "c"} << 2 << "usage:";
        QTest::newRow("percent above 100")
            << QStringList{"settings", "minSavingPercent", "150"} << 2 << "0 to 100";
        QTest::newRow("bool setting from text")
            << QStringList{"settings", "limitOutputFileSize", "maybe"} << 2 << "expected true or false";
        QTest::newRow("capitalised mode") << QStringList{"settings", "compressionMode", "Balanced"} << 2
                                          << "expected one of lossless, balanced, aggressive";
        QTest::newRow("quality above 1") << QStringList{"settings", "quality", "80"} << 2 << "0 to 1";
        QTest::newRow("bookmark of a missing folder")
            << QStringList{"settings", "customFolderBookmark", "/nonexistent/folder"} << 2
            << "existing folder";
        QTest::newRow("hand-off list as text")
            << QStringList{"settings", "pendingFiles", "/a.png"} << 2 << "send";
    }
    void commandLine()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        const Run run = cli(arguments);
        QCOMPARE(run.exitCode, exitCode);
        if (exitCode == 0) {
            QCOMPARE(QString::fromUtf8(run.out).section(u'\n', 0, 0), message);
            QVERIFY(run.err.isEmpty());
            return;
        }
        QVERIFY2(run.err.contains(message.toUtf8()), run.err.constData());
        QVERIFY2(!run.err.contains("qlonglong") && !run.err.contains("QString"), run.err.constData());
        QVERIFY(run.out.isEmpty());
        for (const char* key : {"maxFileSizeKB", "compressionMode", "pendingFiles"})
            QVERIFY(!storedSuite().contains(QLatin1String(key)));
    }

    // Folders expand to the images in them; --json reports every job, a PDF's pages each, with
    // progress on stderr, and the exit code says whether any job failed.
    void jsonReportsEveryJob_data()
    {
        // Created under the folder: *.pdf a PDF, broken.* cut short, else an image.
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("processed"); // sources in order, relative, with any error
        QTest::newRow("recursive, in path order, images only")
            << QStringList{"b.png", "a/z.png", "a.png", "a/b/c.PNG", ".h.png", ".hidden/a.png", "notes.txt"}
            << QStringList{} << QStringList{"a.png", "a/b/c.PNG", "a/z.png", "b.png"};
        QTest::newRow("pages, a broken file, a name that is not UTF-8")
            << QStringList{"d.pdf", "broken.jpg", "a.png", "b\u00ff.png"} << QStringList{}
            << QStringList{"a.png", "broken.jpg: Cannot decode image",
                           "b\\xFF.png: File name is not valid UTF-8"} +
                   QStringList(3, "d.pdf");
        QTest::newRow("own outputs of the suffix in force")
            << QStringList{"a.png", "a-web.png", "a-web_2.jpg", "d-web-p3.png", "s_s.png"} << QStringList{}
            << QStringList{"a.png", "s_s.png"};
        QTest::newRow("own outputs of --suffix")
            << QStringList{"a.png", "a-web.png", "s_s.png"} << QStringList{"--suffix", "_s"}
            << QStringList{"a-web.png", "a.png"};
    }
    void jsonReportsEveryJob()
    {
        QFETCH(QStringList, files);
        QFETCH(QStringList, options);
        QFETCH(QStringList, processed);
        const QString folder = m_dir->filePath(QStringLiteral("in"));
        for (const QString& file : files) {
            // Names go to the file system as Latin-1 bytes, so "\xff" stays one byte 0xFF.
            const QByteArray path = folder.toUtf8() + '/' + file.toLatin1();
            QDir().mkpath(QFileInfo(QString::fromUtf8(path)).absolutePath());
            const QString name =
                file.endsWith(QLatin1String(".pdf"))       ? QStringLiteral("three-pages-200x100pt.pdf")
                : file.startsWith(QLatin1String("broken")) ? QStringLiteral("truncated.jpg")
                                                           : QStringLiteral("rgba-32x32.png");
            QVERIFY(std::filesystem::copy_file(fixture(name).toStdString(), path.toStdString()));
        }
        const Run run = cli(QStringList{QStringLiteral("compress"), QStringLiteral("--json")} + options +
                            QStringList{folder});
        QCOMPARE(run.exitCode, processed.join(u' ').contains(u':') ? 1 : 0);
        QJsonParseError error;
        const QJsonObject report = QJsonDocument::fromJson(run.out, &error).object();
        QVERIFY2(error.error == QJsonParseError::NoError, run.out.constData());
        QVERIFY(!report["summary"].toString().isEmpty());
        QVERIFY(!run.err.isEmpty());
        QStringList sources;
        for (const QJsonValue result : report["results"].toArray()) {
            const QString failure = result["error"].toString();
            sources.append(result["source"].toString().mid(folder.size() + 1) +
                           (failure.isEmpty() ? QString() : QStringLiteral(": ") + failure));
            QVERIFY(result["originalSize"].isDouble());
            QCOMPARE(result["output"].isNull(), !failure.isEmpty());
            QCOMPARE(result["compressedSize"].toInteger(), QFileInfo(result["output"].toString()).size());
        }
        QCOMPARE(sources, processed);
    }

    void installActionsMergesWithTheUsersOwn_data()
    {
        QTest::addColumn<QByteArray>("before"); // the user's uca.xml; empty: none
        QTest::addColumn<bool>("merged");       // else exit 1, the file left as it was
        const QByteArray own =
            "<?xml version=\"1.0\"?>\n<actions>\n<action><unique-id>1-1</unique-id></action>\n</actions>\n";
        QTest::newRow("no uca.xml yet") << QByteArray() << true;
        QTest::newRow("the user's actions kept") << own << true;
        QTest::newRow("unreadable file left alone") << QByteArray("<actions><action>") << false;
    }
    void installActionsMergesWithTheUsersOwn()
    {
        QFETCH(QByteArray, before);
        QFETCH(bool, merged);
        QFile file(m_config->path() + QStringLiteral("/Thunar/uca.xml"));
        if (!before.isEmpty()) {
            QDir().mkpath(QFileInfo(file).absolutePath());
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(before) == before.size());
            file.close();
        }
        for (int run = 0; run < 2; ++run) // a second run changes nothing
            QCOMPARE(cli({QStringLiteral("install-actions")}).exitCode, merged ? 0 : 1);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray after = file.readAll();
        QCOMPARE(after.count("<unique-id>brevona-optimize-1</unique-id>"), merged ? 1 : 0);
        if (before.contains("1-1"))
            QVERIFY(after.startsWith(before.left(before.indexOf("</actions>"))));
        if (!merged)
            QCOMPARE(after, before);
        QVERIFY(QFileInfo(m_data->path() + QStringLiteral("/nautilus/scripts/Optimize with Brevona"))
                    .isExecutable());
    }

    void settingsWriteTypedValues_data()
    {
        QTest::addColumn<QStringList>("keyAndValue");
        QTest::addColumn<QJsonValue>("stored");
        QTest::addColumn<QString>("printed");
        QTest::newRow("integer") << QStringList{"maxFileSizeKB", "300"} << QJsonValue(300) << "300";
        QTest::newRow("bool") << QStringList{"limitOutputFileSize", "yes"} << QJsonValue(true) << "true";
        QTest::newRow("double") << QStringList{"quality", "0.5"} << QJsonValue(0.5) << "0.5";
        QTest::newRow("string") << QStringList{"suffix", "_small"} << QJsonValue("_small") << "_small";
        QTest::newRow("empty string") << QStringList{"suffix", ""} << QJsonValue("") << "";
        QTest::newRow("folder bookmark as the settings window stores it")
            << QStringList{"customFolderBookmark", QDir::tempPath()}
            << QJsonValue(QJsonObject{{"$data", QString::fromLatin1(QDir::tempPath().toUtf8().toBase64())}})
            << QDir::tempPath();
        QTest::newRow("unregistered key") << QStringList{"note", "42"} << QJsonValue("42") << "42";
    }
    void settingsWriteTypedValues()
    {
        QFETCH(QStringList, keyAndValue);
        QFETCH(QJsonValue, stored);
        QFETCH(QString, printed);
        QCOMPARE(cli(QStringList{QStringLiteral("settings")} + keyAndValue).exitCode, 0);
        const Run read = cli({QStringLiteral("settings"), keyAndValue[0]});
        QCOMPARE(read.exitCode, 0);
        QCOMPARE(QString::fromUtf8(read.out), printed + QLatin1Char('\n'));
        QCOMPARE(storedSuite().value(keyAndValue[0]), stored);
    }

    void settingsListAndDelete()
    {
        const auto settings = [this](const QStringList& arguments) {
            return cli(QStringList{QStringLiteral("settings")} + arguments);
        };
        const QByteArray defaults = settings({}).out;
        QVERIFY(defaults.startsWith("outputFormat = jpeg (default)\n"));
        QVERIFY(defaults.endsWith("\ngroupDefaultsMigrated_v1 = true\n"));
        QCOMPARE(settings({"neverSet"}).exitCode, 1);
        QCOMPARE(settings({"outputFormat", "png"}).exitCode, 0);
        QVERIFY(settings({}).out.startsWith("outputFormat = png\n"));
        QCOMPARE(settings({"--delete", "outputFormat"}).exitCode, 0);
        QCOMPARE(settings({"outputFormat"}).out, QByteArray("jpeg\n"));
    }

    // send queues absolute paths under "pendingFiles", after what was waiting, and starts the
    // application once when there is a display.
    void sendQueuesAndStartsOnce_data()
    {
        QTest::addColumn<QVariant>("before");       // stored before; invalid: nothing
        QTest::addColumn<QStringList>("arguments"); // "send FILE..." or a file manager's script and its files
        QTest::addColumn<int>("senders");           // started at once
        QTest::addColumn<bool>("display");          // the application is started once when there is one
        QTest::addColumn<QStringList>("expected");  // relative entries are taken from the working folder
        const QVariant none;
        QTest::newRow("two sends at once start one")
            << none << QStringList{"send", "a.jpg"} << 2 << true << QStringList{"a.jpg", "a.jpg"};
        QTest::newRow("relative, dot segments, non-ASCII")
            << none << QStringList{"send", "x.png", "sub/y z.jpg", "./a/../w.png", "/m/Ärger ⚡ 写真.png"} << 1
            << false << QStringList{"x.png", "sub/y z.jpg", "w.png", "/m/Ärger ⚡ 写真.png"};
        QTest::newRow("replaces a single string")
            << QVariant("/stray.png") << QStringList{"send", "/n.png"} << 1 << false << QStringList{"/n.png"};
        QTest::newRow("appends to a waiting list, drops its non-strings")
            << QVariant(QVariantList{"/keep.png", qint64(4)}) << QStringList{"send", "/n.png"} << 1 << false
            << QStringList{"/keep.png", "/n.png"};
        // Nautilus runs its script in the folder with bare names.
        QTest::newRow("Nautilus script, name with a dash")
            << none << QStringList{"nautilus-optimize-with-brevona", "-x.jpg"} << 1 << true
            << QStringList{"-x.jpg"};
    }
    void sendQueuesAndStartsOnce()
    {
        QFETCH(QVariant, before);
        QFETCH(QStringList, arguments);
        QFETCH(int, senders);
        QFETCH(bool, display);
        QFETCH(QStringList, expected);
        if (before.isValid())
            IsolatedConfig::store(AppGroupDefaults::Keys::pendingFiles, before);
        QString program; // brevona-cli, or the shell running a script
        if (arguments.first() != QLatin1String("send")) {
            program = QStringLiteral("/bin/sh");
            arguments.first().prepend(QStringLiteral(BREVONA_PACKAGING "/filemanager/"));
        }
        QTemporaryDir work;
        QList<QProcess*> running;
        for (int i = 0; i < senders; ++i)
            running.append(start(arguments, work.path(), display, program));
        for (QProcess* sender : running) {
            QVERIFY(sender->waitForFinished(60000));
            QCOMPARE(sender->exitCode(), 0);
            if (!display)
                QVERIFY(sender->readAllStandardError().contains("compressed when Brevona next starts"));
        }
        QFile log(m_standInLog);
        QCOMPARE(log.open(QIODevice::ReadOnly) ? log.readAll().count("started") : 0, display ? 1 : 0);
        for (QString& path : expected)
            path = QDir(work.path()).absoluteFilePath(path);
        QCOMPARE(Defaults::suite().stringArray(AppGroupDefaults::Keys::pendingFiles),
                 std::optional(expected));
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
