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
        QWidget* window = shownWindow(controller);
        QVERIFY(window);
        QVERIFY(window->isVisible());
        QCOMPARE(window->windowTitle(), QStringLiteral("Welcome to Brevona"));
        QCOMPARE(window->minimumSize(), QSize(400, 300));
        QCOMPARE(window->maximumSize(), QSize(400, 300));
        const Qt::WindowFlags decorations = Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                                            Qt::WindowMinimizeButtonHint | Qt::WindowMaximizeButtonHint;
        QCOMPARE(int(window->windowFlags() & decorations),
                 int(Qt::WindowTitleHint | Qt::WindowCloseButtonHint));
    }

    void viewShowsBoltTitleStepsAndButton()
    {
        OnboardingView view;
        QStringList steps;
        for (const OnboardingStep* step : view.findChildren<OnboardingStep*>()) {
            steps << step->findChild<QLabel*>(QStringLiteral("badge"))->text() + u' ' +
                         step->findChild<QLabel*>(QStringLiteral("text"))->text();
        }
        QCOMPARE(steps, (QStringList{"1 Click the \u26A1 icon in the menu bar to open the panel",
                                     "2 Choose output format and quality in Settings",
                                     "3 Drag & drop images onto the panel"}));
        const QImage image = view.findChild<QLabel*>(QStringLiteral("bolt"))->pixmap().toImage();
        bool yellow = false; // the bolt is drawn in yellow
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor c = image.pixelColor(x, y);
                yellow = yellow || (c.alpha() == 255 && c.red() > 240 && c.green() > 190 && c.blue() < 40);
            }
        }
        QVERIFY(yellow);
        QCOMPARE(view.findChild<QLabel*>(QStringLiteral("title"))->text(),
                 QStringLiteral("Welcome to Brevona"));
        QCOMPARE(view.getStartedButton()->text(), QStringLiteral("Get Started"));
    }

    // Return or Enter closes the window; showing it again brings back the same window.
    void closingKeysAndShowingAgain_data()
    {
        QTest::addColumn<int>("key");
        QTest::newRow("Return") << int(Qt::Key_Return);
        QTest::newRow("Enter") << int(Qt::Key_Enter);
    }
    void closingKeysAndShowingAgain()
    {
        QFETCH(int, key);
        OnboardingWindowController controller;
        QWidget* first = shownWindow(controller);
        QVERIFY(QTest::qWaitForWindowActive(first));
        QTest::keyClick(first, Qt::Key(key));
        QVERIFY(!first->isVisible());
        QWidget* second = shownWindow(controller);
        QCOMPARE(second, first);
        QVERIFY(second->isVisible());
    }
};

QTEST_MAIN(TestOnboarding)
#include "tst_onboarding.moc"
