// Primitives as a host makes them.
#pragma once

#include "tests/render/figure_stage.h"

// One point, line, triangle, quadrilateral or sprite near the origin, in one colour (0xRRGGBB) where it has colours.
inline K8Primitive* makePrimitive(K8Allocator* blocks, uint32_t type, int32_t color, int16_t blendMode = K8_BLEND_NONE,
                                  int32_t size = fixed(1)) {
    K8PrimitiveInfo info{};
    info.type = type;
    info.params = type == K8_PRIM_SPRITES ? K8_PRIM_SPRITE_PER_SET : K8_PRIM_COLOR_PER_SET;
    info.blendMode = blendMode;
    info.size = size;
    info.primitiveCount = 1;
    for (const int32_t kind : {K8_PRIM_POSITIONS, K8_PRIM_COLORS, K8_PRIM_SPRITE_PARAMS}) {
        const auto count = uint32_t(std::abs(K8Primitive_getLength(type, info.params, kind)));
        info.counts[kind] = count;
        info.values[kind] = K8Allocator_allocArrayOf<int32_t>(blocks, count);
    }
    for (uint32_t i = 0; i < info.counts[K8_PRIM_POSITIONS]; ++i)
        info.values[K8_PRIM_POSITIONS][i] = fixed(i % 3 == 2 ? 0 : i / 3 % 4 == i % 3 || i / 3 % 4 == 3 ? 1 : 0);
    if (info.counts[K8_PRIM_COLORS]) info.values[K8_PRIM_COLORS][0] = color;
    const int32_t sprite[] = {fixed(2), fixed(2), 0, 0, 0, fixed(8), fixed(8), 0};
    std::copy_n(sprite, info.counts[K8_PRIM_SPRITE_PARAMS], info.values[K8_PRIM_SPRITE_PARAMS]);
    K8Primitive* primitive = K8Primitive_create(nullptr, blocks);
    EXPECT_TRUE(K8Primitive_setTmpData(primitive, &info));
    return primitive;
}

inline K8Group* makeGroup(K8Allocator* blocks, const std::vector<K8Handle*>& children,
                          K8Transform* transform = nullptr) {
    K8GroupInfo info{};
    info.transform = transform;
    info.childHandleCount = uint16_t(children.size());
    info.childHandles = K8Allocator_allocArrayOf<K8Handle*>(blocks, uint32_t(children.size()));
    std::ranges::copy(children, info.childHandles);
    K8Group* group = K8Group_create(nullptr, blocks);
    EXPECT_TRUE(K8Group_setTmpData(group, &info));
    return group;
}
