#pragma once

#include <QStringList>
#include <QVariant>

#include "cli/CliCommand.h"

/**
 * `send FILE...`: queues files for the running application.
 *
 * Each argument becomes an absolute path (relative ones against the current folder; nothing is
 * checked for existence, the application reports unusable files itself) and the list is appended
 * to "pendingFiles" in the shared suite under the store's update lock, so that several senders
 * running at once lose nothing. The application picks the list up within half a second; when
 * none runs and there is a display, one is started (AppLauncher). Names that are not UTF-8 are
 * refused, the others still sent.
 */
class SendCommand final : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("send"); }
    QString synopsis() const override { return QStringLiteral("send [--] FILE..."); }
    QString help() const override;
    /// Success when queued (and the application runs, or cannot without a display), Failure when a
    /// name was refused or the suite cannot be written, UsageError without files.
    int run(const QStringList& arguments) override;

    /// The paths as they are queued: absolute, in the given order.
    static QStringList absolutePaths(const QStringList& files);

    /// The new value of the key: the string entries of a stored list, then `paths`.
    static QVariant appended(const QVariant& stored, const QStringList& paths);
};
