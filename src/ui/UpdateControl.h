#pragma once

#include <QObject>

/**
 * What the settings window needs from the update checker: whether a manual check is running and
 * a way to start one. The application layer provides the implementation, so the window does not
 * depend on networking.
 */
class UpdateControl : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    ~UpdateControl() override = default;

    /// True from the start to the end of a manual check, its alert included.
    virtual bool isChecking() const = 0;
    /// Starts a manual check, which always answers the user.
    virtual void checkForUpdates() = 0;

signals:
    void isCheckingChanged(bool checking);
};
