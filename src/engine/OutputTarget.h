#pragma once

#include <optional>

#include <QByteArray>
#include <QString>

/**
 * Where an output file goes, and the one safe way to put it there.
 *
 * The name is folder/base.ext, or base_2.ext, base_3.ext ... when something already exists under
 * the name. Bytes are written to a temporary file in the destination folder first and then linked
 * to the first free name without ever replacing an existing file, so a crash or a full disk
 * leaves no half-written output, and a file that appears meanwhile is never clobbered: its name
 * is simply skipped. Where the file system allows, the temporary file has no name at all until it
 * is linked into place, so even a kill -9 leaves nothing behind.
 * @code
 * const OutputTarget target(QStringLiteral("/photos"), QStringLiteral("a-web"), QStringLiteral("jpg"));
 * if (const auto written = target.write(bytes))
 *     qDebug() << "wrote" << *written; // "/photos/a-web.jpg", or "/photos/a-web_2.jpg" if taken
 * @endcode
 */
class OutputTarget final
{
public:
    OutputTarget(QString folder, QString baseName, QString extension);
    /// A target that only ever uses `path` itself (no numbered alternatives).
    static OutputTarget exactly(const QString& path);

    /// The path for attempt `n` (1: base.ext, n >= 2: base_n.ext).
    QString pathFor(int n) const;
    /// The first path at which nothing exists now.
    QString candidatePath() const;

    /**
     * Why a file named `name` cannot be created in `folder`, in the system's words ("Permission
     * denied", "File name too long", "No space left on device", ...); nothing when it can. Cheap
     * enough to call before encoding, so a job fails at once instead of after a full encode.
     */
    static std::optional<QString> checkWritable(const QString& folder, const QString& name);
    /// `checkWritable` for this target's first name; a problem is logged as "Write FAILED".
    std::optional<QString> checkWritable() const;

    /**
     * Writes `bytes` under the first free name and returns that path; nothing on failure (logged
     * as "Write FAILED path=... err=..." with the system's reason), in which case no file is left
     * behind.
     */
    std::optional<QString> write(const QByteArray& bytes) const;

    /**
     * Removes our own named temporary files (".brevona-XXXXXX.tmp", regular, ours, untouched for
     * `kLeftoverAge` seconds) from `folder`: what a kill -9 in the middle of a write leaves where
     * unnamed temporaries are not available. A named write calls it once per folder and process.
     */
    static void sweepLeftovers(const QString& folder);
    /// A temporary this old belongs to no running write (each is written and linked at once).
    static constexpr qint64 kLeftoverAge = 600;

private:
    enum class Placement
    {
        Placed,
        Taken,
        Failed
    };
    static Placement place(const QByteArray& temporary, const QByteArray& final, int* error);
    /// Links an unnamed temporary file into place; nothing when the file system cannot make one.
    std::optional<std::optional<QString>> writeUnnamed(const QByteArray& bytes) const;
    std::optional<QString> writeNamed(const QByteArray& bytes) const;

    QString m_folder;
    QString m_baseName;
    QString m_extension;
    bool m_numbered = true;
};
