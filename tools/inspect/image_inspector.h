// What a BMP image holds, as far as a texture can be made of it.
#pragma once

#include <cstdint>
#include <span>

namespace inspect {

struct ImageSummary {
    uint32_t width = 0, height = 0;
    uint32_t bitsPerPixel = 0;
    uint32_t textureSide = 0;  // of the square it is padded to; 0 when both sides are powers of two
};

// Throws ContentProblem for what the library would not load as a texture.
ImageSummary inspectImage(std::span<const uint8_t> bytes);

}  // namespace inspect
