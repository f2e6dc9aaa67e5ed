#include "cli/CompressCommand.h"

#include <algorithm>
#include <cstdio>

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include "cli/CliOutput.h"
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
        CliOutput::errRaw(
            QStringLiteral("\r\x1b[2K[%1] %2/%3 %4").arg(bar).arg(current).arg(total).arg(label));
        if (current == total)
            CliOutput::errRaw(QStringLiteral("\r\x1b[2K"));
    }

private:
    bool m_terminal;
};

} // namespace

QString CompressCommand::synopsis() const
{
    return QStringLiteral(
        "compress [--format F] [--mode M] [--max-edge PX] [--max-size KB] [--min-saving PCT] "
        "[--suffix S] [--out DIR] [--jobs N] [--json] FILE...");
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
        const std::optional<QString> error =
            result.error ? std::optional(CompressorErrors::errorDescription(*result.error)) : std::nullopt;
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
    parser.addOptions({kFormat, kMode, kMaxEdge, kMaxSize, kMinSaving, kSuffix, kOut, kJson, kJobs});
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

    QStringList paths;
    for (const QString& file : files)
        paths.append(QFileInfo(file).absoluteFilePath());

    ProgressPrinter progress;
    const SessionResult session = ImageCompressor::shared().compressBatch(
        paths, *settings,
        [&progress](int current, int total, const QString& label) { progress.report(current, total, label); },
        static_cast<int>(*jobs));

    if (parser.isSet(kJson)) {
        std::fputs(jsonReport(session).constData(), stdout);
        std::fflush(stdout);
    } else {
        for (const CompressionResult& result : session.results) {
            const QString source = QDir::toNativeSeparators(result.sourceURL);
            if (result.outputURL)
                CliOutput::out(QStringLiteral("%1 → %2 (%3 → %4)")
                                   .arg(source, QDir::toNativeSeparators(*result.outputURL),
                                        ByteCount::format(result.originalSize),
                                        ByteCount::format(result.compressedSize)));
            else
                CliOutput::out(QStringLiteral("%1: %2").arg(
                    source, result.error ? CompressorErrors::errorDescription(*result.error) : QString()));
        }
        CliOutput::out(session.summary());
    }
    return std::all_of(session.results.cbegin(), session.results.cend(), acceptable) ? Success : Failure;
}
