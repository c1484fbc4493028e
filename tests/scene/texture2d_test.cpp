#include "scene/texture2d.h"

#include <algorithm>
#include <array>
#include <random>

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

static Texture2D* makeTexture(Image2D* adopted) {
    Result result;
    Texture2D* texture = qelTexture2D_create(adopted, &result);
    qelObject3D_unref(adopted);
    return texture;
}

static Bytes randomBytes(size_t count) {
    static std::mt19937 random(7);
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = uint8_t(random());
    return bytes;
}

// --- Texture2D ---

TEST(Texture2D, TakesImagesWithPowerOfTwoSidesUpTo256) {
    struct Case {
        int32_t width, height;
        std::array<int32_t, 2> log2;  // -1: refused
    };
    for (const Case& c : {Case{128, 64, {7, 6}}, Case{1, 256, {0, 8}}, Case{100, 64, {-1}}, Case{64, 3, {-1}},
                          Case{512, 512, {-1}}, Case{0, 4, {-1}}}) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
        const Result expected = c.log2[0] < 0 ? QEL_STATUS_ILLEGAL_ARGUMENT : QEL_STATUS_OK;
        Result result;
        const Held image(qelImage2D_createMutable(int32_t(ImageFormat::Alpha), c.width, c.height, &result));
        const Held texture(qelTexture2D_create(image, &result));
        EXPECT_EQ(result, expected);
        const Held other(makeTexture(makeStored(ImageFormat::Alpha, 2, 2, {})));
        EXPECT_EQ(qelTexture2D_setImage(other, image), expected);
        EXPECT_EQ(image->refCount, expected == QEL_STATUS_OK ? 3 : 1);
        if (!texture.get()) continue;
        EXPECT_EQ((std::array<int32_t, 2>{texture->widthLog2, texture->heightLog2}), c.log2);
    }
    Result result;
    EXPECT_EQ(qelTexture2D_create(nullptr, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
}

TEST(Texture2D, BuildsMipmapsWhenALevelFilterAsksForThem) {
    const Held texture(makeTexture(makeStored(ImageFormat::Alpha, 4, 4, {})));
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
    EXPECT_NE(copy->mipmapLevels, chain);
    EXPECT_NE(copy->rendererTexture, texture->rendererTexture);
    EXPECT_EQ(copy->mipmapLevels->levels[1] - copy->mipmapLevels->block, chain->levels[1] - chain->block);
    EXPECT_TRUE(std::equal(chain->block, chain->block + chain->blockBytes, copy->mipmapLevels->block));

    const Held smaller(makeStored(ImageFormat::Alpha, 2, 1, {}));
    qelTexture2D_setImage(texture, smaller);
    EXPECT_EQ(texture->mipmapLevels, nullptr) << "of the image before";
}

TEST(Texture2D, GivesEverythingBackWhenMemoryRunsOut) {
    sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        Result result;
        const Held image(qelImage2D_createMutable(int32_t(ImageFormat::Rgb), 4, 4, &result));
        if (!image.get()) return;
        const Held texture(qelTexture2D_create(image, &result));
        EXPECT_EQ(result == QEL_STATUS_OK, texture.get() != nullptr);
        if (!texture.get()) return;
        const bool failedBefore = heap.hasFailed();
        if (qelTexture2D_setFiltering(texture, kLinear, kLinear) != QEL_STATUS_OK) {
            EXPECT_FALSE(failedBefore);
            EXPECT_EQ(texture->levelFilter, TextureFilter::BaseLevel);
            EXPECT_EQ(texture->mipmapsBuilt, 0u);
            EXPECT_EQ(qelTexture2D_setFiltering(texture, kLinear, kLinear), QEL_STATUS_OK);
        }
        const Held copy(qelTexture2D_duplicate(texture));
    });
}

// --- Mipmaps ---

// A stored texel as its components, each as wide as it is stored.
struct TexelLayout {
    ImageFormat format;
    uint32_t bytes;
    std::vector<uint32_t> fieldBits;  // from the most significant of the little-endian texel
};

static std::vector<uint32_t> fieldsOf(const TexelLayout& layout, const uint8_t* texel) {
    uint32_t word = layout.bytes == 2 ? texel[0] | texel[1] << 8 : texel[0];
    std::vector<uint32_t> fields;
    for (size_t i = layout.fieldBits.size(); i-- > 0;) {
        fields.insert(fields.begin(), word % (1u << layout.fieldBits[i]));
        word /= 1u << layout.fieldBits[i];
    }
    return fields;
}

static void putFields(const TexelLayout& layout, const std::vector<uint32_t>& fields, Bytes* out) {
    uint32_t word = 0;
    for (size_t i = 0; i < fields.size(); ++i) word = word << layout.fieldBits[i] | fields[i];
    out->push_back(uint8_t(word));
    if (layout.bytes == 2) out->push_back(uint8_t(word >> 8));
}

// The texels of the level above that make texel (x, y) of the next one.
static std::vector<uint32_t> sourcesOf(uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    std::vector<uint32_t> sources;
    for (uint32_t row = 0; row < (height > 1 ? 2u : 1u); ++row)
        for (uint32_t column = 0; column < (width > 1 ? 2u : 1u); ++column)
            sources.push_back((height > 1 ? 2 * y + row : 0) * width + (width > 1 ? 2 * x + column : 0));
    return sources;
}

static Bytes nextLevel(const TexelLayout& layout, const Bytes& above, uint32_t width, uint32_t height) {
    Bytes level;
    for (uint32_t y = 0; y < std::max(height / 2, 1u); ++y)
        for (uint32_t x = 0; x < std::max(width / 2, 1u); ++x) {
            std::vector<uint32_t> sums(layout.fieldBits.size());
            const std::vector<uint32_t> sources = sourcesOf(x, y, width, height);
            for (const uint32_t source : sources)
                for (size_t i = 0; i < sums.size(); ++i) sums[i] += fieldsOf(layout, &above[source * layout.bytes])[i];
            for (uint32_t& sum : sums) sum /= uint32_t(sources.size());
            putFields(layout, sums, &level);
        }
    return level;
}

constexpr std::array<std::array<int32_t, 2>, 8> kSizes = {
    {{1, 1}, {4, 1}, {1, 8}, {2, 2}, {16, 4}, {2, 32}, {64, 64}, {256, 2}}};

TEST(Mipmaps, AverageEveryComponentOfDirectFormats) {
    for (const TexelLayout& layout :
         {TexelLayout{ImageFormat::Alpha, 1, {8}}, TexelLayout{ImageFormat::Luminance, 1, {8}},
          TexelLayout{ImageFormat::LuminanceAlpha, 2, {8, 8}}, TexelLayout{ImageFormat::Rgb, 2, {5, 6, 5}},
          TexelLayout{ImageFormat::Rgba, 2, {4, 4, 4, 4}}})
        for (const auto [width, height] : kSizes) {
            SCOPED_TRACE(testing::Message() << int32_t(layout.format) << ": " << width << " x " << height);
            Bytes above = randomBytes(size_t(width * height) * layout.bytes);
            const Held texture(makeTexture(makeStored(layout.format, width, height, above)));
            ASSERT_TRUE(qelMipmaps_build(texture, texture->image));
            const MipmapChain& chain = *texture->mipmapLevels;
            ASSERT_EQ(chain.levelCount, uint32_t(std::max(texture->widthLog2, texture->heightLog2)));
            uint32_t w = uint32_t(width), h = uint32_t(height);
            for (uint32_t i = 0; i < chain.levelCount; ++i) {
                above = nextLevel(layout, above, w, h);
                w = std::max(w / 2, 1u);
                h = std::max(h / 2, 1u);
                EXPECT_EQ(Bytes(chain.levels[i], chain.levels[i] + above.size()), above) << "level " << i + 1;
                EXPECT_LE(chain.levels[i] + above.size(), chain.block + chain.blockBytes);
            }
            EXPECT_EQ(w * h, 1u);
        }
}

// An entry's components as 8 bits each, low bits 0: from whole bytes, or from bit fields given like TexelLayout's.
struct PaletteCase {
    const char* what;
    ImageFormat format;
    bool is5551;
    uint32_t entryBytes;
    std::vector<uint32_t> fieldBits;  // none: whole bytes
};

static const PaletteCase kPaletteCases[] = {{"alpha", ImageFormat::Alpha, false, 4, {}},
                                            {"luminance", ImageFormat::Luminance, false, 3, {}},
                                            {"two", ImageFormat::LuminanceAlpha, false, 4, {}},
                                            {"5-6-5", ImageFormat::Rgb, false, 2, {5, 6, 5}},
                                            {"4-4-4-4", ImageFormat::Rgba, false, 2, {4, 4, 4, 4}},
                                            {"5-5-5-1", ImageFormat::Rgba, true, 2, {5, 5, 5, 1}}};

static std::vector<uint32_t> expand(const PaletteCase& c, const uint8_t* entry) {
    if (c.fieldBits.empty()) return {entry, entry + c.entryBytes};
    std::vector<uint32_t> components = fieldsOf({c.format, 2, c.fieldBits}, entry);
    for (size_t i = 0; i < components.size(); ++i) components[i] *= c.fieldBits[i] == 1 ? 8 : 256 >> c.fieldBits[i];
    return components;
}

using Palette = std::vector<std::vector<uint32_t>>;

static uint8_t nearestCandidate(const Palette& palette, const Bytes& candidates) {
    std::vector<uint32_t> average(palette[0].size());
    for (size_t c = 0; c < average.size(); ++c) {
        for (const uint8_t candidate : candidates) average[c] += palette[candidate][c];
        average[c] /= uint32_t(candidates.size());
    }
    std::vector<double> distances;
    for (const uint8_t candidate : candidates) {
        double distance = 0;
        for (size_t c = 0; c < average.size(); ++c) {
            const double difference = double(palette[candidate][c]) - double(average[c]);
            distance += difference * difference;
        }
        distances.push_back(distance);
    }
    return candidates[size_t(std::min_element(distances.begin(), distances.end()) - distances.begin())];
}

static Bytes nextIndices(const Palette& palette, const Bytes& above, uint32_t width, uint32_t height) {
    Bytes level;
    for (uint32_t y = 0; y < std::max(height / 2, 1u); ++y)
        for (uint32_t x = 0; x < std::max(width / 2, 1u); ++x) {
            Bytes candidates;
            for (const uint32_t source : sourcesOf(x, y, width, height)) candidates.push_back(above[source]);
            level.push_back(nearestCandidate(palette, candidates));
        }
    return level;
}

TEST(Mipmaps, ChooseAmongTheIndicesOfPaletteImages) {
    for (const PaletteCase& c : kPaletteCases)
        for (const auto [width, height] : kSizes) {
            SCOPED_TRACE(testing::Message() << c.what << ": " << width << " x " << height);
            Result result;
            uint8_t* indices = nullptr;
            Image2D* image = qelImage2D_createIndexed(c.format, width, height, c.is5551, &indices, &result);
            const Bytes stored = randomBytes(256 * c.entryBytes);
            std::copy(stored.begin(), stored.end(), image->paletteBlock);
            Bytes above = randomBytes(size_t(width * height));
            for (uint8_t& index : above) index %= 9;  // so that neighbours are often alike
            std::copy(above.begin(), above.end(), indices);
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
            ASSERT_EQ(chain.levelCount, 1 + uint32_t(std::max(texture->widthLog2, texture->heightLog2)));
            EXPECT_EQ(chain.levels[0], chain.block + flat.size());
            uint32_t w = uint32_t(width), h = uint32_t(height);
            for (uint32_t i = 0; i < chain.levelCount; ++i) {
                EXPECT_EQ(Bytes(chain.levels[i], chain.levels[i] + above.size()), above) << "level " << i;
                above = nextIndices(palette, above, w, h);
                w = std::max(w / 2, 1u);
                h = std::max(h / 2, 1u);
            }
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
