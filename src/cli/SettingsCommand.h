#pragma once

#include <optional>

#include <QVariant>

#include "cli/CliCommand.h"

/**
 * `settings [KEY [VALUE]]` and `settings --delete KEY`: reads or writes the shared suite.
 *
 * Without a key every settings key is listed with its stored value, or its registered default
 * marked "(default)", followed by any other stored keys. A written value takes the type of the
 * key's registered default (bool, integer, double or string); keys without one store a string.
 */
class SettingsCommand final : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("settings"); }
    QString synopsis() const override;
    int run(const QStringList& arguments) override;

    /// `text` converted to the type of `registeredDefault` (a string when it has none); nothing
    /// when the text does not read as that type.
    static std::optional<QVariant> typedValue(const QString& text, const QVariant& registeredDefault);
    /// How a stored value is shown: strings as they are, arrays as JSON, data as a byte count.
    static QString displayText(const QVariant& value);
};
