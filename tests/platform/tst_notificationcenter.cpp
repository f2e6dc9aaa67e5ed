#include <QSignalSpy>
#include <QTest>

#include "RecordedNotifications.h"
#include "platform/NotificationCenter.h"

class TestNotificationCenter : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!onPrivateSessionBus())
            QSKIP("needs the private session bus that CTest starts (dbus-run-session)");
    }

    void postReachesTheService_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("body");
        QTest::newRow("summary") << QStringLiteral("⚡ Brevona")
                                 << QStringLiteral("4 images optimized · 1.2 MB saved");
        QTest::newRow("markup-like text is sent as is") << QStringLiteral("a <b>") << QStringLiteral("x & y");
    }

    void postReachesTheService()
    {
        QFETCH(QString, title);
        QFETCH(QString, body);
        RecordedNotifications recorded(QStringLiteral(NOTIFICATION_RECORDER));
        QVERIFY(recorded.isReady());
        NotificationCenter center;
        QSignalSpy fellBack(&center, &NotificationCenter::fellBack);
        center.post(title, body);
        QTRY_COMPARE_WITH_TIMEOUT(recorded.calls().size(), 1, 20000);
        const QJsonObject call = recorded.calls().first();
        QCOMPARE(call.value(QStringLiteral("appName")).toString(), QStringLiteral("Brevona"));
        QCOMPARE(call.value(QStringLiteral("appIcon")).toString(), QStringLiteral("brevona"));
        QCOMPARE(call.value(QStringLiteral("summary")).toString(), title);
        QCOMPARE(call.value(QStringLiteral("body")).toString(), body);
        QCOMPARE(call.value(QStringLiteral("replacesId")).toInteger(), 0);
        QCOMPARE(fellBack.count(), 0);
    }

    void missingServiceUsesTheFallback()
    {
        NotificationCenter center;
        QStringList shown;
        center.setFallback([&](const QString& title, const QString& body) { shown << title << body; });
        center.post(QStringLiteral("⚡ Brevona"), QStringLiteral("1 image optimized · 10 KB saved"));
        QTRY_COMPARE_WITH_TIMEOUT(shown.size(), 2, 20000);
        QCOMPARE(shown, (QStringList{QStringLiteral("⚡ Brevona"),
                                     QStringLiteral("1 image optimized · 10 KB saved")}));
    }
};

QTEST_GUILESS_MAIN(TestNotificationCenter)
#include "tst_notificationcenter.moc"
