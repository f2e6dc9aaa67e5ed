#pragma once

#include <vips/vips8>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QString>

#include "engine/CompressionSettings.h"
#include "engine/ImageDecoder.h"

/// Small helpers shared by the engine tests: fixture copies, file fingerprints and pixel checks.
namespace EngineFixtures {

inline QString dataPath(const QString& name)
{
    return QStringLiteral(BREVONA_TEST_DATA "/") + name;
}

/// The defaults (jpeg, balanced, "-web", same folder, no limits) with another format, scaled to
/// `maxEdge` when above 0 (below 0: that edge stored, the limit off) and kept under `limitKB`.
inline CompressionSettings settingsFor(OutputFormat format = OutputFormat::Jpeg, int maxEdge = 0,
                                       int limitKB = 0)
{
    CompressionSettings settings;
    settings.outputFormat = format;
    settings.limitLongestEdge = maxEdge > 0;
    settings.longestEdgePx = maxEdge != 0 ? std::abs(maxEdge) : settings.longestEdgePx;
    settings.limitOutputFileSize = limitKB > 0;
    settings.maxFileSizeKB = limitKB > 0 ? limitKB : settings.maxFileSizeKB;
    return settings;
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

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Names in `folder`, hidden ones included (a leftover temporary file would be hidden).
inline QStringList entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

/// A file's pixels as stored, with no colour management or turning.
inline vips::VImage loaded(const QString& path)
{
    return vips::VImage::new_from_file(path.toUtf8().constData()).copy_memory();
}

/// Mean of |a - b| over every pixel and band.
inline double meanDifference(const vips::VImage& a, const vips::VImage& b)
{
    return (a.cast(VIPS_FORMAT_FLOAT) - b.cast(VIPS_FORMAT_FLOAT)).abs().avg();
}

/// Largest |a - b| of any band of any pixel.
inline double maxDifference(const vips::VImage& a, const vips::VImage& b)
{
    return (a.cast(VIPS_FORMAT_INT) - b.cast(VIPS_FORMAT_INT)).abs().max();
}

/// Largest difference between the pixels of a written PNG and `expected`: laid out as the decoder
/// lays out any image, opaque alpha put back where the encoder dropped it; 255 if sizes differ.
inline double pngDifference(const vips::VImage& png, const vips::VImage& expected)
{
    vips::VImage decoded = ImageDecoder::toSRGB8(png);
    if (decoded.bands() == 3 && expected.bands() == 4)
        decoded = decoded.bandjoin_const({255});
    if (decoded.bands() != expected.bands() || decoded.width() != expected.width() ||
        decoded.height() != expected.height())
        return 255;
    return maxDifference(decoded, expected);
}

inline std::vector<double> pixel(const vips::VImage& image, int x, int y)
{
    return const_cast<vips::VImage&>(image).getpoint(x, y);
}

} // namespace EngineFixtures
