#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

/**
 * Where the update checker's questions reach the user: modal alerts and opening an address in
 * the browser. The application shows real message boxes; tests record what would be shown.
 */
class AlertPresenter
{
public:
    struct Alert
    {
        QString message;
        QString informativeText;
        /// In the order they are added; the first is the default button.
        QStringList buttons;
    };

    virtual ~AlertPresenter() = default;

    /// Brings the application to the front, runs the alert modally and returns the index of the
    /// button pressed (-1 when it was dismissed otherwise).
    virtual int runAlert(const Alert& alert) = 0;
    /// Hands an http or https address to the default browser.
    virtual void openUrl(const QUrl& url) = 0;
};
