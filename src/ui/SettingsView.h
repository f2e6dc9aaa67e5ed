#pragma once

#include <functional>
#include <optional>
#include <vector>

#include <QPointer>
#include <QWidget>

#include "platform/BundleInfo.h"
#include "ui/LaunchAtLoginHooks.h"
#include "ui/UpdateControl.h"

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class BusyIndicator;
class ElidedLabel;
class RadioRow;

/**
 * The settings form. Every control writes its key to the shared suite the moment it changes;
 * there is no Apply. Rows that depend on a toggle or a choice are hidden while it is off, and
 * their stored values stay as they are.
 */
class SettingsView final : public QWidget
{
    Q_OBJECT

public:
    /// Asks the user for a folder; an empty result means the user cancelled.
    using FolderChooser = std::function<QString(QWidget* parent)>;

    SettingsView(UpdateControl* updater, LaunchAtLoginHooks launchAtLogin, BundleInfo bundle,
                 FolderChooser chooseFolder, QWidget* parent = nullptr);

    /// The modal directory dialog with the "Select" prompt.
    static QString runFolderDialog(QWidget* parent);

    /// The folder last chosen here or read from the stored bookmark, for display.
    std::optional<QString> customFolderPath() const { return m_customFolderPath; }
    bool isCustomFolderMissing() const { return m_customFolderMissing; }

    /// Re-reads the stored custom folder and whether it still exists.
    void refreshCustomFolder();
    /// Shows every value as the suite holds it now, which another process may have changed
    /// (done each time the form is shown).
    void reloadFromSuite();
    /// Runs the folder chooser and stores the chosen folder's bookmark.
    void chooseFolder();

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* buildOutputFormat();
    QWidget* buildCompression();
    QWidget* buildResize();
    QWidget* buildOutputLocation();
    QWidget* buildNotifications();
    QWidget* buildGeneral();
    QWidget* buildSupportedFormats();
    QWidget* buildUpdates();

    QCheckBox* boundToggle(const QString& text, const QString& key, bool fallback);
    QLineEdit* boundNumberField(const QString& key, qint64 fallback, int width);
    void store(const QString& key, const QVariant& value);
    /// Runs `reload` (which shows a stored value) now and on every reloadFromSuite().
    void onReload(std::function<void()> reload);
    void updateVisibility();
    void updateFolderRow();
    void updateCheckButton();

    std::vector<std::function<void()>> m_reloads;
    QPointer<UpdateControl> m_updater;
    LaunchAtLoginHooks m_launchAtLogin;
    BundleInfo m_bundle;
    FolderChooser m_chooseFolder;

    std::optional<QString> m_customFolderPath;
    bool m_customFolderMissing = false;

    QList<QPair<QString, RadioRow*>> m_formatRows;
    RadioRow* m_sameFolderRow = nullptr;
    RadioRow* m_customFolderRow = nullptr;
    QCheckBox* m_limitSize = nullptr;
    QCheckBox* m_requireSaving = nullptr;
    QCheckBox* m_limitEdge = nullptr;
    QWidget* m_sizeRow = nullptr;
    QWidget* m_savingRow = nullptr;
    QWidget* m_defaultQualityLine = nullptr;
    QWidget* m_edgeRow = nullptr;
    QWidget* m_customFolderBlock = nullptr;
    QWidget* m_sameFolderCaption = nullptr;
    ElidedLabel* m_folderPath = nullptr;
    QLabel* m_folderMissing = nullptr;
    QPushButton* m_checkButton = nullptr;
    BusyIndicator* m_busy = nullptr;
};
