#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QString>
#include <QTimer>
#include <QUrl>

#include "app/AlertPresenter.h"
#include "app/AppRelease.h"
#include "platform/BundleInfo.h"
#include "ui/UpdateControl.h"

class QNetworkAccessManager;

/**
 * Fetches the release record once a day and offers a newer build.
 *
 * Automatic checks (3 s after `start()` when a day has passed since the last check, then every
 * 24 h of uptime) are silent unless they find an update the user has not skipped. A manual check
 * always answers: the update alert, or "Brevona is up to date" for every other outcome,
 * failures included.
 * @code
 * UpdateChecker::shared().start();
 * @endcode
 */
class UpdateChecker final : public UpdateControl
{
    Q_OBJECT

public:
    static constexpr double kCheckIntervalSeconds = 86400.0;
    /// The automatic schedule: a check-if-due this long after `start()`, then a check every day.
    static constexpr int kFirstCheckDelayMs = 3000;
    static constexpr int kDailyCheckMs = 86'400'000;
    static inline const QString kLastCheckKey = QStringLiteral("orvik.lastUpdateCheck");
    static inline const QString kSkipVersionKey = QStringLiteral("orvik.skipVersion");
    static constexpr qint64 kMaxBodyBytes = 1024 * 1024;
    static constexpr int kTransferTimeoutMs = 30'000;
    /// The whole fetch, however slowly the server answers.
    static constexpr int kCheckDeadlineMs = 30'000;

    UpdateChecker(QString versionUrl, BundleInfo bundle, std::shared_ptr<AlertPresenter> alerts,
                  QObject* parent = nullptr);
    ~UpdateChecker() override;

    /// The process's checker: the compiled-in feed, this build's versions and message boxes.
    static UpdateChecker& shared();
    static QString defaultFeedUrl();

    QString versionUrl() const { return m_versionUrl; }
    /// Replaces `kCheckDeadlineMs` for the next fetches (tests use a short one).
    void setDeadlineMs(int deadlineMs) { m_deadlineMs = deadlineMs; }
    bool isChecking() const override { return m_manualChecks > 0; }

    /// Schedules the first check-if-due in 3 s and a silent check every 86,400 s.
    void start();
    /// Runs a silent check when at least a day has passed since the last one.
    void checkIfDue();
    /// A check that always answers the user; `isChecking` is true until it has.
    void checkForUpdates() override;
    /// One check. Ends by emitting `checkFinished`, after any alert has been answered.
    void check(bool silent);

    /// Whether a check is due given the last check's time (0 when never) and now, both in
    /// seconds since 1970.
    static bool isDue(double lastCheck, double now);
    /// The running build: a base-10 integer with an optional sign, else 0.
    static qint64 runningBuildNumber(const std::optional<QString>& buildVersion);
    /// Whether the feed's build is newer than the running one.
    static bool isUpdateAvailable(const AppRelease& release, qint64 runningBuild);

    static AlertPresenter::Alert updateAlert(const AppRelease& release);
    static AlertPresenter::Alert upToDateAlert(const std::optional<QString>& shortVersion);

signals:
    void checkFinished();

private:
    void run(bool silent, std::function<void()> done);
    void fetch(std::function<void(std::optional<QByteArray>)> done);
    void evaluate(const std::optional<QByteArray>& body, bool silent);
    void showUpdateAlert(const AppRelease& release);
    void showUpToDateAlert();

    QString m_versionUrl;
    BundleInfo m_bundle;
    std::shared_ptr<AlertPresenter> m_alerts;
    QNetworkAccessManager* m_network;
    QTimer m_daily;
    int m_deadlineMs = kCheckDeadlineMs;
    /// Manual checks under way; they may overlap.
    int m_manualChecks = 0;
};
