#include "engine/InputFile.h"

#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>

namespace {

// A PDF may carry a little junk before its header; readers look this far for it.
constexpr qsizetype kPdfHeaderWindow = 1024;

int freeGlibMemory(void* data, void*)
{
    g_free(data);
    return 0;
}

bool startsWith(const QByteArray& head, const char* magic, qsizetype length, qsizetype at = 0)
{
    return head.size() >= at + length && std::memcmp(head.constData() + at, magic, size_t(length)) == 0;
}

bool isTiff(const QByteArray& head)
{
    return startsWith(head, "II*\0", 4) || startsWith(head, "MM\0*", 4) || startsWith(head, "II+\0", 4) ||
           startsWith(head, "MM\0+", 4);
}

} // namespace

InputFile::~InputFile()
{
    if (m_blob)
        vips_area_unref(VIPS_AREA(m_blob));
}

InputFile::InputFile(const InputFile& other)
    : m_blob(other.m_blob), m_failure(other.m_failure), m_format(other.m_format),
      m_originalSize(other.m_originalSize)
{
    if (m_blob)
        vips_area_copy(VIPS_AREA(m_blob));
}

InputFile& InputFile::operator=(const InputFile& other)
{
    if (this != &other) {
        if (other.m_blob)
            vips_area_copy(VIPS_AREA(other.m_blob));
        if (m_blob)
            vips_area_unref(VIPS_AREA(m_blob));
        m_blob = other.m_blob;
        m_failure = other.m_failure;
        m_format = other.m_format;
        m_originalSize = other.m_originalSize;
    }
    return *this;
}

const void* InputFile::data() const
{
    return m_blob ? VIPS_AREA(m_blob)->data : nullptr;
}

size_t InputFile::size() const
{
    return m_blob ? VIPS_AREA(m_blob)->length : 0;
}

std::optional<InputFile::Format> InputFile::formatForExtension(const QString& path)
{
    const QString extension = QFileInfo(path).suffix().toLower();
    if (extension == QLatin1String("jpg") || extension == QLatin1String("jpeg"))
        return Format::Jpeg;
    if (extension == QLatin1String("png"))
        return Format::Png;
    if (extension == QLatin1String("heic") || extension == QLatin1String("heif") ||
        extension == QLatin1String("avif"))
        return Format::Heif;
    if (extension == QLatin1String("tif") || extension == QLatin1String("tiff"))
        return Format::Tiff;
    if (extension == QLatin1String("bmp"))
        return Format::Bmp;
    if (extension == QLatin1String("gif"))
        return Format::Gif;
    if (extension == QLatin1String("webp"))
        return Format::Webp;
    if (extension == QLatin1String("cr2") || extension == QLatin1String("arw") ||
        extension == QLatin1String("nef") || extension == QLatin1String("dng") ||
        extension == QLatin1String("raw"))
        return Format::CameraRaw;
    if (extension == QLatin1String("pdf"))
        return Format::Pdf;
    return std::nullopt;
}

bool InputFile::hasSignatureOf(const QByteArray& head, Format format)
{
    switch (format) {
    case Format::Jpeg:
        return startsWith(head, "\xff\xd8\xff", 3);
    case Format::Png:
        return startsWith(head, "\x89PNG\r\n\x1a\n", 8);
    case Format::Heif:
        // An ISO media file whose first box is the file type box.
        return startsWith(head, "ftyp", 4, 4);
    case Format::Tiff:
        return isTiff(head);
    case Format::Bmp:
        return startsWith(head, "BM", 2) && head.size() >= 26;
    case Format::Gif:
        return startsWith(head, "GIF87a", 6) || startsWith(head, "GIF89a", 6);
    case Format::Webp:
        return startsWith(head, "RIFF", 4) && startsWith(head, "WEBP", 4, 8);
    case Format::CameraRaw:
        // Camera formats are many; LibRaw, the only reader they reach, identifies them itself.
        return head.size() >= 16;
    case Format::Pdf:
        return head.left(kPdfHeaderWindow).contains("%PDF-");
    }
    return false;
}

bool InputFile::nameIsExact(const QString& path, qint64* size)
{
    if (size)
        *size = 0;
    if (!path.contains(QChar::ReplacementCharacter))
        return true;
    const QFileInfo info(path);
    const QString name = info.fileName();
    DIR* folder = ::opendir(QFile::encodeName(info.absolutePath()).constData());
    if (!folder)
        return false;
    int exact = 0;
    int lossy = 0;
    QByteArray lossyName;
    while (const dirent* entry = ::readdir(folder)) {
        const QByteArray bytes(entry->d_name);
        if (QFile::decodeName(bytes) != name)
            continue;
        if (bytes == QFile::encodeName(name)) {
            ++exact;
        } else {
            ++lossy;
            lossyName = bytes;
        }
    }
    ::closedir(folder);
    if (lossy == 1 && size) {
        struct stat status;
        const QByteArray full = QFile::encodeName(info.absolutePath()) + '/' + lossyName;
        if (::stat(full.constData(), &status) == 0 && S_ISREG(status.st_mode))
            *size = status.st_size;
    }
    return exact == 1 && lossy == 0;
}

InputFile InputFile::read(const QString& path)
{
    InputFile input;
    qint64 meant = 0;
    if (!nameIsExact(path, &meant)) {
        input.m_failure = Failure::AmbiguousName;
        input.m_originalSize = meant;
        return input;
    }
    const QByteArray name = QFile::encodeName(path);
    struct stat status;
    if (::stat(name.constData(), &status) != 0) {
        input.m_failure = Failure::Unreadable;
        return input;
    }
    if (!S_ISREG(status.st_mode)) {
        input.m_failure = Failure::NotRegularFile;
        return input;
    }
    input.m_originalSize = status.st_size;
    const std::optional<Format> format = formatForExtension(path);
    if (!format) {
        input.m_failure = Failure::UnknownFormat;
        return input;
    }

    // Non-blocking, so that a FIFO swapped in after the check above cannot hold the open.
    const int fd = ::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        input.m_failure = Failure::Unreadable;
        return input;
    }
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(fd);
        input.m_failure = Failure::NotRegularFile;
        return input;
    }
    size_t capacity = size_t(std::max<qint64>(status.st_size, 0)) + 1;
    size_t length = 0;
    auto* bytes = static_cast<char*>(g_try_malloc(capacity));
    bool failed = bytes == nullptr;
    while (!failed) {
        if (length == capacity) { // the file grew while we read it
            capacity *= 2;
            char* larger = static_cast<char*>(g_try_realloc(bytes, capacity));
            if (!larger) {
                failed = true;
                break;
            }
            bytes = larger;
        }
        const ssize_t got = ::read(fd, bytes + length, capacity - length);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            failed = true;
        if (got <= 0)
            break;
        length += size_t(got);
    }
    ::close(fd);
    if (failed) {
        g_free(bytes);
        input.m_failure = Failure::Unreadable;
        return input;
    }
    const QByteArray head =
        QByteArray::fromRawData(bytes, qsizetype(std::min<size_t>(length, kPdfHeaderWindow)));
    if (!hasSignatureOf(head, *format)) {
        g_free(bytes);
        input.m_failure = Failure::UnknownFormat;
        return input;
    }
    input.m_blob = vips_blob_new(freeGlibMemory, bytes, length);
    input.m_format = *format;
    input.m_originalSize = qint64(length);
    return input;
}
