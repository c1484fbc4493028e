#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/encode/byte_writer.h"

namespace encode {

// A picture with rows from top to bottom, without padding.
struct BmpImage {
    uint32_t width = 0, height = 0;
    uint32_t bitsPerPixel = 8;                      // 8 or 24
    std::vector<uint8_t> indices{};                 // 8 bits: width * height palette indices
    std::vector<std::array<uint8_t, 3>> palette{};  // 8 bits: red, green, blue; 1..256 entries
    std::vector<std::array<uint8_t, 3>> pixels{};   // 24 bits: width * height of red, green, blue

    bool topDown = false;  // rows from top to bottom in the file as well, told by a negative height

    // Unset: the size of the palette (of 24 bits: 0). An 8-bit file with 0 holds 256 entries, unused ones black.
    std::optional<uint32_t> colorsUsed{};
    uint32_t gapByteCount = 0;  // between the colour table and the pixels
    uint8_t fill = 0;           // value of the gap's bytes and of what pads rows to a multiple of 4 bytes
};

// Writes an uncompressed BMP file with a 40-byte info header. Throws std::invalid_argument when sizes contradict each
// other or colorsUsed is neither 0 nor the size of the palette.
//
// Fields of the result: magic fileSize reserved pixelOffset headerSize width height planes bitsPerPixel compression
// imageSize xPixelsPerMetre yPixelsPerMetre colorsUsed importantColors
EncodedFile encodeBmp(const BmpImage& image);

}  // namespace encode
