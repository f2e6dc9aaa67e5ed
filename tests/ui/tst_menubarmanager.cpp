#include <memory>

#include <QAction>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>

#include "ControlledEngine.h"
#include "IsolatedConfig.h"
#include "engine/AppGroupDefaults.h"
#include "ui/DropZonePanelController.h"
#include "ui/DropZoneView.h"
#include "ui/MenuBarManager.h"
#include "ui/ProgressPopoverView.h"

namespace {
QStringList menuTexts(QMenu* menu)
{
    emit menu->aboutToShow();
    QStringList texts;
    for (const QAction* action : menu->actions())
        texts << (action->isSeparator() ? QStringLiteral("---") : action->text());
    return texts;
}

const SessionResult kBatch{
    {{QStringLiteral("/a.png"), QStringLiteral("/a-web.jpg"), 300000, 100000, std::nullopt}}};
} // namespace

class TestMenuBarManager : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<ControlledEngine> m_engine;
    std::shared_ptr<TrayHostWatcher::Hosts> m_hosts;
    std::unique_ptr<MenuBarManager> m_manager;

    DropZonePanelController& panel() { return DropZonePanelController::shared(); }
    void setTray(bool statusNotifier, bool xembed = false)
    {
        m_hosts->statusNotifier = statusNotifier;
        m_hosts->xembed = xembed;
        m_manager->trayHosts().recheck();
    }
    QVariantAnimation* pulse() const
    {
        return m_manager->findChild<QVariantAnimation*>(QString(), Qt::FindDirectChildrenOnly);
    }
    int iconAlpha() const
    {
        const QImage image = m_manager->trayIcon()->icon().pixmap(22).toImage();
        int alpha = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                alpha = std::max(alpha, qAlpha(image.pixel(x, y)));
        return alpha;
    }

private slots:
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
        AppGroupDefaults::registerDefaults();
        m_engine = std::make_unique<ControlledEngine>();
        m_hosts = std::make_shared<TrayHostWatcher::Hosts>();
        m_manager =
            std::make_unique<MenuBarManager>(m_engine->engine(), [hosts = m_hosts] { return *hosts; });
    }
    void cleanup()
    {
        m_manager.reset();
        m_engine.reset();
        m_config.reset();
    }

    void menuBeforeAndAfterABatch()
    {
        QCOMPARE(menuTexts(m_manager->menu()), (QStringList{"Settings...", "---", "Quit Brevona"}));
        m_manager->handleFiles({"/a.png"});
        m_engine->finish(0, kBatch);
        QTRY_VERIFY(m_manager->compressionState().isComplete());
        QCOMPARE(menuTexts(m_manager->menu()), (QStringList{"Last session: " + kBatch.summary(), "---",
                                                            "Settings...", "---", "Quit Brevona"}));
        const QList<QAction*> actions = m_manager->menu()->actions();
        QVERIFY(!actions.at(0)->isEnabled());
        QCOMPARE(actions.at(2)->shortcut(), QKeySequence(QStringLiteral("Ctrl+,")));
        QCOMPARE(actions.at(4)->shortcut(), QKeySequence(QStringLiteral("Ctrl+Q")));
        QCOMPARE(menuTexts(m_manager->menu()).size(), 5); // rebuilding does not pile up items
        QSignalSpy requested(m_manager.get(), &MenuBarManager::settingsRequested);
        m_manager->menu()->actions().at(2)->trigger(); // the menu was rebuilt just above
        QCOMPARE(requested.size(), 1);
    }

    // What a click on the tray icon does, once and twice: the panel, the popover or nothing (the
    // context menu opens by itself).
    void trayClicks_data()
    {
        QTest::addColumn<int>("reason");
        QTest::addColumn<int>("clicks");
        QTest::addColumn<bool>("panelShown");
        QTest::addColumn<bool>("popoverShown");
        QTest::newRow("left click opens the panel") << int(QSystemTrayIcon::Trigger) << 1 << true << false;
        QTest::newRow("a second left click closes it")
            << int(QSystemTrayIcon::Trigger) << 2 << false << false;
        QTest::newRow("middle click opens the popover")
            << int(QSystemTrayIcon::MiddleClick) << 1 << false << true;
        QTest::newRow("a second middle click closes it")
            << int(QSystemTrayIcon::MiddleClick) << 2 << false << false;
        QTest::newRow("right click") << int(QSystemTrayIcon::Context) << 1 << false << false;
    }
    void trayClicks()
    {
        QFETCH(int, reason);
        QFETCH(int, clicks);
        QFETCH(bool, panelShown);
        QFETCH(bool, popoverShown);
        setTray(true);
        QVERIFY(m_manager->trayIcon());
        for (int i = 0; i < clicks; ++i)
            emit m_manager->trayIcon()->activated(QSystemTrayIcon::ActivationReason(reason));
        QCOMPARE(panel().isVisible(), panelShown);
        QCOMPARE(m_manager->popover() && m_manager->popover()->isVisible(), popoverShown);
        QVERIFY(!m_manager->trayIcon()->contextMenu()->isVisible());
        if (panelShown) { // and the automatic hide closes it
            m_manager->hidePanel();
            QVERIFY(!panel().isVisible());
        }
    }

    // A real drop on the panel reaches the engine with the filtered list.
    void dropOnThePanelStartsABatch()
    {
        DropZoneView* view = panel().panel()->dropZoneView();
        QMimeData mime;
        mime.setUrls({QUrl::fromLocalFile("/p/a.png"), QUrl::fromLocalFile("/p/notes.txt"),
                      QUrl::fromLocalFile("/p/b.HEIC")});
        // Drops go to the widget that accepted the drag's entry.
        QDragEnterEvent enter(QPoint(140, 110), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view, &enter);
        QDropEvent drop(QPointF(140, 110), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view, &drop);
        QVERIFY(drop.isAccepted());
        QTRY_COMPARE(m_engine->calls.size(), 1);
        QCOMPARE(m_engine->calls.at(0).paths, (QStringList{"/p/a.png", "/p/b.HEIC"}));
        QCOMPARE(pulse()->state(), QAbstractAnimation::Running);
        m_engine->finish(0, kBatch);
        QTRY_COMPARE(pulse()->state(), QAbstractAnimation::Stopped);
    }

    // The icon fades from full to 40 % opacity over 0.7 s and back, for as long as it pulses.
    void pulseFrames()
    {
        setTray(true);
        QCOMPARE(iconAlpha(), 255);
        m_manager->setIconPulsing(true);
        QCOMPARE(pulse()->loopCount(), -1);
        for (const auto& [ms, opacity] : {std::pair{700, 0.4}, {350, 0.7}, {1050, 0.7}, {0, 1.0}}) {
            pulse()->setCurrentTime(ms);
            QVERIFY2(qAbs(iconAlpha() - 255 * opacity) <= 3, qPrintable(QString::number(ms)));
        }
        pulse()->setCurrentTime(700);
        m_manager->setIconPulsing(false);
        QCOMPARE(pulse()->state(), QAbstractAnimation::Stopped);
        QCOMPARE(iconAlpha(), 255);
    }

    // The test platform has no tray: the panel is an ordinary window, open from the start, and
    // the automatic hide leaves it alone. A tray host that starts late takes over; when it goes,
    // the window comes back, wired like the first.
    void trayHostsComeAndGo()
    {
        QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
        const auto expectWindowed = [&](bool windowed) {
            QCOMPARE(!m_manager->trayIcon(), windowed);
            QCOMPARE(panel().panel()->mode(),
                     windowed ? DropZonePanel::Mode::Windowed : DropZonePanel::Mode::Floating);
            QCOMPARE(panel().isVisible(), windowed);
        };
        expectWindowed(true);
        QVERIFY(!(panel().panel()->windowFlags() & Qt::FramelessWindowHint));
        QCOMPARE(panel().panel()->size(), QSize(280, 220));
        m_manager->hidePanel();
        expectWindowed(true);
        setTray(true);
        expectWindowed(false);
        QSystemTrayIcon* icon = m_manager->trayIcon();
        setTray(true, true);
        QCOMPARE(m_manager->trayIcon(), icon);
        setTray(false);
        expectWindowed(true);
        QSignalSpy requested(m_manager.get(), &MenuBarManager::settingsRequested);
        panel().panel()->dropZoneView()->settingsButton()->click();
        QCOMPARE(requested.size(), 1);
    }
};

QTEST_MAIN(TestMenuBarManager)
#include "tst_menubarmanager.moc"
