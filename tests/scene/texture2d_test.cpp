#include "scene/texture2d.h"

#include <algorithm>
#include <array>
#include <functional>
#include <numeric>
#include <random>
#include <utility>

#include "loader/mipmaps.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

using Bytes = std::vector<uint8_t>;

constexpr int32_t kBaseLevel = 208, kLinear = 209, kNearest = 210;

// A direct image with these stored bytes.
static Image2D* makeStored(ImageFormat format, int32_t width, int32_t height, const Bytes& stored) {
    Result result;
    Image2D* image = qelImage2D_createFromPixels(int32_t(format), width, height,
                                                 Bytes(size_t(width * height) * 4).data(), true, &result);
    std::copy(stored.begin(), stored.end(), image->pixels);
    return image;
}

static Bytes randomBytes(size_t count) {
    static std::mt19937 random(7);
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = uint8_t(random());
    return bytes;
}

// --- Texture2D ---

TEST(Texture2D, TakesImagesWithPowerOfTwoSidesUpTo256) {
    const Held other(makeTexture());
    Result result;
    using Row = std::array<int32_t, 4>;
    for (const auto& [width, height, widthLog2, heightLog2] :
         {Row{128, 64, 7, 6}, Row{1, 256, 0, 8}, Row{100, 64, -1}, Row{64, 3, -1}, Row{512, 512, -1}, Row{0, 4, -1}}) {
        SCOPED_TRACE(testing::Message() << width << " x " << height);
        const Result expected = widthLog2 < 0 ? QEL_STATUS_ILLEGAL_ARGUMENT : QEL_STATUS_OK;
        const Held image(makeImage(ImageFormat::Alpha, width, height));
        const Held texture(qelTexture2D_create(image, &result));
        EXPECT_EQ(result, expected);
        EXPECT_EQ(qelTexture2D_setImage(other, image), expected);
        EXPECT_EQ(image->refCount, expected == QEL_STATUS_OK ? 3 : 1);
        if (!texture.get()) continue;
        EXPECT_EQ(int32_t(texture->widthLog2), widthLog2);
        EXPECT_EQ(int32_t(texture->heightLog2), heightLog2);
    }
    EXPECT_EQ(qelTexture2D_create(nullptr, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
}

TEST(Texture2D, BuildsMipmapsWhenALevelFilterAsksForThem) {
    const Held texture(makeTexture(makeImage(ImageFormat::Alpha, 4, 4)));
    texture->stateChanged = 0;
    qelTexture2D_setFiltering(texture, kBaseLevel, kNearest);
    EXPECT_EQ(texture->stateChanged, 0) << "the pair it has";
    qelTexture2D_setFiltering(texture, kBaseLevel, kLinear);
    EXPECT_EQ(texture->mipmapLevels, nullptr);
    EXPECT_EQ(texture->stateChanged, 1);
    qelTexture2D_setFiltering(texture, kNearest, kLinear);
    const MipmapChain* chain = texture->mipmapLevels;
    ASSERT_NE(chain, nullptr);
    qelTexture2D_setFiltering(texture, kLinear, kLinear);
    EXPECT_EQ(texture->mipmapLevels, chain) << "built once";

    const Held copy(static_cast<Texture2D*>(qelTexture2D_duplicate(texture)));
    EXPECT_NE(copy->rendererTexture, texture->rendererTexture);
    ASSERT_NE(copy->mipmapLevels, chain);
    EXPECT_EQ(copy->mipmapLevels->levels[1] - copy->mipmapLevels->block, chain->levels[1] - chain->block);
    EXPECT_TRUE(std::equal(chain->block, chain->block + chain->blockBytes, copy->mipmapLevels->block));
    const Held smaller(makeImage(ImageFormat::Alpha, 2, 1));
    qelTexture2D_setImage(texture, smaller);
    EXPECT_EQ(texture->mipmapLevels, nullptr) << "of the image before";
}

TEST(Texture2D, GivesEverythingBackWhenMemoryRunsOut) {
    sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        const Held texture(makeTexture(makeImage(ImageFormat::Rgb, 4, 4)));
        EXPECT_EQ(texture.get() == nullptr, heap.hasFailed());
        if (!texture.get()) return;
        if (qelTexture2D_setFiltering(texture, kLinear, kLinear) != QEL_STATUS_OK) {
            EXPECT_TRUE(heap.hasFailed());
            EXPECT_EQ(texture->levelFilter, TextureFilter::BaseLevel);
            EXPECT_EQ(texture->mipmapsBuilt, 0u);
            EXPECT_EQ(qelTexture2D_setFiltering(texture, kLinear, kLinear), QEL_STATUS_OK);
        }
        const Held copy(qelTexture2D_duplicate(texture));
    });
}

// --- Mipmaps ---

using Sources = std::vector<uint32_t>;
using MakeTexel = std::function<void(const Bytes& above, const Sources& sources, Bytes* level)>;

// The texels of the level above that make each texel of the next one.
static std::vector<Sources> nextSources(uint32_t width, uint32_t height) {
    std::vector<Sources> all;
    for (uint32_t y = 0; y < std::max(height / 2, 1u); ++y)
        for (uint32_t x = 0; x < std::max(width / 2, 1u); ++x) {
            Sources& sources = all.emplace_back();
            for (uint32_t row = 0; row < std::min(height, 2u); ++row)
                for (uint32_t column = 0; column < std::min(width, 2u); ++column)
                    sources.push_back((2 * y + row) * width + 2 * x + column);
        }
    return all;
}

// The chain holds all levels below the base level, and that one too when it `hasBase`.
static void expectLevels(const Texture2D* texture, bool hasBase, Bytes level, const MakeTexel& makeTexel) {
    const MipmapChain& chain = *texture->mipmapLevels;
    uint32_t width = 1u << texture->widthLog2, height = 1u << texture->heightLog2;
    ASSERT_EQ(chain.levelCount, uint32_t(hasBase) + std::max(texture->widthLog2, texture->heightLog2));
    for (uint32_t i = 0; i < chain.levelCount; ++i) {
        if (i > 0 || !hasBase) {
            const Bytes above = std::exchange(level, {});
            for (const Sources& sources : nextSources(width, height)) makeTexel(above, sources, &level);
            width = std::max(width / 2, 1u);
            height = std::max(height / 2, 1u);
        }
        EXPECT_EQ(Bytes(chain.levels[i], chain.levels[i] + level.size()), level) << "level " << i;
        EXPECT_LE(chain.levels[i] + level.size(), chain.block + chain.blockBytes);
    }
    EXPECT_EQ(width * height, 1u);
}

// Widths of fields, from the most significant of a little-endian word of one or two bytes.
using Fields = std::vector<uint32_t>;

static uint32_t bytesOf(const Fields& bits) { return std::accumulate(bits.begin(), bits.end(), 0u) / 8; }

static Fields unpack(const Fields& bits, const uint8_t* texel) {
    uint32_t word = bytesOf(bits) == 2 ? texel[0] | texel[1] << 8 : texel[0];
    Fields fields(bits.size());
    for (size_t i = bits.size(); i-- > 0; word >>= bits[i]) fields[i] = word % (1u << bits[i]);
    return fields;
}

static void pack(const Fields& bits, const Fields& fields, Bytes* out) {
    uint32_t word = 0;
    for (size_t i = 0; i < fields.size(); ++i) word = word << bits[i] | fields[i];
    for (uint32_t byte = 0; byte < bytesOf(bits); ++byte) out->push_back(uint8_t(word >> 8 * byte));
}

constexpr std::array<std::array<int32_t, 2>, 8> kSizes = {
    {{1, 1}, {4, 1}, {1, 8}, {2, 2}, {16, 4}, {2, 32}, {64, 64}, {256, 2}}};

TEST(Mipmaps, AverageEveryComponentOfDirectFormats) {
    using enum ImageFormat;
    for (const auto& [format, widths] : std::vector<std::pair<ImageFormat, Fields>>{
             {Alpha, {8}}, {Luminance, {8}}, {LuminanceAlpha, {8, 8}}, {Rgb, {5, 6, 5}}, {Rgba, {4, 4, 4, 4}}})
        for (const auto [width, height] : kSizes) {
            const Fields& bits = widths;
            SCOPED_TRACE(testing::Message() << int32_t(format) << ": " << width << " x " << height);
            const Bytes base = randomBytes(size_t(width * height) * bytesOf(bits));
            const Held texture(makeTexture(makeStored(format, width, height, base)));
            ASSERT_TRUE(qelMipmaps_build(texture, texture->image));
            expectLevels(texture, false, base, [&bits](const Bytes& above, const Sources& sources, Bytes* level) {
                Fields average(bits.size());
                for (const uint32_t source : sources) {
                    const Fields fields = unpack(bits, &above[source * bytesOf(bits)]);
                    for (size_t i = 0; i < average.size(); ++i) average[i] += fields[i];
                }
                for (uint32_t& sum : average) sum /= uint32_t(sources.size());
                pack(bits, average, level);
            });
        }
}

struct PaletteCase {
    const char* what;
    ImageFormat format;
    bool is5551;
    uint32_t entryBytes;
    Fields bits;  // none: whole bytes
};

// An entry's components as 8 bits each, low bits 0.
static Fields expand(const PaletteCase& c, const uint8_t* entry) {
    if (c.bits.empty()) return {entry, entry + c.entryBytes};
    Fields components = unpack(c.bits, entry);
    for (size_t i = 0; i < components.size(); ++i) components[i] *= c.bits[i] == 1 ? 8 : 256 >> c.bits[i];
    return components;
}

using Palette = std::vector<Fields>;

// The index whose colour is nearest to the average of all, the first of several.
static uint8_t nearestIndex(const Palette& palette, const Bytes& candidates) {
    uint8_t nearest = 0;
    uint32_t least = UINT32_MAX;
    for (const uint8_t candidate : candidates) {
        uint32_t distance = 0;
        for (size_t c = 0; c < palette[0].size(); ++c) {
            uint32_t sum = 0;
            for (const uint8_t each : candidates) sum += palette[each][c];
            const uint32_t difference = palette[candidate][c] - sum / uint32_t(candidates.size());
            distance += difference * difference;
        }
        if (distance < least) nearest = candidate;
        least = std::min(least, distance);
    }
    return nearest;
}

TEST(Mipmaps, ChooseAmongTheIndicesOfPaletteImages) {
    using enum ImageFormat;
    for (const PaletteCase& c :
         {PaletteCase{"alpha", Alpha, false, 4, {}}, PaletteCase{"luminance", Luminance, false, 3, {}},
          PaletteCase{"two", LuminanceAlpha, false, 4, {}}, PaletteCase{"5-6-5", Rgb, false, 2, {5, 6, 5}},
          PaletteCase{"4-4-4-4", Rgba, false, 2, {4, 4, 4, 4}}, PaletteCase{"5-5-5-1", Rgba, true, 2, {5, 5, 5, 1}}})
        for (const auto [width, height] : kSizes) {
            SCOPED_TRACE(testing::Message() << c.what << ": " << width << " x " << height);
            Result result;
            uint8_t* indices = nullptr;
            Image2D* image = qelImage2D_createIndexed(c.format, width, height, c.is5551, &indices, &result);
            const Bytes stored = randomBytes(256 * c.entryBytes);
            std::copy(stored.begin(), stored.end(), image->paletteBlock);
            Bytes base = randomBytes(size_t(width * height));
            for (uint8_t& index : base) index %= 9;  // so that neighbours are often alike
            std::copy(base.begin(), base.end(), indices);
            const Held texture(makeTexture(image));
            ASSERT_TRUE(qelMipmaps_build(texture, image));

            Palette palette;
            Bytes flat;
            for (uint32_t i = 0; i < 256; ++i) {
                palette.push_back(expand(c, &stored[i * c.entryBytes]));
                flat.insert(flat.end(), palette.back().begin(), palette.back().end());
            }
            const MipmapChain& chain = *texture->mipmapLevels;
            EXPECT_EQ(chain.paletteComponents, palette[0].size());
            EXPECT_EQ(chain.paletteBytes, flat.size());
            EXPECT_EQ(Bytes(chain.block, chain.block + flat.size()), flat);
            EXPECT_EQ(chain.levels[0], chain.block + flat.size());
            expectLevels(texture, true, base, [&palette](const Bytes& above, const Sources& sources, Bytes* level) {
                Bytes candidates;
                for (const uint32_t source : sources) candidates.push_back(above[source]);
                level->push_back(nearestIndex(palette, candidates));
            });
        }
}

TEST(Mipmaps, PreferTheEarlierOfEquallyNearColours) {
    const Bytes indices = {5, 5, 9, 9};
    Bytes palette(256 * 3);
    for (size_t c = 0; c < 3; ++c) palette[9 * 3 + c] = 64;
    Result result;
    const Held texture(
        makeTexture(qelImage2D_createPalettized(99, 2, 2, indices.data(), palette.data(), 768, &result)));
    qelMipmaps_build(texture, texture->image);
    EXPECT_EQ(texture->mipmapLevels->levels[1][0], 5);
}
