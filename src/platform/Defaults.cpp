#include "platform/Defaults.h"

#include <cmath>
#include <limits>
#include <mutex>

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QLockFile>
#include <QSettings>
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

Defaults::Defaults(QString path, bool isRequested)
    : m_path(std::move(path)), m_isRequested(isRequested),
      m_settings(std::make_unique<QSettings>(m_path, JsonSettingsFormat::format()))
{
}

Defaults::Defaults(Defaults&&) noexcept = default;
Defaults& Defaults::operator=(Defaults&&) noexcept = default;
Defaults::~Defaults() = default;

QString Defaults::directory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/orvik");
}

Defaults Defaults::open(const QString& name, bool fallBackToStandard)
{
    const QString dir = directory();
    const QString path = dir + u'/' + name + QStringLiteral(".json");
    const QFileInfo info(path);
    const bool usable = QDir().mkpath(dir) && (!info.exists() || (info.isFile() && info.isReadable()));
    if (usable) {
        Defaults store(path, true);
        if (store.m_settings->status() == QSettings::NoError)
            return store;
    }
    if (fallBackToStandard)
        return Defaults(dir + u'/' + kStandardName + QStringLiteral(".json"), false);
    return Defaults(path, true);
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
    const QVariant stored = m_settings->value(key);
    if (stored.isValid())
        return stored;
    std::lock_guard lock(registryMutex());
    return registry().value(m_path).value(key);
}

bool Defaults::hasStoredValue(const QString& key) const
{
    return m_settings->contains(key);
}

QStringList Defaults::storedKeys() const
{
    return m_settings->allKeys();
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
    m_settings->setValue(key, normalised(value));
}

void Defaults::remove(const QString& key)
{
    m_settings->remove(key);
}

bool Defaults::sync()
{
    m_settings->sync();
    return m_settings->status() == QSettings::NoError;
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
    // A lock of our own: QSettings' file lock only covers its write, not our read before it.
    QLockFile lock(m_path + QStringLiteral(".update-lock"));
    lock.setStaleLockTime(10000);
    if (!lock.tryLock(10000))
        return false;
    m_settings->sync(); // pick up what others wrote before we took the lock
    const QVariant next = change(m_settings->value(key));
    set(key, next);
    return sync();
}
