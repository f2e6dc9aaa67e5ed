#pragma once

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QString>

/// Small helpers shared by the engine tests: fixture copies and file fingerprints.
namespace EngineFixtures {

inline QString dataPath(const QString& name)
{
    return QStringLiteral(BREVONA_TEST_DATA "/") + name;
}

/// Copies a file of tests/data into `folder` (under `asName` when given) and returns the copy's path.
inline QString copyFixture(const QString& name, const QString& folder, const QString& asName = {})
{
    const QString target = QDir(folder).filePath(asName.isEmpty() ? name : asName);
    QFile::remove(target);
    if (!QFile::copy(dataPath(name), target))
        return {};
    QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    return target;
}

inline QByteArray sha256(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    return hash.result();
}

inline bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

/// Names in `folder`, hidden ones included (a leftover temporary file would be hidden).
inline QStringList entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

} // namespace EngineFixtures
