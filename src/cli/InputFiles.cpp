#include "cli/InputFiles.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <QFileInfo>
#include <QRegularExpression>

#include "cli/ArgumentText.h"
#include "session/AcceptedFiles.h"

namespace {

namespace fs = std::filesystem;

/// Appends the accepted files under `folder` (native bytes) to `found`, unsorted.
void collect(const fs::path& folder, const QString& suffix, std::vector<std::string>& found)
{
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        const fs::directory_entry& entry = *it;
        const std::string name = entry.path().filename().native();
        if (name.empty() || name.front() == '.')
            continue;
        std::error_code statusError;
        if (entry.is_symlink(statusError) && entry.is_directory(statusError))
            continue; // a link back up the tree would never end
        if (entry.is_directory(statusError)) {
            collect(entry.path(), suffix, found);
            continue;
        }
        if (!entry.is_regular_file(statusError))
            continue;
        const QString decodedName = ArgumentText::decoded(QByteArray::fromStdString(name));
        const QString extension = QFileInfo(decodedName).suffix().toLower();
        if (AcceptedFiles::imageExts().contains(extension) && !InputFiles::isOwnOutput(decodedName, suffix))
            found.push_back(entry.path().native());
    }
}

} // namespace

bool InputFiles::isOwnOutput(const QString& fileName, const QString& suffix)
{
    if (suffix.isEmpty())
        return false;
    const QRegularExpression own(QRegularExpression::escape(suffix) + QStringLiteral("(-p\\d+)?(_\\d+)?$"));
    return own.match(QFileInfo(fileName).completeBaseName()).hasMatch();
}

QStringList InputFiles::expanded(const QStringList& arguments, const QString& suffix,
                                 QStringList* emptyFolders)
{
    QStringList files;
    for (const QString& argument : arguments) {
        const QString absolute =
            ArgumentText::isValid(argument) ? QFileInfo(argument).absoluteFilePath() : argument;
        if (!ArgumentText::isValid(argument) || !QFileInfo(absolute).isDir()) {
            files.append(absolute);
            continue;
        }
        std::vector<std::string> found;
        collect(fs::path(absolute.toStdString()), suffix, found);
        // Byte order is code point order for UTF-8, and keeps undecodable names in place too.
        std::sort(found.begin(), found.end());
        if (found.empty() && emptyFolders)
            emptyFolders->append(absolute);
        for (const std::string& path : found)
            files.append(ArgumentText::decoded(QByteArray::fromStdString(path)));
    }
    return files;
}
