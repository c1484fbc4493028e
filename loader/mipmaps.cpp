#include "loader/mipmaps.h"

#include <algorithm>
#include <array>

#include "frame/allocator.h"

static uint32_t halved(uint32_t side) { return std::max(side / 2, 1u); }

// A chain with its block laid out: the palette, then the levels from `firstLevel` (the base being 0) down to a single
// texel.
static MipmapChain* createChain(const Texture2D* texture, const Image2D* image, uint32_t firstLevel,
                                uint32_t texelBytes, uint32_t paletteBytes) {
    const auto lastLevel = uint32_t(std::max(texture->widthLog2, texture->heightLog2));
    std::array<uint32_t, kMaxMipmapLevels> offsets{};
    uint32_t blockBytes = paletteBytes;
    uint32_t width = uint32_t(image->width), height = uint32_t(image->height);
    for (uint32_t level = 0; level <= lastLevel; ++level, width = halved(width), height = halved(height)) {
        if (level < firstLevel) continue;
        offsets[level - firstLevel] = blockBytes;
        blockBytes += width * height * texelBytes;
    }
    auto* chain = static_cast<MipmapChain*>(qelAlloc(kScratchTag, int32_t(sizeof(MipmapChain) + blockBytes)));
    if (!chain) return nullptr;
    chain->levelCount = lastLevel + 1 - firstLevel;
    chain->paletteBytes = paletteBytes;
    chain->imageVersion = image->version;
    chain->blockBytes = blockBytes;
    chain->block = reinterpret_cast<uint8_t*>(chain + 1);
    for (uint32_t i = 0; i < chain->levelCount; ++i) chain->levels[i] = chain->block + offsets[i];
    return chain;
}

static bool store(Texture2D* texture, MipmapChain* chain) {
    if (!chain) return false;
    qelMipmaps_destroy(texture->mipmapLevels);
    texture->mipmapLevels = chain;
    texture->mipmapsBuilt = 1;
    return true;
}

void qelMipmaps_destroy(MipmapChain* chain) { qelFree(chain); }

MipmapChain* qelMipmaps_duplicate(const MipmapChain* chain) {
    const size_t size = sizeof(MipmapChain) + chain->blockBytes;
    auto* copy = static_cast<MipmapChain*>(qelAlloc(kScratchTag, int32_t(size)));
    if (!copy) return nullptr;
    std::memcpy(static_cast<void*>(copy), chain, size);
    copy->block = reinterpret_cast<uint8_t*>(copy + 1);
    for (uint32_t i = 0; i < chain->levelCount; ++i) copy->levels[i] = copy->block + (chain->levels[i] - chain->block);
    return copy;
}

// --- Direct formats ---

// A texel whose components are averaged all at once: a texel and its copy kShift bits further up, masked by kMask, hold
// every component once, with at least two free bits above it for the sum of four.
template <typename TexelWord, uint32_t kShift, uint32_t kMask>
struct TexelFormat {
    using Texel = TexelWord;
    static uint32_t spread(Texel texel) { return (texel | uint32_t(texel) << kShift) & kMask; }
    static Texel gather(uint32_t spread) { return Texel((spread & kMask) | (spread & kMask) >> kShift); }
};
using ByteTexel = TexelFormat<uint8_t, 0, 0xFF>;
using TwoByteTexel = TexelFormat<uint16_t, 8, 0x00FF00FF>;
using Rgb565Texel = TexelFormat<uint16_t, 16, 0x07E0F81F>;
using Rgba4444Texel = TexelFormat<uint16_t, 12, 0x0F0F0F0F>;

template <typename Format>
static void averageBlocks(const typename Format::Texel* above, uint32_t width, uint32_t height,
                          typename Format::Texel* out) {
    for (uint32_t y = 0; y < height; y += 2, above += 2 * width) {
        const auto* below = above + width;
        for (uint32_t x = 0; x < width; x += 2) {
            const uint32_t sum = Format::spread(above[x]) + Format::spread(above[x + 1]) + Format::spread(below[x]) +
                                 Format::spread(below[x + 1]);
            *out++ = Format::gather(sum >> 2);
        }
    }
}

template <typename Format>
static void averagePairs(const typename Format::Texel* above, uint32_t count, typename Format::Texel* out) {
    for (uint32_t i = 0; i < count; i += 2)
        *out++ = Format::gather((Format::spread(above[i]) + Format::spread(above[i + 1])) >> 1);
}

template <typename Format>
static bool buildDirect(Texture2D* texture, const Image2D* image) {
    using Texel = typename Format::Texel;
    MipmapChain* chain = createChain(texture, image, 1, sizeof(Texel), 0);
    if (!chain) return false;
    // A mutable RGB or RGBA image that nothing was set in has wider pixels, but all its bytes are 0xFF: it reads as
    // white.
    const auto* above = reinterpret_cast<const Texel*>(image->pixels);
    uint32_t width = uint32_t(image->width), height = uint32_t(image->height);
    for (uint32_t i = 0; i < chain->levelCount; ++i, width = halved(width), height = halved(height)) {
        auto* level = reinterpret_cast<Texel*>(chain->levels[i]);
        if (width == 1 || height == 1)
            averagePairs<Format>(above, width * height, level);
        else
            averageBlocks<Format>(above, width, height, level);
        above = level;
    }
    return store(texture, chain);
}

bool qelMipmaps_buildByte(Texture2D* texture, const Image2D* image) { return buildDirect<ByteTexel>(texture, image); }

bool qelMipmaps_buildLuminanceAlpha(Texture2D* texture, const Image2D* image) {
    return buildDirect<TwoByteTexel>(texture, image);
}

bool qelMipmaps_buildColor(Texture2D* texture, const Image2D* image) {
    return image->format == ImageFormat::Rgb ? buildDirect<Rgb565Texel>(texture, image)
                                             : buildDirect<Rgba4444Texel>(texture, image);
}

// --- Palette images ---

static uint32_t expandedComponents(ImageFormat format) {
    return format == ImageFormat::Luminance || format == ImageFormat::Rgb ? 3 : 4;
}

// Every component at the top of a byte.
static void expandPalette(const Image2D* image, uint8_t* out) {
    const auto* packed = reinterpret_cast<const uint16_t*>(image->paletteBlock);
    switch (image->format) {
        case ImageFormat::Alpha:
        case ImageFormat::Luminance:
        case ImageFormat::LuminanceAlpha:
            std::memcpy(out, image->paletteBlock, kPaletteEntries * expandedComponents(image->format));
            return;
        case ImageFormat::Rgb:
            for (uint32_t i = 0; i < kPaletteEntries; ++i) {
                const uint32_t entry = packed[i];
                *out++ = uint8_t(entry >> 8 & 0xF8);
                *out++ = uint8_t(entry >> 3 & 0xFC);
                *out++ = uint8_t((entry & 31) << 3);
            }
            return;
        case ImageFormat::Rgba:
            for (uint32_t i = 0; i < kPaletteEntries; ++i) {
                const uint32_t entry = packed[i];
                const bool is5551 = image->levelRecord->palette5551;
                *out++ = uint8_t(entry >> 8 & (is5551 ? 0xF8 : 0xF0));
                *out++ = uint8_t(is5551 ? entry >> 3 & 0xF8 : entry >> 4 & 0xF0);
                *out++ = uint8_t(is5551 ? entry << 2 & 0xF8 : entry & 0xF0);
                *out++ = uint8_t(is5551 ? (entry & 1) << 3 : entry << 4 & 0xF0);
            }
            return;
    }
}

// The candidate whose colour lies nearest to the average of all, the first of equals.
template <uint32_t kCount>
static uint8_t nearestToAverage(const uint8_t* palette, uint32_t components,
                                const std::array<uint8_t, kCount>& candidates) {
    constexpr uint32_t kShift = kCount == 4 ? 2 : 1;
    if (std::ranges::all_of(candidates, [&](uint8_t candidate) { return candidate == candidates[0]; }))
        return candidates[0];
    int32_t average[4] = {};
    for (uint32_t c = 0; c < components; ++c) {
        for (const uint8_t candidate : candidates) average[c] += palette[candidate * components + c];
        average[c] >>= kShift;
    }
    uint8_t nearest = 0;
    int32_t least = INT32_MAX;
    for (const uint8_t candidate : candidates) {
        int32_t distance = 0;
        for (uint32_t c = 0; c < components; ++c) {
            const int32_t difference = palette[candidate * components + c] - average[c];
            distance += difference * difference;
        }
        if (distance >= least) continue;
        least = distance;
        nearest = candidate;
    }
    return nearest;
}

static void chooseIndices(const MipmapChain* chain, const uint8_t* above, uint32_t width, uint32_t height,
                          uint8_t* out) {
    const uint8_t* palette = chain->block;
    if (width == 1 || height == 1) {
        for (uint32_t i = 0; i < width * height; i += 2)
            *out++ = nearestToAverage<2>(palette, chain->paletteComponents, {above[i], above[i + 1]});
        return;
    }
    for (uint32_t y = 0; y < height; y += 2, above += 2 * width) {
        const uint8_t* below = above + width;
        for (uint32_t x = 0; x < width; x += 2)
            *out++ = nearestToAverage<4>(palette, chain->paletteComponents,
                                         {above[x], above[x + 1], below[x], below[x + 1]});
    }
}

bool qelMipmaps_buildPalettized(Texture2D* texture, const Image2D* image) {
    const uint32_t components = expandedComponents(image->format);
    MipmapChain* chain = createChain(texture, image, 0, 1, kPaletteEntries * components);
    if (!chain) return false;
    chain->paletteComponents = components;
    expandPalette(image, chain->block);
    uint32_t width = uint32_t(image->width), height = uint32_t(image->height);
    std::memcpy(chain->levels[0], image->pixels, width * height);
    for (uint32_t i = 1; i < chain->levelCount; ++i, width = halved(width), height = halved(height))
        chooseIndices(chain, chain->levels[i - 1], width, height, chain->levels[i]);
    return store(texture, chain);
}

bool qelMipmaps_build(Texture2D* texture, const Image2D* image) {
    if (image->paletteBlock) return qelMipmaps_buildPalettized(texture, image);
    switch (image->format) {
        case ImageFormat::Alpha:
        case ImageFormat::Luminance: return qelMipmaps_buildByte(texture, image);
        case ImageFormat::LuminanceAlpha: return qelMipmaps_buildLuminanceAlpha(texture, image);
        case ImageFormat::Rgb:
        case ImageFormat::Rgba: return qelMipmaps_buildColor(texture, image);
    }
    return false;
}
