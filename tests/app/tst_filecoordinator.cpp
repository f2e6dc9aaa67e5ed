#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>
#include <QTest>
#include <QTimer>

#include "IsolatedConfig.h"
#include "app/FileCoordinator.h"
#include "engine/AppGroupDefaults.h"

namespace {

const QString& key()
{
    return AppGroupDefaults::Keys::pendingFiles;
}

void store(const QVariant& value)
{
    IsolatedConfig::store(key(), value);
}

} // namespace

class TestFileCoordinator : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;
    QList<QStringList> m_calls;

    std::unique_ptr<FileCoordinator> recordingCoordinator()
    {
        auto coordinator = std::make_unique<FileCoordinator>();
        coordinator->startPolling([this](const QStringList& paths) { m_calls.append(paths); });
        return coordinator;
    }

private slots:
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
        m_calls.clear();
    }
    void cleanup() { m_config.reset(); }

    void valuesThatAreNotAListOfPathsStayPut_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::newRow("empty array") << QVariant(QVariantList{});
        QTest::newRow("single string") << QVariant(QStringLiteral("/a/b.png"));
        QTest::newRow("array with a number") << QVariant(QVariantList{QStringLiteral("/a/b.png"), qint64(3)});
        QTest::newRow("data") << QVariant(QByteArray("/a/b.png"));
        QTest::newRow("dictionary") << QVariant(
            QVariantMap{{QStringLiteral("0"), QStringLiteral("/a/b.png")}});
    }

    void valuesThatAreNotAListOfPathsStayPut()
    {
        QFETCH(QVariant, value);
        store(value);
        const auto coordinator = recordingCoordinator();
        coordinator->poll();
        coordinator->poll();
        QVERIFY(m_calls.isEmpty());
        QCOMPARE(Defaults::suite().object(key()), Defaults::normalised(value));
    }

    void pathsArriveExactlyAndInOrder_data()
    {
        QTest::addColumn<QStringList>("paths");
        QTest::addColumn<QStringList>("arrive"); // empty: as stored
        QTest::newRow("two paths") << QStringList{"/a/b.png", "/a/c.jpg"} << QStringList();
        QTest::newRow("non-ASCII and spaces")
            << QStringList{"/home/jürgen/My Фото/写真 ⚡.png", "/tmp/e\u0301t\u00e9.heic"} << QStringList();
        QTest::newRow("duplicates and folders are not filtered")
            << QStringList{"/x/a.png", "/x/a.png", "/x"} << QStringList();
        QTest::newRow("relative to the current folder")
            << QStringList{"pic.png"} << QStringList{QDir::current().absoluteFilePath("pic.png")};
    }

    void pathsArriveExactlyAndInOrder()
    {
        QFETCH(QStringList, paths);
        QFETCH(QStringList, arrive);
        store(paths);
        const auto coordinator = recordingCoordinator();
        // Polled every half second from now on, not at once.
        QVERIFY(coordinator->timer()->isActive() && !coordinator->timer()->isSingleShot());
        QCOMPARE(coordinator->timer()->interval(), 500);
        QCoreApplication::processEvents();
        QVERIFY(m_calls.isEmpty());
        coordinator->poll();
        QCOMPARE(m_calls.size(), 1);
        QCOMPARE(m_calls.first(), arrive.isEmpty() ? paths : arrive);
        QVERIFY(!Defaults::suite().hasStoredValue(key()));
        coordinator->poll();
        QCOMPARE(m_calls.size(), 1);
    }

    // Senders in other processes append while the coordinator takes and clears as fast as it can:
    // every path arrives exactly once, each call's paths together and in order.
    void pathsSentConcurrentlyArriveExactlyOnce()
    {
        const QString cli = qEnvironmentVariable("BREVONA_CLI");
        if (cli.isEmpty() || !QFileInfo::exists(cli))
            QSKIP("BREVONA_CLI does not name the built brevona-cli");
        const auto coordinator = recordingCoordinator();
        std::vector<std::unique_ptr<QProcess>> senders;
        QStringList sent;
        for (int s = 0; s < 16; ++s) {
            const QStringList pair{QStringLiteral("/srv/%1 a.jpg").arg(s),
                                   QStringLiteral("/srv/%1-ä.png").arg(s)};
            senders.push_back(std::make_unique<QProcess>());
            senders.back()->start(cli, QStringList{QStringLiteral("send")} + pair);
            sent += pair;
        }
        QDeadlineTimer deadline(120000);
        for (const auto& sender : senders) {
            while (sender->state() != QProcess::NotRunning && !deadline.hasExpired()) {
                coordinator->poll();
                sender->waitForFinished(5);
            }
            QCOMPARE(sender->state(), QProcess::NotRunning);
            QCOMPARE(sender->exitCode(), 0);
        }
        coordinator->poll();

        QStringList arrived;
        for (const QStringList& call : m_calls)
            arrived += call;
        for (int i = 0; i < sent.size(); i += 2)
            QCOMPARE(arrived.indexOf(sent[i + 1]), arrived.indexOf(sent[i]) + 1);
        arrived.sort();
        sent.sort();
        QCOMPARE(arrived, sent);
        QVERIFY(!Defaults::suite().hasStoredValue(key()));
    }
};

QTEST_GUILESS_MAIN(TestFileCoordinator)
#include "tst_filecoordinator.moc"
