#include <cmath>
#include <numbers>

#include "samples/floe/floe.h"

// A slab of ice with an uneven rim: a ring of quadrilaterals around the middle, and its sides.
encode::K8PrimitiveRecord floeIce() {
    constexpr int kSides = 14;
    constexpr double kThickness = 5, kInner = 0.45;
    Random random;
    std::array<Point, kSides> rim, inner, foot;
    for (int i = 0; i < kSides; ++i) {
        const double angle = 2 * std::numbers::pi * i / kSides, radius = random.between(42, 54);
        rim[size_t(i)] = {radius * std::cos(angle), 0, -radius * std::sin(angle)};
        inner[size_t(i)] = {rim[size_t(i)][0] * kInner, random.between(0, 1.2), rim[size_t(i)][2] * kInner};
        foot[size_t(i)] = {rim[size_t(i)][0] * 1.04, -kThickness, rim[size_t(i)][2] * 1.04};
    }
    Faces faces(4);
    for (size_t i = 0; i < kSides; ++i) {
        const size_t next = (i + 1) % kSides;
        const auto shade = uint32_t(random.between(0, 14));
        faces.add({inner[i], rim[i], rim[next], inner[next]}, 0xE2ECF4 - shade * 0x010101);
        faces.add({rim[i], foot[i], foot[next], rim[next]}, 0x8FBFD8 - shade * 0x020101);
        // The middle, one slice a side; its last two corners meet.
        faces.add({{0, 1, 0}, inner[i], inner[next], {0, 1, 0}}, 0xEEF4F8 - shade * 0x010101);
    }
    return faces.record();
}

encode::K8PrimitiveRecord floeWater() {
    constexpr uint32_t kNormalPerVertex = 0x300, kColorPerSet = 0x400;
    encode::K8PrimitiveRecord record = {.type = 4, .params = kNormalPerVertex | kColorPerSet, .count = 1};
    for (const Point& corner : {Point{-400, 0, 120}, Point{400, 0, 120}, Point{400, 0, -400}, Point{-400, 0, -400}}) {
        appendPoint(record.values[0], corner);
        appendPoint(record.values[1], {0, 1, 0});
    }
    record.values[2] = {0x1C3C5E};
    return record;
}

// Two rows of peaks; every peak has a sunlit and a shaded side, and snow on its top.
encode::K8PrimitiveRecord floeMountains() {
    Faces faces(3);
    Random random;
    const auto addPeak = [&](double x, double z, double height, double halfWidth) {
        const Point top = {x + random.between(-4, 4), height, z}, left = {x - halfWidth, 0, z + 4},
                    right = {x + halfWidth, 0, z + 4}, front = {x + random.between(-8, 8), 0, z + halfWidth * 0.8};
        const auto along = [&](const Point& foot) {  // where the snow ends
            const double t = random.between(0.3, 0.45);
            return Point{top[0] + (foot[0] - top[0]) * t, top[1] + (foot[1] - top[1]) * t,
                         top[2] + (foot[2] - top[2]) * t};
        };
        const Point snowLeft = along(left), snowFront = along(front), snowRight = along(right);
        faces.add({top, snowLeft, snowFront}, 0xF2F6FA);
        faces.add({top, snowFront, snowRight}, 0xDCE6F0);
        faces.add({snowLeft, left, front}, 0x55637A);
        faces.add({snowLeft, front, snowFront}, 0x55637A);
        faces.add({snowFront, front, right}, 0x48556B);
        faces.add({snowFront, right, snowRight}, 0x48556B);
    };
    for (int i = 0; i < 9; ++i) addPeak(-240 + 60 * i, -260, random.between(62, 95), 48);
    for (int i = 0; i < 8; ++i) addPeak(-215 + 60 * i, -215, random.between(30, 50), 38);
    return faces.record();
}

// A disc, turned towards the viewer.
encode::K8PrimitiveRecord floeMoon() {
    constexpr int kSlices = 24;
    constexpr double kRadius = 14;
    constexpr uint32_t kColorPerSet = 0x400;
    encode::K8PrimitiveRecord record = {.type = 3, .params = kColorPerSet, .count = kSlices};
    const auto rimPoint = [](int i) {
        const double angle = 2 * std::numbers::pi * i / kSlices;
        return Point{kRadius * std::cos(angle), kRadius * std::sin(angle), 0};
    };
    for (int i = 0; i < kSlices; ++i)
        for (const Point& corner : {Point{0, 0, 0}, rimPoint(i), rimPoint(i + 1)})
            appendPoint(record.values[0], corner);
    record.values[2] = {0xFFF4D0};
    return record;
}
