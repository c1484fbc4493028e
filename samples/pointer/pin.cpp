#include "samples/pointer/pin.h"

#include <cmath>
#include <cstring>

constexpr int kSides = 6, kTriangles = 2 * kSides;
constexpr int32_t kLength = 9 * 4096, kRadius = 1 * 4096;
constexpr int32_t kSideColors[2] = {0xE03020, 0xB02018}, kHeadColor = 0xFFC0A0;

static bool setValues(K8PrimitiveInfo* info, int kind, const int32_t* values, uint32_t count) {
    // What a primitive owns comes from its allocator.
    void* block = MALK8_malc.functions->alloc(&MALK8_malc, int32_t(count * sizeof(int32_t)));
    if (!block) return false;
    info->values[kind] = static_cast<int32_t*>(std::memcpy(block, values, count * sizeof(int32_t)));
    info->counts[kind] = count;
    return true;
}

K8Primitive* makePin() {
    int32_t positions[kTriangles][3][3] = {};  // the tip is at 0, 0, 0 and the head at 0, 0, kLength
    int32_t colors[kTriangles];
    for (int side = 0; side < kSides; ++side) {
        int32_t(*tip)[3] = positions[2 * side], (*head)[3] = positions[2 * side + 1];
        head[0][2] = kLength;
        for (int corner = 1; corner <= 2; ++corner) {
            const int32_t angle = (side + corner) * 360 / kSides;
            tip[corner][0] = head[corner][0] = K8Math_cos(float(angle)) * (kRadius / 4096);
            tip[corner][1] = head[corner][1] = K8Math_sin(float(angle)) * (kRadius / 4096);
            tip[corner][2] = head[corner][2] = kLength;
        }
        colors[2 * side] = kSideColors[side % 2];
        colors[2 * side + 1] = kHeadColor;
    }

    K8Primitive* pin = K8Primitive_create(nullptr, &MALK8_malc);
    K8PrimitiveInfo info = {};
    info.type = K8_PRIM_TRIANGLES;
    info.params = K8_PRIM_COLOR_PER_PRIMITIVE;
    info.primitiveCount = kTriangles;
    if (pin && setValues(&info, K8_PRIM_POSITIONS, positions[0][0], 9 * kTriangles) &&
        setValues(&info, K8_PRIM_COLORS, colors, kTriangles) && K8Primitive_setTmpData(pin, &info))
        return pin;
    for (int32_t* values : info.values) MALK8_malc.functions->free(&MALK8_malc, values);
    K8Primitive_destroy(pin);
    return nullptr;
}

K8Transform placePin(const Hit& hit) {
    float along[3] = {hit.normal[0], hit.normal[1], hit.normal[2]};
    if (!_qel_normalize3(along)) along[1] = 1;
    // Any two directions across: the first is square to the axis that the pin leans to least.
    const float axis[3] = {std::fabs(along[0]) < 0.5f ? 1.0f : 0.0f, std::fabs(along[0]) < 0.5f ? 0.0f : 1.0f, 0};
    float across[3], aside[3];
    _qel_cross3(axis, along, across);
    _qel_normalize3(across);
    _qel_cross3(along, across, aside);
    float elements[16] = {};
    for (int i = 0; i < 3; ++i) {
        elements[4 * i] = across[i];
        elements[4 * i + 1] = aside[i];
        elements[4 * i + 2] = along[i];
        elements[4 * i + 3] = hit.point[i];
    }
    elements[15] = 1;
    K8Transform transform;
    K8Transform_createT(&transform, &MALK8_malc, elements);
    return transform;
}
