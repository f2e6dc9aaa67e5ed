#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include "IsolatedConfig.h"
#include "app/LaunchAtLoginManager.h"

class TestLaunchAtLogin : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;

    QString autostartDir() const { return m_config->path() + QStringLiteral("/autostart"); }

    static void write(const QString& path, const QByteArray& content)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

private slots:
    void init() { m_config = std::make_unique<IsolatedConfig>(); }
    void cleanup() { m_config.reset(); }

    void readsExistingEntry_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("enabled");
        const QByteArray head = "[Desktop Entry]\nType=Application\nName=Brevona\nExec=brevona\n";
        QTest::newRow("plain entry") << head << true;
        QTest::newRow("hidden by the desktop") << head + "Hidden=true\n" << false;
        QTest::newRow("hidden with spaces") << head + "Hidden = true\n" << false;
        QTest::newRow("hidden false") << head + "Hidden=false\n" << true;
        QTest::newRow("hidden in another group") << head + "[Desktop Action x]\nHidden=true\n" << true;
        QTest::newRow("empty file") << QByteArray() << true;
    }
    void readsExistingEntry()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, enabled);
        QVERIFY(QDir().mkpath(autostartDir()));
        write(LaunchAtLoginManager::entryPath(), content);
        QCOMPARE(LaunchAtLoginManager::isEnabled(), enabled);
    }

    void enablingWritesAStartableEntryAndDisablingRemovesIt()
    {
        QVERIFY(!LaunchAtLoginManager::isEnabled()); // no entry
        // Enabling rewrites an entry the desktop had hidden.
        QVERIFY(QDir().mkpath(autostartDir()));
        write(LaunchAtLoginManager::entryPath(), "[Desktop Entry]\nType=Application\nExec=x\nHidden=true\n");
        LaunchAtLoginManager::setEnabled(true);
        QVERIFY(LaunchAtLoginManager::isEnabled());
        QFile file(LaunchAtLoginManager::entryPath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray text = file.readAll();
        QVERIFY(text.startsWith("[Desktop Entry]\n"));
        QVERIFY(text.contains("\nType=Application\n"));
        QVERIFY(!text.contains("Hidden=true"));
        // The test executable is not on PATH, so the entry names it by its absolute path.
        const QString self = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
        QVERIFY2(text.contains("\nExec=" + self.toUtf8() + "\n"), text.constData());

        LaunchAtLoginManager::setEnabled(false);
        QVERIFY(!LaunchAtLoginManager::isEnabled());
        QVERIFY(!QFileInfo::exists(LaunchAtLoginManager::entryPath()));
        LaunchAtLoginManager::setEnabled(false);
        QVERIFY(!LaunchAtLoginManager::isEnabled());
    }

    // Permissions do not stop root, so the write is blocked by what stands in the way: a file
    // where the folder belongs, then a folder where the entry belongs (which is no entry either).
    void failedWriteChangesNothing()
    {
        write(autostartDir(), "not a folder");
        LaunchAtLoginManager::setEnabled(true);
        QVERIFY(!LaunchAtLoginManager::isEnabled());
        QFile blocker(autostartDir());
        QVERIFY(blocker.open(QIODevice::ReadOnly));
        QCOMPARE(blocker.readAll(), QByteArray("not a folder"));

        QVERIFY(blocker.remove());
        QVERIFY(QDir().mkpath(LaunchAtLoginManager::entryPath()));
        LaunchAtLoginManager::setEnabled(true);
        QVERIFY(!LaunchAtLoginManager::isEnabled());
    }
};

QTEST_GUILESS_MAIN(TestLaunchAtLogin)
#include "tst_launchatlogin.moc"
