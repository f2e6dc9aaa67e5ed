#include <signal.h>

#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include "IsolatedConfig.h"
#include "engine/AppGroupDefaults.h"
#include "platform/InstanceKey.h"

// Drives the built brevona-cli as the separate process it is in use.
class TestSendCommand : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;
    QString m_cli;
    QTemporaryDir m_standInDir;
    QString m_standIn;    // stands in for the application: logs its start, holds its lock
    QString m_standInLog; // one line per start

    /// Runs send as `program arguments` (brevona-cli send FILES by default), with the build's
    /// brevona-cli first on PATH and a stand-in application.
    QProcess* startSend(const QStringList& files, const QString& workingDirectory = {}, bool display = false,
                        QString program = {}, QStringList arguments = {})
    {
        auto* sender = new QProcess(this);
        if (!workingDirectory.isEmpty())
            sender->setWorkingDirectory(workingDirectory);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("PATH"), QFileInfo(m_cli).absolutePath() + u':' +
                                                       environment.value(QStringLiteral("PATH")));
        environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
        if (display)
            environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":97"));
        else
            environment.remove(QStringLiteral("DISPLAY"));
        environment.insert(QStringLiteral("BREVONA_APP"), m_standIn);
        environment.insert(QStringLiteral("STANDIN_LOG"), m_standInLog);
        environment.insert(QStringLiteral("STANDIN_LOCK"),
                           InstanceKey::defaultKey() + QStringLiteral(".lock"));
        sender->setProcessEnvironment(environment);
        if (program.isEmpty()) {
            program = m_cli;
            arguments = QStringList{QStringLiteral("send")} + files;
        }
        sender->start(program, arguments);
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
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
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

    void appendsAbsolutePaths_data()
    {
        QTest::addColumn<QVariant>("before");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QStringList>("expected"); // relative entries are taken from the working folder
        QTest::newRow("nothing queued")
            << QVariant() << QStringList{"/a/b.png", "/a/c.jpg"} << QStringList{"/a/b.png", "/a/c.jpg"};
        QTest::newRow("relative names")
            << QVariant() << QStringList{"x.png", "sub/y z.jpg"} << QStringList{"x.png", "sub/y z.jpg"};
        QTest::newRow("dot segments folded")
            << QVariant() << QStringList{"./a/../x.png"} << QStringList{"x.png"};
        QTest::newRow("dash name after the separator")
            << QVariant() << QStringList{"--", "-x.png"} << QStringList{"-x.png"};
        QTest::newRow("non-ASCII") << QVariant() << QStringList{"/m/Ärger ⚡ 写真.png"}
                                   << QStringList{"/m/Ärger ⚡ 写真.png"};
        QTest::newRow("appends to a waiting list")
            << QVariant(QVariantList{"/old.png"}) << QStringList{"/new.png"}
            << QStringList{"/old.png", "/new.png"};
        QTest::newRow("appends to an empty list")
            << QVariant(QVariantList{}) << QStringList{"/n.png"} << QStringList{"/n.png"};
        QTest::newRow("replaces a single string")
            << QVariant("/stray.png") << QStringList{"/n.png"} << QStringList{"/n.png"};
        QTest::newRow("drops non-strings from a damaged list")
            << QVariant(QVariantList{"/keep.png", qint64(4)}) << QStringList{"/n.png"}
            << QStringList{"/keep.png", "/n.png"};
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

    void startsTheApplicationOnce_data()
    {
        QTest::addColumn<QString>("action"); // how the files are sent
        QTest::addColumn<int>("senders");    // started at once
        QTest::addColumn<bool>("display");
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("starts");

        QTest::newRow("one send starts it") << "cli" << 1 << true << "a.jpg" << 1;
        QTest::newRow("two sends at once start one") << "cli" << 2 << true << "a.jpg" << 1;
        QTest::newRow("no display: queued for the next start") << "cli" << 1 << false << "a.jpg" << 0;
        QTest::newRow("eight sends at once lose nothing") << "cli" << 8 << false << "a.jpg" << 0;
        QTest::newRow("Nautilus script, name with a dash") << "nautilus" << 1 << true << "-x.jpg" << 1;
        QTest::newRow("Thunar action, dash and newline") << "thunar" << 1 << true << "-x\ny.jpg" << 1;
        QTest::newRow("Dolphin action, dash") << "dolphin" << 1 << false << "-x.jpg" << 0;
    }

    void startsTheApplicationOnce()
    {
        QFETCH(QString, action);
        QFETCH(int, senders);
        QFETCH(bool, display);
        QFETCH(QString, file);
        QFETCH(int, starts);
        QTemporaryDir work;
        const QString absolute = work.filePath(file);
        const QString filemanager = QStringLiteral(BREVONA_PACKAGING "/filemanager/");

        // Each action's command as its file manager runs it: Nautilus runs the script in the
        // folder with bare names, Thunar runs the command through the shell with %F quoted, and
        // Dolphin splits Exec and puts the paths in place of %F.
        QString program;
        QStringList arguments;
        if (action == QLatin1String("nautilus")) {
            program = QStringLiteral("/bin/sh");
            arguments = {filemanager + QStringLiteral("nautilus-optimize-with-brevona"), file};
        } else if (action == QLatin1String("thunar")) {
            QFile xml(filemanager + QStringLiteral("thunar-uca-action.xml"));
            QVERIFY(xml.open(QIODevice::ReadOnly));
            const QString text = QString::fromUtf8(xml.readAll());
            const qsizetype from = text.indexOf(QStringLiteral("<command>")) + 9;
            QString command = text.mid(from, text.indexOf(QStringLiteral("</command>")) - from);
            QString quoted = absolute;
            command.replace(QStringLiteral("%F"),
                            u'\'' + quoted.replace(u'\'', QStringLiteral("'\\''")) + u'\'');
            program = QStringLiteral("/bin/sh");
            arguments = {QStringLiteral("-c"), command};
        } else if (action == QLatin1String("dolphin")) {
            QFile desktop(filemanager + QStringLiteral("brevona-dolphin.desktop"));
            QVERIFY(desktop.open(QIODevice::ReadOnly));
            const QString text = QString::fromUtf8(desktop.readAll());
            const QString exec = text.mid(text.indexOf(QStringLiteral("Exec=")) + 5).section(u'\n', 0, 0);
            arguments = exec.split(u' ');
            program =
                QStandardPaths::findExecutable(arguments.takeFirst(), {QFileInfo(m_cli).absolutePath()});
            arguments.replace(arguments.indexOf(QStringLiteral("%F")), absolute);
        }

        QList<QProcess*> running;
        for (int i = 0; i < senders; ++i)
            running.append(startSend({file}, work.path(), display, program, arguments));
        for (QProcess* sender : running) {
            QVERIFY(sender->waitForFinished(60000));
            QCOMPARE(sender->exitCode(), 0);
            if (!display)
                QVERIFY(sender->readAllStandardError().contains("compressed when Brevona next starts"));
        }
        QFile log(m_standInLog);
        QCOMPARE(log.open(QIODevice::ReadOnly) ? log.readAll().count("started") : 0, starts);
        QCOMPARE(Defaults::suite().stringArray(AppGroupDefaults::Keys::pendingFiles),
                 std::optional(QStringList(senders, absolute)));
    }
};

QTEST_GUILESS_MAIN(TestSendCommand)
#include "tst_sendcommand.moc"
