#include "ui/OnboardingView.h"

#include <QApplication>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>

#include "ui/OnboardingStep.h"
#include "ui/PaintKit.h"

namespace {

QLabel* boltLabel(QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setObjectName(QStringLiteral("bolt"));
    // The symbol at a 44 px font size: its artwork is as tall as the font's cap height and a bit.
    const QSizeF natural = PaintKit::symbolSize(QStringLiteral("bolt.fill"));
    const QSizeF size =
        natural.isEmpty() ? QSizeF(38, 44) : natural.scaled(QSizeF(44, 44), Qt::KeepAspectRatio);
    const qreal ratio = parent->devicePixelRatioF();
    QImage image = PaintKit::tintedSymbol(QStringLiteral("bolt.fill"), size, OnboardingView::kYellow, ratio);
    image.setDevicePixelRatio(ratio);
    label->setPixmap(QPixmap::fromImage(image));
    label->setAlignment(Qt::AlignCenter);
    return label;
}

} // namespace

OnboardingView::OnboardingView(QWidget* parent) : QWidget(parent)
{
    auto* stack = new QVBoxLayout(this);
    stack->setContentsMargins(18, 20, 18, 20);
    stack->setSpacing(14);

    stack->addWidget(boltLabel(this), 0, Qt::AlignHCenter);

    auto* title = new QLabel(tr("Welcome to Brevona"), this);
    title->setObjectName(QStringLiteral("title"));
    title->setFont(PaintKit::systemFont(17, QFont::Bold));
    title->setAlignment(Qt::AlignCenter);
    stack->addWidget(title, 0, Qt::AlignHCenter);

    auto* steps = new QVBoxLayout;
    steps->setSpacing(10);
    steps->addWidget(new OnboardingStep(QStringLiteral("1"),
                                        tr("Click the ⚡ icon in the menu bar to open the panel"), this));
    steps->addWidget(
        new OnboardingStep(QStringLiteral("2"), tr("Choose output format and quality in Settings"), this));
    steps->addWidget(new OnboardingStep(QStringLiteral("3"), tr("Drag & drop images onto the panel"), this));
    stack->addLayout(steps);
    stack->addStretch(1);

    m_getStarted = new QPushButton(tr("Get Started"), this);
    m_getStarted->setDefault(true);
    m_getStarted->setMinimumHeight(30);
    m_getStarted->setFont(PaintKit::systemFont(13));
    connect(m_getStarted, &QPushButton::clicked, this, [] {
        if (QWidget* key = QApplication::activeWindow())
            key->close();
    });
    stack->addWidget(m_getStarted, 0, Qt::AlignHCenter);

    // Return and Enter press the button anywhere in the window, as a dialog's default button.
    for (const QKeySequence& key : {QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)}) {
        auto* shortcut = new QShortcut(key, this);
        shortcut->setContext(Qt::WindowShortcut);
        connect(shortcut, &QShortcut::activated, m_getStarted, &QPushButton::click);
    }
}
