#include <QCheckBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include "IsolatedConfig.h"
#include "engine/AppGroupDefaults.h"
#include "platform/FolderBookmark.h"
#include "ui/ElidedLabel.h"
#include "ui/RadioRow.h"
#include "ui/SettingsWindowController.h"

namespace {

using Keys = AppGroupDefaults::Keys;

class FakeUpdater final : public UpdateControl
{
public:
    bool isChecking() const override { return m_checking; }
    void checkForUpdates() override { ++requests; }
    void setChecking(bool checking)
    {
        m_checking = checking;
        emit isCheckingChanged(checking);
    }
    int requests = 0;

private:
    bool m_checking = false;
};

Defaults suite()
{
    return AppGroupDefaults::open();
}

} // namespace

class TestSettingsView : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<SettingsWindowController> m_controller;
    QStringList m_chooserAnswers;
    FakeUpdater m_updater;
    QList<bool> m_launchWrites;

    SettingsView* open(const BundleInfo& bundle = BundleInfo(QStringLiteral("2.3.1"), QStringLiteral("7")))
    {
        m_controller = std::make_unique<SettingsWindowController>();
        m_controller->setBundleInfo(bundle);
        m_controller->setFolderChooser([this](QWidget*) {
            return m_chooserAnswers.isEmpty() ? QString() : m_chooserAnswers.takeFirst();
        });
        m_controller->configure(&m_updater,
                                {[] { return true; }, [this](bool on) { m_launchWrites.append(on); }});
        m_controller->showSettings();
        return m_controller->view();
    }

    template <typename T> T* find(const QString& name) const
    {
        T* w = m_controller->view()->findChild<T*>(name);
        if (!w)
            qWarning("no widget %s", qPrintable(name));
        return w;
    }

    QCheckBox* toggle(const QString& text) const
    {
        for (QCheckBox* box : m_controller->view()->findChildren<QCheckBox*>()) {
            if (box->text() == text)
                return box;
        }
        qWarning("no toggle %s", qPrintable(text));
        return nullptr;
    }

    bool shown(const QString& name) const
    {
        QWidget* w = find<QWidget>(name);
        return w && w->isVisibleTo(m_controller->window());
    }

private slots:
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
        AppGroupDefaults::registerDefaults();
        m_chooserAnswers.clear();
        m_launchWrites.clear();
        m_updater.setChecking(false);
    }
    void cleanup()
    {
        m_controller.reset();
        m_config.reset();
    }

    // Each step clicks one toggle: its key is stored at once and the rows that depend on it show.
    void togglesStoreAndShowTheirRows_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("rows");
        const QStringList line{"defaultQualityLine"};
        QTest::newRow("initially") << QStringList{} << line;
        QTest::newRow("size on") << QStringList{"size"} << QStringList{"maxFileSizeRow"};
        QTest::newRow("size on and off") << QStringList{"size", "size"} << line;
        QTest::newRow("saving on") << QStringList{"saving"} << QStringList{"minSavingRow"};
        QTest::newRow("both on, size off")
            << QStringList{"size", "saving", "size"} << QStringList{"minSavingRow"};
        QTest::newRow("longest edge on") << QStringList{"edge"} << line + QStringList{"longestEdgeRow"};
        QTest::newRow("notifications off") << QStringList{"notify"} << line;
    }
    void togglesStoreAndShowTheirRows()
    {
        QFETCH(QStringList, steps);
        QFETCH(QStringList, rows);
        open();
        const QList<std::tuple<QString, QString, QString>> toggles{
            // step, label, key
            {"size", "Limit output file size", Keys::limitOutputFileSize},
            {"saving", "Keep original if not smaller by at least", Keys::requireMinSavingPercent},
            {"edge", "Limit longest edge", Keys::limitLongestEdge},
            {"notify", "Show notifications after compression", Keys::showNotifications}};
        for (const QString& step : steps) {
            for (const auto& [name, label, key] : toggles)
                if (name == step)
                    toggle(label)->click();
        }
        for (const char* row : {"maxFileSizeRow", "minSavingRow", "defaultQualityLine", "longestEdgeRow"})
            QCOMPARE(shown(row), rows.contains(row));
        for (const auto& [name, label, key] : toggles) {
            const bool on = (steps.count(name) % 2 == 1) != (name == "notify"); // notifications start on
            QCOMPARE(toggle(label)->isChecked(), on);
            QCOMPARE(suite().boolean(key), on);
        }
        QCOMPARE(find<QLabel>(QStringLiteral("defaultQualityLine"))->text(),
                 QStringLiteral("Default: ~82% quality — visually identical, significantly smaller."));
    }

    // With nothing stored or registered, the form shows the same values the engine assumes.
    void valuesWhenNothingIsStored()
    {
        IsolatedConfig empty; // a suite without registered defaults
        open(BundleInfo(std::nullopt, QStringLiteral("7")));
        QCOMPARE(find<QLabel>(QStringLiteral("versionLine"))->text(), QStringLiteral("Brevona v1.0.0"));
        QCOMPARE(toggle(QStringLiteral("Show notifications after compression"))->isChecked(), true);
        for (const char* off :
             {"Limit output file size", "Keep original if not smaller by at least", "Limit longest edge"})
            QCOMPARE(toggle(off)->isChecked(), false);
        QStringList numbers;
        for (const char* row : {"maxFileSizeRow", "minSavingRow", "longestEdgeRow"})
            numbers << find<QWidget>(row)->findChild<QLineEdit*>()->text();
        QCOMPARE(numbers, (QStringList{"500", "20", "2048"}));
        QCOMPARE(find<QLineEdit>(QStringLiteral("suffixField"))->text(), QStringLiteral("-web"));
        QVERIFY(find<RadioRow>(QStringLiteral("format_jpeg"))->isSelected());
        QVERIFY(find<RadioRow>(QStringLiteral("location_sameFolder"))->isSelected());
    }

    void numberFieldsStoreOnlyIntegers_data()
    {
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<qint64>("stored"); // and shown once editing ends
        const QString size = QStringLiteral("maxFileSizeRow");
        QTest::newRow("integer") << size << "750" << qint64(750);
        QTest::newRow("zero is left to the engine") << size << "0" << qint64(0);
        QTest::newRow("letters") << size << "abc" << qint64(500);
        // Only the whole text counts: its integer prefixes are never stored on the way.
        QTest::newRow("trailing letter") << size << "75k" << qint64(500);
        QTest::newRow("spaces around") << size << " 42 " << qint64(42);
        QTest::newRow("negative is left to the engine") << size << "-5" << qint64(-5);
        QTest::newRow("empty") << size << "" << qint64(500);
        QTest::newRow("longest edge") << "longestEdgeRow"
                                      << "1600" << qint64(1600);
        QTest::newRow("minimum saving, letters") << "minSavingRow"
                                                 << "x" << qint64(20);
    }
    void numberFieldsStoreOnlyIntegers()
    {
        QFETCH(QString, row);
        QFETCH(QString, typed);
        QFETCH(qint64, stored);
        const QHash<QString, std::pair<QString, QString>> fields{
            // row: key, stored at first
            {"maxFileSizeRow", {Keys::maxFileSizeKB, "500"}},
            {"longestEdgeRow", {Keys::longestEdgePx, "2048"}},
            {"minSavingRow", {Keys::minSavingPercent, "20"}}};
        const auto [key, initial] = fields.value(row);
        open();
        for (const char* label :
             {"Limit output file size", "Keep original if not smaller by at least", "Limit longest edge"})
            toggle(label)->click();
        auto* edit = find<QWidget>(row)->findChild<QLineEdit*>();
        QVERIFY(edit);
        QCOMPARE(edit->text(), initial);
        edit->setFocus();
        edit->selectAll();
        QTest::keyClick(edit, Qt::Key_Backspace);
        QTest::keyClicks(edit, typed);
        QTest::keyClick(edit, Qt::Key_Return);
        QCOMPARE(suite().integer(key), stored);
        QCOMPARE(edit->text(), QString::number(stored));
    }

    void formatRowsStoreRawValues_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("raw");
        for (const auto& [label, raw] : {std::pair{"Convert to PNG", "png"},
                                         {"Convert to WebP", "webp"},
                                         {"Convert to AVIF (best compression)", "avif"},
                                         {"Keep original format", "original"},
                                         {"Convert to JPEG", "jpeg"}})
            QTest::newRow(raw) << QString(label) << QString(raw);
    }
    void formatRowsStoreRawValues()
    {
        QFETCH(QString, label);
        QFETCH(QString, raw);
        IsolatedConfig::store(Keys::outputFormat, QStringLiteral("webp"));
        open();
        const QList<RadioRow*> rows = find<QWidget>(QStringLiteral("format_jpeg"))
                                          ->parentWidget()
                                          ->findChildren<RadioRow*>(QString(), Qt::FindDirectChildrenOnly);
        QCOMPARE(rows.size(), 5);
        RadioRow* row = nullptr;
        for (RadioRow* r : rows) {
            QCOMPARE(r->isSelected(), r->text() == QLatin1String("Convert to WebP"));
            if (r->text() == label)
                row = r;
        }
        QVERIFY(row);
        QTest::mouseClick(row, Qt::LeftButton);
        QCOMPARE(suite().string(Keys::outputFormat), std::optional<QString>(raw));
        for (RadioRow* r : rows)
            QCOMPARE(r->isSelected(), r == row);
    }

    void locationRows()
    {
        IsolatedConfig::store(Keys::outputLocation, QStringLiteral("sameFolder"));
        open();
        QVERIFY(!shown(QStringLiteral("customFolderBlock")));
        for (const bool custom : {true, false}) {
            find<RadioRow>(custom ? "location_customFolder" : "location_sameFolder")->click();
            QCOMPARE(suite().string(Keys::outputLocation),
                     std::optional<QString>(custom ? "customFolder" : "sameFolder"));
            QCOMPARE(shown(QStringLiteral("customFolderBlock")), custom);
            QCOMPARE(shown(QStringLiteral("sameFolderCaption")), !custom);
            QVERIFY(shown(QStringLiteral("suffixField")));
        }
    }

    void suffixIsStoredAsTyped()
    {
        open();
        auto* suffix = find<QLineEdit>(QStringLiteral("suffixField"));
        QCOMPARE(suffix->text(), QStringLiteral("-web"));
        suffix->selectAll();
        QTest::keyClick(suffix, Qt::Key_Backspace);
        QCOMPARE(suite().string(Keys::suffix), std::optional<QString>(QString())); // no suffix at all
        QTest::keyClicks(suffix, QStringLiteral("_small"));
        QCOMPARE(suite().string(Keys::suffix), std::optional<QString>(QStringLiteral("_small")));
    }

    void cancelledChooserKeepsTheFolder()
    {
        QTemporaryDir first;
        IsolatedConfig::store(Keys::outputLocation, QStringLiteral("customFolder"));
        SettingsView* view = open();
        auto* path = find<ElidedLabel>(QStringLiteral("folderPath"));
        QCOMPARE(path->fullText(), QStringLiteral("Not set"));

        m_chooserAnswers = {first.path()};
        find<QPushButton>(QStringLiteral("changeFolder"))->click();
        QCOMPARE(suite().data(Keys::customFolderBookmark), FolderBookmark::create(first.path()));
        QCOMPARE(path->fullText(), first.path());

        m_chooserAnswers = {QString()}; // cancelled
        find<QPushButton>(QStringLiteral("changeFolder"))->click();
        QCOMPARE(suite().data(Keys::customFolderBookmark), FolderBookmark::create(first.path()));
        QCOMPARE(view->customFolderPath(), std::optional<QString>(first.path()));
        // Choosing a folder does not pick the custom location by itself.
        QCOMPARE(suite().string(Keys::outputLocation),
                 std::optional<QString>(QStringLiteral("customFolder")));
    }

    void missingFolderIsCheckedOnEveryShow()
    {
        QTemporaryDir base;
        const QString folder = base.path() + QStringLiteral("/exports");
        IsolatedConfig::store(Keys::outputLocation, QStringLiteral("customFolder"));
        IsolatedConfig::store(Keys::customFolderBookmark, *FolderBookmark::create(folder));
        open();
        QVERIFY(shown(QStringLiteral("folderMissing")));
        QCOMPARE(find<QLabel>(QStringLiteral("folderMissing"))->text(),
                 QStringLiteral("Folder not found – using original location."));
        QCOMPARE(find<ElidedLabel>(QStringLiteral("folderPath"))->fullText(), folder);

        QVERIFY(QDir().mkpath(folder));
        m_controller->window()->close();
        // Changes made elsewhere while the window was closed show when it opens again.
        IsolatedConfig::store(Keys::limitOutputFileSize, true);
        IsolatedConfig::store(Keys::maxFileSizeKB, qint64(900));
        IsolatedConfig::store(Keys::suffix, QStringLiteral("-small"));
        m_controller->showSettings();
        QVERIFY(!shown(QStringLiteral("folderMissing")));
        QVERIFY(toggle(QStringLiteral("Limit output file size"))->isChecked());
        QVERIFY(shown(QStringLiteral("maxFileSizeRow")));
        QCOMPARE(find<QWidget>(QStringLiteral("maxFileSizeRow"))->findChild<QLineEdit*>()->text(),
                 QStringLiteral("900"));
        QCOMPARE(find<QLineEdit>(QStringLiteral("suffixField"))->text(), QStringLiteral("-small"));
    }

    void showingTwiceReusesTheWindow()
    {
        SettingsView* view = open();
        QWidget* window = m_controller->window();
        QCOMPARE(window->windowTitle(), QStringLiteral("Brevona Settings"));
        QCOMPARE(find<QLabel>(QStringLiteral("versionLine"))->text(), QStringLiteral("Brevona v2.3.1"));
        window->close();
        m_controller->showSettings();
        QCOMPARE(m_controller->window(), window);
        QCOMPARE(m_controller->view(), view);
        QVERIFY(window->isVisible());
    }

    void updateButtonFollowsTheChecker()
    {
        open();
        auto* button = find<QPushButton>(QStringLiteral("checkForUpdates"));
        QCOMPARE(button->text(), QStringLiteral("Check for Updates"));
        QVERIFY(!shown(QStringLiteral("checkingIndicator")));
        button->click();
        QCOMPARE(m_updater.requests, 1);
        m_updater.setChecking(true);
        QCOMPARE(button->text(), QStringLiteral("Checking…"));
        QVERIFY(shown(QStringLiteral("checkingIndicator")));
        m_updater.setChecking(false);
        QCOMPARE(button->text(), QStringLiteral("Check for Updates"));
        QVERIFY(!shown(QStringLiteral("checkingIndicator")));
    }

    void launchAtLoginHandsChangesOn()
    {
        open();
        auto* box = find<QCheckBox>(QStringLiteral("launchAtLogin"));
        QVERIFY(box->isChecked()); // read from the hook when the view was built
        box->click();
        box->click();
        QCOMPARE(m_launchWrites, (QList<bool>{false, true}));
    }
};

QTEST_MAIN(TestSettingsView)
#include "tst_settingsview.moc"
