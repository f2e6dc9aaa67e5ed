#include <QTest>

#include "IsolatedConfig.h"
#include "engine/AppGroupDefaults.h"
#include "engine/CompressionMode.h"
#include "engine/CompressionSettings.h"
#include "engine/OutputFormat.h"
#include "platform/Defaults.h"
#include "platform/FolderBookmark.h"

using Keys = AppGroupDefaults::Keys;

class TestCompressionSettings : public QObject
{
    Q_OBJECT

private slots:
    void qualityTable_data()
    {
        QTest::addColumn<CompressionMode>("mode");
        QTest::addColumn<OutputFormat>("format");
        QTest::addColumn<double>("quality");
        QTest::newRow("lossless jpeg") << CompressionMode::Lossless << OutputFormat::Jpeg << 0.95;
        QTest::newRow("lossless png") << CompressionMode::Lossless << OutputFormat::Png << 1.0;
        QTest::newRow("balanced jpeg") << CompressionMode::Balanced << OutputFormat::Jpeg << 0.80;
        QTest::newRow("balanced webp") << CompressionMode::Balanced << OutputFormat::Webp << 0.82;
        QTest::newRow("balanced avif") << CompressionMode::Balanced << OutputFormat::Avif << 0.82;
        QTest::newRow("aggressive jpeg") << CompressionMode::Aggressive << OutputFormat::Jpeg << 0.65;
        QTest::newRow("aggressive png") << CompressionMode::Aggressive << OutputFormat::Png << 0.65;
    }
    void qualityTable()
    {
        QFETCH(CompressionMode, mode);
        QFETCH(OutputFormat, format);
        QFETCH(double, quality);
        QCOMPARE(CompressionModes::quality(mode, format), quality);
    }

    void formatColumns()
    {
        QStringList raws;
        for (OutputFormat f : OutputFormats::all) {
            raws << OutputFormats::rawValue(f);
            QCOMPARE(OutputFormats::fromRawValue(OutputFormats::rawValue(f)), std::optional<OutputFormat>(f));
        }
        QCOMPARE(raws, (QStringList{"jpeg", "png", "webp", "avif", "original"}));
        QCOMPARE(OutputFormats::typeIdentifier(OutputFormat::Webp), QStringLiteral("webp"));
        QCOMPARE(OutputFormats::fileExtension(OutputFormat::Jpeg), QStringLiteral("jpg"));
        QCOMPARE(OutputFormats::fileExtension(OutputFormat::Original), QString());
        QCOMPARE(OutputFormats::title(OutputFormat::Avif),
                 QStringLiteral("Convert to AVIF (best compression)"));
    }

    void freshSuiteGivesRegisteredDefaults()
    {
        IsolatedConfig config;
        AppGroupDefaults::registerDefaults();
        const CompressionSettings s = CompressionSettings::current();
        QCOMPARE(s.outputFormat, OutputFormat::Jpeg);
        QCOMPARE(s.compressionMode, CompressionMode::Balanced);
        QCOMPARE(s.quality, 0.8);
        QCOMPARE(s.limitLongestEdge, false);
        QCOMPARE(s.longestEdgePx, qint64(2048));
        QCOMPARE(s.suffix, QStringLiteral("-web"));
        QCOMPARE(s.outputLocation, OutputLocation::SameFolder);
        QCOMPARE(s.showNotifications, true);
        QCOMPARE(s.limitOutputFileSize, false);
        QCOMPARE(s.maxFileSizeKB, qint64(500));
        QCOMPARE(s.requireMinSavingPercent, false);
        QCOMPARE(s.minSavingPercent, qint64(20));
        QVERIFY(!s.customFolderURL.has_value());
    }

    // Stored values and how the snapshot reads them, without registered defaults in play.
    void snapshotFallbacks_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QString>("field");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("unknown mode is lossless")
            << Keys::compressionMode << QVariant("turbo") << "mode" << QVariant("lossless");
        QTest::newRow("missing mode is lossless")
            << QString() << QVariant() << "mode" << QVariant("lossless");
        QTest::newRow("aggressive mode")
            << Keys::compressionMode << QVariant("aggressive") << "mode" << QVariant("aggressive");
        QTest::newRow("unknown format is jpeg")
            << Keys::outputFormat << QVariant("gif") << "format" << QVariant("jpeg");
        QTest::newRow("original format")
            << Keys::outputFormat << QVariant("original") << "format" << QVariant("original");
        QTest::newRow("edge 0 is 2048")
            << Keys::longestEdgePx << QVariant(0) << "edge" << QVariant(qint64(2048));
        QTest::newRow("edge kept") << Keys::longestEdgePx << QVariant(1200) << "edge"
                                   << QVariant(qint64(1200));
        QTest::newRow("size 0 is 500")
            << Keys::maxFileSizeKB << QVariant(0) << "size" << QVariant(qint64(500));
        QTest::newRow("saving 0 is 20")
            << Keys::minSavingPercent << QVariant(0) << "saving" << QVariant(qint64(20));
        QTest::newRow("empty suffix kept") << Keys::suffix << QVariant("") << "suffix" << QVariant("");
        QTest::newRow("missing suffix") << QString() << QVariant() << "suffix" << QVariant("-web");
        QTest::newRow("location custom")
            << Keys::outputLocation << QVariant("customFolder") << "location" << QVariant("customFolder");
        QTest::newRow("location misspelt")
            << Keys::outputLocation << QVariant("CustomFolder") << "location" << QVariant("sameFolder");
    }
    void snapshotFallbacks()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, stored);
        QFETCH(QString, field);
        QFETCH(QVariant, expected);
        IsolatedConfig config;
        Defaults store = Defaults::named(QStringLiteral("snapshot-test"));
        if (!key.isEmpty())
            store.set(key, stored);
        const CompressionSettings s = CompressionSettings::from(store);
        QVariant actual;
        if (field == "mode")
            actual = CompressionModes::rawValue(s.compressionMode);
        else if (field == "format")
            actual = OutputFormats::rawValue(s.outputFormat);
        else if (field == "edge")
            actual = QVariant::fromValue(s.longestEdgePx);
        else if (field == "size")
            actual = QVariant::fromValue(s.maxFileSizeKB);
        else if (field == "saving")
            actual = QVariant::fromValue(s.minSavingPercent);
        else if (field == "suffix")
            actual = s.suffix;
        else if (field == "location")
            actual = OutputLocations::rawValue(s.outputLocation);
        QCOMPARE(actual.toString(), expected.toString());
    }

    void customFolderBookmark()
    {
        IsolatedConfig config;
        Defaults suite = AppGroupDefaults::open();
        // A folder that no longer exists still resolves; the pipeline decides what that means.
        suite.set(Keys::customFolderBookmark, *FolderBookmark::create(QStringLiteral("/no/such/folder")));
        QVERIFY(suite.sync());
        QCOMPARE(CompressionSettings::current().customFolderURL,
                 std::optional<QString>(QStringLiteral("/no/such/folder")));
        suite.set(Keys::customFolderBookmark, QByteArray("not a path"));
        QVERIFY(suite.sync());
        QVERIFY(!CompressionSettings::current().customFolderURL.has_value());
    }

    void migrationRunsOnce()
    {
        IsolatedConfig config;
        Defaults standard = Defaults::standard();
        standard.set(Keys::outputFormat, QStringLiteral("webp"));
        standard.set(Keys::maxFileSizeKB, 900);
        standard.set(Keys::customFolderBookmark, QByteArray("/x"));
        QVERIFY(standard.sync());

        AppGroupDefaults::registerDefaults();
        Defaults suite = AppGroupDefaults::open();
        QCOMPARE(suite.string(Keys::outputFormat), std::optional<QString>(QStringLiteral("webp")));
        QCOMPARE(suite.object(Keys::maxFileSizeKB), QVariant::fromValue<qint64>(900));
        QVERIFY(suite.boolean(Keys::groupDefaultsMigrated));
        QVERIFY(!suite.hasStoredValue(Keys::customFolderBookmark));
        QVERIFY(!suite.hasStoredValue(Keys::suffix)); // absent keys are skipped

        standard.set(Keys::outputFormat, QStringLiteral("png"));
        QVERIFY(standard.sync());
        AppGroupDefaults::registerDefaults();
        QCOMPARE(AppGroupDefaults::open().string(Keys::outputFormat),
                 std::optional<QString>(QStringLiteral("webp")));
    }

    void markerWrittenEvenWithNothingToCopy()
    {
        IsolatedConfig config;
        AppGroupDefaults::registerDefaults();
        QVERIFY(AppGroupDefaults::open().hasStoredValue(Keys::groupDefaultsMigrated));
        QCOMPARE(AppGroupDefaults::open().storedKeys(), QStringList{Keys::groupDefaultsMigrated});
    }
};

QTEST_GUILESS_MAIN(TestCompressionSettings)
#include "tst_compressionsettings.moc"
