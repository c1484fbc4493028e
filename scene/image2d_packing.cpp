// The pixel packing of image2d.h.
#include <array>

#include "scene/image2d.h"

#if defined(__x86_64__) || defined(__i386__)
#define K8_PACK_WITH_SSSE3
#include <tmmintrin.h>
#endif

// Where red, green and blue stand in a pixel of three bytes.
struct ByteOrder {
    uint8_t red, green, blue;
};
constexpr ByteOrder kRgb = {0, 1, 2};
constexpr ByteOrder kBgr = {2, 1, 0};

template <ByteOrder kOrder>
static void pack565Plain(const uint8_t* bytes, uint16_t* out, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i, bytes += 3) {
        const uint32_t r = bytes[kOrder.red], g = bytes[kOrder.green], b = bytes[kOrder.blue];
        out[i] = uint16_t((r & 0xF8) << 8 | (g & 0xFC) << 3 | b >> 3);
    }
}

#ifdef K8_PACK_WITH_SSSE3

constexpr uint32_t kPixelsPerStep = 8;
constexpr uint8_t kNone = 0xFF;

// Gathers bytes of 8 pixels into 8 words: the byte at `high` of each pixel into the upper half, that at `low` into the
// lower; kNone leaves 0. The 24 bytes come in two registers, of which this one begins at byte `start`.
static constexpr std::array<uint8_t, 16> gatherMask(uint8_t low, uint8_t high, uint32_t start) {
    std::array<uint8_t, 16> mask{};
    for (uint32_t i = 0; i < 16; ++i) {
        const uint8_t inPixel = i & 1 ? high : low;
        const uint32_t byte = 3 * (i / 2) + inPixel;
        // Bytes 8 to 15 are in both registers; the first one serves them.
        const bool isHere = start == 0 ? byte < 16 : byte >= 16;
        mask[i] = inPixel != kNone && isHere ? uint8_t(byte - start) : 0x80;
    }
    return mask;
}

template <ByteOrder kOrder>
__attribute__((target("ssse3"))) static uint32_t pack565Ssse3(const uint8_t* bytes, uint16_t* out, uint32_t n) {
    alignas(16) static constexpr std::array kRedBlue = {gatherMask(kOrder.blue, kOrder.red, 0),
                                                        gatherMask(kOrder.blue, kOrder.red, 8)};
    alignas(16) static constexpr std::array kGreen = {gatherMask(kOrder.green, kNone, 0),
                                                      gatherMask(kOrder.green, kNone, 8)};
    const auto load = [](const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); };
    const __m128i redBlue0 = load(&kRedBlue[0]), redBlue1 = load(&kRedBlue[1]);
    const __m128i green0 = load(&kGreen[0]), green1 = load(&kGreen[1]);
    const __m128i redMask = _mm_set1_epi16(int16_t(0xF800)), greenMask = _mm_set1_epi16(0xFC),
                  blueMask = _mm_set1_epi16(0xF8);

    uint32_t i = 0;
    for (; i + kPixelsPerStep <= n; i += kPixelsPerStep, bytes += 3 * kPixelsPerStep) {
        const __m128i first = load(bytes), last = load(bytes + 8);
        const __m128i rb = _mm_or_si128(_mm_shuffle_epi8(first, redBlue0), _mm_shuffle_epi8(last, redBlue1));
        const __m128i g = _mm_or_si128(_mm_shuffle_epi8(first, green0), _mm_shuffle_epi8(last, green1));
        const __m128i red = _mm_and_si128(rb, redMask);
        const __m128i green = _mm_slli_epi16(_mm_and_si128(g, greenMask), 3);
        const __m128i blue = _mm_srli_epi16(_mm_and_si128(rb, blueMask), 3);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_or_si128(_mm_or_si128(red, green), blue));
    }
    return i;
}

#endif

template <ByteOrder kOrder>
static void pack565(const uint8_t* bytes, uint16_t* out, uint32_t n) {
    uint32_t done = 0;
#ifdef K8_PACK_WITH_SSSE3
    if (__builtin_cpu_supports("ssse3")) done = pack565Ssse3<kOrder>(bytes, out, n);
#endif
    pack565Plain<kOrder>(bytes + size_t(done) * 3, out + done, n - done);
}

void qelImage2D_packRgb565(const uint8_t* rgb, uint16_t* out, uint32_t n) { pack565<kRgb>(rgb, out, n); }

void qelImage2D_packBgr565(const uint8_t* bgr, uint16_t* out, uint32_t n) { pack565<kBgr>(bgr, out, n); }

void qelImage2D_packRgba4444(const uint8_t* rgba, uint16_t* out, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i, rgba += 4) {
        const uint32_t r = rgba[0], g = rgba[1], b = rgba[2], a = rgba[3];
        out[i] = uint16_t((r & 0xF0) << 8 | (g & 0xF0) << 4 | (b & 0xF0) | a >> 4);
    }
}

void qelImage2D_packRgba5551(const uint8_t* rgba, uint16_t* out, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i, rgba += 4) {
        const uint32_t r = rgba[0], g = rgba[1], b = rgba[2], a = rgba[3];
        out[i] = uint16_t((r & 0xF8) << 8 | (g & 0xF8) << 3 | (b >> 2 & 0x3E) | (a >> 3 & 1));
    }
}
