#pragma once

#include <optional>

#include <vips/vips8>

#include <QByteArray>

/**
 * Writes an 8-bit image (1 to 4 bands) as the smallest lossless PNG it finds quickly.
 *
 * The pixels are first reduced without loss: all-grey pixels become greyscale, an alpha band
 * that is all 255 is dropped, at most 256 distinct colours (alpha included) become an exact
 * palette at the smallest bit depth, and greyscale takes the smallest bit depth its values allow.
 * The rows are then filtered (no filter, per-row adaptive or Paeth, whichever deflates smallest)
 * and deflated with libdeflate. No metadata is written. Safe to call from several threads.
 * @code
 * const std::optional<QByteArray> png = PNGEncoder::encode(image);
 * @endcode
 */
class PNGEncoder final
{
public:
    /// libdeflate level of the final deflate (1 fastest ... 12 smallest), chosen by measurement.
    static constexpr int kDeflateLevel = 12;

    /// The PNG file's bytes; nothing when the image is empty, too large or not 8-bit.
    static std::optional<QByteArray> encode(const vips::VImage& image);

    PNGEncoder() = delete;
};
