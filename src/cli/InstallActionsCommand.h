#pragma once

#include <QString>

#include "cli/CliCommand.h"

/**
 * `install-actions`: adds "Optimize with Brevona" to the user's file managers.
 *
 * Writes the Nautilus script into the user's Nautilus scripts folder and adds the Thunar custom
 * action to the user's uca.xml, creating the folders and files it needs. The user's own Thunar
 * actions are kept as they are: the action is inserted before the closing </actions>, and a
 * file that already holds it, or that cannot be read as a list of actions, is left untouched.
 * Running it again changes nothing.
 */
class InstallActionsCommand final : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("install-actions"); }
    QString synopsis() const override { return QStringLiteral("install-actions"); }
    QString help() const override;
    int run(const QStringList& arguments) override;

    /// `existing` uca.xml text with `action` added; the same text when it is already there; empty
    /// when `existing` is not empty and has no </actions> to insert before.
    static QByteArray mergedUca(const QByteArray& existing, const QByteArray& action);
    /// How the actions call brevona-cli: the bare name when PATH finds this program, else its
    /// absolute path (a build run from its own folder).
    static QString cliCommand();
};
