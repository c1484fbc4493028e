#include "tests/pixels/golden_picture.h"

#include <GLES/gl.h>
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

std::string goldenPath(const std::string& file) { return std::string(K8_GOLDEN_FOLDER) + "/" + file; }

std::string renderer() {
    std::string text;
    for (const GLenum name : {GL_RENDERER, GL_VERSION})
        text += std::string(reinterpret_cast<const char*>(glGetString(name))) + "\n";
    return text;
}

bool drewTheGoldenPictures(const std::string& text) {
    std::ifstream in(goldenPath("renderer.txt"));
    return text == std::string{std::istreambuf_iterator<char>(in), {}};
}

// Empty when the file cannot be read.
Picture readPng(const std::string& path) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return {};
    image.format = PNG_FORMAT_RGBA;
    Picture picture{int(image.width), int(image.height), std::vector<uint8_t>(PNG_IMAGE_SIZE(image))};
    if (!png_image_finish_read(&image, nullptr, picture.rgba.data(), 0, nullptr)) return {};
    return picture;
}

struct Comparison {
    int greatest = 0;  // difference of a channel
    size_t outliers = 0;
    Picture difference;
};

Comparison compare(const Picture& a, const Picture& b) {
    Comparison result;
    result.difference = a;
    for (size_t pixel = 0; pixel < a.rgba.size(); pixel += 4) {
        int greatest = 0;
        for (size_t i = pixel; i < pixel + 4; ++i) {
            const int off = std::abs(a.rgba[i] - b.rgba[i]);
            greatest = std::max(greatest, off);
            result.difference.rgba[i] = uint8_t(std::min(off * 8, 255));
        }
        result.difference.rgba[pixel + 3] = 255;
        result.greatest = std::max(result.greatest, greatest);
        result.outliers += greatest > kChannelTolerance;
    }
    return result;
}

}  // namespace

void expectGolden(const std::string& name, const Picture& drawn) {
    const std::string path = goldenPath(name + ".png");
    if (std::getenv("K8_RENEW_GOLDEN")) {
        writePng(path, drawn);
        std::ofstream(goldenPath("renderer.txt")) << renderer();
        return;
    }
    const Picture golden = readPng(path);
    if (golden.width != drawn.width || golden.height != drawn.height) {
        ADD_FAILURE() << path << " is missing or of another size";
        return;
    }
    const Comparison result = compare(drawn, golden);
    const double share = double(result.outliers) * 4 / double(drawn.rgba.size());
    if (drewTheGoldenPictures(renderer()) ? result.greatest == 0 : share <= kOutlierShare) return;
    writePng(name + ".png", drawn);
    writePng(name + "-difference.png", result.difference);
    ADD_FAILURE() << name << ".png differs from " << path << " by up to " << result.greatest << ", by more than "
                  << kChannelTolerance << " at " << share * 100 << " % of the pixels; drawn by " << renderer();
}
