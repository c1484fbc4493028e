#include "render/sprite_geometry.h"

#include <algorithm>

#include "frame/fixed_point.h"
#include "frame/trigonometry.h"
#include "render/render_state_projection.h"

constexpr int64_t kMaxSize = 1 << 20;  // of a sprite's side: well beyond what 16-bit corners can show

struct SpriteSize {
    int64_t width, height;
};

static bool isDrawnAt(const RenderState& state, int32_t depth) {
    const ProjectionSetting& projection = state.projection;
    switch (projection.kind) {
        case RenderStateProjection::Parallel: return depth >= -kParallelDepth && depth <= kParallelDepth;
        case RenderStateProjection::Perspective: return depth >= projection.near && depth <= projection.far;
    }
    return false;
}

// --- Size ---

static int64_t divide(int64_t dividend, int32_t divisor) { return divisor ? dividend / divisor : 0; }

static SpriteSize sizeUnderParallel(const RenderState& state, const SpriteSize& given, bool inPixels) {
    if (inPixels) return {divide(given.width << 12, state.scaleX), divide(given.height << 12, state.scaleY)};
    // A unit is as high as it is wide, so that the sprite keeps its proportions.
    return {given.width, divide(given.height * state.scaleX, state.scaleY)};
}

// How many pixels wide and high, times the depth at which they are measured.
struct DepthTimesPixels {
    float x, y;
};

static SpriteSize sizeUnderPerspective(const RenderState& state, const DepthTimesPixels& size) {
    const auto units = [](float length) {
        return int64_t(std::clamp(length, float(-kMaxSize), float(kMaxSize)));  // cut toward zero
    };
    return {units(size.x / state.perspectiveX), units(size.y / state.perspectiveY)};
}

// --- Corners ---

struct Offset {
    int64_t x, y;
};

// From the centre to the corners, given the halves of both sides.
static void findOffsets(int32_t halfWidth, int32_t halfHeight, int32_t angle, Offset out[4]) {
    int64_t a = halfWidth, b = halfHeight, c = 0, d = 0;
    if (angle) {
        const double radians = RenderState_radiansOf(angle);
        const double cosine = stableCos(radians), sine = stableSin(radians);
        a = roundToInt(cosine * halfWidth);
        b = roundToInt(cosine * halfHeight);
        c = roundToInt(sine * halfWidth);
        d = roundToInt(sine * halfHeight);
    }
    out[0] = {-a + d, -b - c};
    out[1] = {a + d, -b + c};
    out[2] = {a - d, b + c};
    out[3] = {-a - d, b - c};
}

static int16_t cutTo16Bits(int64_t value) { return int16_t(std::clamp<int64_t>(value, INT16_MIN, INT16_MAX)); }

static void placeCorners(const int32_t centre[3], const Offset offsets[4], SpriteShape* out) {
    for (int i = 0; i < 4; ++i) {
        out->corners[i][0] = cutTo16Bits(centre[0] + offsets[i].x);
        out->corners[i][1] = cutTo16Bits(centre[1] + offsets[i].y);
        out->corners[i][2] = cutTo16Bits(centre[2]);
    }
}

static int32_t cutSize(int64_t size) { return int32_t(std::clamp(size, -kMaxSize, kMaxSize)); }

static void makeInUnits(const int32_t centre[3], const SpriteSize& size, int32_t angle, SpriteShape* out) {
    Offset offsets[4];
    findOffsets(cutSize(size.width) >> 1, cutSize(size.height) >> 1, angle, offsets);
    placeCorners(centre, offsets, out);
}

static void makeInHalfPixels(const RenderState& state, const SpriteSize& pixels, int32_t depth, int32_t angle,
                             SpriteShape* out) {
    static constexpr int32_t kOrigin[3] = {};
    Offset offsets[4];
    findOffsets(cutSize(pixels.width), cutSize(pixels.height), angle, offsets);
    placeCorners(kOrigin, offsets, out);
    out->isPlaced = true;
    out->unitX = float(depth) / (2.0f * state.perspectiveX);
    out->unitY = float(depth) / (2.0f * state.perspectiveY);
}

bool SpriteGeometry_make(const RenderState& state, const int32_t* centre, const int32_t* record, SpriteShape* out) {
    const int32_t world[] = {int16_t(centre[0]), int16_t(centre[1]), int16_t(centre[2])};
    *out = {};
    Atrans3i_transformVector(&state.view, world, out->centre);
    if (!isDrawnAt(state, out->centre[2])) return false;

    const SpriteSize given = {record[0], record[1]};
    const int32_t angle = record[2] & 4095;  // whole turns drop out
    const auto flags = uint32_t(record[7]);
    const bool inPixels = flags & kSpriteInPixels;
    if (state.projection.kind == RenderStateProjection::Parallel) {
        makeInUnits(out->centre, sizeUnderParallel(state, given, inPixels), angle, out);
    } else if (!inPixels) {
        makeInUnits(out->centre, given, angle, out);
    } else {
        const int32_t depth = flags & kSpriteAtOwnDepth ? out->centre[2] : state.projection.near;
        const DepthTimesPixels size = {float(depth * given.width), float(depth * given.height)};
        if (size.x <= 2 * state.perspectiveX || size.y <= 2 * state.perspectiveY)
            makeInHalfPixels(state, given, depth, angle, out);
        else
            makeInUnits(out->centre, sizeUnderPerspective(state, size), angle, out);
    }
    return true;
}
