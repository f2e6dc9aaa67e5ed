#include <sys/stat.h>
#include <unistd.h>

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include "EngineFixtures.h"
#include "engine/OutputTarget.h"

using namespace EngineFixtures;

class TestOutputTarget final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A name is never reused: files, folders and dangling links count, even one that appears
    // between choosing the name and writing; what was there keeps its bytes.
    void writesSkipTakenNames_data()
    {
        QTest::addColumn<QStringList>(
            "existing"); // "x/": a folder, "x@": a dangling link, "x!": made after choosing
        QTest::addColumn<QString>("expected");
        QTest::newRow("free") << QStringList{} << "a-web.jpg";
        QTest::newRow("first taken") << QStringList{"a-web.jpg"} << "a-web_2.jpg";
        QTest::newRow("tenth") << QStringList{"a-web.jpg",   "a-web_2.jpg", "a-web_3.jpg",
                                              "a-web_4.jpg", "a-web_5.jpg", "a-web_6.jpg",
                                              "a-web_7.jpg", "a-web_8.jpg", "a-web_9.jpg"}
                               << "a-web_10.jpg";
        QTest::newRow("gap is reused") << QStringList{"a-web.jpg", "a-web_3.jpg"} << "a-web_2.jpg";
        QTest::newRow("other extension is no collision") << QStringList{"a-web.png"} << "a-web.jpg";
        QTest::newRow("a folder counts") << QStringList{"a-web.jpg/"} << "a-web_2.jpg";
        QTest::newRow("a dangling link counts") << QStringList{"a-web.jpg@"} << "a-web_2.jpg";
        QTest::newRow("taken after choosing") << QStringList{"a-web.jpg!"} << "a-web_2.jpg";
    }
    void writesSkipTakenNames()
    {
        QFETCH(QStringList, existing);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        const auto make = [&](bool late) {
            for (const QString& name : existing) {
                const QChar kind = name.back();
                const QString path = dir.filePath(kind.isLetter() ? name : name.chopped(1));
                if ((kind == u'!') != late)
                    continue;
                if (kind == u'/')
                    QVERIFY(QDir().mkdir(path));
                else if (kind == u'@')
                    QVERIFY(QFile::link(dir.filePath(QStringLiteral("nowhere")), path));
                else
                    QVERIFY(writeFile(path, "existing " + path.toUtf8()));
            }
        };
        make(false);
        const OutputTarget target(dir.path(), QStringLiteral("a-web"), QStringLiteral("jpg"));
        const QString chosen = target.candidatePath();
        make(true);
        const auto written = target.write("new bytes");
        QVERIFY(written);
        QCOMPARE(*written, dir.filePath(expected));
        QCOMPARE(chosen == *written, !existing.join(u' ').contains(u'!'));
        QCOMPARE(readFile(*written), QByteArray("new bytes"));
        QVERIFY(QFileInfo(*written).permissions().testFlag(QFile::ReadOther));
        for (const QString& name : existing) {
            const QString path = dir.filePath(name.back().isLetter() ? name : name.chopped(1));
            if (QFileInfo(path).isFile())
                QCOMPARE(readFile(path), "existing " + path.toUtf8());
        }
        QCOMPARE(entries(dir.path()).filter(QStringLiteral(".tmp")), QStringList{});
    }

    void sweepsOnlyOurOldTemporaries_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<qint64>("ageSeconds");
        QTest::addColumn<bool>("removed");
        const qint64 old = OutputTarget::kLeftoverAge + 60;
        QTest::newRow("ours, old") << ".brevona-a1B2c3.tmp" << old << true;
        QTest::newRow("ours, being written") << ".brevona-a1B2c3.tmp" << qint64(5) << false;
        QTest::newRow("not hidden") << "brevona-a1B2c3.tmp" << old << false;
        QTest::newRow("longer random part") << ".brevona-a1B2c3d.tmp" << old << false;
        QTest::newRow("user's file") << ".brevona-notes.tmp.jpg" << old << false;
    }
    void sweepsOnlyOurOldTemporaries()
    {
        QFETCH(QString, name);
        QFETCH(qint64, ageSeconds);
        QFETCH(bool, removed);
        QTemporaryDir dir;
        QFile file(dir.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(-ageSeconds),
                                 QFileDevice::FileModificationTime));
        file.close();
        OutputTarget::sweepLeftovers(dir.path());
        QCOMPARE(entries(dir.path()), removed ? QStringList{} : QStringList{name});
    }

    void unwritableFolderFailsWithoutLeftovers_data()
    {
        QTest::addColumn<bool>("missing");
        QTest::addColumn<bool>("readOnly");
        QTest::addColumn<int>("baseLength");
        QTest::addColumn<QString>("reason");
        QTest::newRow("read-only folder") << false << true << 5 << "Permission denied";
        QTest::newRow("missing folder") << true << false << 5 << "No such file or directory";
        QTest::newRow("name too long") << false << false << 300 << "File name too long";
    }
    void unwritableFolderFailsWithoutLeftovers()
    {
        QFETCH(bool, missing);
        QFETCH(bool, readOnly);
        QFETCH(int, baseLength);
        QFETCH(QString, reason);
        if (readOnly && ::geteuid() == 0)
            QSKIP("running as root: a read-only folder is still writable");
        QTemporaryDir dir;
        const QString folder = missing ? dir.filePath(QStringLiteral("gone")) : dir.path();
        if (readOnly)
            QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
        const OutputTarget target(folder, QString(baseLength, u'a'), QStringLiteral("jpg"));
        // Known before any encoding, and said again, in the system's words, by the write itself.
        const std::optional<QString> early =
            OutputTarget::checkWritable(folder, QFileInfo(target.pathFor(1)).fileName());
        QTest::ignoreMessage(
            QtWarningMsg, QRegularExpression(QStringLiteral("^Write FAILED path=.* err=") + reason + u'$'));
        const auto written = target.write("bytes");
        QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(early, std::optional<QString>(reason));
        QVERIFY(!written);
        QCOMPARE(entries(dir.path()), QStringList{});
    }
};

QTEST_GUILESS_MAIN(TestOutputTarget)
#include "tst_outputtarget.moc"
