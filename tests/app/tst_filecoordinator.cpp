#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>
#include <QSignalSpy>
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

QVariant stored()
{
    return Defaults::suite().object(key());
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
        QTest::newRow("array with a bool") << QVariant(QVariantList{true});
        QTest::newRow("nested array") << QVariant(QVariantList{QVariantList{QStringLiteral("/a/b.png")}});
        QTest::newRow("data") << QVariant(QByteArray("/a/b.png"));
        QTest::newRow("number") << QVariant(qint64(7));
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
        QVERIFY(Defaults::suite().hasStoredValue(key()));
        QCOMPARE(stored(), Defaults::normalised(value));
    }

    void pathsArriveExactlyAndInOrder_data()
    {
        QTest::addColumn<QStringList>("paths");
        QTest::addColumn<QStringList>("arrive"); // empty: as stored
        QTest::newRow("two paths") << QStringList{QStringLiteral("/a/b.png"), QStringLiteral("/a/c.jpg")}
                                   << QStringList();
        QTest::newRow("spaces") << QStringList{QStringLiteral("/home/me/My Pictures/holiday 1.jpg")}
                                << QStringList();
        QTest::newRow("non-ASCII") << QStringList{QStringLiteral("/home/jürgen/Фото/写真 ⚡.png"),
                                                  QStringLiteral("/tmp/e\u0301t\u00e9.heic")}
                                   << QStringList();
        QTest::newRow("duplicates and folders are not filtered")
            << QStringList{QStringLiteral("/x/a.png"), QStringLiteral("/x/a.png"), QStringLiteral("/x")}
            << QStringList();
        QTest::newRow("names that need URL escaping")
            << QStringList{QStringLiteral("/t/100% #1?.png"), QStringLiteral("/t/a%20b.png")}
            << QStringList();
        QTest::newRow("relative to the current folder")
            << QStringList{QStringLiteral("pic.png")}
            << QStringList{QDir::current().absoluteFilePath(QStringLiteral("pic.png"))};
    }

    void pathsArriveExactlyAndInOrder()
    {
        QFETCH(QStringList, paths);
        QFETCH(QStringList, arrive);
        store(paths);
        const auto coordinator = recordingCoordinator();
        coordinator->poll();
        QCOMPARE(m_calls.size(), 1);
        QCOMPARE(m_calls.first(), arrive.isEmpty() ? paths : arrive);
        QVERIFY(!Defaults::suite().hasStoredValue(key()));
        coordinator->poll();
        QCOMPARE(m_calls.size(), 1);
    }

    void withoutHandlerTheListIsClearedAndDropped()
    {
        store(QStringList{QStringLiteral("/a/b.png")});
        FileCoordinator coordinator;
        coordinator.poll();
        QVERIFY(!Defaults::suite().hasStoredValue(key()));
    }

    void pollRepeatsEveryHalfSecondAndNotAtOnce()
    {
        store(QStringList{QStringLiteral("/a/b.png")});
        const auto coordinator = recordingCoordinator();
        QVERIFY(coordinator->timer());
        QCOMPARE(coordinator->timer()->interval(), 500);
        QVERIFY(!coordinator->timer()->isSingleShot());
        QVERIFY(coordinator->timer()->isActive());
        QCoreApplication::processEvents();
        QVERIFY(m_calls.isEmpty());
        QVERIFY(Defaults::suite().hasStoredValue(key()));
    }

    void secondStartReplacesHandlerAndKeepsFirstTimer()
    {
        FileCoordinator coordinator;
        int first = 0;
        int second = 0;
        coordinator.startPolling([&](const QStringList&) { ++first; });
        QPointer<QTimer> firstTimer = coordinator.timer();
        coordinator.startPolling([&](const QStringList&) { ++second; });
        QVERIFY(coordinator.timer() != firstTimer);
        QVERIFY(firstTimer && firstTimer->isActive());
        store(QStringList{QStringLiteral("/a.png")});
        coordinator.poll();
        QCOMPARE(first, 0);
        QCOMPARE(second, 1);
    }

    void pathsSentConcurrentlyArriveExactlyOnce()
    {
        const QString cli = qEnvironmentVariable("BREVONA_CLI");
        if (cli.isEmpty() || !QFileInfo::exists(cli))
            QSKIP("BREVONA_CLI does not name the built brevona-cli");
        const auto coordinator = recordingCoordinator();

        // Several senders, each running `send` again as soon as its last call ended, while the
        // coordinator reads and clears as fast as it can.
        constexpr int kSenders = 4;
        constexpr int kCalls = 5;
        std::vector<std::unique_ptr<QProcess>> senders;
        int running = kSenders;
        for (int s = 0; s < kSenders; ++s) {
            auto sender = std::make_unique<QProcess>();
            QProcess* raw = sender.get();
            auto callNumber = std::make_shared<int>(0);
            const auto sendNext = [raw, callNumber, s, cli] {
                const QString stem = QStringLiteral("/srv/s%1/c%2").arg(s).arg(*callNumber);
                raw->start(cli, {QStringLiteral("send"), stem + QStringLiteral(" a.jpg"),
                                 stem + QStringLiteral("-ä.png")});
            };
            connect(raw, &QProcess::finished, this, [raw, callNumber, sendNext, &running](int code) {
                if (code != 0 || ++*callNumber == kCalls) {
                    QCOMPARE(code, 0);
                    --running;
                    return;
                }
                sendNext();
            });
            sendNext();
            senders.push_back(std::move(sender));
        }
        QDeadlineTimer deadline(120000);
        while (running > 0 && !deadline.hasExpired()) {
            coordinator->poll();
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        }
        QCOMPARE(running, 0);
        coordinator->poll();

        QHash<QString, int> seen;
        QHash<int, QStringList> bySender;
        for (const QStringList& call : m_calls) {
            for (const QString& path : call) {
                ++seen[path];
                bySender[path.mid(6, path.indexOf(u'/', 6) - 6).toInt()].append(path);
            }
        }
        QCOMPARE(seen.size(), kSenders * kCalls * 2);
        for (auto it = seen.cbegin(); it != seen.cend(); ++it)
            QVERIFY2(it.value() == 1, qPrintable(it.key()));
        for (int s = 0; s < kSenders; ++s) { // each sender's order survives
            QCOMPARE(bySender.value(s).first(), QStringLiteral("/srv/s%1/c0 a.jpg").arg(s));
            QCOMPARE(bySender.value(s).last(), QStringLiteral("/srv/s%1/c%2-ä.png").arg(s).arg(kCalls - 1));
        }
        QVERIFY(!Defaults::suite().hasStoredValue(key()));
    }
};

QTEST_GUILESS_MAIN(TestFileCoordinator)
#include "tst_filecoordinator.moc"
