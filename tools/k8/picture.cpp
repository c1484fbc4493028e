#include "tools/k8/picture.h"

#include <png.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

void writePng(const std::string& path, const Picture& picture) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = png_uint_32(picture.width);
    image.height = png_uint_32(picture.height);
    image.format = PNG_FORMAT_RGBA;
    if (!png_image_write_to_file(&image, path.c_str(), 0, picture.rgba.data(), 0, nullptr))
        throw std::runtime_error(path + ": cannot be written: " + image.message);
}

Picture contactSheet(const std::vector<Picture>& pictures, int columns, uint32_t background) {
    constexpr int kGap = 4;
    const int count = int(pictures.size());
    columns = std::clamp(columns, 1, std::max(count, 1));
    const int rows = (count + columns - 1) / columns;
    const Picture& first = pictures.front();
    Picture sheet{columns * (first.width + kGap) + kGap, rows * (first.height + kGap) + kGap, {}};
    for (size_t i = 0; i < size_t(sheet.width) * size_t(sheet.height); ++i)
        sheet.rgba.insert(sheet.rgba.end(),
                          {uint8_t(background >> 16), uint8_t(background >> 8), uint8_t(background), 255});
    for (int i = 0; i < count; ++i) {
        const int left = kGap + i % columns * (first.width + kGap);
        const int top = kGap + i / columns * (first.height + kGap);
        for (int y = 0; y < first.height; ++y)
            std::memcpy(&sheet.rgba[(size_t(top + y) * size_t(sheet.width) + size_t(left)) * 4],
                        &pictures[size_t(i)].rgba[size_t(y * first.width * 4)], size_t(first.width * 4));
    }
    return sheet;
}
