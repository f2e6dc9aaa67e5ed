#include <QTest>

#include "StateRecorder.h"
#include "session/CompressionState.h"

class TestCompressionState : public QObject
{
    Q_OBJECT

private slots:
    void progress_data()
    {
        QTest::addColumn<qint64>("current");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<double>("progress");
        QTest::newRow("nothing to do") << qint64(0) << qint64(0) << 0.0;
        QTest::newRow("negative total") << qint64(2) << qint64(-4) << 0.0;
        QTest::newRow("half") << qint64(2) << qint64(4) << 0.5;
        QTest::newRow("past the end is not clamped") << qint64(6) << qint64(4) << 1.5;
    }
    void progress()
    {
        QFETCH(qint64, current);
        QFETCH(qint64, total);
        QFETCH(double, progress);
        CompressionState state;
        state.start(total);
        state.update(current, QStringLiteral("x.jpg"));
        QCOMPARE(state.progress(), progress);
    }

    // Each operation assigns its fields in a fixed order, one notification per assignment; an
    // update after completion (a late report) touches only the counters.
    void operationOrder_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("start") << "start"
                               << QStringList{"total=3",          "current=0",          "currentFile=",
                                              "isComplete=false", "completionMessage=", "isRunning=true"};
        QTest::newRow("update") << "update" << QStringList{"current=2", "currentFile=b.png"};
        QTest::newRow("complete") << "complete"
                                  << QStringList{"isComplete=true", "completionMessage=Done · ok",
                                                 "isRunning=false"};
        QTest::newRow("reset") << "reset" << QStringList{"isComplete=false", "completionMessage=",
                                                         "isRunning=false",  "current=0",
                                                         "total=0",          "currentFile="};
    }
    void operationOrder()
    {
        QFETCH(QString, operation);
        QFETCH(QStringList, expected);
        CompressionState state;
        // A finished batch with counters set, so that every operation changes something.
        state.start(5);
        state.update(4, QStringLiteral("e.jpg"));
        state.complete(QStringLiteral("earlier"));
        StateRecorder recorder(state);
        if (operation == "start")
            state.start(3);
        else if (operation == "update")
            state.update(2, QStringLiteral("b.png"));
        else if (operation == "complete")
            state.complete(QStringLiteral("Done · ok"));
        else
            state.reset();
        QCOMPARE(recorder.take(), expected);
    }
};

QTEST_GUILESS_MAIN(TestCompressionState)
#include "tst_compressionstate.moc"
