#include "app/UpdateChecker.h"

#include <utility>

#include <QDateTime>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>

#include "app/MessageBoxAlertPresenter.h"
#include "platform/Defaults.h"

namespace {

bool isHttpStatusError(QNetworkReply::NetworkError error)
{
    // 2xx codes of the enum are HTTP 4xx answers, 4xx codes are HTTP 5xx answers: the server
    // did answer, and the body decides.
    const int code = static_cast<int>(error);
    return (code >= 201 && code <= 299) || (code >= 401 && code <= 499);
}

} // namespace

UpdateChecker::UpdateChecker(QString versionUrl, BundleInfo bundle, std::shared_ptr<AlertPresenter> alerts,
                             QObject* parent)
    : UpdateControl(parent), m_versionUrl(std::move(versionUrl)), m_bundle(std::move(bundle)),
      m_alerts(std::move(alerts)), m_network(new QNetworkAccessManager(this)), m_daily(this)
{
    m_daily.setInterval(kDailyCheckMs);
    connect(&m_daily, &QTimer::timeout, this, [this] { check(true); });
}

UpdateChecker::~UpdateChecker() = default;

UpdateChecker& UpdateChecker::shared()
{
    // Lives until the process ends, like the daily schedule it runs.
    static auto* const instance =
        new UpdateChecker(defaultFeedUrl(), BundleInfo::main(), std::make_shared<MessageBoxAlertPresenter>());
    return *instance;
}

QString UpdateChecker::defaultFeedUrl()
{
    return QStringLiteral(BREVONA_UPDATE_FEED_URL);
}

void UpdateChecker::start()
{
    QTimer::singleShot(kFirstCheckDelayMs, this, &UpdateChecker::checkIfDue);
    m_daily.start();
}

bool UpdateChecker::isDue(double lastCheck, double now)
{
    return now - lastCheck >= kCheckIntervalSeconds;
}

void UpdateChecker::checkIfDue()
{
    const double last = Defaults::standard().doubleValue(kLastCheckKey);
    if (isDue(last, QDateTime::currentMSecsSinceEpoch() / 1000.0))
        check(true);
}

void UpdateChecker::checkForUpdates()
{
    if (++m_manualChecks == 1)
        emit isCheckingChanged(true);
    run(false, [this] {
        if (--m_manualChecks == 0)
            emit isCheckingChanged(false);
    });
}

void UpdateChecker::check(bool silent)
{
    run(silent, {});
}

void UpdateChecker::run(bool silent, std::function<void()> done)
{
    // Written first, so that a failed check also counts as the day's check.
    Defaults standard = Defaults::standard();
    standard.set(kLastCheckKey, QDateTime::currentMSecsSinceEpoch() / 1000.0);
    standard.sync();

    fetch([this, silent, done = std::move(done)](const std::optional<QByteArray>& body) {
        evaluate(body, silent);
        if (done)
            done();
        emit checkFinished();
    });
}

void UpdateChecker::fetch(std::function<void(std::optional<QByteArray>)> done)
{
    const QUrl url(m_versionUrl, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative()) {
        // Answer from the event loop, as a fetch would.
        QMetaObject::invokeMethod(
            this, [done = std::move(done)] { done(std::nullopt); }, Qt::QueuedConnection);
        return;
    }

    QNetworkRequest request(url);
    request.setTransferTimeout(kTransferTimeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    QNetworkReply* reply = m_network->get(request);

    // A redirect away from HTTPS, an oversized body or the deadline ends the fetch as a failure.
    // The transfer timeout alone restarts with every byte, so a server that drips would keep a
    // manual check running for ever.
    auto refused = std::make_shared<bool>(false);
    QTimer::singleShot(m_deadlineMs, reply, [reply, refused] {
        *refused = true;
        reply->abort();
    });
    connect(reply, &QNetworkReply::redirected, reply, [reply, refused](const QUrl& target) {
        if (target.scheme() == QLatin1String("https")) {
            emit reply->redirectAllowed();
            return;
        }
        *refused = true;
        reply->abort();
    });
    connect(reply, &QNetworkReply::downloadProgress, reply, [reply, refused](qint64 received, qint64 total) {
        if (received > kMaxBodyBytes || total > kMaxBodyBytes) {
            *refused = true;
            reply->abort();
        }
    });
    connect(reply, &QNetworkReply::finished, this, [reply, refused, done = std::move(done)] {
        reply->deleteLater();
        const QNetworkReply::NetworkError error = reply->error();
        if (*refused || (error != QNetworkReply::NoError && !isHttpStatusError(error))) {
            done(std::nullopt);
            return;
        }
        const QByteArray body = reply->readAll();
        done(body.size() > kMaxBodyBytes ? std::nullopt : std::optional<QByteArray>(body));
    });
}

qint64 UpdateChecker::runningBuildNumber(const std::optional<QString>& buildVersion)
{
    static const QRegularExpression pattern(QStringLiteral("^[+-]?[0-9]+$"));
    if (!buildVersion || !pattern.match(*buildVersion).hasMatch())
        return 0;
    bool ok = false;
    const qint64 value = buildVersion->toLongLong(&ok, 10);
    return ok ? value : 0;
}

bool UpdateChecker::isUpdateAvailable(const AppRelease& release, qint64 runningBuild)
{
    return release.buildNumber > runningBuild;
}

AlertPresenter::Alert UpdateChecker::updateAlert(const AppRelease& release)
{
    return {QStringLiteral("Brevona ") + release.version + QStringLiteral(" is available"),
            release.releaseNotes,
            {QStringLiteral("Download"), QStringLiteral("Skip This Version"), QStringLiteral("Later")}};
}

AlertPresenter::Alert UpdateChecker::upToDateAlert(const std::optional<QString>& shortVersion)
{
    return {QStringLiteral("Brevona is up to date"),
            QStringLiteral("You're running version ") + shortVersion.value_or(QStringLiteral("1.0.0")) +
                QStringLiteral(", the latest version."),
            {QStringLiteral("OK")}};
}

void UpdateChecker::evaluate(const std::optional<QByteArray>& body, bool silent)
{
    const std::optional<AppRelease> release = body ? AppRelease::decode(*body) : std::nullopt;
    if (!release || !isUpdateAvailable(*release, runningBuildNumber(m_bundle.buildVersion()))) {
        // A failure answers a manual check exactly like "no newer build".
        if (!silent)
            showUpToDateAlert();
        return;
    }
    if (silent) {
        const std::optional<QString> skipped = Defaults::standard().string(kSkipVersionKey);
        if (skipped && *skipped == release->version)
            return;
    }
    showUpdateAlert(*release);
}

void UpdateChecker::showUpdateAlert(const AppRelease& release)
{
    switch (m_alerts->runAlert(updateAlert(release))) {
    case 0: {
        const QUrl url(release.zipURL, QUrl::StrictMode);
        const QString scheme = url.scheme();
        if (url.isValid() && !url.host().isEmpty() &&
            (scheme == QLatin1String("https") || scheme == QLatin1String("http")))
            m_alerts->openUrl(url);
        break;
    }
    case 1: {
        Defaults standard = Defaults::standard();
        standard.set(kSkipVersionKey, release.version);
        standard.sync();
        break;
    }
    default:
        break;
    }
}

void UpdateChecker::showUpToDateAlert()
{
    m_alerts->runAlert(upToDateAlert(m_bundle.shortVersion()));
}
