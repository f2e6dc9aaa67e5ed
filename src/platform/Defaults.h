#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

class QSettings;

/**
 * A typed key-value store in a JSON file under the user's configuration folder.
 *
 * Two stores exist: the shared suite, read and written by the application and its companion
 * command-line tool, and the application's own standard store. Each `Defaults` object is a fresh
 * view of its file: it sees what other processes synchronised before it was opened, and `sync()`
 * writes its changes and picks up theirs (QSettings merges per key under a file lock).
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

    /// The shared suite; the standard store when the suite's file cannot be opened.
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

    /// Replaces this store's registered defaults (in this process only).
    void registerDefaults(const QVariantMap& defaults);
    QVariantMap registeredDefaults() const;

    /**
     * Reads, changes and writes one key while holding a lock that every process updating through
     * this call respects, so that concurrent appends are not lost. `change` receives the stored
     * value (invalid when absent) and returns the new one (invalid removes the key).
     */
    bool update(const QString& key, const std::function<QVariant(const QVariant&)>& change);

    /// Normalises a value to the stored types (ints to qint64, string lists to variant lists).
    static QVariant normalised(const QVariant& value);

private:
    Defaults(QString path, bool isRequested);
    static Defaults open(const QString& name, bool fallBackToStandard);

    QString m_path;
    bool m_isRequested = true;
    std::unique_ptr<QSettings> m_settings;
};
