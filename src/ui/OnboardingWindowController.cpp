#include "ui/OnboardingWindowController.h"

#include <QGuiApplication>
#include <QScreen>
#include <QStyle>
#include <QVBoxLayout>

#include "ui/OnboardingView.h"

OnboardingWindowController::OnboardingWindowController(QObject* parent) : QObject(parent) {}

OnboardingWindowController::~OnboardingWindowController()
{
    delete m_window;
}

OnboardingWindowController& OnboardingWindowController::shared()
{
    static auto* instance = new OnboardingWindowController;
    return *instance;
}

void OnboardingWindowController::show()
{
    if (!m_window) {
        auto* window = new QWidget(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                                Qt::WindowCloseButtonHint);
        window->setObjectName(QStringLiteral("onboardingWindow"));
        window->setWindowTitle(tr("Welcome to Brevona"));
        auto* layout = new QVBoxLayout(window);
        layout->setContentsMargins(0, 0, 0, 0);
        auto* view = new OnboardingView(window);
        view->setFixedSize(kContentSize);
        layout->addWidget(view);
        window->setFixedSize(kContentSize);
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            window->setGeometry(QStyle::alignedRect(Qt::LeftToRight, Qt::AlignCenter, kContentSize,
                                                    screen->availableGeometry()));
        m_window = window;
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}
