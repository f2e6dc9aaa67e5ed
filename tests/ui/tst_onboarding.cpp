#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTest>

#include "ui/OnboardingStep.h"
#include "ui/OnboardingView.h"
#include "ui/OnboardingWindowController.h"

class TestOnboarding : public QObject
{
    Q_OBJECT

    static QWidget* shownWindow(OnboardingWindowController& controller)
    {
        controller.show();
        QWidget* window = controller.window();
        if (window && !QTest::qWaitForWindowExposed(window))
            qWarning("onboarding window was not exposed");
        return window;
    }

private slots:
    void windowIsFixedTitledAndClosable()
    {
        OnboardingWindowController controller;
        QVERIFY(!controller.window());
        QWidget* window = shownWindow(controller);
        QVERIFY(window);
        QVERIFY(window->isVisible());
        QCOMPARE(window->windowTitle(), QStringLiteral("Welcome to Brevona"));
        QCOMPARE(window->size(), QSize(400, 300));
        QCOMPARE(window->minimumSize(), QSize(400, 300));
        QCOMPARE(window->maximumSize(), QSize(400, 300));
        const Qt::WindowFlags flags = window->windowFlags();
        QVERIFY(flags.testFlag(Qt::WindowTitleHint));
        QVERIFY(flags.testFlag(Qt::WindowCloseButtonHint));
        QVERIFY(!flags.testFlag(Qt::WindowMinimizeButtonHint));
        QVERIFY(!flags.testFlag(Qt::WindowMaximizeButtonHint));
    }

    void stepsReadInOrder_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("number");
        QTest::addColumn<QString>("text");
        QTest::newRow("icon") << 0 << "1"
                              << QStringLiteral("Click the \u26A1 icon in the menu bar to open the panel");
        QTest::newRow("settings") << 1 << "2"
                                  << QStringLiteral("Choose output format and quality in Settings");
        QTest::newRow("drop") << 2 << "3" << QStringLiteral("Drag & drop images onto the panel");
    }

    void stepsReadInOrder()
    {
        QFETCH(int, index);
        QFETCH(QString, number);
        QFETCH(QString, text);
        OnboardingView view;
        const QList<OnboardingStep*> steps = view.findChildren<OnboardingStep*>();
        QCOMPARE(steps.size(), 3);
        OnboardingStep* step = steps.at(index);
        QCOMPARE(step->number(), number);
        QCOMPARE(step->text(), text);
        QCOMPARE(step->findChild<QLabel*>(QStringLiteral("badge"))->text(), number);
        QCOMPARE(step->findChild<QLabel*>(QStringLiteral("text"))->text(), text);
        QCOMPARE(step->findChild<QLabel*>(QStringLiteral("badge"))->size(), QSize(18, 18));
    }

    void viewShowsBoltTitleAndButton()
    {
        OnboardingView view;
        const QLabel* bolt = view.findChild<QLabel*>(QStringLiteral("bolt"));
        QVERIFY(bolt);
        const QImage image = bolt->pixmap().toImage();
        QVERIFY(!image.isNull());
        // The bolt is drawn in yellow: find an opaque pixel of that colour.
        bool yellow = false;
        for (int y = 0; y < image.height() && !yellow; ++y) {
            for (int x = 0; x < image.width() && !yellow; ++x) {
                const QColor c = image.pixelColor(x, y);
                yellow = c.alpha() == 255 && c.red() > 240 && c.green() > 190 && c.blue() < 40;
            }
        }
        QVERIFY(yellow);
        QCOMPARE(view.findChild<QLabel*>(QStringLiteral("title"))->text(),
                 QStringLiteral("Welcome to Brevona"));
        QCOMPARE(view.getStartedButton()->text(), QStringLiteral("Get Started"));
    }

    void closingKeys_data()
    {
        QTest::addColumn<int>("key");
        QTest::newRow("Return") << int(Qt::Key_Return);
        QTest::newRow("Enter") << int(Qt::Key_Enter);
    }

    void closingKeys()
    {
        QFETCH(int, key);
        OnboardingWindowController controller;
        QWidget* window = shownWindow(controller);
        QVERIFY(QTest::qWaitForWindowActive(window));
        QTest::keyClick(window, Qt::Key(key));
        QVERIFY(!window->isVisible());
        QCOMPARE(controller.window(), window); // kept for the next show
    }

    void showingAgainReusesTheWindowWhereItWas()
    {
        OnboardingWindowController controller;
        QWidget* first = shownWindow(controller);
        first->move(first->pos() + QPoint(37, 23));
        const QPoint moved = first->pos();
        first->close();
        QWidget* second = shownWindow(controller);
        QCOMPARE(second, first);
        QVERIFY(second->isVisible());
        QCOMPARE(second->pos(), moved);
        const QList<QWidget*> windows = QApplication::topLevelWidgets();
        QCOMPARE(
            std::count_if(windows.cbegin(), windows.cend(),
                          [](QWidget* w) { return w->objectName() == QLatin1String("onboardingWindow"); }),
            1);
    }
};

QTEST_MAIN(TestOnboarding)
#include "tst_onboarding.moc"
