#include <cmath>

#include "samples/harbour/harbour.h"

constexpr double kLampHeight = 17.2;

static encode::M3gRef addRock(SceneBuilder& scene, const Shared& shared) {
    Shape shape;
    shape.addLathe({{15, -6}, {13, -1}, {11, 1}, {7.5, 2}, {4, 2.6}, {0, 2.8}}, 14);
    for (Vertex& vertex : shape.vertices) {  // roughened; the seam's two sides alike
        const double bump = 1 + 0.14 * noise(vertex.texel[0] / 4, vertex.texel[1] / 4, 9);
        vertex.position[0] *= bump;
        vertex.position[2] *= bump;
    }
    const encode::M3gRef stone = scene.addTexture(64, [](double u, double v) {
        return mix(0x4A4640, 0xA09888, 0.5 + 0.3 * noise(u, v, 6) + 0.3 * noise(u, v, 24));
    });
    const encode::M3gRef material = scene.add(encode::M3gMaterial{.ambient = 0x606060, .diffuse = 0xFFE0E0E0});
    return scene.addMesh(
        shape, {.texels = true},
        {.material = material, .compositingMode = shared.opaque, .fog = shared.haze, .texture = stone});
}

// Red and white bands: every band's rings stand twice, once in each colour.
static encode::M3gRef addTower(SceneBuilder& scene, const Shared& shared) {
    constexpr int kBands = 5;
    std::vector<std::array<double, 2>> profile;
    std::vector<uint32_t> colors;
    const auto addRing = [&](double radius, double height, uint32_t color) {
        profile.push_back({radius, height});
        colors.push_back(color);
    };
    for (int band = 0; band < kBands; ++band)
        for (const int end : {0, 1}) {
            const double share = double(band + end) / kBands;
            addRing(2.7 - 0.9 * share, 2.4 + 12.6 * share, band % 2 == 0 ? 0xFFF4F0E8 : 0xFFC83228);
        }
    addRing(2.6, 15.2, 0xFF404850);  // the gallery
    addRing(2.6, 15.8, 0xFF404850);
    addRing(1.3, 15.8, 0xFF404850);
    Shape shape;
    shape.addLathe(profile, 16, [&](uint32_t ring) { return colors[ring]; });
    shape.addLathe({{1.7, 18.6}, {1.0, 19.3}, {0.0, 19.8}}, 16, [](uint32_t) { return 0xFFC83228u; });
    const encode::M3gRef material =
        scene.add(encode::M3gMaterial{.ambient = 0x606060, .diffuse = 0xFFFFFFFF, .vertexColorTracking = true});
    return scene.addMesh(shape, {.colors = true},
                         {.material = material, .compositingMode = shared.opaque, .fog = shared.haze});
}

// Two flashes a round; the lamp's own light steps from off to on.
static encode::M3gRef addLamp(SceneBuilder& scene, const Shared& shared) {
    Shape shape;
    shape.addLathe({{0.9, 15.8}, {1.2, 16.4}, {1.2, 18.0}, {0.9, 18.6}}, 12);
    const encode::M3gRef flashing = scene.addTrack(
        encode::M3gProperty::EmissiveColor, encode::M3gInterpolation::Step,
        {{0, {1, 0.9f, 0.5f}}, {2800, {0.25f, 0.2f, 0.1f}}, {4000, {1, 0.9f, 0.5f}}, {6800, {0.25f, 0.2f, 0.1f}}},
        kRound, shared.controller);
    const encode::M3gRef material = scene.add(encode::M3gMaterial{
        .object = {.tracks = {flashing}}, .ambient = 0x404040, .diffuse = 0xFF80704C, .emissive = 0xFFE680});
    return scene.addMesh(shape, {}, {.material = material, .compositingMode = shared.opaque, .fog = shared.haze});
}

// Two cones of light opposite each other, that fade outwards and are added to what is behind them.
static encode::M3gRef addBeam(SceneBuilder& scene, const Shared& shared) {
    Shape shape;
    for (const double side : {1.0, -1.0}) {
        const auto first = uint32_t(shape.vertices.size());
        constexpr uint32_t kSides = 10;
        for (uint32_t i = 0; i <= kSides; ++i) {
            const double angle = 2 * 3.14159265358979 * i / kSides;
            for (const auto& [distance, radius, color] :
                 {std::tuple{0.8, 0.5, 0x60FFF0B0u}, std::tuple{42.0, 4.5, 0x00FFF0B0u}})
                shape.vertices.push_back(
                    {.position = {side * distance, radius * std::cos(angle), radius * std::sin(angle)},
                     .color = color});
        }
        std::vector<uint32_t> strip;
        for (uint32_t i = 0; i < 2 * (kSides + 1); ++i) strip.push_back(first + i);
        shape.strips.push_back(strip);
    }
    const encode::M3gRef bothSides = scene.add(encode::M3gPolygonMode{.culling = encode::M3gCulling::None});
    const encode::M3gRef beam =
        scene.addMesh(shape, {.normals = false, .colors = true},
                      {.compositingMode = shared.glowing, .polygonMode = bothSides, .layer = 3});
    std::vector<encode::M3gKeyframe> keyframes;
    for (uint32_t third = 0; third <= 3; ++third)
        keyframes.push_back({third * kRound / 3, quaternion(120.0 * third, {0, 1, 0})});
    const encode::M3gRef turning = scene.addTrack(encode::M3gProperty::Orientation, encode::M3gInterpolation::Slerp,
                                                  keyframes, kRound, shared.controller);
    return scene.add(
        encode::M3gGroup{.object = {.tracks = {turning}}, .node = placedAt({0, kLampHeight, 0}), .children = {beam}});
}

encode::M3gRef addLighthouse(SceneBuilder& scene, const Shared& shared) {
    const encode::M3gRef rock = addRock(scene, shared), tower = addTower(scene, shared), lamp = addLamp(scene, shared),
                         beam = addBeam(scene, shared);
    return scene.add(encode::M3gGroup{.node = placedAt({-9, 0, -12}), .children = {rock, tower, lamp, beam}});
}
