#include <cmath>

#include "samples/harbour/harbour.h"

// A heap of soft discs, white with alpha.
static encode::M3gRef addCloudImage(SceneBuilder& scene) {
    constexpr uint32_t kWidth = 64, kHeight = 32;
    constexpr std::array<std::array<double, 3>, 5> kPuffs = {
        // x, y, radius in pixels
        {{18, 20, 10}, {30, 14, 12}, {44, 18, 11}, {36, 22, 9}, {24, 22, 9}}};
    encode::M3gImage2D image = {.format = encode::M3gImageFormat::LuminanceAlpha, .width = kWidth, .height = kHeight};
    for (uint32_t y = 0; y < kHeight; ++y)
        for (uint32_t x = 0; x < kWidth; ++x) {
            double cover = 0;
            for (const auto& [px, py, radius] : kPuffs)
                cover = std::max(cover, 1 - std::hypot(x - px, (y - py) * 1.3) / radius);
            image.pixels.push_back(uint8_t(255 - y * 2));
            image.pixels.push_back(uint8_t(std::lround(230 * std::min(1.0, cover * 2))));
        }
    return scene.add(image);
}

// Two pictures side by side, wings up and wings down, in a palette of four colours.
static encode::M3gRef addGullImage(SceneBuilder& scene) {
    static constexpr std::array<const char*, 8> kRows = {
        "..#..........#..................", "...##......##...................", "....##....##....................",
        ".....+#..#+..........######.....", "......+##+.........##+.##.+##...", ".......##.........#..+.##.+...#.",
        ".......oo..............oo.......", "................................"};
    encode::M3gImage2D image = {.format = encode::M3gImageFormat::Rgba,
                                .width = 32,
                                .height = 8,
                                .palette = {0, 0, 0, 0, 250, 250, 250, 255, 190, 196, 204, 255, 240, 170, 60, 255}};
    for (const char* row : kRows)
        for (const char* pixel = row; *pixel; ++pixel)
            image.pixels.push_back(*pixel == '#' ? 1 : *pixel == '+' ? 2 : *pixel == 'o' ? 3 : 0);
    return scene.add(image);
}

// A scaled sprite is as wide as the scale says and half as high, as its picture is.
static encode::M3gNode spriteAt(const Point& place, double width) {
    encode::M3gNode node = placedAt(place, 0, {0, 1, 0}, width);
    node.transform.components->scale[1] *= 0.5f;
    return node;
}

static encode::M3gRef addClouds(SceneBuilder& scene, const Shared& shared) {
    const encode::M3gRef image = addCloudImage(scene);
    const encode::M3gRef appearance = scene.addAppearance({.compositingMode = shared.seeThrough, .layer = 2});
    encode::M3gGroup clouds;
    for (const auto& [x, y, size] :
         {std::tuple{-34.0, 27.0, 30.0}, std::tuple{4.0, 33.0, 38.0}, std::tuple{38.0, 26.0, 26.0}})
        clouds.children.push_back(scene.add(
            encode::M3gSprite3D{.node = spriteAt({x, y, -55}, size), .image = image, .appearance = appearance}));
    const encode::M3gRef drifting =
        scene.addTrack(encode::M3gProperty::Translation, encode::M3gInterpolation::Linear,
                       {{0, {-6, 0, 0}}, {4000, {6, 0, 0}}, {8000, {-6, 0, 0}}}, kRound, shared.controller);
    clouds.object.tracks = {drifting};
    return scene.add(clouds);
}

// Flies on a smooth round and beats its wings by stepping from picture to picture. The last of the three keeps its size
// on the screen however far away it is.
static encode::M3gRef addGull(SceneBuilder& scene, const Shared& shared, encode::M3gRef image,
                              encode::M3gRef appearance, uint32_t number) {
    std::vector<encode::M3gKeyframe> round;
    for (uint32_t stop = 0; stop <= 6; ++stop) {
        const double angle = 2 * 3.14159265358979 * stop / 6 + 2.1 * number;
        round.push_back({stop * kRound / 6,
                         {float(-9 + (9 + 2 * number) * std::cos(angle)), float(19 + 2 * number + std::sin(2 * angle)),
                          float(-8 + 8 * std::sin(angle))}});
    }
    const encode::M3gRef flying = scene.addTrack(encode::M3gProperty::Translation, encode::M3gInterpolation::Spline,
                                                 round, kRound, shared.controller);
    const encode::M3gRef beating = scene.addTrack(encode::M3gProperty::Crop, encode::M3gInterpolation::Step,
                                                  {{0, {0, 0, 16, 8}}, {250, {16, 0, 16, 8}}}, 500, shared.controller);
    const bool isScaled = number < 2;
    return scene.add(encode::M3gSprite3D{.object = {.tracks = {flying, beating}},
                                         .node = spriteAt({0, 20, 0}, isScaled ? 3 : 1),
                                         .image = image,
                                         .appearance = appearance,
                                         .scaled = isScaled,
                                         .cropWidth = 16,
                                         .cropHeight = 8});
}

encode::M3gRef addSky(SceneBuilder& scene, const Shared& shared) {
    const encode::M3gRef image = addGullImage(scene);
    const encode::M3gRef cutOut = scene.add(encode::M3gCompositingMode{.alphaThreshold = 128});
    const encode::M3gRef appearance = scene.addAppearance({.compositingMode = cutOut, .layer = 2});
    encode::M3gGroup sky = {.children = {addClouds(scene, shared)}};
    for (uint32_t number = 0; number < 3; ++number)
        sky.children.push_back(addGull(scene, shared, image, appearance, number));
    return scene.add(sky);
}
