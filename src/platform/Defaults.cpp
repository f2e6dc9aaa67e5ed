#include "platform/Defaults.h"

#include <cmath>
#include <limits>
#include <mutex>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLockFile>
#include <QSaveFile>
#include <QStandardPaths>

#include "platform/JsonSettingsFormat.h"

namespace {

std::mutex& registryMutex()
{
    static std::mutex m;
    return m;
}

QHash<QString, QVariantMap>& registry()
{
    static QHash<QString, QVariantMap> map;
    return map;
}

bool isNumber(const QVariant& v)
{
    switch (v.metaType().id()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

qint64 toInt64(double d)
{
    if (std::isnan(d))
        return 0;
    if (d >= 9.2233720368547758e18)
        return std::numeric_limits<qint64>::max();
    if (d <= -9.2233720368547758e18)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(d);
}

// Leading number of a string, as a defaults store reads "12px" or " 3.5".
double leadingNumber(const QString& s)
{
    const QString t = s.trimmed();
    qsizetype end = 0;
    if (end < t.size() && (t[end] == u'+' || t[end] == u'-'))
        ++end;
    while (end < t.size() && (t[end].isDigit() || t[end] == u'.' || t[end] == u'e' || t[end] == u'E'))
        ++end;
    for (; end > 0; --end) {
        bool ok = false;
        const double d = t.left(end).toDouble(&ok);
        if (ok)
            return d;
    }
    return 0.0;
}

} // namespace

Defaults::Defaults(QString path, bool isRequested) : m_path(std::move(path)), m_isRequested(isRequested) {}

Defaults::Defaults(Defaults&&) noexcept = default;
Defaults& Defaults::operator=(Defaults&&) noexcept = default;

Defaults::~Defaults()
{
    if (hasPendingChanges())
        sync();
}

QString Defaults::directory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/orvik");
}

Defaults::Load Defaults::readFile(const QString& path, QVariantMap& values)
{
    values.clear();
    QFile file(path);
    if (!file.exists())
        return Load::Read;
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return Load::Unreadable;
    const QByteArray json = file.readAll();
    if (file.error() != QFile::NoError)
        return Load::Unreadable;
    if (!JsonSettingsFormat::fromJson(json, values)) {
        values.clear();
        return Load::Damaged;
    }
    return Load::Read;
}

bool Defaults::moveAside(const QString& path)
{
    // Never over an earlier damaged copy: both may hold something the user wants back.
    QString aside = path + QStringLiteral(".damaged");
    for (int n = 2; QFileInfo::exists(aside) || QFileInfo(aside).isSymLink(); ++n)
        aside = path + QStringLiteral(".damaged.") + QString::number(n);
    if (!QFile::rename(path, aside)) {
        qWarning().noquote()
            << QStringLiteral("Settings file %1 is damaged and cannot be moved aside").arg(path);
        return false;
    }
    qWarning().noquote() << QStringLiteral(
                                "Settings file %1 is damaged: moved aside to %2, starting from the defaults")
                                .arg(path, aside);
    return true;
}

bool Defaults::readLocked(const QString& path, QVariantMap& values)
{
    switch (readFile(path, values)) {
    case Load::Read:
        return true;
    case Load::Damaged:
        return moveAside(path);
    case Load::Unreadable:
        break;
    }
    return false;
}

Defaults Defaults::open(const QString& name, bool fallBackToStandard)
{
    const QString dir = directory();
    const QString path = dir + u'/' + name + QStringLiteral(".json");
    Defaults store(path, true);
    Load load = QDir().mkpath(dir) ? readFile(path, store.m_stored) : Load::Unreadable;
    if (load == Load::Damaged) {
        // Decided under the lock, so that of several processes only one moves the file aside
        // and none moves a file that another has just written afresh.
        QLockFile lock(path + QStringLiteral(".lock"));
        lock.setStaleLockTime(10000);
        if (lock.tryLock(10000) && readLocked(path, store.m_stored))
            load = Load::Read;
    }
    if (load == Load::Read)
        return store;
    if (fallBackToStandard) {
        Defaults standard = open(kStandardName, false);
        standard.m_isRequested = false;
        return standard;
    }
    store.m_writable = false; // what is there may still be the user's: never write over it
    return store;
}

Defaults Defaults::suite()
{
    return open(kSuiteName, true);
}

Defaults Defaults::standard()
{
    return open(kStandardName, false);
}

Defaults Defaults::named(const QString& name)
{
    return open(name, false);
}

QVariant Defaults::object(const QString& key) const
{
    if (const auto added = m_added.constFind(key); added != m_added.cend())
        return *added;
    if (!m_removed.contains(key)) {
        if (const auto stored = m_stored.constFind(key); stored != m_stored.cend())
            return *stored;
    }
    std::lock_guard lock(registryMutex());
    return registry().value(m_path).value(key);
}

bool Defaults::hasStoredValue(const QString& key) const
{
    return m_added.contains(key) || (!m_removed.contains(key) && m_stored.contains(key));
}

QStringList Defaults::storedKeys() const
{
    return merged(m_stored).keys();
}

std::optional<QString> Defaults::string(const QString& key) const
{
    const QVariant v = object(key);
    if (v.metaType().id() == QMetaType::QString)
        return v.toString();
    if (isNumber(v))
        return v.toString();
    return std::nullopt;
}

qint64 Defaults::integer(const QString& key) const
{
    const QVariant v = object(key);
    switch (v.metaType().id()) {
    case QMetaType::Bool:
        return v.toBool() ? 1 : 0;
    case QMetaType::Double:
    case QMetaType::Float:
        return toInt64(v.toDouble());
    case QMetaType::QString:
        return toInt64(leadingNumber(v.toString()));
    default:
        return isNumber(v) ? v.toLongLong() : 0;
    }
}

double Defaults::doubleValue(const QString& key) const
{
    const QVariant v = object(key);
    if (v.metaType().id() == QMetaType::Bool)
        return v.toBool() ? 1.0 : 0.0;
    if (v.metaType().id() == QMetaType::QString)
        return leadingNumber(v.toString());
    return isNumber(v) ? v.toDouble() : 0.0;
}

bool Defaults::boolean(const QString& key) const
{
    const QVariant v = object(key);
    if (v.metaType().id() == QMetaType::Bool)
        return v.toBool();
    if (isNumber(v))
        return v.toDouble() != 0.0;
    if (v.metaType().id() == QMetaType::QString) {
        const QString s = v.toString().trimmed().toLower();
        if (s.isEmpty())
            return false;
        const QChar c = s.at(0);
        return c == u'y' || c == u't' || (c.isDigit() && c != u'0') ||
               (s.size() > 1 && leadingNumber(s) != 0.0);
    }
    return false;
}

std::optional<QByteArray> Defaults::data(const QString& key) const
{
    const QVariant v = object(key);
    if (v.metaType().id() == QMetaType::QByteArray)
        return v.toByteArray();
    return std::nullopt;
}

std::optional<QStringList> Defaults::stringArray(const QString& key) const
{
    const QVariant v = object(key);
    if (v.metaType().id() != QMetaType::QVariantList && v.metaType().id() != QMetaType::QStringList)
        return std::nullopt;
    QStringList out;
    for (const QVariant& element : v.toList()) {
        if (element.metaType().id() != QMetaType::QString)
            return std::nullopt;
        out.append(element.toString());
    }
    return out;
}

QVariant Defaults::normalised(const QVariant& value)
{
    switch (value.metaType().id()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::Short:
    case QMetaType::UShort:
        return QVariant::fromValue<qint64>(value.toLongLong());
    case QMetaType::Float:
        return value.toDouble();
    case QMetaType::QStringList: {
        QVariantList list;
        for (const QString& s : value.toStringList())
            list.append(s);
        return list;
    }
    case QMetaType::QVariantList: {
        QVariantList list;
        for (const QVariant& v : value.toList())
            list.append(normalised(v));
        return list;
    }
    default:
        return value;
    }
}

void Defaults::set(const QString& key, const QVariant& value)
{
    if (!value.isValid()) {
        remove(key);
        return;
    }
    m_added.insert(key, normalised(value));
    m_removed.remove(key);
}

void Defaults::remove(const QString& key)
{
    m_added.remove(key);
    m_removed.insert(key);
}

QVariantMap Defaults::merged(const QVariantMap& base) const
{
    QVariantMap values = base;
    for (const QString& key : m_removed)
        values.remove(key);
    for (auto it = m_added.cbegin(); it != m_added.cend(); ++it)
        values.insert(it.key(), it.value());
    return values;
}

bool Defaults::writeLocked(const QVariantMap& values)
{
    // Replaced in one rename: a reader without the lock sees the old file or the new one.
    QSaveFile file(m_path);
    const QByteArray json = JsonSettingsFormat::toJson(values);
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit())
        return false;
    m_stored = values;
    m_added.clear();
    m_removed.clear();
    return true;
}

bool Defaults::sync()
{
    if (!hasPendingChanges()) {
        QVariantMap fresh;
        if (readFile(m_path, fresh) != Load::Read)
            return false;
        m_stored = fresh;
        return true;
    }
    return update(QString(), {});
}

void Defaults::registerDefaults(const QVariantMap& defaults)
{
    QVariantMap normalisedDefaults;
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
        normalisedDefaults.insert(it.key(), normalised(it.value()));
    std::lock_guard lock(registryMutex());
    registry().insert(m_path, normalisedDefaults);
}

QVariantMap Defaults::registeredDefaults() const
{
    std::lock_guard lock(registryMutex());
    return registry().value(m_path);
}

bool Defaults::update(const QString& key, const std::function<QVariant(const QVariant&)>& change)
{
    if (!m_writable)
        return false;
    QLockFile lock(m_path + QStringLiteral(".lock"));
    lock.setStaleLockTime(10000);
    if (!lock.tryLock(10000))
        return false;
    QVariantMap values;
    if (!readLocked(m_path, values))
        return false;
    values = merged(values);
    if (change) {
        const QVariant next = normalised(change(values.value(key)));
        if (next.isValid())
            values.insert(key, next);
        else
            values.remove(key);
    }
    return writeLocked(values);
}
