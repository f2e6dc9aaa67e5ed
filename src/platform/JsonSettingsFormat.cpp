#include "platform/JsonSettingsFormat.h"

#include <cmath>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QLocale>

namespace {

const QString kDataMarker = QStringLiteral("$data");
const QString kDoubleMarker = QStringLiteral("$double");

QByteArray quoted(const QString& s)
{
    // QJsonDocument does the escaping; strip the surrounding brackets of a one-element array.
    const QByteArray array = QJsonDocument(QJsonArray{s}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

void writeValue(QByteArray& out, const QVariant& value, int indent);

void writeIndent(QByteArray& out, int indent)
{
    out.append(QByteArray(indent * 2, ' '));
}

void writeObject(QByteArray& out, const QVariantMap& map, int indent)
{
    if (map.isEmpty()) {
        out.append("{}");
        return;
    }
    out.append("{\n");
    int i = 0;
    for (auto it = map.cbegin(); it != map.cend(); ++it, ++i) {
        writeIndent(out, indent + 1);
        out.append(quoted(it.key())).append(": ");
        writeValue(out, it.value(), indent + 1);
        out.append(i + 1 < map.size() ? ",\n" : "\n");
    }
    writeIndent(out, indent);
    out.append('}');
}

void writeValue(QByteArray& out, const QVariant& value, int indent)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        out.append(value.toBool() ? "true" : "false");
        return;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
        out.append(QByteArray::number(value.toLongLong()));
        return;
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        out.append(QByteArray::number(value.toULongLong()));
        return;
    case QMetaType::Float:
    case QMetaType::Double: {
        const double d = value.toDouble();
        if (!std::isfinite(d)) {
            out.append("null"); // JSON has no infinities; the value is lost rather than corrupt the file
            return;
        }
        const QByteArray text = QByteArray::number(d, 'g', QLocale::FloatingPointShortest);
        // Qt's parser reads any integral number as an integer, so such doubles carry a marker.
        if (std::trunc(d) == d && std::fabs(d) < 9.2e18)
            out.append("{\"$double\": ").append(text).append('}');
        else
            out.append(text);
        return;
    }
    case QMetaType::QByteArray:
        out.append("{\"$data\": ")
            .append(quoted(QString::fromLatin1(value.toByteArray().toBase64())))
            .append('}');
        return;
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        out.append('[');
        for (qsizetype i = 0; i < list.size(); ++i) {
            if (i > 0)
                out.append(", ");
            writeValue(out, list.at(i), indent);
        }
        out.append(']');
        return;
    }
    case QMetaType::QVariantMap:
        writeObject(out, value.toMap(), indent);
        return;
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        out.append("null");
        return;
    default:
        out.append(quoted(value.toString()));
        return;
    }
}

QVariant readValue(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return value.toBool();
    case QJsonValue::Double: {
        // Qt keeps integers that were written without a fraction as integers.
        const QVariant v = value.toVariant();
        if (v.metaType().id() == QMetaType::LongLong)
            return v;
        return value.toDouble();
    }
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Array: {
        QVariantList list;
        const QJsonArray array = value.toArray();
        list.reserve(array.size());
        for (const QJsonValue& element : array)
            list.append(readValue(element));
        return list;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        if (object.size() == 1 && object.contains(kDataMarker) && object.value(kDataMarker).isString())
            return QByteArray::fromBase64(object.value(kDataMarker).toString().toLatin1());
        if (object.size() == 1 && object.contains(kDoubleMarker) && object.value(kDoubleMarker).isDouble())
            return object.value(kDoubleMarker).toDouble();
        QVariantMap map;
        for (auto it = object.begin(); it != object.end(); ++it)
            map.insert(it.key(), readValue(it.value()));
        return map;
    }
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    return {};
}

} // namespace

QByteArray JsonSettingsFormat::toJson(const QVariantMap& map)
{
    QByteArray out;
    writeObject(out, map, 0);
    out.append('\n');
    return out;
}

bool JsonSettingsFormat::fromJson(const QByteArray& json, QVariantMap& map)
{
    if (json.trimmed().isEmpty())
        return true; // a new, empty file
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return false;
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QVariant value = readValue(it.value());
        if (value.isValid())
            map.insert(it.key(), value);
    }
    return true;
}
