#include "engine/PNGEncoder.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include <libdeflate.h>

namespace {

enum ColourType : uint8_t
{
    Grey = 0,
    Truecolour = 2,
    Indexed = 3,
    GreyAlpha = 4,
    TruecolourAlpha = 6
};

enum class Filter
{
    None,
    Adaptive, // per row, the smallest sum of the bytes read as signed values
    Paeth,
    Trial, // per row, the filter whose bytes deflate smallest after the rows above
};

/// libdeflate level used to rank the candidates: fast, and it ranks them as the final level does
/// on the bench images.
constexpr int kTrialLevel = 4;

/// Rows before the one being filtered that the per-row deflate trial sees, and its level.
constexpr size_t kTrialContextRows = 2;
constexpr int kRowTrialLevel = 1;

/// Images up to this many bytes of packed rows are ranked, and deflated, at every level.
constexpr size_t kSmallImageBytes = 64 * 1024;

/// Chunk data beyond this is split over several IDAT chunks (a chunk holds at most 2^31 - 1).
constexpr size_t kMaxChunk = size_t(1) << 30;

/// Pixels as 32-bit keys, red in the low byte and alpha in the high one.
uint32_t keyOf(uint8_t r, uint8_t g, uint8_t b, uint8_t a)
{
    return uint32_t(r) | uint32_t(g) << 8 | uint32_t(b) << 16 | uint32_t(a) << 24;
}

/// Up to 256 distinct colours and the index of each, in an open-addressed table.
class ColourSet
{
public:
    ColourSet() { m_slots.fill(kEmpty); }

    /// Adds the colour; false once more than 256 distinct ones were seen.
    bool add(uint32_t key)
    {
        size_t slot = hash(key);
        while (m_slots[slot] != kEmpty) {
            if (m_colours[m_slots[slot]] == key)
                return true;
            slot = (slot + 1) % kSlots;
        }
        if (m_colours.size() == 256)
            return false;
        m_slots[slot] = static_cast<uint16_t>(m_colours.size());
        m_colours.push_back(key);
        return true;
    }

    /// Position of a colour that was added, in the order of adding.
    int indexOf(uint32_t key) const
    {
        size_t slot = hash(key);
        while (m_colours[m_slots[slot]] != key)
            slot = (slot + 1) % kSlots;
        return m_slots[slot];
    }

    const std::vector<uint32_t>& colours() const { return m_colours; }

private:
    static constexpr size_t kSlots = 1024; // at most a quarter full, so probes stay short
    static constexpr uint16_t kEmpty = 0xffff;
    static size_t hash(uint32_t key) { return (key * 2654435761u) >> 22; }

    std::array<uint16_t, kSlots> m_slots;
    std::vector<uint32_t> m_colours;
};

/// What one pass over the pixels found out.
struct Survey
{
    bool grey = true;
    bool opaque = true;
    bool fewColours = true; // at most 256, alpha included
    int greyDepth = 1;      // smallest bit depth that holds every grey value exactly
    ColourSet colours;
};

/// One way of laying out the pixels: packed rows as the PNG holds them, before filtering.
struct Raster
{
    ColourType type = Truecolour;
    int depth = 8;
    size_t rowBytes = 0;
    size_t pixelBytes = 1; // the distance filters look back, at least one byte
    std::vector<uint8_t> rows;
    std::vector<uint8_t> palette; // RGB triples
    std::vector<uint8_t> alphas;  // tRNS: alpha of the first palette entries, up to the last below 255
};

Survey survey(const uint8_t* pixels, size_t count, int bands)
{
    Survey result;
    const bool colour = bands >= 3;
    const bool alpha = bands == 2 || bands == 4;
    std::array<bool, 256> seenGrey{};
    uint32_t last = 0;
    bool haveLast = false;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* p = pixels + i * size_t(bands);
        const uint8_t r = p[0];
        const uint8_t g = colour ? p[1] : r;
        const uint8_t b = colour ? p[2] : r;
        const uint8_t a = alpha ? p[bands - 1] : 255;
        const uint32_t key = keyOf(r, g, b, a);
        if (haveLast && key == last)
            continue;
        last = key;
        haveLast = true;
        if (r != g || g != b)
            result.grey = false;
        else
            seenGrey[r] = true;
        if (a != 255)
            result.opaque = false;
        if (result.fewColours)
            result.fewColours = result.colours.add(key);
        if (!result.grey && !result.opaque && !result.fewColours)
            break; // nothing left to reduce
    }
    // 1, 2 and 4-bit grey levels are read back as multiples of 255, 85 and 17.
    for (int v = 0; v < 256 && result.grey; ++v) {
        if (!seenGrey[v])
            continue;
        if (v % 17 != 0)
            result.greyDepth = 8;
        else if (v % 85 != 0)
            result.greyDepth = std::max(result.greyDepth, 4);
        else if (v % 255 != 0)
            result.greyDepth = std::max(result.greyDepth, 2);
    }
    return result;
}

int channelsOf(ColourType type)
{
    switch (type) {
    case Grey:
    case Indexed:
        return 1;
    case GreyAlpha:
        return 2;
    case Truecolour:
        return 3;
    case TruecolourAlpha:
        return 4;
    }
    return 4;
}

Raster emptyRaster(ColourType type, int depth, int width, int height)
{
    Raster raster;
    raster.type = type;
    raster.depth = depth;
    const size_t bits = size_t(width) * size_t(channelsOf(type)) * size_t(depth);
    raster.rowBytes = (bits + 7) / 8;
    raster.pixelBytes = std::max<size_t>(1, size_t(channelsOf(type)) * size_t(depth) / 8);
    raster.rows.assign(raster.rowBytes * size_t(height), 0);
    return raster;
}

/// Writes sample `value` (already at `depth` bits) as the `x`th sample of a packed row.
void putSample(uint8_t* row, size_t x, int depth, uint8_t value)
{
    if (depth == 8) {
        row[x] = value;
        return;
    }
    const size_t perByte = 8 / size_t(depth);
    const int shift = 8 - depth * (1 + int(x % perByte));
    row[x / perByte] |= static_cast<uint8_t>(value << shift);
}

/// Truecolour or greyscale, with or without alpha, from the source bands.
Raster directRaster(const uint8_t* pixels, int width, int height, int bands, ColourType type, int depth)
{
    Raster raster = emptyRaster(type, depth, width, height);
    const bool sourceAlpha = bands == 2 || bands == 4;
    const int divisor = depth == 8 ? 1 : 255 / ((1 << depth) - 1);
    for (int y = 0; y < height; ++y) {
        const uint8_t* in = pixels + size_t(y) * size_t(width) * size_t(bands);
        uint8_t* out = raster.rows.data() + size_t(y) * raster.rowBytes;
        for (int x = 0; x < width; ++x, in += bands) {
            switch (type) {
            case Grey:
                putSample(out, size_t(x), depth, static_cast<uint8_t>(in[0] / divisor));
                break;
            case GreyAlpha:
                *out++ = in[0];
                *out++ = sourceAlpha ? in[bands - 1] : 255;
                break;
            case Truecolour:
                std::memcpy(out, in, 3);
                out += 3;
                break;
            case TruecolourAlpha:
                std::memcpy(out, in, 3);
                out[3] = sourceAlpha ? in[3] : 255;
                out += 4;
                break;
            case Indexed:
                break;
            }
        }
    }
    return raster;
}

enum class PaletteOrder
{
    Frequency, // the commonest colours get the smallest indices
    FirstSeen, // keeps the order in which the rows meet the colours
};

/// Every pixel's position in the colour set, and how often each colour occurs.
struct SetIndices
{
    std::vector<uint8_t> indices;
    std::vector<size_t> counts;
};

SetIndices setIndices(const uint8_t* pixels, size_t count, int bands, const ColourSet& set)
{
    SetIndices result{std::vector<uint8_t>(count), std::vector<size_t>(set.colours().size(), 0)};
    const bool colour = bands >= 3;
    const bool alpha = bands == 2 || bands == 4;
    uint32_t last = 0;
    uint8_t lastIndex = 0;
    bool haveLast = false;
    for (size_t i = 0; i < count; ++i, pixels += bands) {
        const uint32_t key = keyOf(pixels[0], colour ? pixels[1] : pixels[0], colour ? pixels[2] : pixels[0],
                                   alpha ? pixels[bands - 1] : 255);
        if (!haveLast || key != last) {
            last = key;
            lastIndex = static_cast<uint8_t>(set.indexOf(key));
            haveLast = true;
        }
        result.indices[i] = lastIndex;
        ++result.counts[lastIndex];
    }
    return result;
}

/// An exact palette: entries with alpha below 255 first so that tRNS stays short, then in `order`.
Raster indexedRaster(const SetIndices& found, const ColourSet& set, int width, int height,
                     PaletteOrder paletteOrder)
{
    const std::vector<uint32_t>& colours = set.colours();
    const size_t n = colours.size();
    const int depth = n <= 2 ? 1 : n <= 4 ? 2 : n <= 16 ? 4 : 8;
    Raster raster = emptyRaster(Indexed, depth, width, height);

    std::vector<size_t> order(n);
    for (size_t i = 0; i < n; ++i)
        order[i] = i;
    const auto rank = [&](size_t i) {
        const size_t weight = paletteOrder == PaletteOrder::Frequency ? ~found.counts[i] : 0;
        return std::pair((colours[i] >> 24) == 255, weight);
    };
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return rank(a) < rank(b); });
    std::vector<uint8_t> indexOf(n);
    for (size_t i = 0; i < n; ++i) {
        const uint32_t c = colours[order[i]];
        indexOf[order[i]] = static_cast<uint8_t>(i);
        raster.palette.insert(raster.palette.end(),
                              {uint8_t(c & 0xff), uint8_t(c >> 8 & 0xff), uint8_t(c >> 16 & 0xff)});
        if ((c >> 24) != 255) // these come first, so tRNS ends at the last of them
            raster.alphas.push_back(uint8_t(c >> 24));
    }

    const uint8_t* in = found.indices.data();
    for (int y = 0; y < height; ++y) {
        uint8_t* out = raster.rows.data() + size_t(y) * raster.rowBytes;
        for (int x = 0; x < width; ++x)
            putSample(out, size_t(x), depth, indexOf[*in++]);
    }
    return raster;
}

uint8_t paeth(uint8_t a, uint8_t b, uint8_t c)
{
    const int p = int(a) + int(b) - int(c);
    const int pa = std::abs(p - int(a));
    const int pb = std::abs(p - int(b));
    const int pc = std::abs(p - int(c));
    if (pa <= pb && pa <= pc)
        return a;
    return pb <= pc ? b : c;
}

/// Applies filter `Type` (0 to 4) to one row; `prior` is the row above (zeros for the first).
template <int Type>
void filterRowAs(const uint8_t* row, const uint8_t* prior, size_t n, size_t bpp, uint8_t* out)
{
    for (size_t i = 0; i < n; ++i) {
        const uint8_t left = i >= bpp ? row[i - bpp] : 0;
        uint8_t predicted = 0;
        if constexpr (Type == 1)
            predicted = left;
        else if constexpr (Type == 2)
            predicted = prior[i];
        else if constexpr (Type == 3)
            predicted = static_cast<uint8_t>((int(left) + int(prior[i])) / 2);
        else if constexpr (Type == 4)
            predicted = paeth(left, prior[i], i >= bpp ? prior[i - bpp] : 0);
        out[i] = static_cast<uint8_t>(row[i] - predicted);
    }
}

/// The type is chosen once per row, not per byte: filtering runs for every candidate of every row.
void filterRow(int type, const uint8_t* row, const uint8_t* prior, size_t n, size_t bpp, uint8_t* out)
{
    switch (type) {
    case 1:
        return filterRowAs<1>(row, prior, n, bpp, out);
    case 2:
        return filterRowAs<2>(row, prior, n, bpp, out);
    case 3:
        return filterRowAs<3>(row, prior, n, bpp, out);
    case 4:
        return filterRowAs<4>(row, prior, n, bpp, out);
    default:
        return filterRowAs<0>(row, prior, n, bpp, out);
    }
}

/// Sum of the filtered bytes read as signed values: the usual estimate of how well a row deflates.
uint64_t cost(const uint8_t* bytes, size_t n)
{
    uint64_t sum = 0;
    for (size_t i = 0; i < n; ++i)
        sum += static_cast<uint64_t>(std::abs(int(static_cast<int8_t>(bytes[i]))));
    return sum;
}

struct CompressorFree
{
    void operator()(libdeflate_compressor* compressor) const { libdeflate_free_compressor(compressor); }
};
using Compressor = std::unique_ptr<libdeflate_compressor, CompressorFree>;

/// The rows as the zlib stream holds them: each preceded by its filter type.
std::vector<uint8_t> filtered(const Raster& raster, Filter filter)
{
    const size_t n = raster.rowBytes;
    const size_t height = n == 0 ? 0 : raster.rows.size() / n;
    std::vector<uint8_t> out((n + 1) * height);
    const std::vector<uint8_t> zeros(n, 0);
    std::vector<uint8_t> trial(filter == Filter::Adaptive ? n : 0);
    std::vector<uint8_t> scratch;
    const Compressor rowCompressorOwner(filter == Filter::Trial ? libdeflate_alloc_compressor(kRowTrialLevel)
                                                                : nullptr);
    libdeflate_compressor* rowCompressor = rowCompressorOwner.get();
    if (filter == Filter::Trial && !rowCompressor)
        return {};
    std::vector<uint8_t> packed(
        filter == Filter::Trial
            ? libdeflate_deflate_compress_bound(rowCompressor, (kTrialContextRows + 1) * (n + 1))
            : 0);
    for (size_t y = 0; y < height; ++y) {
        const uint8_t* row = raster.rows.data() + y * n;
        const uint8_t* prior = y == 0 ? zeros.data() : row - n;
        uint8_t* target = out.data() + y * (n + 1);
        int type = filter == Filter::Paeth ? 4 : 0;
        if (filter == Filter::Trial) {
            // Each filter deflated after the rows already chosen: slower than the sum, and closer
            // to what the final deflate will make of the row.
            const size_t contextRows = std::min<size_t>(y, kTrialContextRows);
            const uint8_t* context = target - contextRows * (n + 1);
            size_t best = std::numeric_limits<size_t>::max();
            for (int candidate = 0; candidate < 5; ++candidate) {
                scratch.assign(context, static_cast<const uint8_t*>(target));
                scratch.push_back(static_cast<uint8_t>(candidate));
                scratch.resize(scratch.size() + n);
                filterRow(candidate, row, prior, n, raster.pixelBytes, scratch.data() + scratch.size() - n);
                const size_t size = libdeflate_deflate_compress(rowCompressor, scratch.data(), scratch.size(),
                                                                packed.data(), packed.size());
                if (size != 0 && size < best) {
                    best = size;
                    type = candidate;
                }
            }
        }
        if (filter == Filter::Adaptive) {
            uint64_t best = std::numeric_limits<uint64_t>::max();
            for (int candidate = 0; candidate < 5; ++candidate) {
                filterRow(candidate, row, prior, n, raster.pixelBytes, trial.data());
                const uint64_t c = cost(trial.data(), n);
                if (c < best) {
                    best = c;
                    type = candidate;
                }
            }
        }
        target[0] = static_cast<uint8_t>(type);
        filterRow(type, row, prior, n, raster.pixelBytes, target + 1);
    }
    return out;
}

/// The zlib stream of `data`; empty on failure.
std::vector<uint8_t> deflate(libdeflate_compressor* compressor, const std::vector<uint8_t>& data)
{
    std::vector<uint8_t> out(libdeflate_zlib_compress_bound(compressor, data.size()));
    const size_t size =
        libdeflate_zlib_compress(compressor, data.data(), data.size(), out.data(), out.size());
    out.resize(size);
    return out;
}

void appendBigEndian(QByteArray& out, uint32_t value)
{
    const char bytes[] = {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
    out.append(bytes, 4);
}

void appendChunk(QByteArray& out, const char* type, const uint8_t* data, size_t length)
{
    appendBigEndian(out, static_cast<uint32_t>(length));
    const qsizetype start = out.size();
    out.append(type, 4);
    if (length > 0)
        out.append(reinterpret_cast<const char*>(data), static_cast<qsizetype>(length));
    const auto* crcStart = reinterpret_cast<const uint8_t*>(out.constData() + start);
    appendBigEndian(out, libdeflate_crc32(0, crcStart, length + 4));
}

QByteArray pngFile(const Raster& raster, int width, int height, const std::vector<uint8_t>& stream)
{
    QByteArray out;
    out.reserve(static_cast<qsizetype>(stream.size() + raster.palette.size() + raster.alphas.size() + 128));
    out.append("\x89PNG\r\n\x1a\n", 8);
    std::array<uint8_t, 13> header{};
    for (int i = 0; i < 4; ++i) {
        header[size_t(i)] = uint8_t(uint32_t(width) >> (24 - 8 * i));
        header[size_t(4 + i)] = uint8_t(uint32_t(height) >> (24 - 8 * i));
    }
    header[8] = static_cast<uint8_t>(raster.depth);
    header[9] = raster.type; // compression, filter method and interlace stay 0
    appendChunk(out, "IHDR", header.data(), header.size());
    if (!raster.palette.empty())
        appendChunk(out, "PLTE", raster.palette.data(), raster.palette.size());
    if (!raster.alphas.empty())
        appendChunk(out, "tRNS", raster.alphas.data(), raster.alphas.size());
    for (size_t offset = 0; offset < stream.size(); offset += kMaxChunk)
        appendChunk(out, "IDAT", stream.data() + offset, std::min(kMaxChunk, stream.size() - offset));
    appendChunk(out, "IEND", nullptr, 0);
    return out;
}

} // namespace

std::optional<QByteArray> PNGEncoder::encode(const vips::VImage& image)
{
    const int width = image.width();
    const int height = image.height();
    const int bands = image.bands();
    if (width < 1 || height < 1 || bands < 1 || bands > 4)
        return std::nullopt;
    // Filtered rows plus their filter bytes must fit in memory sizes and a 32-bit row count.
    if (size_t(width) * size_t(bands) >= size_t(std::numeric_limits<int32_t>::max()))
        return std::nullopt;
    vips::VImage eight = image.format() == VIPS_FORMAT_UCHAR ? image : image.cast(VIPS_FORMAT_UCHAR);
    eight = eight.copy_memory(); // no copy when the pixels are already in memory
    const auto* pixels = static_cast<const uint8_t*>(eight.data());
    if (!pixels)
        return std::nullopt;

    const size_t count = size_t(width) * size_t(height);
    const Survey found = survey(pixels, count, bands);
    const bool alpha = (bands == 2 || bands == 4) && !found.opaque;

    std::vector<Raster> candidates;
    if (found.grey)
        candidates.push_back(alpha ? directRaster(pixels, width, height, bands, GreyAlpha, 8)
                                   : directRaster(pixels, width, height, bands, Grey, found.greyDepth));
    else
        candidates.push_back(
            directRaster(pixels, width, height, bands, alpha ? TruecolourAlpha : Truecolour, 8));
    if (found.fewColours) {
        const SetIndices indices = setIndices(pixels, count, bands, found.colours);
        for (const PaletteOrder order : {PaletteOrder::Frequency, PaletteOrder::FirstSeen}) {
            Raster indexed = indexedRaster(indices, found.colours, width, height, order);
            // A palette only helps grey when it packs the pixels tighter than grey itself can.
            if (!found.grey || alpha || indexed.depth < found.greyDepth)
                candidates.push_back(std::move(indexed));
        }
    }

    // Rank every layout and filter on a fast level, then deflate the winner properly. Small
    // images are ranked at the final level: there a few bytes decide, and it costs little.
    const bool small = candidates.front().rows.size() <= kSmallImageBytes;
    const Compressor trial(libdeflate_alloc_compressor(small ? kDeflateLevel : kTrialLevel));
    const Compressor final(libdeflate_alloc_compressor(kDeflateLevel));
    if (!trial || !final)
        return std::nullopt;
    size_t bestSize = std::numeric_limits<size_t>::max();
    const Raster* bestRaster = nullptr;
    std::vector<uint8_t> bestRows;
    for (const Raster& raster : candidates) {
        const bool lowBit = raster.type == Indexed || raster.depth < 8;
        // Paeth on every row won on none of the 39 bench PNGs (687 bytes over all of them): on
        // large images it is left to the per-row choices.
        std::vector<Filter> filters{Filter::None, Filter::Adaptive};
        if (!lowBit && small)
            filters.push_back(Filter::Paeth);
        if (!lowBit)
            filters.push_back(Filter::Trial);
        for (const Filter filter : filters) {
            std::vector<uint8_t> rows = filtered(raster, filter);
            if (rows.empty())
                continue;
            const size_t deflated = deflate(trial.get(), rows).size();
            const size_t size = deflated + raster.palette.size() + raster.alphas.size();
            if (deflated > 0 && size < bestSize) {
                bestSize = size;
                bestRaster = &raster;
                bestRows = std::move(rows);
            }
        }
    }
    if (!bestRaster)
        return std::nullopt;
    std::vector<uint8_t> stream = deflate(final.get(), bestRows);
    // On a few kilobytes the levels' parses differ by some bytes either way; trying them is cheap.
    for (int level = kDeflateLevel - 1; small && level >= kTrialLevel; --level) {
        const Compressor other(libdeflate_alloc_compressor(level));
        std::vector<uint8_t> candidate = other ? deflate(other.get(), bestRows) : std::vector<uint8_t>{};
        if (!candidate.empty() && (stream.empty() || candidate.size() < stream.size()))
            stream = std::move(candidate);
    }
    if (stream.empty())
        return std::nullopt;
    return pngFile(*bestRaster, width, height, stream);
}
