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
 * The local paths of the dragged URLs whose extension, lower-cased, is in imageExts(), in
 * pasteboard order. Duplicates are kept; nothing is checked on disk, so a folder passes only when
 * its name happens to end in such an extension. Any URL that is not a local file empties the
 * whole list, as does data without URLs.
 */
QStringList acceptedFileURLs(const QMimeData* mime);

} // namespace AcceptedFiles
