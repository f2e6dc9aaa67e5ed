#pragma once

#include <optional>

#include <QHash>

#include "cli/CliCommand.h"
#include "engine/CompressionSettings.h"
#include "engine/SessionResult.h"

class QCommandLineParser;

/**
 * `compress [options] FILE...`: one batch through the engine with the stored settings, each
 * option overriding its setting for this run only (nothing is written to the store).
 *
 * Progress goes to stderr, a result line per job and the batch summary (last line) to stdout;
 * with --json, stdout holds one JSON object instead. Exit code 0 when every job succeeded or was
 * already optimised, 1 when any failed, 2 on a usage error.
 */
class CompressCommand final : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("compress"); }
    QString synopsis() const override;
    QString help() const override;
    int run(const QStringList& arguments) override;

    /// The JSON report of a batch: {"results": [...], "summary": text}.
    static QByteArray jsonReport(const SessionResult& session);

private:
    static std::optional<QString> errorText(const CompressionResult& result);

    /// `base` with the parsed options applied; nothing (and `error` set) when one is invalid.
    static std::optional<CompressionSettings> overridden(const QCommandLineParser& parser,
                                                         CompressionSettings base, QString* error);
};
