#include "render/render_state_projection.h"

#include <algorithm>

#include "frame/fixed_point.h"
#include "frame/trigonometry.h"
#include "frame/wrap.h"
#include "scene/transform.h"

constexpr int32_t kLeastAngle = 2, kGreatestAngle = 2046;  // a little off nothing and half a turn

// --- Scales ---

float RenderState_radiansOf(int32_t angle) { return float(angle) * 360.0f / 4096.0f * kRadiansPerDegree; }

// The opening is the full one: half of it lies on either side of the middle.
static float scaleOfAngle(int32_t width, int32_t angle) {
    const double half = double(RenderState_radiansOf(angle)) / 2;
    const auto tangent = float(stableSin(half) / stableCos(half));
    return float(width) / (2.0f * tangent);
}

static float scaleOfSize(int32_t side, int32_t near, int32_t size) {
    return float(side) * float(near) / float(size) * float(kFixedOne);
}

static void updatePerspectiveScales(RenderState* state) {
    const ProjectionSetting& setting = state->projection;
    if (setting.angle) {
        state->perspectiveX = state->perspectiveY = scaleOfAngle(state->width, setting.angle);
    } else {
        state->perspectiveX = scaleOfSize(state->width, setting.near, setting.width);
        state->perspectiveY = scaleOfSize(state->height, setting.near, setting.height);
    }
}

static void updateParallelScales(RenderState* state) {
    const ProjectionSetting& setting = state->projection;
    state->scaleX = setting.width ? wrapShl(state->width, 12) / setting.width : kFixedOne;
    state->scaleY = setting.height ? wrapShl(state->height, 12) / setting.height : kFixedOne;
}

void RenderState_updateScales(RenderState* state) {
    state->projectionChanged = 1;
    switch (state->projection.kind) {
        case RenderStateProjection::Parallel: return updateParallelScales(state);
        case RenderStateProjection::Perspective: return updatePerspectiveScales(state);
    }
}

// --- Setters ---

static bool isDepthRange(int32_t near, int32_t far) { return near > 0 && near < far && far <= INT16_MAX; }

static void setProjection(RenderState* state, const ProjectionSetting& setting) {
    if (state->projection == setting) return;
    state->projection = setting;
    RenderState_updateScales(state);
}

void K8RenderState_setPerspectiveAngle(RenderState* state, int32_t near, int32_t far, int32_t angle) {
    if (!isDepthRange(near, far)) return;
    const int32_t opening = std::clamp(angle, kLeastAngle, kGreatestAngle);
    setProjection(state, {RenderStateProjection::Perspective, int16_t(near), int16_t(far), opening, 0, 0});
}

void K8RenderState_setPerspectiveSize(RenderState* state, int32_t near, int32_t far, int32_t width, int32_t height) {
    if (!isDepthRange(near, far) || width <= 0 || height <= 0) return;
    setProjection(state, {RenderStateProjection::Perspective, int16_t(near), int16_t(far), 0, width, height});
}

void K8RenderState_setParallel(RenderState* state, int32_t width, int32_t height) {
    if (width <= 0 || height <= 0) return;
    setProjection(state, {RenderStateProjection::Parallel, 0, 0, 0, width, height});
}

void K8RenderState_setCentre(RenderState* state, int16_t x, int16_t y) {
    if (state->centreX == x && state->centreY == y) return;
    state->centreX = x;
    state->centreY = y;
    state->projectionChanged = 1;
}

// --- Matrices ---

// Depth grows into the screen: the last row passes it on as the divisor.
static void makePerspective(const RenderState& state, qelTransform* out) {
    const auto width = float(state.width), height = float(state.height);
    const auto near = float(state.projection.near), far = float(state.projection.far);
    float m[16] = {};
    m[0] = 2.0f * state.perspectiveX / width;
    m[2] = 2.0f * float(state.centreX) / width - 1.0f;
    m[5] = -2.0f * state.perspectiveY / height;
    m[6] = 1.0f - 2.0f * float(state.centreY) / height;
    m[10] = (far + near) / (far - near);
    m[11] = 2.0f * far * near / (near - far);
    m[14] = 1.0f;
    qelTransform_set_fl(out, m);
}

static void makeParallel(const RenderState& state, qelTransform* out) {
    float pixels[16] = {};
    pixels[0] = 2.0f / float(state.width);
    pixels[3] = -1.0f;
    pixels[5] = -2.0f / float(state.height);
    pixels[7] = 1.0f;
    pixels[10] = 1.0f / float(kParallelDepth);
    pixels[15] = 1.0f;
    const Atrans3i placement = {{state.scaleX, 0, 0, state.centreX,  //
                                 0, state.scaleY, 0, state.centreY,  //
                                 0, 0, kFixedOne, 0}};
    qelTransform fromPixels, toPixels;
    qelTransform_set_fl(&fromPixels, pixels);
    Atrans3i2qelTransform(&toPixels, &placement);
    qelTransform_multiplyInto(out, &fromPixels, &toPixels);
}

const qelTransform& RenderState_projectionMatrix(RenderState* state) {
    if (state->projectionChanged) {
        qelTransform matrix;
        switch (state->projection.kind) {
            case RenderStateProjection::Parallel: makeParallel(*state, &matrix); break;
            case RenderStateProjection::Perspective: makePerspective(*state, &matrix); break;
        }
        qelCamera_setGeneric(state->camera, &matrix);
        state->projectionChanged = 0;
    }
    return state->camera->projection;
}
