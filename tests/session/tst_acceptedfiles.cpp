#include <QMimeData>
#include <QTest>
#include <QUrl>

#include "session/AcceptedFiles.h"

class TestAcceptedFiles : public QObject
{
    Q_OBJECT

private slots:
    void filter_data()
    {
        QTest::addColumn<QStringList>("urls");
        QTest::addColumn<QStringList>("accepted");
        const auto f = [](const char* path) {
            return QUrl::fromLocalFile(QString::fromUtf8(path)).toString();
        };
        QTest::newRow("upper-case extension")
            << QStringList{f("/p/Photo.JPG")} << QStringList{"/p/Photo.JPG"};
        QTest::newRow("folder") << QStringList{f("/p/Holiday")} << QStringList{};
        QTest::newRow("folder with a trailing slash") << QStringList{"file:///p/Holiday/"} << QStringList{};
        QTest::newRow("folder named like an image")
            << QStringList{"file:///p/shots.png/"} << QStringList{"/p/shots.png/"};
        QTest::newRow("pdf and raw") << QStringList{f("/p/scan.pdf"), f("/p/IMG_1.CR2")}
                                     << QStringList{"/p/scan.pdf", "/p/IMG_1.CR2"};
        QTest::newRow("no extension") << QStringList{f("/p/photo")} << QStringList{};
        QTest::newRow("dot in folder name only") << QStringList{f("/p/v1.jpg.d/photo")} << QStringList{};
        QTest::newRow("duplicates and order kept")
            << QStringList{f("/p/b.webp"), f("/p/a.jpeg"), f("/p/b.webp")}
            << QStringList{"/p/b.webp", "/p/a.jpeg", "/p/b.webp"};
        QTest::newRow("not a member")
            << QStringList{f("/p/a.jxl"), f("/p/b.svg"), f("/p/c.jpe")} << QStringList{};
        QTest::newRow("web addresses kept by extension")
            << QStringList{f("/p/a.png"), "https://example.org/b.png?s=1", "https://example.org/page"}
            << QStringList{"/p/a.png", "https://example.org/b.png?s=1"};
        QTest::newRow("spaces and unicode")
            << QStringList{f("/p/Été 2024.HEIC")} << QStringList{"/p/Été 2024.HEIC"};
    }
    void filter()
    {
        QFETCH(QStringList, urls);
        QFETCH(QStringList, accepted);
        QMimeData mime;
        QList<QUrl> list;
        for (const QString& url : urls)
            list << QUrl(url);
        mime.setUrls(list);
        QCOMPARE(AcceptedFiles::acceptedFileURLs(&mime), accepted);
    }

    void noUrls()
    {
        QMimeData mime;
        mime.setText(QStringLiteral("/p/a.png"));
        QVERIFY(AcceptedFiles::acceptedFileURLs(&mime).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestAcceptedFiles)
#include "tst_acceptedfiles.moc"
