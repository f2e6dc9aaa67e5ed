#pragma once

#include <QString>
#include <QStringList>

/**
 * The files a compress run takes from its arguments.
 *
 * A folder becomes the files inside it, recursively, whose extension a drop would accept, in path
 * order, leaving out hidden files and folders, folders reached through symbolic links, and our
 * own outputs (names that already end in the run's suffix). Other arguments pass as they are,
 * made absolute. Names keep their bytes through ArgumentText, so one that is not UTF-8 can be
 * refused instead of reaching a different file.
 */
class InputFiles final
{
public:
    /// The files in argument order; `emptyFolders` receives folders that gave none.
    static QStringList expanded(const QStringList& arguments, const QString& suffix,
                                QStringList* emptyFolders);
    /// Whether a file name looks like an output written with `suffix` ("a-web.jpg",
    /// "a-web_2.jpg", "doc-web-p3.png"); never with an empty suffix, which every name would match.
    static bool isOwnOutput(const QString& fileName, const QString& suffix);
};
