#include "cli/SettingsCommand.h"

#include <array>
#include <limits>

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include "cli/CliOutput.h"
#include "engine/AppGroupDefaults.h"
#include "engine/CompressionMode.h"
#include "engine/OutputFormat.h"
#include "engine/OutputLocation.h"
#include "platform/FolderBookmark.h"

namespace {

using Keys = AppGroupDefaults::Keys;

template <typename Enum, std::size_t N>
QStringList rawValues(const std::array<Enum, N>& all, QString (*rawValue)(Enum))
{
    QStringList values;
    for (const Enum value : all)
        values.append(rawValue(value));
    return values;
}

QVariant choice(const QString& text, const QStringList& values, QString* expected)
{
    // Exact spelling only: the engine reads "Balanced" as an unknown mode.
    if (values.contains(text))
        return text;
    *expected = QStringLiteral("one of ") + values.join(QStringLiteral(", "));
    return {};
}

QVariant wholeNumber(const QString& text, qint64 minimum, qint64 maximum, QString* expected)
{
    bool ok = false;
    const qint64 number = text.trimmed().toLongLong(&ok);
    if (ok && number >= minimum && number <= maximum)
        return number;
    *expected = maximum == std::numeric_limits<qint64>::max()
                    ? QStringLiteral("a whole number from %1 up").arg(minimum)
                    : QStringLiteral("a whole number from %1 to %2").arg(minimum).arg(maximum);
    return {};
}

QVariant boolean(const QString& text, QString* expected)
{
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("true") || word == QLatin1String("yes") || word == QLatin1String("1"))
        return true;
    if (word == QLatin1String("false") || word == QLatin1String("no") || word == QLatin1String("0"))
        return false;
    *expected = QStringLiteral("true or false");
    return {};
}

QVariant folderBookmark(const QString& text, QString* expected)
{
    const QFileInfo folder(text);
    if (!text.isEmpty() && folder.isDir()) {
        if (const std::optional<QByteArray> bookmark = FolderBookmark::create(folder.absoluteFilePath()))
            return *bookmark;
    }
    *expected = QStringLiteral("the path of an existing folder");
    return {};
}

} // namespace

QString SettingsCommand::synopsis() const
{
    return QStringLiteral("settings [KEY [VALUE]] | settings --delete KEY");
}

QString SettingsCommand::help() const
{
    return QStringLiteral(
        "Reads or writes the settings that Brevona and brevona-cli share.\n"
        "\n"
        "  settings             list every key with its value, \"(default)\" when not stored\n"
        "  settings KEY         print one value\n"
        "  settings KEY VALUE   store a value (refused with the valid values when the\n"
        "                       engine would not understand it)\n"
        "  settings --delete KEY  remove a stored value, so the default applies again\n"
        "\n"
        "Keys: outputFormat (jpeg, png, webp, avif, original), compressionMode (lossless,\n"
        "balanced, aggressive), quality (0 to 1), limitLongestEdge, longestEdgePx,\n"
        "suffix, outputLocation (sameFolder, customFolder), showNotifications,\n"
        "limitOutputFileSize, maxFileSizeKB, requireMinSavingPercent, minSavingPercent\n"
        "(0 to 100), customFolderBookmark (a folder path).");
}

QVariant SettingsCommand::parsedValue(const QString& key, const QString& text, QString* expected)
{
    constexpr qint64 kUnbounded = std::numeric_limits<qint64>::max();
    if (key == Keys::outputFormat)
        return choice(text, rawValues(OutputFormats::all, OutputFormats::rawValue), expected);
    if (key == Keys::compressionMode)
        return choice(text, rawValues(CompressionModes::all, CompressionModes::rawValue), expected);
    if (key == Keys::outputLocation)
        return choice(text,
                      {OutputLocations::rawValue(OutputLocation::SameFolder),
                       OutputLocations::rawValue(OutputLocation::CustomFolder)},
                      expected);
    // 0 is what the engine reads as "the standard value", so it stays writable.
    if (key == Keys::longestEdgePx || key == Keys::maxFileSizeKB)
        return wholeNumber(text, 0, kUnbounded, expected);
    if (key == Keys::minSavingPercent)
        return wholeNumber(text, 0, 100, expected);
    if (key == Keys::limitLongestEdge || key == Keys::limitOutputFileSize ||
        key == Keys::requireMinSavingPercent || key == Keys::showNotifications ||
        key == Keys::groupDefaultsMigrated)
        return boolean(text, expected);
    if (key == Keys::quality) {
        bool ok = false;
        const double number = text.trimmed().toDouble(&ok);
        if (ok && number >= 0.0 && number <= 1.0)
            return number;
        *expected = QStringLiteral("a number from 0 to 1");
        return {};
    }
    if (key == Keys::customFolderBookmark)
        return folderBookmark(text, expected);
    if (key == Keys::pendingFiles) {
        *expected = QStringLiteral("a list of files, added with \"brevona-cli send FILE...\"");
        return {};
    }
    return text;
}

QString SettingsCommand::displayText(const QString& key, const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::QByteArray:
        if (key == Keys::customFolderBookmark) {
            if (const std::optional<QString> path = FolderBookmark::resolve(value.toByteArray()))
                return *path;
        }
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
            CliOutput::out(QStringLiteral("%1 = %2%3").arg(key, displayText(key, suite.object(key)), marker));
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
        CliOutput::out(displayText(key, value));
        return Success;
    }

    QString expected;
    const QVariant value = parsedValue(key, arguments[1], &expected);
    if (!value.isValid()) {
        CliOutput::error(QStringLiteral("\"%1\" is not a valid value for %2; expected %3")
                             .arg(arguments[1], key, expected));
        return UsageError;
    }
    suite.set(key, value);
    if (!suite.sync()) {
        CliOutput::error(QStringLiteral("cannot write %1").arg(suite.filePath()));
        return Failure;
    }
    return Success;
}
