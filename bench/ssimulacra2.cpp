// SSIMULACRA2 of a distorted image against its reference, the perceptual metric the benchmark
// uses to compare lossy encoders at equal quality. Both images are read by libvips, flattened
// onto white, converted to 8-bit sRGB and scored by the vendored reference implementation.
//   brevona-ssimulacra2 REFERENCE DISTORTED    prints one score, 100 means identical
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>

#include <vips/vips8>

#include "tools/ssimulacra2.h"

namespace {

std::optional<jpegli::extras::PackedPixelFile> load(const char* path)
{
    vips::VImage image = vips::VImage::new_from_file(path).autorot();
    if (image.has_alpha())
        image = image.flatten(vips::VImage::option()->set("background", 255.0));
    image = image.colourspace(VIPS_INTERPRETATION_sRGB).cast(VIPS_FORMAT_UCHAR);
    if (image.bands() != 3)
        image = image.extract_band(0, vips::VImage::option()->set("n", 3));
    image = image.copy_memory();

    jpegli::extras::PackedPixelFile file;
    file.info.xsize = static_cast<uint32_t>(image.width());
    file.info.ysize = static_cast<uint32_t>(image.height());
    file.info.bits_per_sample = 8;
    file.info.num_color_channels = 3;
    file.info.intensity_target = 255.0f;
    file.color_encoding.color_space = JPEGLI_COLOR_SPACE_RGB;
    file.color_encoding.white_point = JPEGLI_WHITE_POINT_D65;
    file.color_encoding.primaries = JPEGLI_PRIMARIES_SRGB;
    file.color_encoding.transfer_function = JPEGLI_TRANSFER_FUNCTION_SRGB;
    file.color_encoding.rendering_intent = JPEGLI_RENDERING_INTENT_PERCEPTUAL;
    const JpegliPixelFormat format{3, JPEGLI_TYPE_UINT8, JPEGLI_NATIVE_ENDIAN, 0};
    auto frame = jpegli::extras::PackedFrame::Create(file.info.xsize, file.info.ysize, format);
    if (!frame.ok())
        return std::nullopt;
    file.frames.emplace_back(std::move(frame).value_());
    jpegli::extras::PackedImage& pixels = file.frames.back().color;
    const auto* source = static_cast<const uint8_t*>(image.data());
    const size_t row = size_t(image.width()) * 3;
    for (size_t y = 0; y < file.info.ysize; ++y)
        std::memcpy(static_cast<uint8_t*>(pixels.pixels()) + y * pixels.stride, source + y * row, row);
    return file;
}

} // namespace

int main(int argc, char** argv)
{
    if (VIPS_INIT(argv[0]) != 0 || argc != 3) {
        std::fprintf(stderr, "usage: %s REFERENCE DISTORTED\n", argv[0]);
        return 2;
    }
    try {
        const auto reference = load(argv[1]);
        const auto distorted = load(argv[2]);
        if (!reference || !distorted) {
            std::fprintf(stderr, "out of memory\n");
            return 1;
        }
        auto score = ComputeSSIMULACRA2(*reference, *distorted);
        if (!score.ok()) {
            std::fprintf(stderr, "cannot compare (sizes differ?)\n");
            return 1;
        }
        std::printf("%.4f\n", std::move(score).value_().Score());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
