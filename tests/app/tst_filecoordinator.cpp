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
    Defaults suite = Defaults::suite();
    suite.set(key(), value);
    QVERIFY(suite.sync());
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
        QTest::newRow("two paths") << QStringList{QStringLiteral("/a/b.png"), QStringLiteral("/a/c.jpg")};
        QTest::newRow("spaces") << QStringList{QStringLiteral("/home/me/My Pictures/holiday 1.jpg")};
        QTest::newRow("non-ASCII") << QStringList{QStringLiteral("/home/jürgen/Фото/写真 ⚡.png"),
                                                  QStringLiteral("/tmp/e\u0301t\u00e9.heic")};
        QTest::newRow("duplicates and folders are not filtered")
            << QStringList{QStringLiteral("/x/a.png"), QStringLiteral("/x/a.png"), QStringLiteral("/x")};
        QTest::newRow("names that need URL escaping")
            << QStringList{QStringLiteral("/t/100% #1?.png"), QStringLiteral("/t/a%20b.png")};
    }

    void pathsArriveExactlyAndInOrder()
    {
        QFETCH(QStringList, paths);
        store(paths);
        const auto coordinator = recordingCoordinator();
        coordinator->poll();
        QCOMPARE(m_calls.size(), 1);
        QCOMPARE(m_calls.first(), paths);
        QVERIFY(!Defaults::suite().hasStoredValue(key()));
        coordinator->poll();
        QCOMPARE(m_calls.size(), 1);
    }

    void relativePathIsResolvedAgainstTheCurrentFolder()
    {
        store(QStringList{QStringLiteral("pic.png")});
        const auto coordinator = recordingCoordinator();
        coordinator->poll();
        QCOMPARE(m_calls.value(0), QStringList{QDir::current().absoluteFilePath(QStringLiteral("pic.png"))});
    }

    void withoutHandlerTheListIsClearedAndDropped()
    {
        store(QStringList{QStringLiteral("/a/b.png")});
        FileCoordinator coordinator;
        coordinator.poll();
        QVERIFY(!Defaults::suite().hasStoredValue(key()));
    }

    void twoListsMakeTwoCalls()
    {
        const auto coordinator = recordingCoordinator();
        store(QStringList{QStringLiteral("/1.png")});
        coordinator->poll();
        store(QStringList{QStringLiteral("/2.png"), QStringLiteral("/3.png")});
        coordinator->poll();
        QCOMPARE(m_calls, (QList<QStringList>{{QStringLiteral("/1.png")},
                                              {QStringLiteral("/2.png"), QStringLiteral("/3.png")}}));
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

    void listSentByTheCommandLineToolArrives()
    {
        const QString cli = qEnvironmentVariable("BREVONA_CLI");
        if (cli.isEmpty() || !QFileInfo::exists(cli))
            QSKIP("BREVONA_CLI does not name the built brevona-cli");
        const auto coordinator = recordingCoordinator();
        const QStringList paths{QStringLiteral("/srv/photos/first shot.jpg"),
                                QStringLiteral("/srv/photos/zweite-ä.png")};
        QProcess sender;
        sender.start(cli, QStringList{QStringLiteral("send")} + paths);
        QVERIFY(sender.waitForFinished(30000));
        QCOMPARE(sender.exitCode(), 0);

        // Arrival is driven by the coordinator's own timer, not by an explicit poll.
        QTRY_COMPARE_WITH_TIMEOUT(m_calls.size(), 1, 10000);
        QCOMPARE(m_calls.first(), paths);
        QVERIFY(!Defaults::suite().hasStoredValue(key()));
    }
};

QTEST_GUILESS_MAIN(TestFileCoordinator)
#include "tst_filecoordinator.moc"
