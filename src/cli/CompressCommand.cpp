#include "cli/CompressCommand.h"

#include <algorithm>
#include <cstdio>

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include "cli/ArgumentText.h"
#include "cli/CliOutput.h"
#include "cli/InputFiles.h"
#include "engine/AppGroupDefaults.h"
#include "engine/ByteCount.h"
#include "engine/ImageCompressor.h"

namespace {

const QCommandLineOption kFormat(QStringLiteral("format"),
                                 QStringLiteral("jpeg, png, webp, avif or original"), QStringLiteral("F"));
const QCommandLineOption kMode(QStringLiteral("mode"), QStringLiteral("lossless, balanced or aggressive"),
                               QStringLiteral("M"));
const QCommandLineOption kMaxEdge(QStringLiteral("max-edge"),
                                  QStringLiteral("scale down to this longest edge"), QStringLiteral("PX"));
const QCommandLineOption kMaxSize(QStringLiteral("max-size"), QStringLiteral("limit the output file size"),
                                  QStringLiteral("KB"));
const QCommandLineOption kMinSaving(QStringLiteral("min-saving"), QStringLiteral("drop outputs saving less"),
                                    QStringLiteral("PCT"));
const QCommandLineOption kSuffix(QStringLiteral("suffix"), QStringLiteral("appended to output names"),
                                 QStringLiteral("S"));
const QCommandLineOption kOut(QStringLiteral("out"), QStringLiteral("write outputs into this folder"),
                              QStringLiteral("DIR"));
const QCommandLineOption kJson(QStringLiteral("json"), QStringLiteral("print one JSON object"));
const QCommandLineOption kNoMaxEdge(QStringLiteral("no-max-edge"), QStringLiteral("keep the size"));
const QCommandLineOption kNoMaxSize(QStringLiteral("no-max-size"), QStringLiteral("no output size limit"));
const QCommandLineOption kNoMinSaving(QStringLiteral("no-min-saving"), QStringLiteral("keep every output"));

const QCommandLineOption kJobs(QStringLiteral("jobs"),
                               QStringLiteral("images encoded at once (1: one at a time)"),
                               QStringLiteral("N"));

/// A whole number in [minimum, maximum], or nothing.
std::optional<qint64> boundedInteger(const QString& text, qint64 minimum, qint64 maximum)
{
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    if (!ok || value < minimum || value > maximum)
        return std::nullopt;
    return value;
}

bool acceptable(const CompressionResult& result)
{
    return result.succeeded() || result.error == CompressorError::SavingsBelowThreshold;
}

/// Redraws a bar in place on a terminal; one line per job otherwise.
class ProgressPrinter final
{
public:
    ProgressPrinter() : m_terminal(CliOutput::stderrIsTerminal()) {}

    void report(int current, int total, const QString& label)
    {
        if (total == 0)
            return;
        if (!m_terminal) {
            if (current < total)
                CliOutput::err(QStringLiteral("[%1/%2] %3").arg(current + 1).arg(total).arg(label));
            return;
        }
        constexpr int kWidth = 24;
        const int filled = kWidth * current / total;
        const QString bar = QString(filled, QLatin1Char('#')) + QString(kWidth - filled, QLatin1Char('.'));
        CliOutput::setStatusLine(
            current == total ? QString()
                             : QStringLiteral("[%1] %2/%3 %4").arg(bar).arg(current).arg(total).arg(label));
    }

private:
    bool m_terminal;
};

} // namespace

QString CompressCommand::synopsis() const
{
    return QStringLiteral("compress [OPTION...] FILE|FOLDER...");
}

QString CompressCommand::help() const
{
    return QStringLiteral(
        "Compresses the files with the stored settings; each option overrides its setting for\n"
        "this run only. A folder stands for the images inside it, recursively, in path order,\n"
        "without hidden files and without outputs that already carry the suffix.\n"
        "\n"
        "  --format F        jpeg, png, webp, avif or original\n"
        "  --mode M          lossless, balanced or aggressive\n"
        "  --max-edge PX     scale the longest edge down to PX pixels\n"
        "  --no-max-edge     do not scale, whatever the settings say\n"
        "  --max-size KB     keep each output under KB kilobytes (1 KB = 1024 bytes)\n"
        "  --no-max-size     no size limit\n"
        "  --min-saving PCT  keep the original when the saving is below PCT percent\n"
        "  --no-min-saving   keep every output\n"
        "  --suffix S        appended to output names (default -web)\n"
        "  --out DIR         write outputs into DIR instead of beside the originals\n"
        "  --jobs N          encode up to N images at once (default: one per core; 1: one at a time)\n"
        "  --json            print one JSON object with every result and the summary\n"
        "  --verbose         show the engine's diagnostic log\n"
        "\n"
        "Progress goes to stderr, one line per file and the summary to stdout. Exit status:\n"
        "0 when every file was written or already optimized, 1 when any failed, 2 on a usage\n"
        "error.");
}

std::optional<CompressionSettings> CompressCommand::overridden(const QCommandLineParser& parser,
                                                               CompressionSettings settings, QString* error)
{
    if (parser.isSet(kFormat)) {
        const auto format = OutputFormats::fromRawValue(parser.value(kFormat));
        if (!format) {
            *error = QStringLiteral("unknown format \"%1\" (jpeg, png, webp, avif, original)")
                         .arg(parser.value(kFormat));
            return std::nullopt;
        }
        settings.outputFormat = *format;
    }
    if (parser.isSet(kMode)) {
        const auto mode = CompressionModes::fromRawValue(parser.value(kMode));
        if (!mode) {
            *error = QStringLiteral("unknown mode \"%1\" (lossless, balanced, aggressive)")
                         .arg(parser.value(kMode));
            return std::nullopt;
        }
        settings.compressionMode = *mode;
    }
    const auto conflicting = [&](const QCommandLineOption& on, const QCommandLineOption& off) {
        if (!parser.isSet(on) || !parser.isSet(off))
            return false;
        *error = QStringLiteral("--%1 and --%2 cannot be used together")
                     .arg(on.names().first(), off.names().first());
        return true;
    };
    if (conflicting(kMaxEdge, kNoMaxEdge) || conflicting(kMaxSize, kNoMaxSize) ||
        conflicting(kMinSaving, kNoMinSaving))
        return std::nullopt;
    if (parser.isSet(kNoMaxEdge))
        settings.limitLongestEdge = false;
    if (parser.isSet(kNoMaxSize))
        settings.limitOutputFileSize = false;
    if (parser.isSet(kNoMinSaving))
        settings.requireMinSavingPercent = false;
    if (parser.isSet(kMaxEdge)) {
        const auto edge = boundedInteger(parser.value(kMaxEdge), 1, 1'000'000);
        if (!edge) {
            *error = QStringLiteral("--max-edge needs a whole number of pixels above 0");
            return std::nullopt;
        }
        settings.limitLongestEdge = true;
        settings.longestEdgePx = *edge;
    }
    if (parser.isSet(kMaxSize)) {
        const auto size = boundedInteger(parser.value(kMaxSize), 1, 1'000'000'000);
        if (!size) {
            *error = QStringLiteral("--max-size needs a whole number of KB above 0");
            return std::nullopt;
        }
        settings.limitOutputFileSize = true;
        settings.maxFileSizeKB = *size;
    }
    if (parser.isSet(kMinSaving)) {
        const auto percent = boundedInteger(parser.value(kMinSaving), 0, 100);
        if (!percent) {
            *error = QStringLiteral("--min-saving needs a whole percentage from 0 to 100");
            return std::nullopt;
        }
        settings.requireMinSavingPercent = true;
        settings.minSavingPercent = *percent;
    }
    if (parser.isSet(kSuffix))
        settings.suffix = parser.value(kSuffix);
    if (parser.isSet(kOut)) {
        const QFileInfo folder(parser.value(kOut));
        if (!folder.isDir()) {
            *error = QStringLiteral("output folder \"%1\" does not exist").arg(parser.value(kOut));
            return std::nullopt;
        }
        settings.outputLocation = OutputLocation::CustomFolder;
        settings.customFolderURL = folder.absoluteFilePath();
    }
    return settings;
}

std::optional<QString> CompressCommand::errorText(const CompressionResult& result)
{
    return result.error ? std::optional(CompressorErrors::errorDescription(*result.error)) : std::nullopt;
}

QByteArray CompressCommand::jsonReport(const SessionResult& session)
{
    // Written by hand to keep the fields in their documented order (QJsonObject sorts keys).
    const auto text = [](const std::optional<QString>& value) -> QByteArray {
        if (!value)
            return QByteArrayLiteral("null");
        const QByteArray array = QJsonDocument(QJsonArray{*value}).toJson(QJsonDocument::Compact);
        return array.mid(1, array.size() - 2);
    };
    QByteArray json = QByteArrayLiteral("{\n  \"results\": [");
    for (qsizetype i = 0; i < session.results.size(); ++i) {
        const CompressionResult& result = session.results[i];
        const std::optional<QString> error = errorText(result);
        json += (i == 0 ? "\n    " : ",\n    ");
        json += "{\"source\": " + text(result.sourceURL) + ", \"output\": " + text(result.outputURL) +
                ", \"originalSize\": " + QByteArray::number(result.originalSize) +
                ", \"compressedSize\": " + QByteArray::number(result.compressedSize) +
                ", \"error\": " + text(error) + "}";
    }
    json += (session.results.isEmpty() ? "],\n" : "\n  ],\n");
    json += "  \"summary\": " + text(session.summary()) + "\n}\n";
    return json;
}

int CompressCommand::run(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.addOptions({kFormat, kMode, kMaxEdge, kMaxSize, kMinSaving, kSuffix, kOut, kJson, kNoMaxEdge,
                       kNoMaxSize, kNoMinSaving, kJobs});
    if (!parser.parse(QStringList{name()} + arguments)) {
        CliOutput::error(parser.errorText());
        CliOutput::err(QStringLiteral("usage: brevona-cli ") + synopsis());
        return UsageError;
    }
    const QStringList files = parser.positionalArguments();
    if (files.isEmpty()) {
        CliOutput::error(QStringLiteral("no files given"));
        CliOutput::err(QStringLiteral("usage: brevona-cli ") + synopsis());
        return UsageError;
    }

    AppGroupDefaults::registerDefaults();
    QString error;
    const std::optional<CompressionSettings> settings =
        overridden(parser, CompressionSettings::current(), &error);
    if (!settings) {
        CliOutput::error(error);
        return UsageError;
    }

    // How the batch runs, not what it produces: outputs are the same whatever the number, so it
    // goes to the engine rather than into the settings snapshot.
    std::optional<qint64> jobs = 0;
    if (parser.isSet(kJobs) && !(jobs = boundedInteger(parser.value(kJobs), 1, 1024))) {
        CliOutput::error(QStringLiteral("--jobs needs a whole number of jobs above 0"));
        return UsageError;
    }

    QStringList emptyFolders;
    const QStringList inputs = InputFiles::expanded(files, settings->suffix, &emptyFolders);
    for (const QString& folder : emptyFolders)
        CliOutput::error(QStringLiteral("no images in \"%1\"").arg(ArgumentText::printable(folder)));
    if (inputs.isEmpty())
        return Failure;
    // A name that is not UTF-8 cannot be opened under its own name, only under a lookalike.
    QStringList paths;
    for (const QString& input : inputs) {
        if (ArgumentText::isValid(input))
            paths.append(input);
    }

    ProgressPrinter progress;
    CliOutput::installLogHandler();
    const SessionResult engineSession = ImageCompressor::shared().compressBatch(
        paths, *settings,
        [&progress](int current, int total, const QString& label) { progress.report(current, total, label); },
        static_cast<int>(*jobs));

    // Refused names take their place among the engine's results (a PDF gives one per page).
    SessionResult session;
    qsizetype next = 0;
    for (const QString& input : inputs) {
        if (!ArgumentText::isValid(input)) {
            CompressionResult refused;
            refused.sourceURL = ArgumentText::printable(input);
            refused.error = CompressorError::InvalidFileName;
            session.results.append(refused);
            continue;
        }
        const qsizetype start = next;
        while (next < engineSession.results.size() && engineSession.results[next].sourceURL == input)
            session.results.append(engineSession.results[next++]);
        if (next == start && next < engineSession.results.size())
            session.results.append(engineSession.results[next++]);
    }
    while (next < engineSession.results.size())
        session.results.append(engineSession.results[next++]);

    if (parser.isSet(kJson)) {
        std::fputs(jsonReport(session).constData(), stdout);
        std::fflush(stdout);
    } else {
        for (qsizetype i = 0; i < session.results.size(); ++i) {
            const CompressionResult& result = session.results[i];
            const QString source = QDir::toNativeSeparators(result.sourceURL);
            if (result.outputURL)
                CliOutput::out(QStringLiteral("%1 → %2 (%3 → %4)")
                                   .arg(source, QDir::toNativeSeparators(*result.outputURL),
                                        ByteCount::format(result.originalSize),
                                        ByteCount::format(result.compressedSize)));
            else
                CliOutput::out(QStringLiteral("%1: %2").arg(source, errorText(result).value_or(QString())));
        }
        CliOutput::out(session.summary());
    }
    return std::all_of(session.results.cbegin(), session.results.cend(), acceptable) ? Success : Failure;
}
