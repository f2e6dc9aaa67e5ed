#include <algorithm>

#include <QAbstractButton>
#include <QApplication>
#include <QDateTime>
#include <QHash>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>

#include "IsolatedConfig.h"
#include "app/MessageBoxAlertPresenter.h"
#include "app/UpdateChecker.h"
#include "platform/Defaults.h"

namespace {

QByteArray http(int status, const QByteArray& body, const QByteArray& headers = {}, bool withLength = true)
{
    QByteArray out = "HTTP/1.1 " + QByteArray::number(status) + " X\r\nConnection: close\r\n" + headers;
    if (withLength)
        out += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return out + "\r\n" + body;
}

QByteArray record(const QByteArray& version, const QByteArray& build,
                  const QByteArray& zip = "https://dl.example/b.zip")
{
    return "{\"version\":\"" + version + "\",\"buildNumber\":" + build +
           ",\"releaseNotes\":\"Faster AVIF.\",\"zipURL\":\"" + zip + "\",\"criticalUpdate\":false}";
}

/// Answers each request with the canned response registered for its path, then closes.
class CannedHttpServer final : public QObject
{
public:
    CannedHttpServer()
    {
        QVERIFY(m_server.listen(QHostAddress::LocalHost));
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { answer(socket); });
            }
        });
    }

    QString url(const QString& path) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
    }
    /// A path that starts with "/drip" gets its body a byte every 0.2 s after the headers.
    void serve(const QByteArray& path, const QByteArray& response) { m_responses.insert(path, response); }

private:
    void answer(QTcpSocket* socket)
    {
        QByteArray& pending = m_buffers[socket];
        pending += socket->readAll();
        if (!pending.contains("\r\n\r\n"))
            return;
        const QByteArray path = pending.split(' ').value(1);
        m_buffers.remove(socket);
        const QByteArray response = m_responses.value(path, http(404, "missing"));
        if (path.startsWith("/drip")) {
            const qsizetype headerEnd = response.indexOf("\r\n\r\n") + 4;
            socket->write(response.left(headerEnd));
            auto* timer = new QTimer(socket);
            connect(timer, &QTimer::timeout, socket, [socket, response, sent = headerEnd]() mutable {
                if (sent < response.size())
                    socket->write(response.mid(sent++, 1));
            });
            timer->start(200);
            return;
        }
        socket->write(response);
        socket->disconnectFromHost();
    }

    QTcpServer m_server;
    QHash<QByteArray, QByteArray> m_responses;
    QHash<QTcpSocket*, QByteArray> m_buffers;
};

/// Records every alert's texts and buttons (and whether a manual check was flagged as running
/// while it showed) and answers with a fixed button.
class RecordingAlerts final : public AlertPresenter
{
public:
    int runAlert(const Alert& alert) override
    {
        messages.append(alert.message + u'\n' + alert.informativeText + u'\n' + alert.buttons.join(u'|'));
        checkingDuringAlert.append(checker && checker->isChecking());
        return answer;
    }
    void openUrl(const QUrl& url) override { opened.append(url); }

    int answer = 2;
    const UpdateChecker* checker = nullptr;
    QStringList messages;
    QList<bool> checkingDuringAlert;
    QList<QUrl> opened;
};

const QString kUpToDate =
    QStringLiteral("Brevona is up to date\nYou're running version 2.4.0, the latest version.\nOK");
const QString kUpdate250 =
    QStringLiteral("Brevona 2.5.0 is available\nFaster AVIF.\nDownload|Skip This Version|Later");

} // namespace

class TestUpdateChecker : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<CannedHttpServer> m_server;
    std::shared_ptr<RecordingAlerts> m_alerts;
    std::unique_ptr<UpdateChecker> m_checker;

    void makeChecker(const QString& url, std::optional<QString> build = QStringLiteral("41"))
    {
        m_checker =
            std::make_unique<UpdateChecker>(url, BundleInfo(QStringLiteral("2.4.0"), build), m_alerts);
        m_alerts->checker = m_checker.get();
    }

    bool runCheck(bool silent)
    {
        QSignalSpy finished(m_checker.get(), &UpdateChecker::checkFinished);
        if (silent)
            m_checker->check(true);
        else
            m_checker->checkForUpdates();
        return finished.count() == 1 || finished.wait(20000);
    }

private slots:
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
        m_server = std::make_unique<CannedHttpServer>();
        m_alerts = std::make_shared<RecordingAlerts>();
        m_server->serve("/same.json", http(200, record("2.4.0", "41")));
        m_server->serve("/newer.json", http(200, record("2.5.0", "9007199254740993")));
        m_server->serve("/build1.json", http(200, record("2.5.0", "1")));
        m_server->serve("/garbage.json", http(200, "<html>maintenance</html>"));
        m_server->serve("/status404.json", http(404, record("2.5.0", "42")));
        const QByteArray huge = record("2.5.0", "42") + QByteArray(1024 * 1024 + 10, ' ');
        m_server->serve("/huge-declared.json", http(200, huge));
        m_server->serve("/huge-undeclared.json", http(200, huge, {}, false));
        m_server->serve("/drip.json", http(200, record("2.5.0", "42")));
        m_server->serve("/redirect-http.json",
                        http(302, {}, "Location: " + m_server->url("/newer.json").toUtf8() + "\r\n"));
    }
    void cleanup()
    {
        m_checker.reset();
        m_alerts.reset();
        m_server.reset();
        m_config.reset();
    }

    void decodesOnlyCompleteRecords_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("decodes");
        QTest::newRow("complete") << record("2.5.0", "42") << true;
        QTest::newRow("extra field") << QByteArray(record("2.5.0", "42")).replace("{", "{\"x\":[1],") << true;
        QTest::newRow("whole double build") << record("2.5.0", "42.0") << true;
        QTest::newRow("build as string") << record("2.5.0", "\"42\"") << false;
        QTest::newRow("fractional build") << record("2.5.0", "42.5") << false;
        QTest::newRow("build beyond 64 bits") << record("2.5.0", "1e20") << false;
        QTest::newRow("array root") << "[" + record("2.5.0", "42") + "]" << false;
        for (const char* field : {"version", "buildNumber", "releaseNotes", "zipURL", "criticalUpdate"}) {
            const QByteArray renamed =
                QByteArray(record("2.5.0", "42")).replace("\"" + QByteArray(field) + "\"", "\"other\"");
            QTest::addRow("missing %s", field) << renamed << false;
        }
    }
    void decodesOnlyCompleteRecords()
    {
        QFETCH(QByteArray, json);
        QFETCH(bool, decodes);
        QCOMPARE(AppRelease::decode(json).has_value(), decodes);
    }

    void runningBuildNumber_data()
    {
        QTest::addColumn<std::optional<QString>>("value");
        QTest::addColumn<qint64>("build");
        const std::pair<const char*, qint64> rows[] = {
            {"+7", 7}, {"-3", -3}, {"1.2", 0}, {" 5", 0}, {"0x1F", 0}, {"9223372036854775808", 0}, {"٤٢", 0}};
        for (const auto& [value, build] : rows)
            QTest::addRow("\"%s\"", value) << std::optional<QString>(QString::fromUtf8(value)) << build;
        QTest::newRow("absent") << std::optional<QString>() << qint64(0);
    }
    void runningBuildNumber()
    {
        QFETCH(std::optional<QString>, value);
        QFETCH(qint64, build);
        QCOMPARE(UpdateChecker::runningBuildNumber(value), build);
    }

    // Each row runs once as an automatic and once as a manual check.
    void outcomes_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("silent");
        QTest::addColumn<std::optional<QString>>("runningBuild");
        QTest::addColumn<QString>("skipVersion");
        QTest::addColumn<QString>("alert");
        const auto row = [](const char* name, const char* path, const char* build, const char* skip,
                            const QString& automatic, const QString& manual) {
            const std::optional<QString> running = build ? std::optional<QString>(build) : std::nullopt;
            QTest::addRow("%s, automatic", name)
                << QString(path) << true << running << QString(skip) << automatic;
            QTest::addRow("%s, manual", name) << QString(path) << false << running << QString(skip) << manual;
        };
        const QString none, upToDate = kUpToDate, update = kUpdate250;
        row("same build", "/same.json", "41", "", none, upToDate);
        row("newer by one beyond double precision", "/newer.json", "9007199254740992", "", update, update);
        row("newer build, skipped", "/newer.json", "41", "2.5.0", none, update);
        row("newer build, another skipped", "/newer.json", "41", "2.4.9", update, update);
        row("running build absent", "/build1.json", nullptr, "", update, update);
        row("undecodable", "/garbage.json", "41", "", none, upToDate);
        row("status 404 is not examined", "/status404.json", "41", "", update, update);
        row("body over 1 MB, declared", "/huge-declared.json", "41", "", none, upToDate);
        row("body over 1 MB, undeclared", "/huge-undeclared.json", "41", "", none, upToDate);
        row("redirect to http", "/redirect-http.json", "41", "", none, upToDate);
        row("a byte per 0.2 s past the deadline", "/drip.json", "41", "", none, upToDate);
        row("nothing listening", "closed", "41", "", none, upToDate);
        row("unusable feed address", "bad", "41", "", none, upToDate);
    }
    void outcomes()
    {
        QFETCH(QString, path);
        QFETCH(bool, silent);
        QFETCH(std::optional<QString>, runningBuild);
        QFETCH(QString, skipVersion);
        QFETCH(QString, alert);

        QString url = m_server->url(path);
        if (path == QLatin1String("closed")) {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost));
            url = QStringLiteral("http://127.0.0.1:%1/v.json").arg(probe.serverPort());
        } else if (path == QLatin1String("bad")) {
            url = QStringLiteral("http://exa mple.com:99999/v.json");
        }
        if (!skipVersion.isEmpty()) {
            Defaults standard = Defaults::standard();
            standard.set(UpdateChecker::kSkipVersionKey, skipVersion);
            standard.sync();
        }
        makeChecker(url, runningBuild);
        m_checker->setDeadlineMs(1000); // the dripping record needs about 25 s
        QSignalSpy checking(m_checker.get(), &UpdateControl::isCheckingChanged);
        const double before = QDateTime::currentMSecsSinceEpoch() / 1000.0;

        QVERIFY(runCheck(silent));

        QCOMPARE(m_alerts->messages, alert.isEmpty() ? QStringList() : QStringList{alert});
        // Written at every check, failures included.
        QVERIFY(Defaults::standard().doubleValue(UpdateChecker::kLastCheckKey) >= before - 0.001);
        // Only a manual check raises the flag, and it stays raised while its alert shows.
        for (bool flagged : std::as_const(m_alerts->checkingDuringAlert))
            QCOMPARE(flagged, !silent);
        QCOMPARE(checking.count(), silent ? 0 : 2);
        QVERIFY(!m_checker->isChecking());
    }

    void answers_data()
    {
        QTest::addColumn<int>("button");
        QTest::addColumn<QByteArray>("zip");
        QTest::addColumn<bool>("opens");
        QTest::addColumn<QString>("skipped");
        const QByteArray https = "https://dl.example/b.zip";
        QTest::newRow("download https") << 0 << https << true << "";
        QTest::newRow("download http") << 0 << QByteArray("http://dl.example/b.zip") << true << "";
        for (const char* zip : {"file:///etc/passwd", "javascript:alert(1)", "not an url"})
            QTest::addRow("download %s", zip) << 0 << QByteArray(zip) << false << "";
        QTest::newRow("skip") << 1 << https << false << "2.5.0";
        QTest::newRow("later") << 2 << https << false << "";
    }
    void answers()
    {
        QFETCH(int, button);
        QFETCH(QByteArray, zip);
        QFETCH(bool, opens);
        QFETCH(QString, skipped);
        m_server->serve("/answer.json", http(200, record("2.5.0", "42", zip)));
        makeChecker(m_server->url("/answer.json"));
        m_alerts->answer = button;
        QVERIFY(runCheck(false));
        QCOMPARE(m_alerts->opened, opens ? QList<QUrl>{QUrl(zip)} : QList<QUrl>{});
        QCOMPARE(Defaults::standard().string(UpdateChecker::kSkipVersionKey).value_or(QString()), skipped);
    }

    void checksWhenDue_data()
    {
        QTest::addColumn<std::optional<double>>("lastCheckAgo");
        QTest::addColumn<bool>("checks");
        QTest::newRow("never checked") << std::optional<double>() << true;
        QTest::newRow("a day ago") << std::optional<double>(86400.5) << true;
        QTest::newRow("just under a day ago") << std::optional<double>(86300.0) << false;
        QTest::newRow("in the future") << std::optional<double>(-3600.0) << false;
    }
    void checksWhenDue()
    {
        QFETCH(std::optional<double>, lastCheckAgo);
        QFETCH(bool, checks);
        if (lastCheckAgo) {
            Defaults standard = Defaults::standard();
            standard.set(UpdateChecker::kLastCheckKey,
                         QDateTime::currentMSecsSinceEpoch() / 1000.0 - *lastCheckAgo);
            standard.sync();
        }
        const double stored = Defaults::standard().doubleValue(UpdateChecker::kLastCheckKey);
        makeChecker(m_server->url("/newer.json"));
        QSignalSpy finished(m_checker.get(), &UpdateChecker::checkFinished);
        m_checker->checkIfDue();
        // A check writes its start time at once, before the network answers.
        QCOMPARE(Defaults::standard().doubleValue(UpdateChecker::kLastCheckKey) != stored, checks);
        if (checks) {
            QVERIFY(finished.wait(20000));
            QCOMPARE(m_alerts->messages, QStringList{kUpdate250});
        }
    }

    // start() returns at once, with a check-if-due due 3 s later and a silent check every day.
    void schedule()
    {
        makeChecker(m_server->url("/newer.json"));
        m_checker->start();
        const QTimer* daily = m_checker->findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
        QVERIFY(daily && daily->isActive() && !daily->isSingleShot());
        QCOMPARE(daily->interval(), 86'400'000);
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QVERIFY(!Defaults::standard().hasStoredValue(UpdateChecker::kLastCheckKey)); // nothing checked yet
    }

    // The message box shows the alert's texts and its buttons left to right, the first the default;
    // Return takes the first, Escape the last ("Later") or the only one.
    void messageBox_data()
    {
        QTest::addColumn<AlertPresenter::Alert>("alert");
        QTest::addColumn<QStringList>("shown"); // the texts, then the buttons
        QTest::addColumn<QString>("press");     // a button's text, "Return" or "Escape"
        QTest::addColumn<int>("answer");
        const auto update = UpdateChecker::updateAlert(*AppRelease::decode(record("2.5.0", "42")));
        const QStringList box{"Brevona 2.5.0 is available\nFaster AVIF.", "Download", "Skip This Version",
                              "Later"};
        for (int i = 1; i < box.size(); ++i)
            QTest::addRow("%s", qPrintable(box[i])) << update << box << box[i] << i - 1;
        QTest::newRow("Return") << update << box << "Return" << 0;
        QTest::newRow("Escape") << update << box << "Escape" << 2;
        QTest::newRow("up to date, no version of its own, Escape")
            << UpdateChecker::upToDateAlert(std::nullopt)
            << QStringList{"Brevona is up to date\nYou're running version 1.0.0, the latest version.", "OK"}
            << "Escape" << 0;
    }
    void messageBox()
    {
        QFETCH(AlertPresenter::Alert, alert);
        QFETCH(QStringList, shown);
        QFETCH(QString, press);
        QFETCH(int, answer);
        QStringList seen;
        QString defaultButton;
        const auto openBox = [] {
            for (QWidget* window : QApplication::topLevelWidgets()) {
                if (auto* box = qobject_cast<QMessageBox*>(window); box && box->isVisible())
                    return box;
            }
            return static_cast<QMessageBox*>(nullptr);
        };
        QTimer::singleShot(0, this, [&] {
            QMessageBox* box = openBox();
            QVERIFY(box);
            QList<QAbstractButton*> row = box->buttons();
            std::sort(row.begin(), row.end(), [box](QAbstractButton* a, QAbstractButton* b) {
                return a->mapTo(box, QPoint()).x() < b->mapTo(box, QPoint()).x();
            });
            seen << box->text() + u'\n' + box->informativeText();
            for (QAbstractButton* button : row)
                seen << button->text();
            defaultButton = box->defaultButton()->text();
            if (press == "Return" || press == "Escape")
                QTest::keyClick(box, press == "Return" ? Qt::Key_Return : Qt::Key_Escape);
            for (QAbstractButton* button : row) {
                if (button->text() == press)
                    button->click();
            }
        });
        QTimer::singleShot(20000, this, [openBox] { // never hang on a box the test could not answer
            if (QMessageBox* box = openBox())
                box->done(-1);
        });
        MessageBoxAlertPresenter presenter;
        QCOMPARE(presenter.runAlert(alert), answer);
        QCOMPARE(seen, shown);
        QCOMPARE(defaultButton, shown.value(1));
    }
};

QTEST_MAIN(TestUpdateChecker)
#include "tst_updatechecker.moc"
