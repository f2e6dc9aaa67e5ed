#include <memory>

#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QUrl>

#include "IsolatedConfig.h"
#include "engine/AppGroupDefaults.h"
#include "session/CompressionState.h"
#include "ui/DropZonePanelController.h"
#include "ui/DropZoneView.h"

namespace {
constexpr int W = 280;
constexpr int H = 220;

QImage renderView(DropZoneView& view)
{
    QImage image(W, H, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    view.render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
    return image;
}

bool near(QRgb pixel, int r, int g, int b, int tolerance = 3)
{
    return qAbs(qRed(pixel) - r) <= tolerance && qAbs(qGreen(pixel) - g) <= tolerance &&
           qAbs(qBlue(pixel) - b) <= tolerance;
}
bool isAmber(QRgb pixel)
{
    return qRed(pixel) > 240 && qGreen(pixel) > 195 && qGreen(pixel) < 230 && qBlue(pixel) < 40;
}
/// Amber blended with the background, as on an antialiased edge.
bool isAmberTinted(QRgb pixel)
{
    return qRed(pixel) > 90 && qRed(pixel) - qBlue(pixel) > 70;
}

QMimeData* mimeWith(const QStringList& paths)
{
    auto* mime = new QMimeData;
    QList<QUrl> urls;
    for (const QString& path : paths)
        urls << QUrl::fromLocalFile(path);
    mime->setUrls(urls);
    return mime;
}
} // namespace

class TestDropZoneView : public QObject
{
    Q_OBJECT

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

    void settingsSummary_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<bool>("limitEdge");
        QTest::addColumn<bool>("limitSize");
        QTest::addColumn<int>("maxKB");
        QTest::addColumn<QString>("summary");
        QTest::newRow("all parts") << int(OutputFormat::Webp) << true << true << 1024
                                   << "WEBP · ≤2048px · ≤1 MB";
        QTest::newRow("just under a megabyte")
            << int(OutputFormat::Jpeg) << false << true << 1023 << "JPG · ≤1023 KB";
        QTest::newRow("one and a half rounds down")
            << int(OutputFormat::Png) << false << true << 1536 << "PNG · ≤1 MB";
        QTest::newRow("2047") << int(OutputFormat::Avif) << false << true << 2047 << "AVIF · ≤1 MB";
        QTest::newRow("2048") << int(OutputFormat::Avif) << false << true << 2048 << "AVIF · ≤2 MB";
        QTest::newRow("format only") << int(OutputFormat::Jpeg) << false << false << 500 << "JPG";
        QTest::newRow("keep format") << int(OutputFormat::Original) << true << false << 500
                                     << "original · ≤2048px";
    }
    void settingsSummary()
    {
        QFETCH(int, format);
        QFETCH(bool, limitEdge);
        QFETCH(bool, limitSize);
        QFETCH(int, maxKB);
        QFETCH(QString, summary);
        CompressionSettings settings;
        settings.outputFormat = OutputFormat(format);
        settings.limitLongestEdge = limitEdge;
        settings.longestEdgePx = 2048;
        settings.limitOutputFileSize = limitSize;
        settings.maxFileSizeKB = maxKB;
        QCOMPARE(DropZoneView::settingsSummary(settings), summary);
    }

    // The header line follows the stored settings at every draw.
    void headerReadsTheSuite()
    {
        Defaults suite = AppGroupDefaults::open();
        suite.set(AppGroupDefaults::Keys::outputFormat, OutputFormats::rawValue(OutputFormat::Webp));
        suite.set(AppGroupDefaults::Keys::limitLongestEdge, true);
        suite.set(AppGroupDefaults::Keys::longestEdgePx, qint64(1600));
        suite.sync();
        QCOMPARE(m_view->drawnTexts().mid(0, 2), (QStringList{"Brevona", "WEBP · ≤1600px"}));
    }

    void bodies_data()
    {
        QTest::addColumn<int>("total");
        QTest::addColumn<int>("current");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("message"); // empty: still running
        QTest::addColumn<QStringList>("body");
        QTest::newRow("one image") << 1 << 0 << "a.jpg"
                                   << "" << QStringList{"Optimizing 1 image...", "a.jpg"};
        QTest::newRow("no images") << 0 << 0 << ""
                                   << "" << QStringList{"Optimizing 0 images..."};
        QTest::newRow("two images") << 2 << 1 << "b.png"
                                    << "" << QStringList{"Optimizing 2 images...", "b.png"};
        QTest::newRow("two lines") << 4 << 4 << ""
                                   << "4 images optimized · 1.2 MB saved"
                                   << QStringList{"4 images optimized", "1.2 MB saved"};
        QTest::newRow("no separator") << 1 << 1 << ""
                                      << "Done" << QStringList{"Done"};
        QTest::newRow("three pieces")
            << 5 << 5 << ""
            << "3/5 optimized · 2 failed · extra" << QStringList{"3/5 optimized", "2 failed"};
        QTest::newRow("middle dot without spaces") << 1 << 1 << ""
                                                   << "a·b" << QStringList{"a·b"};
    }
    void bodies()
    {
        QFETCH(int, total);
        QFETCH(int, current);
        QFETCH(QString, file);
        QFETCH(QString, message);
        QFETCH(QStringList, body);
        m_state->start(total);
        m_state->update(current, file);
        if (!message.isEmpty())
            m_state->complete(message);
        QCOMPARE(m_view->drawnTexts().mid(2), body);
    }

    void idlePixels()
    {
        const QImage image = renderView(*m_view);
        QCOMPARE(m_view->drawnTexts().mid(2),
                 (QStringList{"Drop images here", "JPEG · PNG · HEIC · WebP · AVIF · PDF · RAW"}));
        QCOMPARE(qAlpha(image.pixel(0, 0)), 0); // rounded corner
        QVERIFY(near(image.pixel(200, 40), 20, 20, 20));
        // Hairlines under the header and over the buttons, each one pixel high.
        QVERIFY(near(image.pixel(200, 51), 39, 39, 39));
        QVERIFY(near(image.pixel(200, 50), 20, 20, 20));
        QVERIFY(near(image.pixel(200, 52), 20, 20, 20));
        QVERIFY(near(image.pixel(200, H - 33), 39, 39, 39));
        QVERIFY(near(image.pixel(200, H - 34), 20, 20, 20));
        QVERIFY(near(image.pixel(200, H - 32), 20, 20, 20));
        // The prompt area (8, 60)-(272, 180): a faint white fill inside, background outside.
        QVERIFY(near(image.pixel(20, 70), 29, 29, 29));
        QVERIFY(near(image.pixel(4, 70), 20, 20, 20));
        QVERIFY(near(image.pixel(20, 184), 20, 20, 20));
        QVERIFY(!isAmber(image.pixel(140, 60)));
        // The bolt in the header is amber somewhere in (14, 14, 12, 14).
        bool boltSeen = false;
        for (int y = 14; y < 28; ++y)
            for (int x = 14; x < 26; ++x)
                boltSeen = boltSeen || isAmber(image.pixel(x, y));
        QVERIFY(boltSeen);
    }

    void targetedPixels()
    {
        std::unique_ptr<QMimeData> mime(mimeWith({"/p/a.JPG"}));
        QDragEnterEvent enter(QPoint(140, 110), Qt::CopyAction | Qt::MoveAction, mime.get(), Qt::LeftButton,
                              Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &enter);
        QVERIFY(m_view->isTargeted());
        const QImage image = renderView(*m_view);
        QVERIFY(near(image.pixel(20, 70), 43, 39, 19));
        // The dashed amber outline along the top edge: strokes and gaps.
        int stroke = 0;
        int gap = 0;
        for (int x = 30; x < 250; ++x)
            (isAmberTinted(image.pixel(x, 60)) ? stroke : gap)++;
        QVERIFY2(stroke > 60 && gap > 40, qPrintable(QStringLiteral("%1 %2").arg(stroke).arg(gap)));
        QCOMPARE(m_view->drawnTexts().at(2), QStringLiteral("Release to optimize"));
    }

    void progressBarPixels_data()
    {
        QTest::addColumn<int>("current");
        QTest::addColumn<int>("total");
        QTest::addColumn<int>("fillEnd"); // first pixel column past the fill
        QTest::newRow("half") << 2 << 4 << 16 + 124;
        QTest::newRow("none") << 0 << 4 << 16;
        QTest::newRow("all") << 4 << 4 << 16 + 248;
        QTest::newRow("past the end") << 5 << 4 << W; // not clamped: runs past the track
    }
    void progressBarPixels()
    {
        QFETCH(int, current);
        QFETCH(int, total);
        QFETCH(int, fillEnd);
        m_state->start(total);
        m_state->update(current, QStringLiteral("x.png"));
        const QImage image = renderView(*m_view);
        const int row = 95; // the track is rows 94 to 97
        for (int x = 18; x < W - 2; ++x) {
            if (x < fillEnd - 2)
                QVERIFY2(isAmber(image.pixel(x, row)), qPrintable(QString::number(x)));
            else if (x > fillEnd + 1)
                QVERIFY2(!isAmber(image.pixel(x, row)), qPrintable(QString::number(x)));
        }
        QVERIFY(!isAmber(image.pixel(140, 93)));
        QVERIFY(!isAmber(image.pixel(20, 99)));
        if (fillEnd < 262)
            QVERIFY(near(image.pixel(262, row), 43, 43, 43, 4)); // the track: white at 0.1
    }

    void resultPixels()
    {
        m_state->start(1);
        m_state->complete(QStringLiteral("1 image optimized · 40 KB saved"));
        const QImage image = renderView(*m_view);
        // The disc (124, 86, 32, 32): amber at 0.15 over the background; outside it, background.
        QVERIFY(near(image.pixel(127, 95), 55, 49, 19));
        QVERIFY(near(image.pixel(140, 80), 20, 20, 20));
        QVERIFY(near(image.pixel(120, 102), 20, 20, 20));
        QVERIFY(isAmber(image.pixel(138, 108)) || isAmber(image.pixel(137, 107)) ||
                isAmber(image.pixel(139, 107)));
    }

    void drops_data()
    {
        QTest::addColumn<QStringList>("paths");
        QTest::addColumn<QStringList>("handedOn");
        QTest::newRow("image and text") << QStringList{"/p/a.JPG", "/p/notes.txt"} << QStringList{"/p/a.JPG"};
        QTest::newRow("text only") << QStringList{"/p/notes.txt"} << QStringList{};
        QTest::newRow("no extension") << QStringList{"/p/photo"} << QStringList{};
        QTest::newRow("pdf and raw") << QStringList{"/p/scan.pdf", "/p/IMG_1.CR2"}
                                     << QStringList{"/p/scan.pdf", "/p/IMG_1.CR2"};
    }
    void drops()
    {
        QFETCH(QStringList, paths);
        QFETCH(QStringList, handedOn);
        QList<QStringList> received;
        m_view->setOnFiles([&](const QStringList& files) { received << files; });
        std::unique_ptr<QMimeData> mime(mimeWith(paths));
        const bool acceptable = !handedOn.isEmpty();

        QDragEnterEvent enter(QPoint(140, 110), Qt::CopyAction | Qt::MoveAction, mime.get(), Qt::LeftButton,
                              Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &enter);
        QCOMPARE(enter.isAccepted(), acceptable);
        QCOMPARE(m_view->isTargeted(), acceptable);
        if (acceptable)
            QCOMPARE(enter.dropAction(), Qt::CopyAction);

        QDragMoveEvent move(QPoint(150, 120), Qt::CopyAction | Qt::MoveAction, mime.get(), Qt::LeftButton,
                            Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &move);
        QCOMPARE(move.isAccepted(), acceptable);
        QCOMPARE(m_view->isTargeted(), acceptable);

        QDropEvent drop(QPointF(150, 120), Qt::CopyAction | Qt::MoveAction, mime.get(), Qt::LeftButton,
                        Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &drop);
        QCOMPARE(drop.isAccepted(), acceptable);
        QVERIFY(!m_view->isTargeted());
        QVERIFY(received.isEmpty()); // handed on later, never inside the drop
        QCoreApplication::processEvents();
        QCOMPARE(received, acceptable ? QList<QStringList>{handedOn} : QList<QStringList>{});
    }

    void dragOverAFinishedBatch()
    {
        m_state->start(2);
        m_state->complete(QStringLiteral("2 images optimized · 1.2 MB saved"));
        QCOMPARE(m_view->body(), DropZoneView::Body::Result);
        std::unique_ptr<QMimeData> mime(mimeWith({"/p/a.png"}));
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &enter);
        QCOMPARE(m_view->body(), DropZoneView::Body::DropPrompt);
        QCOMPARE(m_view->drawnTexts().at(2), QStringLiteral("Release to optimize"));
        QDragLeaveEvent leave;
        QApplication::sendEvent(m_view.get(), &leave);
        QVERIFY(!m_view->isTargeted());
        QCOMPARE(m_view->body(), DropZoneView::Body::Result);
    }

    // While a batch runs the progress body wins, but the drop is still taken.
    void dragDuringABatch()
    {
        m_state->start(3);
        QStringList received;
        m_view->setOnFiles([&](const QStringList& files) { received = files; });
        const QStringList before = m_view->drawnTexts();
        std::unique_ptr<QMimeData> mime(mimeWith({"/p/a.png"}));
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &enter);
        QVERIFY(enter.isAccepted());
        QCOMPARE(m_view->drawnTexts(), before);
        QCOMPARE(renderView(*m_view).pixel(20, 70), [&] {
            QDragLeaveEvent leave;
            QApplication::sendEvent(m_view.get(), &leave);
            return renderView(*m_view).pixel(20, 70);
        }());
        QDragEnterEvent again(QPoint(10, 10), Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &again);
        QDropEvent drop(QPointF(10, 10), Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_view.get(), &drop);
        QVERIFY(drop.isAccepted());
        QTRY_COMPARE(received, QStringList{"/p/a.png"});
    }

    void buttons()
    {
        int settings = 0;
        int quit = 0;
        m_view->setOnSettings([&] { ++settings; });
        m_view->setOnQuit([&] { ++quit; });
        m_view->show(); // lays out the buttons at the view's size
        QCOMPARE(m_view->settingsButton()->text(), QStringLiteral("Settings..."));
        QCOMPARE(m_view->quitButton()->text(), QStringLiteral("Quit"));
        QCOMPARE(m_view->settingsButton()->geometry(), QRect(8, H - 32, 132, 32));
        QCOMPARE(m_view->quitButton()->geometry(), QRect(140, H - 32, 132, 32));
        m_view->settingsButton()->click();
        QCOMPARE(settings, 1);
        QCOMPARE(quit, 0);
        m_view->quitButton()->click();
        QCOMPARE(quit, 1);
    }

    // Opening the panel after a finished batch clears the state before it appears.
    void showResetsAFinishedBatch()
    {
        auto& controller = DropZonePanelController::shared();
        controller.setup(m_state.get(), {}, {}, {});
        m_state->start(2);
        m_state->update(2, QStringLiteral("b.png"));
        m_state->complete(QStringLiteral("Done"));
        bool visibleAtReset = true;
        connect(m_state.get(), &CompressionState::totalChanged, this,
                [&] { visibleAtReset = controller.panel()->isVisible(); });
        controller.show(QRect(300, 0, 22, 22));
        QVERIFY(!visibleAtReset);
        QVERIFY(controller.isVisible());
        QVERIFY(!m_state->isComplete());
        QCOMPARE(m_state->total(), 0);
        QCOMPARE(m_state->completionMessage(), QString());
        QCOMPARE(controller.panel()->dropZoneView()->body(), DropZoneView::Body::DropPrompt);

        controller.toggle(QRect(300, 0, 22, 22));
        QVERIFY(!controller.isVisible());
        controller.toggle(QRect(300, 0, 22, 22));
        QVERIFY(controller.isVisible());
        controller.hidePanel();
        QVERIFY(!controller.isVisible());
    }

    void runningStateIsNotResetByShow()
    {
        auto& controller = DropZonePanelController::shared();
        controller.setup(m_state.get(), {}, {}, {});
        m_state->start(2);
        m_state->update(1, QStringLiteral("a.png"));
        controller.show(QRect());
        QVERIFY(m_state->isRunning());
        QCOMPARE(m_state->current(), 1);
    }

private:
    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<CompressionState> m_state;
    std::unique_ptr<DropZoneView> m_view;
};

QTEST_MAIN(TestDropZoneView)
#include "tst_dropzoneview.moc"
