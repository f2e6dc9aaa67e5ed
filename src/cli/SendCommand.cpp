#include "cli/SendCommand.h"

#include <QFileInfo>

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
    const QStringList paths = absolutePaths(files);
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
    return Success;
}
