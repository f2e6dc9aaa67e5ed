#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>

/**
 * A typed key-value store in a JSON file under the user's configuration folder.
 *
 * Two stores exist: the shared suite, read and written by the application and its companion
 * command-line tool, and the application's own standard store. Each `Defaults` object is a fresh
 * view of its file: it sees what other processes synchronised before it was opened, and `sync()`
 * writes its changes and picks up theirs. Every write re-reads the file under an inter-process
 * lock ("NAME.json.lock"), merges per key and replaces the file atomically; nothing is cached
 * between objects, so no process ever writes back a list it read before another one changed it.
 *
 * A file that is not a JSON object is moved aside to "NAME.json.damaged" (never deleted; an older
 * one is kept, the new one gets a numbered name), a warning is logged, and the store starts
 * afresh from its registered defaults, so every later open in every process behaves the same.
 *
 * Values keep their types: QString, qint64, double, bool, QVariantList (arrays) and QByteArray
 * (data). Registered defaults are read-only fallbacks held in this process only; they are never
 * written to the file.
 * @code
 * Defaults suite = Defaults::suite();
 * suite.set(QStringLiteral("maxFileSizeKB"), qint64(300));
 * suite.sync();
 * @endcode
 */
class Defaults final
{
public:
    static inline const QString kSuiteName = QStringLiteral("Q7LM2XK9RT.com.orvik.shared");
    static inline const QString kStandardName = QStringLiteral("com.orvik.app");

    /// The shared suite; the standard store when the suite's file cannot be read or replaced.
    static Defaults suite();
    /// The application's own store.
    static Defaults standard();
    /// A store in a named file of the configuration folder (tests use their own names).
    static Defaults named(const QString& name);
    /// The folder that holds the stores: "<XDG config>/orvik".
    static QString directory();

    Defaults(Defaults&&) noexcept;
    Defaults& operator=(Defaults&&) noexcept;
    ~Defaults();

    QString filePath() const { return m_path; }
    /// Whether this object opened the store it was asked for (false after a fallback).
    bool isRequestedStore() const { return m_isRequested; }

    /// Stored value, else the registered default, else an invalid QVariant.
    QVariant object(const QString& key) const;
    /// Whether the file holds a value (registered defaults do not count).
    bool hasStoredValue(const QString& key) const;
    QStringList storedKeys() const;

    /// Conversions follow the usual defaults-store rules: numbers and strings convert into each
    /// other, anything else reads as absent (nullopt) or zero.
    std::optional<QString> string(const QString& key) const;
    qint64 integer(const QString& key) const;
    double doubleValue(const QString& key) const;
    bool boolean(const QString& key) const;
    std::optional<QByteArray> data(const QString& key) const;
    /// An array whose every element is a string; any other value reads as absent.
    std::optional<QStringList> stringArray(const QString& key) const;

    void set(const QString& key, const QVariant& value);
    void remove(const QString& key);
    /// Writes pending changes and re-reads what other processes wrote; false on an I/O error.
    bool sync();
    /// Whether a change has been made but not yet written.
    bool hasPendingChanges() const { return !m_added.isEmpty() || !m_removed.isEmpty(); }

    /// Replaces this store's registered defaults (in this process only).
    void registerDefaults(const QVariantMap& defaults);
    QVariantMap registeredDefaults() const;

    /**
     * Reads, changes and writes one key while holding the store's inter-process lock, with the
     * file read afresh under it, so that concurrent appends and takes are never lost or repeated.
     * `change` receives the stored value (invalid when absent) and returns the new one (invalid
     * removes the key); it runs under the lock, so what it sees is exactly what it replaces.
     * Other pending changes of this object are written too. False when the lock cannot be taken
     * within 10 s or the file cannot be written; then nothing was changed.
     */
    bool update(const QString& key, const std::function<QVariant(const QVariant&)>& change);

    /// Normalises a value to the stored types (ints to qint64, string lists to variant lists).
    static QVariant normalised(const QVariant& value);

private:
    enum class Load
    {
        Read,
        Damaged,
        Unreadable
    };

    Defaults(QString path, bool isRequested);
    static Defaults open(const QString& name, bool fallBackToStandard);
    /// Reads the file as it is now; a missing or empty file reads as an empty store.
    static Load readFile(const QString& path, QVariantMap& values);
    /// Under the lock: the file's values, moving a damaged file aside first.
    static bool readLocked(const QString& path, QVariantMap& values);
    static bool moveAside(const QString& path);
    bool writeLocked(const QVariantMap& values);
    QVariantMap merged(const QVariantMap& base) const;

    QString m_path;
    bool m_isRequested = true;
    bool m_writable = true;
    QVariantMap m_stored;
    QVariantMap m_added;
    QSet<QString> m_removed;
};
