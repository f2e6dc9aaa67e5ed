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
        QTest::newRow("first taken") << QStringList{"a-web.jpg"} << "a-web_2.jpg";
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
};

QTEST_GUILESS_MAIN(TestOutputTarget)
#include "tst_outputtarget.moc"
