#include <QTest>

#include "engine/ByteCount.h"
#include "engine/SessionResult.h"

namespace {
CompressionResult ok(qint64 original, qint64 compressed)
{
    return {QStringLiteral("/in.png"), QStringLiteral("/out.jpg"), original, compressed, std::nullopt};
}
CompressionResult failed(CompressorError e, qint64 original = 0)
{
    return {QStringLiteral("/in.png"), std::nullopt, original,
            e == CompressorError::SavingsBelowThreshold ? original : 0, e};
}
} // namespace

class TestSessionResult : public QObject
{
    Q_OBJECT

private slots:
    void summary_data()
    {
        QTest::addColumn<QList<CompressionResult>>("results");
        QTest::addColumn<QString>("summary");
        using E = CompressorError;
        QTest::newRow("empty") << QList<CompressionResult>{} << "Already optimized · no changes needed";
        QTest::newRow("all discarded")
            << QList{failed(E::SavingsBelowThreshold, 9e4), failed(E::SavingsBelowThreshold, 9e4),
                     failed(E::SavingsBelowThreshold, 9e4)}
            << "Already optimized · no changes needed";
        QTest::newRow("first undecodable")
            << QList{failed(E::CannotDecode), failed(E::SavingsBelowThreshold, 9e4)}
            << "Failed · Cannot decode image";
        QTest::newRow("write failed") << QList{failed(E::FinalizeFailed)} << "Failed · Failed to write image";
        QTest::newRow("name not UTF-8")
            << QList{failed(E::InvalidFileName)} << "Failed · File name is not valid UTF-8";
        QTest::newRow("mixed") << QList{ok(60000, 30000), ok(60000, 30000), ok(60000, 30000),
                                        failed(E::CannotDecode), failed(E::SavingsBelowThreshold, 9e4)}
                               << "3/5 optimized · 2 failed";
        QTest::newRow("just under 50,000")
            << QList{ok(49999, 100), ok(1000, 10)} << "Done · files were already optimized";
        QTest::newRow("exactly 50,000") << QList{ok(50000, 25000)} << "1 image optimized · 25 KB saved";
        QTest::newRow("plural with growth")
            << QList{ok(3'000'000, 1'800'000), ok(40000, 45000)} << "2 images optimized · 1.2 MB saved";
    }
    void summary()
    {
        QFETCH(QList<CompressionResult>, results);
        QFETCH(QString, summary);
        QCOMPARE(SessionResult{results}.summary(), summary);
    }

    void byteCount_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << qint64(0) << "Zero KB";
        QTest::newRow("one") << qint64(1) << "1 byte";
        QTest::newRow("999") << qint64(999) << "999 bytes";
        QTest::newRow("1000") << qint64(1000) << "1 KB";
        QTest::newRow("1500") << qint64(1500) << "2 KB";
        QTest::newRow("999,500 rounds up a unit") << qint64(999'500) << "1 MB";
        QTest::newRow("2.05 GB") << qint64(2'050'000'000) << "2.05 GB";
        QTest::newRow("1.5 TB") << qint64(1'500'000'000'000) << "1.5 TB";
    }
    void byteCount()
    {
        QFETCH(qint64, bytes);
        QFETCH(QString, text);
        QCOMPARE(ByteCount::format(bytes), text);
    }
};

QTEST_GUILESS_MAIN(TestSessionResult)
#include "tst_sessionresult.moc"
