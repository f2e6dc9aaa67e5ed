#pragma once

#include <QVariant>

#include "cli/CliCommand.h"

/**
 * `settings [KEY [VALUE]]` and `settings --delete KEY`: reads or writes the shared suite.
 *
 * Without a key every settings key is listed with its stored value, or its registered default
 * marked "(default)", followed by any other stored keys. A written value must be one the engine
 * understands (a known format, mode or location; a whole number in range; true or false) and is
 * stored with the type the engine reads; "customFolderBookmark" takes a folder path and stores
 * the bookmark that the settings window stores for it. Keys the engine does not know store text.
 */
class SettingsCommand final : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("settings"); }
    QString synopsis() const override;
    QString help() const override;
    int run(const QStringList& arguments) override;

    /// The value to store for `text` under `key`; an invalid QVariant, with `expected` set to the
    /// valid values in words, when the engine would not understand it.
    static QVariant parsedValue(const QString& key, const QString& text, QString* expected);
    /// How a stored value is shown: strings as they are, arrays as JSON, a bookmark as its path.
    static QString displayText(const QString& key, const QVariant& value);
};
