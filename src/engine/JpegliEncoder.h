#pragma once

#include <optional>

#include <vips/vips8>

#include <QByteArray>

/**
 * Encodes an 8-bit image as JPEG with jpegli: adaptive quantisation, optimised Huffman coding,
 * progressive scans, no JFIF/APP markers and no colour profile.
 *
 * The pixels are pulled from libvips strip by strip in order, so a lazily decoded image is
 * streamed from its file into the encoder and never held whole in memory. An alpha band is
 * flattened onto white. Every failure, including a decoder that gives up halfway, is
 * `std::nullopt`. Each call owns all of its state, so calls may run on several threads at once.
 * @code
 * const auto bytes = JpegliEncoder::encode(image, JpegliEncoder::settingsFor(0.8));
 * @endcode
 */
class JpegliEncoder final
{
public:
    struct Settings
    {
        float distance = 1.0f;        ///< jpegli's target distance: 0 is exact, higher is coarser
        bool chromaSubsampled = true; ///< 4:2:0 when true, 4:4:4 otherwise
        bool progressive = true;
    };

    /// Below this quality chroma is subsampled 4:2:0 (balanced and aggressive; lossless keeps 4:4:4).
    static constexpr double kSubsampleBelowQuality = 0.9;

    /// The settings for a quality 0...1 (see the calibration table in the source).
    static Settings settingsFor(double quality);

    /// The JPEG file's bytes, or nothing when the image cannot be read or encoded.
    static std::optional<QByteArray> encode(const vips::VImage& image, const Settings& settings);
};
