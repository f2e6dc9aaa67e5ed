#pragma once

#include <QStringList>

class QTextStream;

/**
 * `brevona-cli send FILE...`: queues files for the running application.
 *
 * Each argument becomes an absolute path (relative ones against the current folder; nothing is
 * checked for existence, the application reports unusable files itself) and the list is appended
 * to "pendingFiles" in the shared suite under the store's update lock, so that several senders
 * running at once lose nothing. The application picks the list up within half a second.
 * @code
 * QTextStream err(stderr);
 * return SendCommand::run({"photo.jpg", "/tmp/scan.pdf"}, err);
 * @endcode
 */
class SendCommand final
{
public:
    /// Exit codes: 0 queued, 1 the suite could not be written, 2 usage error.
    static int run(const QStringList& files, QTextStream& err);

    /// The paths as they are queued: absolute, in the given order.
    static QStringList absolutePaths(const QStringList& files);

    /// The new value of the key: string entries of a stored list, then `paths`.
    static QVariant appended(const QVariant& stored, const QStringList& paths);
};
