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

    Run cli(const QStringList& arguments) const
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_config->path());
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
        QTest::newRow("all written (small originals)")
            << QStringList{} << 0 << "Done · files were already optimized";
        QTest::newRow("already optimized counts as success")
            << QStringList{"--min-saving", "100"} << 0 << "Already optimized · no changes needed";
        QTest::newRow("flags change the output")
            << QStringList{"--format", "png", "--max-edge", "100", "--suffix", "_s"} << 0 << "";
        QTest::newRow("one job at a time")
            << QStringList{"--jobs", "1"} << 0 << "Done · files were already optimized";
    }
    void exitCodes()
    {
        QFETCH(QStringList, options);
        QFETCH(int, exitCode);
        QFETCH(QString, lastLine);
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
    }

    void usageErrors_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("nothing") << QStringList{};
        QTest::newRow("unknown command") << QStringList{"frobnicate"};
        QTest::newRow("no files") << QStringList{"compress", "--json"};
        QTest::newRow("unknown option") << QStringList{"compress", "--bogus", "x.jpg"};
        QTest::newRow("unknown format") << QStringList{"compress", "--format", "gif", "x.jpg"};
        QTest::newRow("unknown mode") << QStringList{"compress", "--mode", "turbo", "x.jpg"};
        QTest::newRow("zero edge") << QStringList{"compress", "--max-edge", "0", "x.jpg"};
        QTest::newRow("edge not a number") << QStringList{"compress", "--max-edge", "big", "x.jpg"};
        QTest::newRow("saving above 100") << QStringList{"compress", "--min-saving", "101", "x.jpg"};
        QTest::newRow("zero jobs") << QStringList{"compress", "--jobs", "0", "x.jpg"};
        QTest::newRow("jobs not a number") << QStringList{"compress", "--jobs", "all", "x.jpg"};
        QTest::newRow("missing out folder")
            << QStringList{"compress", "--out", "/nonexistent/folder", "x.jpg"};
        QTest::newRow("settings with three words") << QStringList{"settings", "a", "b", "c"};
        QTest::newRow("integer setting from text") << QStringList{"settings", "maxFileSizeKB", "lots"};
        QTest::newRow("bool setting from text") << QStringList{"settings", "limitOutputFileSize", "maybe"};
    }
    void usageErrors()
    {
        QFETCH(QStringList, arguments);
        const Run run = cli(arguments);
        QCOMPARE(run.exitCode, 2);
        QVERIFY(!run.err.isEmpty());
        QVERIFY(run.out.isEmpty());
        QVERIFY(!storedSuite().contains(QStringLiteral("maxFileSizeKB")));
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
