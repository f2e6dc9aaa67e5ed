#include "cli/SendCommand.h"

#include <QFileInfo>
#include <QTextStream>
#include <QVariant>

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

int SendCommand::run(const QStringList& files, QTextStream& err)
{
    if (files.isEmpty()) {
        err << "usage: brevona-cli send FILE...\n";
        return 2;
    }
    const QStringList paths = absolutePaths(files);
    Defaults suite = AppGroupDefaults::open();
    if (!suite.isRequestedStore()) {
        err << "brevona-cli: cannot open the shared settings at " << Defaults::directory() << '\n';
        return 1;
    }
    const bool written = suite.update(AppGroupDefaults::Keys::pendingFiles,
                                      [&](const QVariant& stored) { return appended(stored, paths); });
    if (!written) {
        err << "brevona-cli: cannot write " << suite.filePath() << '\n';
        return 1;
    }
    return 0;
}
