#include "cli/SendCommand.h"

#include <QFileInfo>

#include "cli/AppLauncher.h"
#include "cli/ArgumentText.h"
#include "cli/CliOutput.h"
#include "engine/AppGroupDefaults.h"

QStringList SendCommand::absolutePaths(const QStringList& files)
{
    QStringList paths;
    paths.reserve(files.size());
    for (const QString& file : files)
        paths.append(QFileInfo(file).absoluteFilePath());
    return paths;
}

QVariant SendCommand::appended(const QVariant& stored, const QStringList& paths)
{
    // Anything but strings in the list would make the application ignore the whole key, so
    // a damaged value is repaired rather than extended.
    QVariantList list;
    for (const QVariant& entry : stored.toList()) {
        if (entry.metaType().id() == QMetaType::QString)
            list.append(entry);
    }
    for (const QString& path : paths)
        list.append(path);
    return list;
}

QString SendCommand::help() const
{
    return QStringLiteral(
        "Hands files to Brevona, which compresses them with its settings and shows a\n"
        "notification with the summary; the file-manager actions call this. Brevona is started\n"
        "when it is not running (BREVONA_APP names another program to start). Without a\n"
        "display the files wait until Brevona next starts. Put -- before names that begin with\n"
        "a dash. Names that are not valid UTF-8 are refused.");
}

int SendCommand::run(const QStringList& arguments)
{
    // No options; "--" lets a file name start with a dash.
    QStringList files = arguments;
    const bool endOfOptions = !files.isEmpty() && files.first() == QLatin1String("--");
    if (endOfOptions)
        files.removeFirst();
    if (files.isEmpty() || (!endOfOptions && files.first().startsWith(u'-'))) {
        CliOutput::err(QStringLiteral("usage: brevona-cli ") + synopsis());
        return UsageError;
    }
    // The application could only open a name that is not UTF-8 under a lookalike name.
    QStringList valid;
    for (const QString& file : files) {
        if (ArgumentText::isValid(file))
            valid.append(file);
        else
            CliOutput::error(QStringLiteral("not sent, the name is not valid UTF-8: ") +
                             ArgumentText::printable(file));
    }
    const int result = valid.size() == files.size() ? Success : Failure;
    if (valid.isEmpty())
        return result;

    const QStringList paths = absolutePaths(valid);
    Defaults suite = AppGroupDefaults::open();
    if (!suite.isRequestedStore()) {
        CliOutput::error(QStringLiteral("cannot open the shared settings in ") + Defaults::directory());
        return Failure;
    }
    const bool written = suite.update(AppGroupDefaults::Keys::pendingFiles,
                                      [&](const QVariant& stored) { return appended(stored, paths); });
    if (!written) {
        CliOutput::error(QStringLiteral("cannot write ") + suite.filePath());
        return Failure;
    }

    switch (AppLauncher::ensureRunning()) {
    case AppLauncher::Outcome::AlreadyRunning:
    case AppLauncher::Outcome::Started:
        return result;
    case AppLauncher::Outcome::NoDisplay:
        CliOutput::err(QStringLiteral(
            "brevona-cli: Brevona is not running and there is no display; the files will be compressed "
            "when Brevona next starts."));
        return result;
    case AppLauncher::Outcome::NotFound:
        CliOutput::error(QStringLiteral("Brevona is not running and cannot be found (set BREVONA_APP); the "
                                        "files will be compressed when Brevona next starts."));
        return Failure;
    case AppLauncher::Outcome::StartFailed:
        break;
    }
    CliOutput::error(QStringLiteral("Brevona could not be started (") + AppLauncher::applicationPath() +
                     QStringLiteral("); the files will be compressed when Brevona next starts."));
    return Failure;
}
