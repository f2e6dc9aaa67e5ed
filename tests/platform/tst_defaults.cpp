#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTest>

#include "IsolatedConfig.h"
#include "platform/Defaults.h"

// The same executable plays the second process: "--child write KEY VALUE" or "--child types KEY..."
// (prints each key's stored type name).
static int runChild(const QStringList& args)
{
    const QString action = args.value(2);
    Defaults suite = Defaults::suite();
    if (action == QLatin1String("write")) {
        suite.set(args.value(3), args.value(4));
        return suite.sync() ? 0 : 1;
    }
    if (action == QLatin1String("types")) {
        QTextStream out(stdout);
        for (const QString& key : args.mid(3))
            out << key << '=' << suite.object(key).metaType().name() << '\n';
        return 0;
    }
    return 2;
}

class TestDefaults : public QObject
{
    Q_OBJECT

    // Runs this executable as the second process, with the same settings folder.
    static QStringList child(const QStringList& args)
    {
        QProcess p;
        p.start(QCoreApplication::applicationFilePath(), QStringList{QStringLiteral("--child")} + args);
        if (!p.waitForFinished(30000) || p.exitCode() != 0)
            return {QStringLiteral("child failed: ") + QString::fromUtf8(p.readAllStandardError())};
        return QString::fromUtf8(p.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    }

private slots:
    // Values keep their types and bits through the file and in another process; a write by
    // another process is seen here.
    void aSecondProcessReadsAndWrites()
    {
        IsolatedConfig config;
        const QVariantMap values{{"string", QStringLiteral("-web \"quoted\" ünïcode")},
                                 {"empty string", QString("")},
                                 {"negative", qint64(-7)},
                                 {"beyond double precision", (qint64(1) << 53) + 1},
                                 {"whole double", 2.0},
                                 {"tiny double", 1e-300},
                                 {"bool", false},
                                 {"data with NUL", QByteArray("a\0b\xff", 4)},
                                 {"array", QVariantList{QStringLiteral("/a b.png"), qint64(3), 1.5, true}},
                                 {"empty array", QVariantList{}}};
        QStringList request{"types"};
        QStringList types;
        {
            Defaults suite = Defaults::suite();
            for (auto it = values.cbegin(); it != values.cend(); ++it) {
                suite.set(it.key(), it.value());
                request << it.key();
                types << it.key() + u'=' + QString::fromLatin1(it.value().metaType().name());
            }
            QVERIFY(suite.sync());
        }
        QCOMPARE(child(request), types);
        const Defaults reread = Defaults::suite();
        for (auto it = values.cbegin(); it != values.cend(); ++it)
            QCOMPARE(reread.object(it.key()), it.value());
        QVERIFY(!Defaults::suite().hasStoredValue(QStringLiteral("suffix")));
        QVERIFY(child({"write", "suffix", "_small"}).isEmpty());
        QCOMPARE(Defaults::suite().string(QStringLiteral("suffix")),
                 std::optional<QString>(QStringLiteral("_small")));
    }

    void registeredDefaultsAreFallbacksOnly()
    {
        IsolatedConfig config;
        Defaults suite = Defaults::suite();
        suite.registerDefaults({{QStringLiteral("maxFileSizeKB"), 500}});
        QCOMPARE(suite.integer(QStringLiteral("maxFileSizeKB")), qint64(500));
        QVERIFY(!suite.hasStoredValue(QStringLiteral("maxFileSizeKB")));
        suite.set(QStringLiteral("other"), true);
        QVERIFY(suite.sync());
        QCOMPARE(Defaults::suite().storedKeys(), QStringList{"other"}); // as the file holds them

        suite.set(QStringLiteral("maxFileSizeKB"), 300);
        QCOMPARE(suite.integer(QStringLiteral("maxFileSizeKB")), qint64(300));
        suite.remove(QStringLiteral("maxFileSizeKB"));
        QCOMPARE(Defaults::suite().integer(QStringLiteral("maxFileSizeKB")), qint64(500));
    }

    void damagedSuite_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("directoryInTheWay");
        QTest::addColumn<bool>("olderDamagedCopy");
        QTest::newRow("unfinished object") << QByteArray("{\"outputFormat\": \"webp\",") << false << false;
        QTest::newRow("not an object, older copy kept") << QByteArray("[1]") << false << true;
        QTest::newRow("a folder in the way") << QByteArray() << true << false;
    }

    void damagedSuite()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, directoryInTheWay);
        QFETCH(bool, olderDamagedCopy);
        IsolatedConfig config;
        const QString path = Defaults::directory() + u'/' + Defaults::kSuiteName + QStringLiteral(".json");
        QVERIFY(QDir().mkpath(directoryInTheWay ? path : Defaults::directory()));
        if (!directoryInTheWay) {
            QFile damaged(path);
            QVERIFY(damaged.open(QIODevice::WriteOnly) && damaged.write(content) == content.size());
        }
        if (olderDamagedCopy) {
            QFile older(path + QStringLiteral(".damaged"));
            QVERIFY(older.open(QIODevice::WriteOnly) && older.write("older") == 5);
        }

        // Every open in the process must agree: the first registers, later ones read.
        Defaults::suite().registerDefaults({{QStringLiteral("compressionMode"), QStringLiteral("balanced")}});
        for (int open = 0; open < 2; ++open) {
            Defaults suite = Defaults::suite();
            QCOMPARE(suite.isRequestedStore(), !directoryInTheWay);
            QCOMPARE(suite.string(QStringLiteral("compressionMode")),
                     std::optional<QString>(QStringLiteral("balanced")));
            QVERIFY(suite.storedKeys().isEmpty());
        }
        if (directoryInTheWay)
            return;
        QFile aside(path + (olderDamagedCopy ? QStringLiteral(".damaged.2") : QStringLiteral(".damaged")));
        QVERIFY(aside.open(QIODevice::ReadOnly));
        QCOMPARE(aside.readAll(), content);
        Defaults suite = Defaults::suite();
        suite.set(QStringLiteral("k"), true);
        QVERIFY(suite.sync());
        QVERIFY(Defaults::suite().boolean(QStringLiteral("k")));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.value(1) == QLatin1String("--child"))
        return runChild(args);
    TestDefaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_defaults.moc"
