#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include "IsolatedConfig.h"
#include "engine/AppGroupDefaults.h"

// Drives the built brevona-cli as the separate process it is in use.
class TestSendCommand : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;
    QString m_cli;

    QProcess* startSend(const QStringList& files, const QString& workingDirectory = {})
    {
        auto* sender = new QProcess(this);
        if (!workingDirectory.isEmpty())
            sender->setWorkingDirectory(workingDirectory);
        sender->start(m_cli, QStringList{QStringLiteral("send")} + files);
        return sender;
    }

    int send(const QStringList& files, const QString& workingDirectory = {})
    {
        QProcess* sender = startSend(files, workingDirectory);
        sender->waitForFinished(30000);
        const int code = sender->exitStatus() == QProcess::NormalExit ? sender->exitCode() : -1;
        delete sender;
        return code;
    }

private slots:
    void initTestCase()
    {
        m_cli = qEnvironmentVariable("BREVONA_CLI");
        if (m_cli.isEmpty() || !QFileInfo::exists(m_cli))
            QSKIP("BREVONA_CLI does not name the built brevona-cli");
    }
    void init() { m_config = std::make_unique<IsolatedConfig>(); }
    void cleanup() { m_config.reset(); }

    void appendsAbsolutePaths_data()
    {
        QTest::addColumn<QVariant>("before");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QStringList>("expected"); // relative entries are taken from the working folder

        QTest::newRow("nothing queued")
            << QVariant() << QStringList{QStringLiteral("/a/b.png"), QStringLiteral("/a/c.jpg")}
            << QStringList{QStringLiteral("/a/b.png"), QStringLiteral("/a/c.jpg")};
        QTest::newRow("relative names")
            << QVariant() << QStringList{QStringLiteral("x.png"), QStringLiteral("sub/y z.jpg")}
            << QStringList{QStringLiteral("x.png"), QStringLiteral("sub/y z.jpg")};
        QTest::newRow("dot segments folded") << QVariant() << QStringList{QStringLiteral("./a/../x.png")}
                                             << QStringList{QStringLiteral("x.png")};
        QTest::newRow("dash name after the separator")
            << QVariant() << QStringList{QStringLiteral("--"), QStringLiteral("-x.png")}
            << QStringList{QStringLiteral("-x.png")};
        QTest::newRow("non-ASCII") << QVariant() << QStringList{QStringLiteral("/m/Ärger ⚡ 写真.png")}
                                   << QStringList{QStringLiteral("/m/Ärger ⚡ 写真.png")};
        QTest::newRow("appends to a waiting list")
            << QVariant(QVariantList{QStringLiteral("/old.png")}) << QStringList{QStringLiteral("/new.png")}
            << QStringList{QStringLiteral("/old.png"), QStringLiteral("/new.png")};
        QTest::newRow("appends to an empty list")
            << QVariant(QVariantList{}) << QStringList{QStringLiteral("/n.png")}
            << QStringList{QStringLiteral("/n.png")};
        QTest::newRow("replaces a single string")
            << QVariant(QStringLiteral("/stray.png")) << QStringList{QStringLiteral("/n.png")}
            << QStringList{QStringLiteral("/n.png")};
        QTest::newRow("drops non-strings from a damaged list")
            << QVariant(QVariantList{QStringLiteral("/keep.png"), qint64(4)})
            << QStringList{QStringLiteral("/n.png")}
            << QStringList{QStringLiteral("/keep.png"), QStringLiteral("/n.png")};
    }

    void appendsAbsolutePaths()
    {
        QFETCH(QVariant, before);
        QFETCH(QStringList, files);
        QFETCH(QStringList, expected);
        if (before.isValid()) {
            Defaults suite = Defaults::suite();
            suite.set(AppGroupDefaults::Keys::pendingFiles, before);
            QVERIFY(suite.sync());
        }
        QTemporaryDir work;
        QCOMPARE(send(files, work.path()), 0);

        QStringList absolute;
        for (const QString& path : expected)
            absolute.append(QDir::isAbsolutePath(path) ? path : work.path() + u'/' + path);
        QCOMPARE(Defaults::suite().stringArray(AppGroupDefaults::Keys::pendingFiles),
                 std::optional(absolute));
    }

    void usageErrorWritesNothing_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no files") << QStringList{};
        QTest::newRow("only the separator") << QStringList{QStringLiteral("--")};
        QTest::newRow("an option") << QStringList{QStringLiteral("--json"), QStringLiteral("/a.png")};
    }

    void usageErrorWritesNothing()
    {
        QFETCH(QStringList, arguments);
        QCOMPARE(send(arguments), 2);
        QVERIFY(!Defaults::suite().hasStoredValue(AppGroupDefaults::Keys::pendingFiles));
    }

    void concurrentSendersLoseNothing()
    {
        constexpr int senders = 8;
        QList<QProcess*> running;
        QStringList expected;
        for (int i = 0; i < senders; ++i) {
            const QStringList files{QStringLiteral("/p/%1-a.png").arg(i),
                                    QStringLiteral("/p/%1-b.png").arg(i)};
            expected += files;
            running.append(startSend(files));
        }
        for (QProcess* sender : running) {
            QVERIFY(sender->waitForFinished(60000));
            QCOMPARE(sender->exitCode(), 0);
        }
        const QStringList queued =
            Defaults::suite().stringArray(AppGroupDefaults::Keys::pendingFiles).value_or(QStringList{});
        QCOMPARE(queued.size(), expected.size());
        // Each sender's own files stay together and in order.
        for (int i = 0; i < senders; ++i) {
            const qsizetype at = queued.indexOf(QStringLiteral("/p/%1-a.png").arg(i));
            QVERIFY(at >= 0);
            QCOMPARE(queued.value(at + 1), QStringLiteral("/p/%1-b.png").arg(i));
        }
    }
};

QTEST_GUILESS_MAIN(TestSendCommand)
#include "tst_sendcommand.moc"
