#include "cli/SettingsCommand.h"

#include <QJsonArray>
#include <QJsonDocument>

#include "cli/CliOutput.h"
#include "engine/AppGroupDefaults.h"

QString SettingsCommand::synopsis() const
{
    return QStringLiteral("settings [KEY [VALUE]] | settings --delete KEY");
}

std::optional<QVariant> SettingsCommand::typedValue(const QString& text, const QVariant& registeredDefault)
{
    bool ok = true;
    switch (registeredDefault.typeId()) {
    case QMetaType::Bool: {
        const QString word = text.trimmed().toLower();
        if (word == QLatin1String("true") || word == QLatin1String("yes") || word == QLatin1String("1"))
            return QVariant(true);
        if (word == QLatin1String("false") || word == QLatin1String("no") || word == QLatin1String("0"))
            return QVariant(false);
        return std::nullopt;
    }
    case QMetaType::Int:
    case QMetaType::LongLong: {
        const qint64 number = text.trimmed().toLongLong(&ok);
        return ok ? std::optional<QVariant>(QVariant(number)) : std::nullopt;
    }
    case QMetaType::Double: {
        const double number = text.trimmed().toDouble(&ok);
        return ok ? std::optional<QVariant>(QVariant(number)) : std::nullopt;
    }
    default:
        return QVariant(text);
    }
}

QString SettingsCommand::displayText(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::QByteArray:
        return QStringLiteral("<data, %1 bytes>").arg(value.toByteArray().size());
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return QString::fromUtf8(
            QJsonDocument(QJsonArray::fromVariantList(value.toList())).toJson(QJsonDocument::Compact));
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    default:
        return value.toString();
    }
}

int SettingsCommand::run(const QStringList& arguments)
{
    AppGroupDefaults::registerDefaults();
    Defaults suite = AppGroupDefaults::open();

    if (arguments.value(0) == QLatin1String("--delete")) {
        if (arguments.size() != 2) {
            CliOutput::error(QStringLiteral("usage: brevona-cli ") + synopsis());
            return UsageError;
        }
        suite.remove(arguments[1]);
        if (!suite.sync()) {
            CliOutput::error(QStringLiteral("cannot write %1").arg(suite.filePath()));
            return Failure;
        }
        return Success;
    }
    if (arguments.size() > 2 || arguments.value(0).startsWith(QLatin1String("--"))) {
        CliOutput::error(QStringLiteral("usage: brevona-cli ") + synopsis());
        return UsageError;
    }

    if (arguments.isEmpty()) {
        QStringList keys;
        for (const auto& [key, value] : AppGroupDefaults::defaultsTable())
            keys.append(key);
        QStringList others = suite.storedKeys();
        others.sort();
        for (const QString& key : others) {
            if (!keys.contains(key))
                keys.append(key);
        }
        for (const QString& key : keys) {
            const QString marker = suite.hasStoredValue(key) ? QString() : QStringLiteral(" (default)");
            CliOutput::out(QStringLiteral("%1 = %2%3").arg(key, displayText(suite.object(key)), marker));
        }
        return Success;
    }

    const QString& key = arguments[0];
    if (arguments.size() == 1) {
        const QVariant value = suite.object(key);
        if (!value.isValid()) {
            CliOutput::error(QStringLiteral("no value for \"%1\"").arg(key));
            return Failure;
        }
        CliOutput::out(displayText(value));
        return Success;
    }

    const QVariant registered = suite.registeredDefaults().value(key);
    const std::optional<QVariant> value = typedValue(arguments[1], registered);
    if (!value) {
        CliOutput::error(QStringLiteral("\"%1\" is not a valid %2 for %3")
                             .arg(arguments[1], QString::fromLatin1(registered.typeName()), key));
        return UsageError;
    }
    suite.set(key, *value);
    if (!suite.sync()) {
        CliOutput::error(QStringLiteral("cannot write %1").arg(suite.filePath()));
        return Failure;
    }
    return Success;
}
