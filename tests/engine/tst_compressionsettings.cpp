#include <QTest>

#include "IsolatedConfig.h"
#include "engine/AppGroupDefaults.h"
#include "engine/CompressionMode.h"
#include "engine/CompressionSettings.h"
#include "engine/OutputFormat.h"
#include "platform/Defaults.h"

using Keys = AppGroupDefaults::Keys;

namespace {

/// Every field of a snapshot as "name value" text, so that a table can name the one it checks.
QStringList fields(const CompressionSettings& s)
{
    const auto onOff = [](bool on) { return on ? QStringLiteral("on") : QStringLiteral("off"); };
    return {"format " + OutputFormats::rawValue(s.outputFormat),
            "mode " + CompressionModes::rawValue(s.compressionMode),
            "quality " + QString::number(s.quality),
            "edge " + onOff(s.limitLongestEdge) + ' ' + QString::number(s.longestEdgePx),
            "suffix " + s.suffix,
            "location " + OutputLocations::rawValue(s.outputLocation),
            "notifications " + onOff(s.showNotifications),
            "size " + onOff(s.limitOutputFileSize) + ' ' + QString::number(s.maxFileSizeKB),
            "saving " + onOff(s.requireMinSavingPercent) + ' ' + QString::number(s.minSavingPercent),
            "folder " + s.customFolderURL.value_or(QStringLiteral("none"))};
}

} // namespace

class TestCompressionSettings : public QObject
{
    Q_OBJECT

private slots:
    void freshSuiteGivesRegisteredDefaults()
    {
        IsolatedConfig config;
        AppGroupDefaults::registerDefaults();
        QCOMPARE(fields(CompressionSettings::current()),
                 (QStringList{"format jpeg", "mode balanced", "quality 0.8", "edge off 2048", "suffix -web",
                              "location sameFolder", "notifications on", "size off 500", "saving off 20",
                              "folder none"}));
        // Nothing to copy from an older store: only the marker is written.
        QCOMPARE(AppGroupDefaults::open().storedKeys(), QStringList{Keys::groupDefaultsMigrated});
    }

    // Stored values and how the snapshot reads them, without registered defaults in play.
    void snapshotFallbacks_data()
    {
        QTest::addColumn<QString>("key"); // "": nothing stored
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QString>("expected");
        QTest::newRow("unknown mode is lossless")
            << Keys::compressionMode << QVariant("turbo") << "mode lossless";
        QTest::newRow("unknown format is jpeg") << Keys::outputFormat << QVariant("gif") << "format jpeg";
        QTest::newRow("edge 0 is 2048") << Keys::longestEdgePx << QVariant(0) << "edge off 2048";
        QTest::newRow("edge kept") << Keys::longestEdgePx << QVariant(1200) << "edge off 1200";
        QTest::newRow("size 0 is 500") << Keys::maxFileSizeKB << QVariant(0) << "size off 500";
        QTest::newRow("saving 0 is 20") << Keys::minSavingPercent << QVariant(0) << "saving off 20";
        QTest::newRow("empty suffix kept") << Keys::suffix << QVariant("") << "suffix ";
        QTest::newRow("missing suffix") << QString() << QVariant() << "suffix -web";
        QTest::newRow("location custom")
            << Keys::outputLocation << QVariant("customFolder") << "location customFolder";
        // A folder that no longer exists still resolves; the pipeline decides what that means.
        QTest::newRow("bookmark of a gone folder")
            << Keys::customFolderBookmark << QVariant(QByteArray("/no/such/folder"))
            << "folder /no/such/folder";
        QTest::newRow("bookmark that is no path")
            << Keys::customFolderBookmark << QVariant(QByteArray("not a path")) << "folder none";
        QTest::newRow("bookmark not UTF-8")
            << Keys::customFolderBookmark << QVariant(QByteArray("/\xff\xfe")) << "folder none";
        QTest::newRow("location misspelt")
            << Keys::outputLocation << QVariant("CustomFolder") << "location sameFolder";
    }
    void snapshotFallbacks()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, stored);
        QFETCH(QString, expected);
        IsolatedConfig config;
        Defaults store = Defaults::named(QStringLiteral("snapshot-test"));
        if (!key.isEmpty())
            store.set(key, stored);
        const QStringList actual = fields(CompressionSettings::from(store));
        QVERIFY2(actual.contains(expected), qPrintable(actual.join(u',')));
    }

    // An older store's values are copied once, the folder bookmark (tied to its store) left out.
    void migrationRunsOnce()
    {
        IsolatedConfig config;
        Defaults standard = Defaults::standard();
        standard.set(Keys::outputFormat, QStringLiteral("webp"));
        standard.set(Keys::customFolderBookmark, QByteArray("/x"));
        QVERIFY(standard.sync());
        AppGroupDefaults::registerDefaults();
        standard.set(Keys::outputFormat, QStringLiteral("png"));
        QVERIFY(standard.sync());
        AppGroupDefaults::registerDefaults();
        QCOMPARE(AppGroupDefaults::open().storedKeys(),
                 (QStringList{Keys::groupDefaultsMigrated, Keys::outputFormat}));
        QCOMPARE(AppGroupDefaults::open().string(Keys::outputFormat), std::optional<QString>("webp"));
    }
};

QTEST_GUILESS_MAIN(TestCompressionSettings)
#include "tst_compressionsettings.moc"
