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
    void pathFor_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<int>("n");
        QTest::addColumn<QString>("expected");
        QTest::newRow("first") << "a-web"
                               << "jpg" << 1 << "/out/a-web.jpg";
        QTest::newRow("second") << "a-web"
                                << "jpg" << 2 << "/out/a-web_2.jpg";
        QTest::newRow("tenth") << "a-web"
                               << "png" << 10 << "/out/a-web_10.png";
        QTest::newRow("page") << "report-web-p3"
                              << "jpg" << 1 << "/out/report-web-p3.jpg";
        QTest::newRow("dots in base") << "v1.2-web"
                                      << "webp" << 3 << "/out/v1.2-web_3.webp";
        QTest::newRow("empty suffix") << "photo"
                                      << "avif" << 2 << "/out/photo_2.avif";
    }
    void pathFor()
    {
        QFETCH(QString, base);
        QFETCH(QString, extension);
        QFETCH(int, n);
        QFETCH(QString, expected);
        QCOMPARE(OutputTarget(QStringLiteral("/out"), base, extension).pathFor(n), expected);
    }

    void writesSkipTakenNames_data()
    {
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<QString>("expected");
        QTest::newRow("free") << QStringList{} << "a-web.jpg";
        QTest::newRow("first taken") << QStringList{"a-web.jpg"} << "a-web_2.jpg";
        QTest::newRow("two taken") << QStringList{"a-web.jpg", "a-web_2.jpg"} << "a-web_3.jpg";
        QTest::newRow("gap is reused") << QStringList{"a-web.jpg", "a-web_3.jpg"} << "a-web_2.jpg";
        QTest::newRow("other extension is no collision") << QStringList{"a-web.png"} << "a-web.jpg";
        QTest::newRow("a folder counts") << QStringList{"a-web.jpg/"} << "a-web_2.jpg";
        QTest::newRow("a dangling link counts") << QStringList{"a-web.jpg@"} << "a-web_2.jpg";
    }
    void writesSkipTakenNames()
    {
        QFETCH(QStringList, existing);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        QByteArrayList before;
        for (const QString& name : existing) {
            const QString path = dir.filePath(name.chopped(name.endsWith('/') || name.endsWith('@') ? 1 : 0));
            if (name.endsWith('/'))
                QVERIFY(QDir().mkdir(path));
            else if (name.endsWith('@'))
                QVERIFY(QFile::link(dir.filePath(QStringLiteral("nowhere")), path));
            else
                QVERIFY(writeFile(path, "existing " + name.toUtf8()));
        }
        const OutputTarget target(dir.path(), QStringLiteral("a-web"), QStringLiteral("jpg"));
        QCOMPARE(target.candidatePath(), dir.filePath(expected));
        const auto written = target.write("new bytes");
        QVERIFY(written);
        QCOMPARE(*written, dir.filePath(expected));

        QFile file(*written);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("new bytes"));
        for (const QString& name : existing) {
            if (!name.endsWith('/') && !name.endsWith('@')) {
                QFile old(dir.filePath(name));
                QVERIFY(old.open(QIODevice::ReadOnly));
                QCOMPARE(old.readAll(), "existing " + name.toUtf8());
            }
        }
        QCOMPARE(entries(dir.path()).filter(QStringLiteral(".tmp")), QStringList{});
    }

    void nameTakenAfterTheLoopGoesToTheNextName()
    {
        QTemporaryDir dir;
        const OutputTarget target(dir.path(), QStringLiteral("a-web"), QStringLiteral("jpg"));
        const QString chosen = target.candidatePath();
        QVERIFY(writeFile(chosen, "someone else")); // appears between choosing and writing
        const auto written = target.write("ours");
        QVERIFY(written);
        QCOMPARE(*written, dir.filePath(QStringLiteral("a-web_2.jpg")));
        QFile other(chosen);
        QVERIFY(other.open(QIODevice::ReadOnly));
        QCOMPARE(other.readAll(), QByteArray("someone else"));
    }

    void exactTargetNeverReplaces()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("out.png"));
        QVERIFY(OutputTarget::exactly(path).write("first"));
        QVERIFY(!OutputTarget::exactly(path).write("second"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("first"));
        QCOMPARE(entries(dir.path()), QStringList{"out.png"});
    }

    void writtenFilesAreReadableByOthers()
    {
        QTemporaryDir dir;
        const auto written = OutputTarget(dir.path(), QStringLiteral("x"), QStringLiteral("jpg")).write("x");
        QVERIFY(written);
        QVERIFY(QFileInfo(*written).permissions().testFlag(QFile::ReadOther));
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
