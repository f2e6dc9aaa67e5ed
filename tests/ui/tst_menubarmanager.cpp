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

private slots:
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
        AppGroupDefaults::registerDefaults();
        m_engine = std::make_unique<ControlledEngine>();
        m_manager = std::make_unique<MenuBarManager>(m_engine->engine());
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
        const QString summary = kBatch.summary();
        QCOMPARE(menuTexts(m_manager->menu()),
                 (QStringList{"Last session: " + summary, "---", "Settings...", "---", "Quit Brevona"}));
        const QList<QAction*> actions = m_manager->menu()->actions();
        QVERIFY(!actions.at(0)->isEnabled());
        QVERIFY(actions.at(2)->isEnabled());
        QCOMPARE(actions.at(2)->shortcut(), QKeySequence(QStringLiteral("Ctrl+,")));
        QCOMPARE(actions.at(4)->shortcut(), QKeySequence(QStringLiteral("Ctrl+Q")));
        QCOMPARE(m_manager->lastSessionSummary(), m_manager->compressionState().completionMessage());
        // Rebuilding again does not pile up items.
        QCOMPARE(menuTexts(m_manager->menu()).size(), 5);
    }

    void settingsAreAnnounced()
    {
        QSignalSpy requested(m_manager.get(), &MenuBarManager::settingsRequested);
        menuTexts(m_manager->menu());
        m_manager->menu()->actions().at(0)->trigger();
        QCOMPARE(requested.size(), 1);
        DropZonePanelController::shared().panel()->dropZoneView()->settingsButton()->click();
        QCOMPARE(requested.size(), 2);
    }

    // A real drop on the panel reaches the engine with the filtered list.
    void dropOnThePanelStartsABatch()
    {
        DropZoneView* view = DropZonePanelController::shared().panel()->dropZoneView();
        QMimeData mime;
        mime.setUrls({QUrl::fromLocalFile("/p/a.png"), QUrl::fromLocalFile("/p/notes.txt"),
                      QUrl::fromLocalFile("/p/b.HEIC")});
        // Drops go to the widget that accepted the drag's entry.
        QDragEnterEvent enter(QPoint(140, 110), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view, &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(QPointF(140, 110), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view, &drop);
        QVERIFY(drop.isAccepted());
        QTRY_COMPARE(m_engine->calls.size(), 1);
        QCOMPARE(m_engine->calls.at(0).paths, (QStringList{"/p/a.png", "/p/b.HEIC"}));
        QVERIFY(m_manager->compressionState().isRunning());
        QCOMPARE(m_manager->compressionState().total(), 2);
        QVERIFY(m_manager->isPulsing());
        m_engine->finish(0, kBatch);
        QTRY_VERIFY(!m_manager->isPulsing());
        QCOMPARE(m_manager->iconOpacity(), 1.0);
    }

    void pulse()
    {
        QVERIFY(!m_manager->isPulsing());
        m_manager->setIconPulsing(true);
        QVERIFY(m_manager->isPulsing());
        QTRY_VERIFY(m_manager->iconOpacity() < 0.75);
        QTRY_VERIFY(m_manager->iconOpacity() > 0.95); // and back up: the animation reverses
        QTRY_VERIFY(m_manager->iconOpacity() < 0.75); // and it keeps going
        QVERIFY(m_manager->iconOpacity() >= 0.4);
        m_manager->setIconPulsing(false);
        QVERIFY(!m_manager->isPulsing());
        QCOMPARE(m_manager->iconOpacity(), 1.0);
    }

    // The test platform has no tray: the panel is an ordinary window, open from the start, and
    // the automatic hide leaves it alone.
    void withoutATray()
    {
        QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
        QVERIFY(!m_manager->trayIcon());
        DropZonePanel* panel = DropZonePanelController::shared().panel();
        QCOMPARE(panel->mode(), DropZonePanel::Mode::Windowed);
        QVERIFY(panel->isVisible());
        QVERIFY(!(panel->windowFlags() & Qt::FramelessWindowHint));
        m_manager->hidePanel();
        QVERIFY(panel->isVisible());
        QCOMPARE(panel->size(), QSize(280, 220));
    }

    // A tray host that starts late gets the icon and takes over from the window; when it goes,
    // the window comes back.
    void trayHostsComeAndGo()
    {
        auto hosts = std::make_shared<TrayHostWatcher::Hosts>();
        m_manager.reset();
        m_manager = std::make_unique<MenuBarManager>(m_engine->engine(), [hosts] { return *hosts; });
        auto& controller = DropZonePanelController::shared();
        const auto expectWindowed = [&](bool windowed) {
            QCOMPARE(!m_manager->trayIcon(), windowed);
            QCOMPARE(controller.panel()->mode(),
                     windowed ? DropZonePanel::Mode::Windowed : DropZonePanel::Mode::Floating);
            QCOMPARE(controller.isVisible(), windowed);
        };
        expectWindowed(true);
        hosts->statusNotifier = true;
        m_manager->trayHosts().recheck();
        expectWindowed(false);
        QSystemTrayIcon* icon = m_manager->trayIcon();
        hosts->xembed = true;
        m_manager->trayHosts().recheck();
        QCOMPARE(m_manager->trayIcon(), icon);
        *hosts = {};
        m_manager->trayHosts().recheck();
        expectWindowed(true);
        // The new panel is wired like the first.
        QSignalSpy requested(m_manager.get(), &MenuBarManager::settingsRequested);
        controller.panel()->dropZoneView()->settingsButton()->click();
        QCOMPARE(requested.size(), 1);
    }

    void popover()
    {
        QVERIFY(!m_manager->popover());
        m_manager->togglePopover();
        ProgressPopoverView* popover = m_manager->popover();
        QVERIFY(popover && popover->isVisible());
        m_manager->handleFiles({"/a.png", "/b.png"});
        QCOMPARE(popover->drawnTexts(), (QStringList{"Brevona", "Optimizing 2 images..."}));
        m_manager->togglePopover();
        QVERIFY(!popover->isVisible());
    }

private:
    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<ControlledEngine> m_engine;
    std::unique_ptr<MenuBarManager> m_manager;
};

QTEST_MAIN(TestMenuBarManager)
#include "tst_menubarmanager.moc"
