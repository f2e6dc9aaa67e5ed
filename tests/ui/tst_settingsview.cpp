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

    // The text field named `name`, or the one in the row of that name.
    QLineEdit* field(const QString& name) const
    {
        QWidget* w = find<QWidget>(name);
        auto* edit = qobject_cast<QLineEdit*>(w);
        return edit ? edit : w->findChild<QLineEdit*>();
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
        QStringList texts;
        for (const char* name : {"maxFileSizeRow", "minSavingRow", "longestEdgeRow", "suffixField"})
            texts << field(name)->text();
        QCOMPARE(texts, (QStringList{"500", "20", "2048", "-web"}));
        QVERIFY(find<RadioRow>(QStringLiteral("format_jpeg"))->isSelected());
        QVERIFY(find<RadioRow>(QStringLiteral("location_sameFolder"))->isSelected());
    }

    // Number fields store a whole integer when editing ends and then show what they hold; the
    // suffix is stored as typed.
    void textFieldsStore_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("stored");
        const auto row = [](const char* name, const char* field, const char* typed, const char* stored) {
            QTest::newRow(name) << QString(field) << QString(typed) << QString(stored);
        };
        const char* size = "maxFileSizeRow";
        row("integer", size, "750", "750");
        row("zero is left to the engine", size, "0", "0");
        // Only the whole text counts: its integer prefixes are never stored on the way.
        row("trailing letter", size, "75k", "500");
        row("spaces around", size, " 42 ", "42");
        row("negative is left to the engine", size, "-5", "-5");
        row("empty", size, "", "500");
        row("longest edge", "longestEdgeRow", "1600", "1600");
        row("minimum saving, letters", "minSavingRow", "x", "20");
        row("suffix", "suffixField", "_small", "_small");
        row("emptied suffix: none at all", "suffixField", "", "");
    }
    void textFieldsStore()
    {
        QFETCH(QString, field);
        QFETCH(QString, typed);
        QFETCH(QString, stored);
        const QHash<QString, QString> keys{{"maxFileSizeRow", Keys::maxFileSizeKB},
                                           {"longestEdgeRow", Keys::longestEdgePx},
                                           {"minSavingRow", Keys::minSavingPercent},
                                           {"suffixField", Keys::suffix}};
        open();
        for (const char* label :
             {"Limit output file size", "Keep original if not smaller by at least", "Limit longest edge"})
            toggle(label)->click();
        QLineEdit* edit = this->field(field);
        edit->setFocus();
        edit->selectAll();
        QTest::keyClick(edit, Qt::Key_Backspace);
        QTest::keyClicks(edit, typed);
        QTest::keyClick(edit, Qt::Key_Return);
        QCOMPARE(suite().object(keys.value(field)).toString(), stored);
        QCOMPARE(edit->text(), stored);
    }

    // The stored format is selected; clicking a row stores its raw value and selects only it.
    void formatRows()
    {
        IsolatedConfig::store(Keys::outputFormat, QStringLiteral("webp"));
        open();
        QVERIFY(find<RadioRow>(QStringLiteral("format_webp"))->isSelected());
        const QList<RadioRow*> rows = find<QWidget>(QStringLiteral("format_jpeg"))
                                          ->parentWidget()
                                          ->findChildren<RadioRow*>(QString(), Qt::FindDirectChildrenOnly);
        QStringList stored;
        for (RadioRow* row : rows) {
            QTest::mouseClick(row, Qt::LeftButton);
            stored << row->text() + u'=' + suite().string(Keys::outputFormat).value_or(QString());
            for (RadioRow* other : rows)
                QCOMPARE(other->isSelected(), other == row);
        }
        QCOMPARE(stored,
                 (QStringList{"Convert to JPEG=jpeg", "Convert to PNG=png", "Convert to WebP=webp",
                              "Convert to AVIF (best compression)=avif", "Keep original format=original"}));
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

    void cancelledChooserKeepsTheFolder()
    {
        QTemporaryDir first;
        IsolatedConfig::store(Keys::outputLocation, QStringLiteral("customFolder"));
        open();
        auto* path = find<ElidedLabel>(QStringLiteral("folderPath"));
        QCOMPARE(path->fullText(), QStringLiteral("Not set"));

        m_chooserAnswers = {first.path()};
        find<QPushButton>(QStringLiteral("changeFolder"))->click();
        QCOMPARE(suite().data(Keys::customFolderBookmark), FolderBookmark::create(first.path()));
        QCOMPARE(path->fullText(), first.path());

        m_chooserAnswers = {QString()}; // cancelled
        find<QPushButton>(QStringLiteral("changeFolder"))->click();
        QCOMPARE(suite().data(Keys::customFolderBookmark), FolderBookmark::create(first.path()));
        QCOMPARE(path->fullText(), first.path());
    }

    // One window, reused: each time it shows it reads the suite again.
    void showingAgainReusesTheWindowAndRereads()
    {
        QTemporaryDir base;
        const QString folder = base.path() + QStringLiteral("/exports");
        IsolatedConfig::store(Keys::outputLocation, QStringLiteral("customFolder"));
        IsolatedConfig::store(Keys::customFolderBookmark, *FolderBookmark::create(folder));
        SettingsView* view = open();
        QWidget* window = m_controller->window();
        QCOMPARE(window->windowTitle(), QStringLiteral("Brevona Settings"));
        QCOMPARE(find<QLabel>(QStringLiteral("versionLine"))->text(), QStringLiteral("Brevona v2.3.1"));
        QVERIFY(shown(QStringLiteral("folderMissing")));
        QCOMPARE(find<QLabel>(QStringLiteral("folderMissing"))->text(),
                 QStringLiteral("Folder not found – using original location."));
        QCOMPARE(find<ElidedLabel>(QStringLiteral("folderPath"))->fullText(), folder);

        QVERIFY(QDir().mkpath(folder));
        window->close();
        // Changes made elsewhere while the window was closed show when it opens again.
        IsolatedConfig::store(Keys::limitOutputFileSize, true);
        IsolatedConfig::store(Keys::maxFileSizeKB, qint64(900));
        IsolatedConfig::store(Keys::suffix, QStringLiteral("-small"));
        m_controller->showSettings();
        QCOMPARE(m_controller->window(), window);
        QCOMPARE(m_controller->view(), view);
        QVERIFY(window->isVisible());
        QVERIFY(!shown(QStringLiteral("folderMissing")));
        QVERIFY(toggle(QStringLiteral("Limit output file size"))->isChecked());
        QVERIFY(shown(QStringLiteral("maxFileSizeRow")));
        QCOMPARE(field(QStringLiteral("maxFileSizeRow"))->text(), QStringLiteral("900"));
        QCOMPARE(field(QStringLiteral("suffixField"))->text(), QStringLiteral("-small"));
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
