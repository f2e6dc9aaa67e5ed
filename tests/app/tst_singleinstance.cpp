#include <csignal>

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "app/SingleInstance.h"

// The same executable plays the other launch: "--child hold KEY" claims, prints "primary" or
// "secondary", and when primary keeps running and prints "activated" for each request.
static int runChild(const QStringList& args)
{
    SingleInstance instance(args.value(3));
    QTextStream out(stdout);
    if (!instance.claim()) {
        out << "secondary" << Qt::endl;
        return 0;
    }
    out << "primary" << Qt::endl;
    QObject::connect(&instance, &SingleInstance::activationRequested,
                     [&out] { out << "activated" << Qt::endl; });
    return QCoreApplication::exec();
}

class TestSingleInstance : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    QString key(const QString& name) const { return m_dir.filePath(name); }

    std::unique_ptr<QProcess> startChild(const QString& key)
    {
        auto child = std::make_unique<QProcess>();
        child->start(QCoreApplication::applicationFilePath(),
                     {QStringLiteral("--child"), QStringLiteral("hold"), key});
        return child;
    }

    // waitForFinished() is false for a process whose end an event loop has already seen.
    static bool ended(QProcess& process)
    {
        return process.state() == QProcess::NotRunning || process.waitForFinished(30000);
    }

private slots:
    // A second claim of a key asks the first to come forward; another key runs on its own, and a
    // key is free again once its holder is gone.
    void claims()
    {
        {
            SingleInstance first(key(QStringLiteral("a")));
            SingleInstance second(key(QStringLiteral("a")));
            SingleInstance other(key(QStringLiteral("b")));
            QSignalSpy activated(&first, &SingleInstance::activationRequested);
            QVERIFY(first.claim());
            QVERIFY(first.claim()); // claiming again keeps it
            QVERIFY(other.claim());
            QVERIFY(!second.claim());
            QVERIFY(!second.isPrimary());
            QVERIFY(activated.wait(10000));
            QCOMPARE(activated.size(), 1);
        }
        SingleInstance next(key(QStringLiteral("a")));
        QVERIFY(next.claim());
    }

    void lockOfAKilledInstanceIsTakenOver()
    {
        const std::unique_ptr<QProcess> crashed = startChild(key(QStringLiteral("e")));
        QVERIFY(crashed->waitForReadyRead(30000));
        QCOMPARE(crashed->readLine().trimmed(), QByteArray("primary"));
        ::kill(pid_t(crashed->processId()), SIGKILL); // no clean-up: lock and socket files stay
        QVERIFY(ended(*crashed));
        QVERIFY(QFileInfo::exists(key(QStringLiteral("e")) + QStringLiteral(".lock")));

        SingleInstance next(key(QStringLiteral("e")));
        QSignalSpy activated(&next, &SingleInstance::activationRequested);
        QVERIFY(next.claim());
        // And it listens: a later process reaches it.
        const std::unique_ptr<QProcess> later = startChild(key(QStringLiteral("e")));
        QVERIFY(activated.wait(30000));
        QVERIFY(ended(*later));
        QCOMPARE(later->readAll().trimmed(), QByteArray("secondary"));
    }
};

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) == QLatin1String("--child"))
        return runChild(app.arguments());
    TestSingleInstance test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_singleinstance.moc"
