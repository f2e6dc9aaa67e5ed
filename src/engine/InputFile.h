#pragma once

#include <optional>

#include <vips/vips8>

#include <QString>

/**
 * An input file read whole into memory with ordinary reads, and the one format that both its
 * extension and its first bytes name.
 *
 * Decoders work on these bytes, never on the file: a file that is truncated or rewritten while a
 * job runs cannot pull pages out from under a decoder (a mapped file would kill the process with
 * SIGBUS), and a loader is picked by us, not by whatever libvips would guess from the contents.
 * Only regular files are read (after following links): a FIFO or a device is refused before it is
 * opened. A name that may stand for another file (see `nameIsExact`) is refused too.
 * @code
 * const InputFile input = InputFile::read(path);
 * if (input.format() == InputFile::Format::Jpeg)
 *     image = vips::VImage::jpegload_buffer(input.blob());
 * @endcode
 */
class InputFile final
{
public:
    /// The input formats Brevona accepts, by the loader that reads them.
    enum class Format
    {
        Jpeg,
        Png,
        Heif, ///< HEIC, HEIF and AVIF
        Tiff,
        Bmp,
        Gif,
        Webp,
        CameraRaw,
        Pdf
    };
    /// Why nothing was read.
    enum class Failure
    {
        None,
        Unreadable,     ///< missing, unreadable, or a read error
        NotRegularFile, ///< a folder, FIFO, socket or device
        AmbiguousName,  ///< the name is not valid UTF-8 (see `nameIsExact`)
        UnknownFormat,  ///< no accepted extension, or the first bytes name another format
    };

    InputFile() = default;
    ~InputFile();
    InputFile(const InputFile& other);
    InputFile& operator=(const InputFile& other);

    /// Reads `path` whole; on failure the result is empty and `failure()` says why.
    static InputFile read(const QString& path);

    /// The format for an accepted extension (case-insensitive), or nothing.
    static std::optional<Format> formatForExtension(const QString& path);
    /// Whether `head` (the first bytes of a file) starts as `format` does.
    static bool hasSignatureOf(const QByteArray& head, Format format);
    /**
     * Qt paths are Unicode: a file name whose bytes are not UTF-8 reaches us with U+FFFD in place
     * of each bad byte, which names another file or none. Such a path is refused unless the folder
     * holds exactly the UTF-8 name and no other entry that reads the same. `size` receives the
     * size of the file the name most likely meant (0 when unknown).
     */
    static bool nameIsExact(const QString& path, qint64* size = nullptr);

    bool isValid() const { return m_blob != nullptr; }
    Failure failure() const { return m_failure; }
    Format format() const { return m_format; }
    /// The file's bytes as a reference-counted libvips blob (valid while this object lives;
    /// loaders take their own reference).
    VipsBlob* blob() const { return m_blob; }
    const void* data() const;
    size_t size() const;
    /// Size of the file as read; when nothing was read, the size of the file the name meant, or 0.
    qint64 originalSize() const { return m_originalSize; }

private:
    VipsBlob* m_blob = nullptr;
    Failure m_failure = Failure::None;
    Format m_format = Format::Jpeg;
    qint64 m_originalSize = 0;
};
