#include <cmath>

#include "samples/floe/floe.h"

constexpr uint32_t kColorPerSet = 0x400, kColorPerPrimitive = 0x800;

encode::K8PrimitiveRecord floeStars() {
    encode::K8PrimitiveRecord record = {.type = 1, .params = kColorPerPrimitive, .count = 140};
    Random random;
    for (int i = 0; i < record.count; ++i) {
        appendPoint(record.values[0], {random.between(-230, 230), random.between(118, 230), -280});
        const auto glow = uint32_t(random.between(120, 255));
        record.values[2].push_back(int32_t(glow << 16 | glow << 8 | std::min(255u, glow + 30)));
    }
    return record;
}

// A curtain of upright lines.
encode::K8PrimitiveRecord floeAurora() {
    encode::K8PrimitiveRecord record = {.type = 2, .params = kColorPerPrimitive, .count = 90};
    for (int i = 0; i < record.count; ++i) {
        const double x = -200 + 3.2 * i, foot = 128 + 14 * std::sin(i * 0.11) + 6 * std::sin(i * 0.37);
        appendPoint(record.values[0], {x, foot, -270});
        appendPoint(record.values[0], {x + 5, foot + 26 + 9 * std::sin(i * 0.23), -270});
        const auto green = uint32_t(110 + 60 * std::sin(i * 0.19));
        record.values[2].push_back(int32_t((green / 4) << 16 | green << 8 | green * 2 / 3));
    }
    return record;
}

// From the hand up to the tip, and the line down to the water.
encode::K8PrimitiveRecord floeRod() {
    encode::K8PrimitiveRecord record = {.type = 2, .params = kColorPerSet, .count = 3};
    const Point hand = {0, 0, 0}, bend = {9, 15, 5}, tip = {17, 20, 9}, hook = {17, -14, 9};
    for (const auto& [from, to] : {std::pair{hand, bend}, std::pair{bend, tip}, std::pair{tip, hook}}) {
        appendPoint(record.values[0], from);
        appendPoint(record.values[0], to);
    }
    record.values[2] = {0xC8A070};
    return record;
}

// Width, height, rotation in 1/4096 of a turn, two corners of the texture, flags.
static void appendSprite(encode::K8PrimitiveRecord& record, double width, double height, int32_t rotation,
                         int32_t flags) {
    record.values[4].insert(record.values[4].end(),
                            {fixedPoint(width), fixedPoint(height), rotation, 0, 0, 0, 0, flags});
}

// Flakes that keep their size in pixels wherever they are, each turned in its own way.
encode::K8PrimitiveRecord floeSnow() {
    constexpr uint32_t kRecordPerSprite = 0x3000;
    constexpr int32_t kInPixels = 1, kAtOwnDepth = 2;
    encode::K8PrimitiveRecord record = {.type = 5, .params = kRecordPerSprite, .count = 110};
    Random random;
    for (int i = 0; i < record.count; ++i) {
        appendPoint(record.values[0], {random.between(-90, 90), random.between(0, 100), random.between(-80, 50)});
        const double size = std::floor(random.between(2, 6));
        appendSprite(record, size, size, int32_t(random.between(0, 4096)), kInPixels | kAtOwnDepth);
    }
    return record;
}

// On a string across the floe; their size is in units.
encode::K8PrimitiveRecord floeLanterns() {
    constexpr uint32_t kRecordForAll = 0x1000;
    encode::K8PrimitiveRecord record = {.type = 5, .params = kRecordForAll, .count = 7};
    for (int i = 0; i < record.count; ++i) {
        const double x = -36 + 12 * i;
        appendPoint(record.values[0], {x, 34 + x * x / 160, -24});
    }
    appendSprite(record, 3, 4, 512, 0);
    return record;
}
