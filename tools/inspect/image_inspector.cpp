#include "tools/inspect/image_inspector.h"

#include <algorithm>
#include <bit>

#include "tools/inspect/content_reader.h"

namespace inspect {

ImageSummary inspectImage(std::span<const uint8_t> bytes) {
    constexpr uint32_t kLimit = 256;
    ContentReader in(bytes);
    ImageSummary out;
    in.expect(in.u16("the magic") == 0x4D42, "the magic", in.offset(), "the bytes \"BM\"");
    in.skip("the file size", 8);
    const uint32_t pixelOffset = in.u32("the pixel offset");
    const uint32_t headerSize = in.u32("the info header's size");
    in.expect(headerSize == 40, "the info header's size", headerSize, "40");
    out.width = in.u32("the width");
    in.expect(out.width >= 1 && out.width <= kLimit, "the width", out.width, "1 to 256");
    const auto height = int32_t(in.u32("the height"));
    const int64_t magnitude = height < 0 ? -int64_t(height) : height;
    in.expect(magnitude >= 1 && magnitude <= kLimit, "the height", height, "1 to 256 rows");
    out.height = uint32_t(magnitude);
    in.skip("the planes", 2);
    out.bitsPerPixel = in.u16("the bits per pixel");
    in.expect(out.bitsPerPixel == 8 || out.bitsPerPixel == 24, "the bits per pixel", out.bitsPerPixel, "8 or 24");
    const uint32_t compression = in.u32("the compression");
    in.expect(compression == 0, "the compression", compression, "0 (none)");
    in.skip("the resolution", 12);
    const uint32_t colorsUsed = in.u32("the colours used");
    in.expect(colorsUsed <= 256, "the colours used", colorsUsed, "at most 256");
    in.skip("the important colours", 4);
    const uint32_t colors = colorsUsed ? colorsUsed : 256;
    if (out.bitsPerPixel == 8) in.skip("the colour table", 4 * colors);
    const uint32_t tableEnd = 54 + 4 * colors;
    if (pixelOffset > tableEnd) in.skip("the gap before the pixels", pixelOffset - tableEnd);
    const uint32_t rowBytes = (out.width * out.bitsPerPixel / 8 + 3) / 4 * 4;
    for (uint32_t row = 0; row < out.height; ++row) in.skip("a row of pixels", rowBytes);
    if (!std::has_single_bit(out.width) || !std::has_single_bit(out.height))
        out.textureSide = std::bit_ceil(std::max(out.width, out.height));
    return out;
}

}  // namespace inspect
