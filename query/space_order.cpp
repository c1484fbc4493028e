#include "query/space_order.h"

#include <array>
#include <bit>
#include <span>
#include <utility>

// A box's place along the curve.
struct PlacedBox {
    uint32_t place, box;
};

size_t SpaceOrder_scratchByteCount(uint32_t count) { return 2 * size_t(count) * sizeof(PlacedBox); }

// --- Places ---

constexpr int32_t kPlaceBits = 10;  // per coordinate

// Puts two zero bits before each of the ten lowest bits.
static constexpr uint32_t spread(uint32_t bits) {
    bits = (bits | bits << 16) & 0x030000FF;
    bits = (bits | bits << 8) & 0x0300F00F;
    bits = (bits | bits << 4) & 0x030C30C3;
    return (bits | bits << 2) & 0x09249249;
}

// The curve is Hilbert's. It goes through the eight octants of a cube, and within each in one of 24 orientations: the
// octant that it starts in (three bits, one per axis) and the axis along which it ends. Each step is the octant's
// number in that order, and how the curve is oriented within.
struct CurveStep {
    uint8_t number, orientation;
};
using CurveSteps = std::array<std::array<CurveStep, 8>, 24>;  // by orientation 3 start + axis, and octant

static constexpr uint32_t rotateLeft(uint32_t bits, uint32_t by) { return (bits << by | bits >> (3 - by)) & 7; }

static constexpr CurveSteps makeCurve() {
    CurveSteps steps{};
    for (uint32_t orientation = 0; orientation < 24; ++orientation)
        for (uint32_t number = 0; number < 8; ++number) {
            const uint32_t start = orientation / 3, turn = (orientation % 3 + 1) % 3;
            const uint32_t octant = start ^ rotateLeft(number ^ number >> 1, turn);  // Gray code: one axis at a time
            const uint32_t before = number == 0 ? 0 : (number - 1) & ~1u;
            const uint32_t innerStart = start ^ rotateLeft(before ^ before >> 1, turn);
            const uint32_t ones = uint32_t(std::countr_one(number % 2 == 1 || number == 0 ? number : number - 1));
            const uint32_t innerAxis = (orientation % 3 + ones + 1) % 3;
            steps[orientation][octant] = {uint8_t(number), uint8_t(3 * innerStart + innerAxis)};
        }
    return steps;
}

static constexpr CurveSteps kCurve = makeCurve();

// Where on the curve a cell is whose coordinates' bits come in turn.
static uint32_t placeOnCurve(uint32_t cell) {
    uint32_t place = 0, orientation = 0;
    for (int32_t shift = 3 * (kPlaceBits - 1); shift >= 0; shift -= 3) {
        const CurveStep step = kCurve[orientation][cell >> shift & 7];
        place = place << 3 | step.number;
        orientation = step.orientation;
    }
    return place;
}

static void placeBoxes(std::span<const Box16> boxes, PlacedBox* out) {
    Box16 all = boxes[0];
    for (const Box16& box : boxes) all = Box16_unite(all, box);
    // Centres are doubled. One step for all axes, so that cells are cubes.
    int32_t origin[3], extent = 0;
    for (int i = 0; i < 3; ++i) {
        origin[i] = 2 * all.least[i];
        extent = std::max(extent, 2 * (all.greatest[i] - all.least[i]));
    }
    const int32_t shift = std::max(int32_t(std::bit_width(uint32_t(extent))) - kPlaceBits, 0);
    for (uint32_t b = 0; b < boxes.size(); ++b) {
        uint32_t cell = 0;
        for (int i = 0; i < 3; ++i) {
            const int32_t center = boxes[b].least[i] + boxes[b].greatest[i];
            cell |= spread(uint32_t(center - origin[i]) >> shift) << i;
        }
        out[b] = {placeOnCurve(cell), b};
    }
}

// --- Order ---

constexpr uint32_t kDigitBits = 8, kDigitCount = 4;
using DigitCounts = std::array<uint32_t, 1 << kDigitBits>;

static uint32_t digitOf(uint32_t place, uint32_t digit) { return place >> (digit * kDigitBits) & 0xFF; }

// Sorts by place, byte by byte from the lowest; returns which of the two arrays has the outcome. Equal places keep
// their order, so that every build makes the same tree.
static const PlacedBox* sortByPlace(PlacedBox* boxes, PlacedBox* other, uint32_t count) {
    std::array<DigitCounts, kDigitCount> ends{};
    for (const PlacedBox& placed : std::span(boxes, count))
        for (uint32_t digit = 0; digit < kDigitCount; ++digit) ++ends[digit][digitOf(placed.place, digit)];
    for (uint32_t digit = 0; digit < kDigitCount; ++digit) {
        if (ends[digit][digitOf(boxes[0].place, digit)] == count) continue;  // all have the same
        uint32_t start = 0;
        for (uint32_t& entry : ends[digit]) start += std::exchange(entry, start);
        for (const PlacedBox& placed : std::span(boxes, count))
            other[ends[digit][digitOf(placed.place, digit)]++] = placed;
        std::swap(boxes, other);
    }
    return boxes;
}

void SpaceOrder_sort(const Box16* boxes, uint32_t count, uint32_t* order, void* scratch) {
    auto* placed = static_cast<PlacedBox*>(scratch);
    placeBoxes({boxes, count}, placed);
    const PlacedBox* sorted = sortByPlace(placed, placed + count, count);
    for (uint32_t i = 0; i < count; ++i) order[i] = sorted[i].box;
}
