#include "app/AppRelease.h"

#include <cmath>

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QVariant>

namespace {

std::optional<QString> text(const QJsonObject& object, const QString& key)
{
    const QJsonValue v = object.value(key);
    return v.isString() ? std::optional<QString>(v.toString()) : std::nullopt;
}

std::optional<qint64> integer(const QJsonObject& object, const QString& key)
{
    const QJsonValue v = object.value(key);
    if (!v.isDouble())
        return std::nullopt;
    // The parser keeps integers that fit in 64 bits exactly; anything else arrives as a double,
    // which must be a whole number in range (as "7" and "7.0" both name build 7).
    const QVariant variant = v.toVariant();
    if (variant.metaType().id() == QMetaType::LongLong)
        return variant.toLongLong();
    const double d = v.toDouble();
    if (!std::isfinite(d) || std::trunc(d) != d || d < -9.2233720368547758e18 || d >= 9.2233720368547758e18)
        return std::nullopt;
    return static_cast<qint64>(d);
}

} // namespace

std::optional<AppRelease> AppRelease::decode(const QByteArray& json)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();

    const auto version = text(object, QStringLiteral("version"));
    const auto buildNumber = integer(object, QStringLiteral("buildNumber"));
    const auto releaseNotes = text(object, QStringLiteral("releaseNotes"));
    const auto zipURL = text(object, QStringLiteral("zipURL"));
    const QJsonValue critical = object.value(QStringLiteral("criticalUpdate"));
    if (!version || !buildNumber || !releaseNotes || !zipURL || !critical.isBool())
        return std::nullopt;
    return AppRelease{*version, *buildNumber, *releaseNotes, *zipURL, critical.toBool()};
}
