#include <cmath>

#include "samples/harbour/harbour.h"

// Planks over frames: for every frame from stern to bow half its width and its height above the keel.
static Shape hull() {
    struct Frame {
        double x, halfWidth, keel, rail;
    };
    constexpr std::array<Frame, 5> kFrames = {
        {{-4, 1.1, 0.0, 1.7}, {-2, 1.7, -0.5, 1.5}, {0.5, 1.8, -0.7, 1.4}, {3, 1.2, -0.5, 1.7}, {5, 0.05, 0.3, 2.3}}};
    Shape shape;
    for (size_t i = 0; i + 1 < kFrames.size(); ++i) {
        const Frame &a = kFrames[i], &b = kFrames[i + 1];
        for (const double side : {1.0, -1.0}) {
            const Point keelA = {a.x, a.keel, 0}, keelB = {b.x, b.keel, 0}, railA = {a.x, a.rail, side * a.halfWidth},
                        railB = {b.x, b.rail, side * b.halfWidth};
            shape.addQuad(side > 0 ? std::array{keelA, keelB, railB, railA} : std::array{keelB, keelA, railA, railB});
        }
        shape.addQuad({Point{a.x, a.rail - 0.4, a.halfWidth}, Point{b.x, b.rail - 0.4, b.halfWidth},
                       Point{b.x, b.rail - 0.4, -b.halfWidth}, Point{a.x, a.rail - 0.4, -a.halfWidth}});
    }
    shape.addQuad({Point{-4, 0, 0}, Point{-4, 1.7, 1.1}, Point{-4, 1.7, 0}, Point{-4, 1.7, -1.1}});
    return shape;
}

// Mast and two sails, seen from both sides.
static Shape rigging() {
    Shape shape;
    shape.addLathe({{0.12, 1}, {0.12, 9.6}}, 6, [](uint32_t) { return 0xFF7A5838u; });
    const auto addSail = [&](const Point& foot, const Point& end, const Point& top, double belly) {
        const auto first = uint32_t(shape.vertices.size());
        const Point middle = {(end[0] + top[0]) / 2, (end[1] + top[1]) / 2, belly};
        for (const Point& corner : {foot, end, middle, top})
            shape.vertices.push_back({.position = corner, .normal = {0, 0, 1}, .color = 0xFFF6EEDC});
        shape.strips.push_back({first, first + 1, first + 2});
        shape.strips.push_back({first, first + 2, first + 3});
    };
    addSail({-0.2, 2.2, 0}, {-4.2, 2.0, 0.5}, {-0.2, 9.2, 0}, 0.9);
    addSail({0.3, 8.0, 0}, {4.6, 2.6, 0.2}, {0.4, 2.4, 0}, 0.6);
    return shape;
}

// --- The flag ---

constexpr uint32_t kFlagBones = 4, kFlagColumns = 8, kFlagRows = 4;
constexpr double kFlagLength = 2.6, kFlagHeight = 1.3;

// A chain of bones along the flag. Every bone swings a little later than the one before.
static std::vector<encode::M3gRef> addFlagBones(SceneBuilder& scene, const Shared& shared) {
    std::vector<encode::M3gRef> bones;
    for (uint32_t i = kFlagBones; i-- > 0;) {  // from the loose end, since children come first
        std::vector<encode::M3gKeyframe> keyframes;
        for (uint32_t step = 0; step <= 4; ++step) {
            const double phase = 1.5707963 * step - 1.2 * i;
            keyframes.push_back({step * kRound / 16, quaternion(22 * std::sin(phase), {0, 1, 0})});
        }
        const encode::M3gRef swinging =
            scene.addTrack(encode::M3gProperty::Orientation, encode::M3gInterpolation::Slerp, keyframes, kRound / 4,
                           shared.controller);
        encode::M3gGroup bone = {.object = {.tracks = {swinging}},
                                 .node = placedAt({i == 0 ? 0 : -kFlagLength / kFlagBones, 0, 0})};
        if (!bones.empty()) bone.children = {bones.front()};
        bones.insert(bones.begin(), scene.add(bone));
    }
    return bones;
}

static encode::M3gRef addFlag(SceneBuilder& scene, const Shared& shared) {
    Shape shape;
    shape.addGrid(kFlagColumns, kFlagRows, [](double u, double v) {
        const bool isCross = std::abs(u - 0.375) < 0.13 || std::abs(v - 0.5) < 0.2;
        return Vertex{.position = {-u * kFlagLength, (v - 0.5) * kFlagHeight, 0},
                      .normal = {0, 0, 1},
                      .color = isCross ? 0xFFF8F8F8 : 0xFF2450A8};
    });
    const encode::M3gRef vertices = scene.addVertices(shape, {.normals = true, .colors = true}),
                         strips = scene.addStrips(shape);
    const encode::M3gRef material =
        scene.add(encode::M3gMaterial{.ambient = 0x909090, .diffuse = 0xFFFFFFFF, .vertexColorTracking = true});
    const encode::M3gRef cloth =
        scene.add(encode::M3gPolygonMode{.culling = encode::M3gCulling::None, .twoSidedLighting = true});
    const encode::M3gRef appearance = scene.addAppearance(
        {.material = material, .compositingMode = shared.opaque, .polygonMode = cloth, .fog = shared.haze});
    const std::vector<encode::M3gRef> bones = addFlagBones(scene, shared);
    const encode::M3gRef skeleton = scene.add(encode::M3gGroup{.children = {bones.front()}});
    encode::M3gSkinnedMesh flag = {
        .node = placedAt({0, 9.2, 0}), .vertices = vertices, .submeshes = {{strips, appearance}}, .skeleton = skeleton};
    // A column hangs on the bone it lies on, and on the one before as well where it is near its joint.
    for (uint32_t column = 0; column <= kFlagColumns; ++column) {
        const double place = double(column) / kFlagColumns * kFlagBones;
        const uint32_t bone = std::min(uint32_t(place), kFlagBones - 1);
        const auto share = int32_t(std::lround(100 * std::min(1.0, 0.5 + place - bone)));
        const uint32_t first = column * (kFlagRows + 1), count = kFlagRows + 1;
        flag.bindings.push_back({bones[bone], first, count, share});
        if (bone > 0 && share < 100) flag.bindings.push_back({bones[bone - 1], first, count, 100 - share});
    }
    return scene.add(flag);
}

// --- The boat ---

// Once around the lighthouse.
static std::vector<encode::M3gRef> addVoyage(SceneBuilder& scene, const Shared& shared) {
    constexpr uint32_t kStops = 8;
    std::vector<encode::M3gKeyframe> places, headings;
    for (uint32_t stop = 0; stop <= kStops; ++stop) {
        const double turn = 2 * 3.14159265358979 * stop / kStops;
        const uint32_t time = stop * kRound / kStops;
        places.push_back({time,
                          {float(-9 + 24 * std::cos(turn)) + 0.0f, float(0.2 + 0.3 * std::sin(3 * turn)) + 0.0f,
                           float(-12 - 22 * std::sin(turn)) + 0.0f}});
        const std::vector<float> heading = quaternion(90 + 360.0 * stop / kStops, {0, 1, 0}),
                                 roll = quaternion(stop % 2 ? 7 : -7, {1, 0, 0});
        headings.push_back({time, product(heading, roll)});
    }
    headings.back().values = headings.front().values;  // a full turn is the other sign of the same rotation
    for (float& value : headings.back().values) value = -value + 0.0f;
    return {scene.addTrack(encode::M3gProperty::Translation, encode::M3gInterpolation::Spline, places, kRound,
                           shared.controller),
            scene.addTrack(encode::M3gProperty::Orientation, encode::M3gInterpolation::Squad, headings, kRound,
                           shared.controller)};
}

encode::M3gRef addBoat(SceneBuilder& scene, const Shared& shared) {
    const encode::M3gRef planks = scene.addTexture(32, [](double u, double v) {
        const bool isSeam = std::fmod(v * 4, 1.0) < 0.14;
        return isSeam ? 0x4A3420u : mix(0x8A6238, 0xC09458, 0.5 + 0.5 * noise(u, v * 4, 8));
    });
    const encode::M3gRef wood = scene.add(
        encode::M3gMaterial{.ambient = 0x707070, .diffuse = 0xFFF0F0F0, .specular = 0x303030, .shininess = 12});
    const encode::M3gRef canvas =
        scene.add(encode::M3gMaterial{.ambient = 0x909090, .diffuse = 0xFFFFFFFF, .vertexColorTracking = true});
    const encode::M3gRef bothSides =
        scene.add(encode::M3gPolygonMode{.culling = encode::M3gCulling::None, .twoSidedLighting = true});
    const encode::M3gRef body = scene.addMesh(hull(), {.texels = true},
                                              {.material = wood,
                                               .compositingMode = shared.opaque,
                                               .polygonMode = bothSides,
                                               .fog = shared.haze,
                                               .texture = planks});
    const encode::M3gRef sails = scene.addMesh(
        rigging(), {.colors = true},
        {.material = canvas, .compositingMode = shared.opaque, .polygonMode = bothSides, .fog = shared.haze});
    const encode::M3gRef flag = addFlag(scene, shared);
    return scene.add(encode::M3gGroup{.object = {.tracks = addVoyage(scene, shared)},
                                      .node = placedAt({15, 0.2, -12}, 90),
                                      .children = {body, sails, flag}});
}
