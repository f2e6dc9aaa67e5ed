#pragma once

#include "app/AlertPresenter.h"

/// Alerts as QMessageBox dialogs, raised and activated first so they are not lost behind
/// another application's windows; addresses through QDesktopServices.
class MessageBoxAlertPresenter final : public AlertPresenter
{
public:
    int runAlert(const Alert& alert) override;
    void openUrl(const QUrl& url) override;
};
