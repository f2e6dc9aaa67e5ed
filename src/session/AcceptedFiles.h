#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

class QMimeData;

/// The reading and filtering step shared by every drop target.
namespace AcceptedFiles {

/// Lower-case file-name extensions a drop accepts: images, camera RAW and PDF.
const QSet<QString>& imageExts();

/**
 * The dragged URLs whose path extension, lower-cased, is in imageExts(), in pasteboard order: a
 * local file as its path, anything else (a web address) as the URL's text, which the engine then
 * fails to read like any unreadable file. Duplicates are kept; nothing is checked on disk, so a
 * folder passes only when its name happens to end in such an extension. Data without URLs gives
 * an empty list.
 */
QStringList acceptedFileURLs(const QMimeData* mime);

} // namespace AcceptedFiles
