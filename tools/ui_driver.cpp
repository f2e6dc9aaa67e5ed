// Drives the real tray application for screenshots: opens the panel, drags and drops real
// files on it, and grabs the screen at each stage. Not a unit test; run it under an X server
// with a system tray, e.g. Xvfb plus trayer.
//
//   brevona-ui-driver OUTPUT_DIR IMAGE...

#include <functional>

#include <QApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QMimeData>
#include <QPixmap>
#include <QScreen>
#include <QTimer>
#include <QUrl>

#include "engine/AppGroupDefaults.h"
#include "ui/DropZonePanelController.h"
#include "ui/DropZoneView.h"
#include "ui/MenuBarManager.h"
#include "ui/ProgressPopoverView.h"

namespace {
class Script final
{
public:
    Script(MenuBarManager& manager, QString outDir, QStringList images)
        : m_manager(manager), m_outDir(std::move(outDir)), m_images(std::move(images))
    {
        m_mime.setUrls([this] {
            QList<QUrl> urls;
            for (const QString& path : m_images)
                urls << QUrl::fromLocalFile(path);
            urls << QUrl::fromLocalFile(QStringLiteral("/tmp/notes.txt"));
            return urls;
        }());
    }

    void grab(const QString& name) const
    {
        const QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(0);
        shot.save(QDir(m_outDir).filePath(name));
        qInfo("%s  tray icon at %d,%d %dx%d  panel at %d,%d", qPrintable(name), m_manager.anchorRect().x(),
              m_manager.anchorRect().y(), m_manager.anchorRect().width(), m_manager.anchorRect().height(),
              view()->window()->x(), view()->window()->y());
    }

    DropZoneView* view() const { return DropZonePanelController::shared().panel()->dropZoneView(); }

    void after(int ms, std::function<void()> step) { QTimer::singleShot(ms, std::move(step)); }

    void run()
    {
        after(1500, [this] {
            m_manager.togglePanel(); // what a left click on the icon does
            after(700, [this] {
                grab(QStringLiteral("1-idle.png"));
                QDragEnterEvent enter(QPoint(140, 110), Qt::CopyAction | Qt::MoveAction, &m_mime,
                                      Qt::LeftButton, Qt::NoModifier);
                QApplication::sendEvent(view(), &enter);
                QDragMoveEvent move(QPoint(140, 112), Qt::CopyAction | Qt::MoveAction, &m_mime,
                                    Qt::LeftButton, Qt::NoModifier);
                QApplication::sendEvent(view(), &move);
                after(300, [this] { drop(); });
            });
        });
    }

    void drop()
    {
        grab(QStringLiteral("2-targeted.png"));
        QObject::connect(&m_manager.batchRunner(), &BatchRunner::batchFinished,
                         [this](const QString& summary) {
                             qInfo("finished: %s", qPrintable(summary));
                             after(300, [this] { finished(); });
                         });
        QDropEvent drop(QPointF(140, 112), Qt::CopyAction | Qt::MoveAction, &m_mime, Qt::LeftButton,
                        Qt::NoModifier);
        QApplication::sendEvent(view(), &drop);
        after(400, [this] {
            if (!m_manager.compressionState().isRunning())
                return;
            grab(QStringLiteral("3-running.png"));
            m_manager.togglePopover();
            after(300, [this] {
                if (m_manager.compressionState().isRunning())
                    grab(QStringLiteral("4-popover-running.png"));
                m_manager.togglePopover();
            });
        });
    }

    void finished()
    {
        grab(QStringLiteral("5-finished.png"));
        m_manager.hidePanel();
        m_manager.togglePopover();
        after(300, [this] {
            grab(QStringLiteral("6-popover-finished.png"));
            m_manager.togglePopover();
            const QRect anchor = m_manager.anchorRect();
            m_manager.menu()->popup(anchor.isEmpty() ? QPoint(600, 30)
                                                     : anchor.bottomLeft() + QPoint(-200, 4));
            after(300, [this] {
                grab(QStringLiteral("7-menu.png"));
                m_manager.menu()->hide();
                m_manager.showPanelAnchored(); // a new batch would show it again
                after(3500, [this] {
                    grab(QStringLiteral("8-after-auto-hide.png"));
                    QApplication::quit();
                });
            });
        });
    }

private:
    MenuBarManager& m_manager;
    QString m_outDir;
    QStringList m_images;
    QMimeData m_mime;
};
} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    const QStringList args = QApplication::arguments();
    if (args.size() < 3) {
        qWarning("usage: brevona-ui-driver OUTPUT_DIR IMAGE...");
        return 2;
    }
    AppGroupDefaults::registerDefaults();
    MenuBarManager manager;
    Script script(manager, args.at(1), args.mid(2));
    script.run();
    return app.exec();
}
