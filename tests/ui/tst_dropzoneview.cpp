#include <memory>

#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QUrl>

#include "IsolatedConfig.h"
#include "PaintRecorder.h"
#include "engine/AppGroupDefaults.h"
#include "session/CompressionState.h"
#include "ui/DropZonePanelController.h"
#include "ui/DropZoneView.h"

namespace {
constexpr int W = 280;
constexpr int H = 220;
using Keys = AppGroupDefaults::Keys;
const QString kFormats = QStringLiteral("JPEG · PNG · HEIC · WebP · AVIF · PDF · RAW");
} // namespace

class TestDropZoneView : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<CompressionState> m_state;
    std::unique_ptr<DropZoneView> m_view;
    QMimeData m_mime;

    // Sends a drag of `paths` (enter, then `then`: "move", "leave" or "drop"); whether it was taken.
    bool drag(const QStringList& paths, const QString& then = {})
    {
        QList<QUrl> urls;
        for (const QString& path : paths)
            urls << QUrl::fromLocalFile(path);
        m_mime.setUrls(urls);
        const auto actions = Qt::CopyAction | Qt::MoveAction;
        QDragEnterEvent enter(QPoint(140, 110), actions, &m_mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &enter);
        if (enter.isAccepted() && enter.dropAction() != Qt::CopyAction)
            return false;
        QDragMoveEvent move(QPoint(150, 120), actions, &m_mime, Qt::LeftButton, Qt::NoModifier);
        QDragLeaveEvent leave;
        QDropEvent drop(QPointF(150, 120), actions, &m_mime, Qt::LeftButton, Qt::NoModifier);
        QEvent* next = then == "move"    ? static_cast<QEvent*>(&move)
                       : then == "leave" ? static_cast<QEvent*>(&leave)
                       : then == "drop"  ? static_cast<QEvent*>(&drop)
                                         : nullptr;
        if (next)
            QApplication::sendEvent(m_view.get(), next);
        return enter.isAccepted() && (!next || next == &leave || next->isAccepted());
    }

    // The batch a row describes: total < 0 is idle; a message completes it.
    void runBatch(int total, int current, const QString& file, const QString& message)
    {
        if (total < 0)
            return;
        m_state->start(total);
        m_state->update(current, file);
        if (!message.isEmpty())
            m_state->complete(message);
    }

private slots:
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
        AppGroupDefaults::registerDefaults();
        m_state = std::make_unique<CompressionState>();
        m_view = std::make_unique<DropZoneView>();
        m_view->resize(W, H);
        m_view->setCompressionState(m_state.get());
    }
    void cleanup()
    {
        DropZonePanelController::shared().teardown();
        m_view.reset();
        m_state.reset();
        m_config.reset();
    }

    // The header line is read from the suite at every paint.
    void header_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<bool>("limitEdge");
        QTest::addColumn<bool>("limitSize");
        QTest::addColumn<int>("maxKB");
        QTest::addColumn<QString>("summary");
        QTest::newRow("all parts") << "webp" << true << true << 1024 << "WEBP · ≤2048px · ≤1 MB";
        QTest::newRow("just under a megabyte") << "jpeg" << false << true << 1023 << "JPG · ≤1023 KB";
        QTest::newRow("one and a half rounds down") << "png" << false << true << 1536 << "PNG · ≤1 MB";
        QTest::newRow("format only") << "jpeg" << false << false << 500 << "JPG";
        QTest::newRow("keep format") << "original" << true << false << 500 << "original · ≤2048px";
    }
    void header()
    {
        QFETCH(QString, format);
        QFETCH(bool, limitEdge);
        QFETCH(bool, limitSize);
        QFETCH(int, maxKB);
        QFETCH(QString, summary);
        IsolatedConfig::store(Keys::outputFormat, format);
        IsolatedConfig::store(Keys::limitLongestEdge, limitEdge);
        IsolatedConfig::store(Keys::limitOutputFileSize, limitSize);
        IsolatedConfig::store(Keys::maxFileSizeKB, qint64(maxKB));
        QCOMPARE(PaintRecorder::texts(*m_view).mid(0, 2), (QStringList{"Brevona", summary}));
    }

    // The texts painted between the header and the buttons.
    void body_data()
    {
        QTest::addColumn<int>("total");
        QTest::addColumn<int>("current");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("message"); // empty: still running
        QTest::addColumn<QString>("drag");    // of an image: "" none, "enter", "leave" (enter, leave)
        QTest::addColumn<QStringList>("body");
        const auto row = [](const char* name, int total, int current, const char* file, const char* message,
                            const char* drag, const QStringList& body) {
            QTest::newRow(name) << total << current << QString(file) << QString(message) << QString(drag)
                                << body;
        };
        const QStringList prompt{"Drop images here", kFormats};
        const QStringList release{"Release to optimize", kFormats};
        const char* done = "4 images optimized · 1.2 MB saved";
        const QStringList result{"4 images optimized", "1.2 MB saved"};
        row("idle", -1, 0, "", "", "", prompt);
        row("idle, dragged over", -1, 0, "", "", "enter", release);
        row("one image", 1, 0, "a.jpg", "", "", {"Optimizing 1 image...", "a.jpg"});
        row("no images", 0, 0, "", "", "", {"Optimizing 0 images..."});
        row("two images", 2, 1, "b.png", "", "", {"Optimizing 2 images...", "b.png"});
        row("running, dragged over", 2, 1, "b.png", "", "enter", {"Optimizing 2 images...", "b.png"});
        row("two lines", 4, 4, "", done, "", result);
        row("finished, dragged over", 4, 4, "", done, "enter", release);
        row("finished, drag left", 4, 4, "", done, "leave", result);
        row("no separator", 1, 1, "", "Done", "", {"Done"});
        row("three pieces", 5, 5, "", "3/5 optimized · 2 failed · extra", "", {"3/5 optimized", "2 failed"});
        row("middle dot without spaces", 1, 1, "", "a·b", "", {"a·b"});
    }
    void body()
    {
        QFETCH(int, total);
        QFETCH(int, current);
        QFETCH(QString, file);
        QFETCH(QString, message);
        QFETCH(QString, drag);
        QFETCH(QStringList, body);
        runBatch(total, current, file, message);
        if (!drag.isEmpty())
            QVERIFY(this->drag({"/p/a.JPG"}, drag == "leave" ? "leave" : ""));
        QCOMPARE(PaintRecorder::texts(*m_view),
                 (QStringList{"Brevona", "JPG"} + body + QStringList{"Settings...", "Quit"}));
        if (body.first() == QLatin1String("Release to optimize")) // in the accent colour
            QCOMPARE(PaintRecorder::lines(*m_view).at(2).color, QColor::fromRgbF(1.0f, 0.84f, 0.04f));
    }

    // Whether the card's non-text parts are painted in the accent colour over `area`: "all",
    // "none" or "some" of its pixels (an antialiased dash counts).
    void accentPixels_data()
    {
        QTest::addColumn<int>("total");   // < 0: idle
        QTest::addColumn<int>("current"); // equal to total: finished
        QTest::addColumn<bool>("dragged");
        QTest::addColumn<QRect>("area");
        QTest::addColumn<QString>("expect");
        QTest::newRow("bolt in the header") << -1 << 0 << false << QRect(14, 14, 12, 14) << "some";
        QTest::newRow("grey outline") << -1 << 0 << false << QRect(30, 60, 220, 1) << "none";
        QTest::newRow("dashed outline while targeted") << -1 << 0 << true << QRect(30, 60, 220, 1) << "some";
        QTest::newRow("half: the fill") << 4 << 2 << false << QRect(18, 95, 119, 1) << "all";
        QTest::newRow("half: the track beyond") << 4 << 2 << false << QRect(144, 95, 118, 1) << "none";
        QTest::newRow("the checkmark on its disc") << 1 << 1 << false << QRect(124, 86, 32, 32) << "some";
    }
    void accentPixels()
    {
        QFETCH(int, total);
        QFETCH(int, current);
        QFETCH(bool, dragged);
        QFETCH(QRect, area);
        QFETCH(QString, expect);
        runBatch(total, current, QStringLiteral("x.png"),
                 total == current ? QStringLiteral("1 image optimized · 4 KB saved") : QString());
        if (dragged)
            QVERIFY(drag({"/p/a.png"}));
        QImage image(W, H, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        m_view->render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
        int tinted = 0;
        for (int y = area.top(); y <= area.bottom(); ++y) {
            for (int x = area.left(); x <= area.right(); ++x) {
                const QRgb pixel = image.pixel(x, y);
                tinted += qRed(pixel) > 90 && qRed(pixel) - qBlue(pixel) > 70;
            }
        }
        const int all = area.width() * area.height();
        QCOMPARE(QString(tinted == all ? "all" : tinted == 0 ? "none" : "some"), expect);
    }

    void drops_data()
    {
        QTest::addColumn<QStringList>("paths");
        QTest::addColumn<bool>("running");
        QTest::addColumn<QStringList>("handedOn");
        QTest::newRow("image and text")
            << QStringList{"/p/a.JPG", "/p/notes.txt"} << false << QStringList{"/p/a.JPG"};
        QTest::newRow("text only") << QStringList{"/p/notes.txt"} << false << QStringList{};
        QTest::newRow("during a batch") << QStringList{"/p/a.png"} << true << QStringList{"/p/a.png"};
    }
    void drops()
    {
        QFETCH(QStringList, paths);
        QFETCH(bool, running);
        QFETCH(QStringList, handedOn);
        if (running)
            m_state->start(3);
        QList<QStringList> received;
        m_view->setOnFiles([&](const QStringList& files) { received << files; });
        const bool acceptable = !handedOn.isEmpty();
        QCOMPARE(drag(paths, "move"), acceptable);
        QCOMPARE(m_view->isTargeted(), acceptable);
        QCOMPARE(drag(paths, "drop"), acceptable);
        QVERIFY(!m_view->isTargeted());
        QVERIFY(received.isEmpty()); // handed on later, never inside the drop
        QCoreApplication::processEvents();
        QCOMPARE(received, acceptable ? QList<QStringList>{handedOn} : QList<QStringList>{});
    }

    // The settings button is checked through the tray manager, which wires it.
    void quitButton()
    {
        bool quit = false;
        m_view->setOnQuit([&] { quit = true; });
        m_view->quitButton()->click();
        QVERIFY(quit);
    }

    // Opening the panel after a finished batch clears the state before it appears; a running
    // batch is left alone.
    void showResets_data()
    {
        QTest::addColumn<bool>("finished");
        QTest::newRow("finished") << true;
        QTest::newRow("running") << false;
    }
    void showResets()
    {
        QFETCH(bool, finished);
        auto& controller = DropZonePanelController::shared();
        controller.setup(m_state.get(), {}, {}, {});
        QCOMPARE(controller.redrawTimer()->interval(), DropZonePanelController::kRedrawIntervalMs);
        QCOMPARE(DropZonePanelController::kRedrawIntervalMs, 100);
        QVERIFY(controller.redrawTimer()->isActive());
        m_state->start(2);
        m_state->update(1, QStringLiteral("b.png"));
        if (finished)
            m_state->complete(QStringLiteral("Done"));
        bool visibleAtReset = false;
        connect(m_state.get(), &CompressionState::totalChanged, this,
                [&] { visibleAtReset = controller.panel()->isVisible(); });
        controller.show(QRect(300, 0, 22, 22));
        QVERIFY(controller.isVisible());
        QVERIFY(!visibleAtReset);
        QCOMPARE(m_state->total(), finished ? 0 : 2);
        QCOMPARE(m_state->current(), finished ? 0 : 1);
        QCOMPARE(PaintRecorder::texts(*controller.panel()->dropZoneView()).at(2),
                 finished ? "Drop images here" : "Optimizing 2 images...");
    }
};

QTEST_MAIN(TestDropZoneView)
#include "tst_dropzoneview.moc"
