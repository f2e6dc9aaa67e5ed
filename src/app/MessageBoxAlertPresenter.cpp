#include "app/MessageBoxAlertPresenter.h"

#include <QAbstractButton>
#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>

int MessageBoxAlertPresenter::runAlert(const Alert& alert)
{
    QMessageBox box;
    box.setIcon(QMessageBox::Information);
    box.setWindowTitle(QStringLiteral("Brevona"));
    box.setText(alert.message);
    box.setInformativeText(alert.informativeText);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);

    QList<QAbstractButton*> buttons;
    for (qsizetype i = 0; i < alert.buttons.size(); ++i) {
        // Roles only decide where the platform puts each button; the answer is its index.
        const QMessageBox::ButtonRole role = i == 0                          ? QMessageBox::AcceptRole
                                             : i == alert.buttons.size() - 1 ? QMessageBox::RejectRole
                                                                             : QMessageBox::ActionRole;
        QPushButton* button = box.addButton(alert.buttons.at(i), role);
        if (i == 0)
            box.setDefaultButton(button);
        buttons.append(button);
    }

    box.show();
    box.raise();
    box.activateWindow();
    box.exec();
    return static_cast<int>(buttons.indexOf(box.clickedButton()));
}

void MessageBoxAlertPresenter::openUrl(const QUrl& url)
{
    QDesktopServices::openUrl(url);
}
