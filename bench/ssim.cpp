// Mean SSIM of two images on their luma, the figure the benchmark uses to compare lossy
// encoders at equal quality. Gaussian window (sigma 1.5) and the usual constants
// C1 = (0.01 * 255)^2, C2 = (0.03 * 255)^2.
//   brevona-ssim REFERENCE DISTORTED    prints one number, 1 means identical
#include <cstdio>
#include <exception>

#include <vips/vips8>

namespace {

vips::VImage luma(const char* path)
{
    vips::VImage image =
        vips::VImage::new_from_file(path, vips::VImage::option()->set("access", "sequential"));
    image = image.autorot();
    if (image.has_alpha())
        image = image.flatten(vips::VImage::option()->set("background", 255.0));
    image = image.colourspace(VIPS_INTERPRETATION_sRGB).cast(VIPS_FORMAT_UCHAR);
    // Rec. 601 luma, as most published SSIM figures use.
    return image.recomb(vips::VImage::new_matrixv(3, 1, 0.299, 0.587, 0.114))
        .cast(VIPS_FORMAT_FLOAT)
        .copy_memory();
}

vips::VImage blur(const vips::VImage& image)
{
    return image.gaussblur(1.5, vips::VImage::option()->set("precision", VIPS_PRECISION_FLOAT));
}

} // namespace

int main(int argc, char** argv)
{
    if (VIPS_INIT(argv[0]) != 0 || argc != 3) {
        std::fprintf(stderr, "usage: %s REFERENCE DISTORTED\n", argv[0]);
        return 2;
    }
    try {
        const vips::VImage x = luma(argv[1]);
        const vips::VImage y = luma(argv[2]);
        if (x.width() != y.width() || x.height() != y.height()) {
            std::fprintf(stderr, "sizes differ: %dx%d and %dx%d\n", x.width(), x.height(), y.width(),
                         y.height());
            return 1;
        }
        constexpr double c1 = (0.01 * 255) * (0.01 * 255);
        constexpr double c2 = (0.03 * 255) * (0.03 * 255);
        const vips::VImage muX = blur(x);
        const vips::VImage muY = blur(y);
        const vips::VImage muXY = muX * muY;
        const vips::VImage muXX = muX * muX;
        const vips::VImage muYY = muY * muY;
        const vips::VImage sigmaXX = blur(x * x) - muXX;
        const vips::VImage sigmaYY = blur(y * y) - muYY;
        const vips::VImage sigmaXY = blur(x * y) - muXY;
        const vips::VImage map =
            ((muXY * 2 + c1) * (sigmaXY * 2 + c2)) / ((muXX + muYY + c1) * (sigmaXX + sigmaYY + c2));
        std::printf("%.6f\n", map.avg());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
