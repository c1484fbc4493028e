#include <cmath>
#include <numbers>

#include "samples/harbour/harbour.h"

constexpr double kHalfWidth = 60;
constexpr uint32_t kCells = 20;

// The sea at rest is flat; each target is a swell from another side. Their weights stay above 0: normals of bytes leave
// no room for the opposite of a slope.
static Shape swell(double height, double directionX, double directionZ) {
    constexpr double kWave = 2 * std::numbers::pi / 24;  // metres
    Shape shape;
    shape.addGrid(kCells, kCells, [=](double u, double v) {
        const double x = (2 * u - 1) * kHalfWidth, z = (2 * v - 1) * kHalfWidth;
        const double phase = (x * directionX + z * directionZ) * kWave;
        const double slope = -height * kWave * std::cos(phase);
        const double length = std::sqrt(slope * slope + 1);
        return Vertex{.position = {x, height * std::sin(phase), z},
                      .normal = {slope * directionX / length, 1 / length, slope * directionZ / length},
                      .texel = {u * 8, v * 8},
                      .color = 0xB0FFFFFF};
    });
    return shape;
}

static encode::M3gRef addSurface(SceneBuilder& scene, const Shared& shared) {
    const Attributes attributes = {.normals = true, .colors = true, .texels = true};
    const encode::M3gRef flat = scene.addVertices(swell(0, 1, 0), attributes),
                         fromWest = scene.addVertices(swell(0.9, 0.96, 0.28), attributes),
                         fromEast = scene.addVertices(swell(0.9, -0.96, -0.28), attributes),
                         fromNorth = scene.addVertices(swell(0.7, -0.28, 0.96), attributes);
    const encode::M3gRef strips = scene.addStrips(swell(0, 1, 0));
    const encode::M3gRef ripples = scene.addTexture(64, [](double u, double v) {
        return mix(0x2C6E96, 0x9CD0E0, 0.35 + 0.4 * noise(u, v, 8) + 0.25 * noise(u, v, 16));
    });
    const encode::M3gRef material = scene.add(encode::M3gMaterial{.ambient = 0x8090A0,
                                                                  .diffuse = 0xB0FFFFFF,
                                                                  .specular = 0xFFFFFF,
                                                                  .shininess = 24,
                                                                  .vertexColorTracking = true});
    const encode::M3gRef appearance = scene.addAppearance({.material = material,
                                                           .compositingMode = shared.seeThrough,
                                                           .fog = shared.haze,
                                                           .texture = ripples,
                                                           .layer = 1});
    const encode::M3gRef rolling = scene.addTrack(encode::M3gProperty::MorphWeights, encode::M3gInterpolation::Linear,
                                                  {{0, {0.9f, 0, 0.2f}},
                                                   {2000, {0.1f, 0.1f, 0.9f}},
                                                   {4000, {0, 0.9f, 0.2f}},
                                                   {6000, {0.1f, 0.1f, 0}},
                                                   {8000, {0.9f, 0, 0.2f}}},
                                                  kRound, shared.controller);
    return scene.add(encode::M3gMorphingMesh{.object = {.tracks = {rolling}},
                                             .vertices = flat,
                                             .submeshes = {{strips, appearance}},
                                             .targets = {{fromWest, 0.9f}, {fromEast}, {fromNorth, 0.2f}}});
}

static encode::M3gRef addFloor(SceneBuilder& scene, const Shared& shared) {
    Shape shape;
    shape.addGrid(4, 4, [](double u, double v) {
        return Vertex{.position = {(2 * u - 1) * kHalfWidth, -5 - 2 * std::sin(u * 9) * std::sin(v * 7),
                                   (2 * v - 1) * kHalfWidth},
                      .texel = {u * 6, v * 6}};
    });
    const encode::M3gRef sand = scene.addTexture(64, [](double u, double v) {
        return mix(0x6F7F70, 0xD8C89A, 0.5 + 0.3 * noise(u, v, 4) + 0.3 * noise(u, v, 32));
    });
    const encode::M3gRef material = scene.add(encode::M3gMaterial{.ambient = 0x707070, .diffuse = 0xFFC0C8C0});
    return scene.addMesh(
        shape, {.texels = true},
        {.material = material, .compositingMode = shared.opaque, .fog = shared.haze, .texture = sand, .layer = -1});
}

encode::M3gRef addSea(SceneBuilder& scene, const Shared& shared) {
    return scene.add(encode::M3gGroup{.children = {addFloor(scene, shared), addSurface(scene, shared)}});
}
