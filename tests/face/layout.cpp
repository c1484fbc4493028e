// The members of host-visible structures stand where a host compiled elsewhere expects them. Compiled for the build's
// own pointer width and once more for 32 bits.
#include <stddef.h>

#include "k8.h"

static constexpr bool k32Bit = sizeof(void*) == 4;
static constexpr size_t either(size_t on32Bit, size_t on64Bit) { return k32Bit ? on32Bit : on64Bit; }

static_assert(offsetof(K8Handle, object) == 0);
static_assert(offsetof(K8Handle, classId) == either(4, 8));
static_assert(offsetof(K8Handle, allocator) == either(8, 16));
static_assert(offsetof(K8Handle, ownBlock) == either(12, 24));
static_assert(sizeof(K8Handle) == either(16, 32));

static_assert(sizeof(K8ActionTable) == sizeof(K8Handle) && sizeof(K8Fog) == sizeof(K8Handle));
static_assert(offsetof(K8Figure, info) == sizeof(K8Handle) && sizeof(K8Figure) == either(20, 40));
static_assert(offsetof(K8Group, info) == sizeof(K8Handle) && sizeof(K8Group) == either(20, 40));
static_assert(offsetof(K8Light, info) == sizeof(K8Handle) && sizeof(K8Light) == either(20, 40));
static_assert(offsetof(K8Primitive, info) == sizeof(K8Handle) && sizeof(K8Primitive) == either(20, 40));
static_assert(offsetof(K8Render, context) == sizeof(K8Handle) && sizeof(K8Render) == either(20, 40));
static_assert(offsetof(K8Texture, info) == sizeof(K8Handle));
static_assert(offsetof(K8Texture, keepsBlending) == either(20, 40) && sizeof(K8Texture) == either(24, 48));

static_assert(offsetof(K8TextureInfo, hasSecondMap) == 0);
static_assert(offsetof(K8TextureInfo, textureMode) == 2);
static_assert(offsetof(K8TextureInfo, secondMap) == either(4, 8));
static_assert(sizeof(K8TextureInfo) == either(8, 16));

static_assert(offsetof(K8FigureInfo, frame) == 0);
static_assert(offsetof(K8FigureInfo, perspectiveCorrection) == 4);
static_assert(offsetof(K8FigureInfo, blendMode) == 6);
static_assert(offsetof(K8FigureInfo, transparency) == 8);
static_assert(offsetof(K8FigureInfo, canChangeTextures) == 12);
static_assert(offsetof(K8FigureInfo, action) == 16);
static_assert(offsetof(K8FigureInfo, pattern) == 20);
static_assert(offsetof(K8FigureInfo, loadedTextureCount) == 24);
static_assert(offsetof(K8FigureInfo, loadedTextures) == either(28, 32));
static_assert(offsetof(K8FigureInfo, canChangeAction) == either(32, 40));
static_assert(offsetof(K8FigureInfo, loadedAction) == either(36, 48));
static_assert(offsetof(K8FigureInfo, textureIndices) == either(40, 56));
static_assert(sizeof(K8FigureInfo) == either(44, 64));

static_assert(offsetof(K8GroupInfo, frame) == 0);
static_assert(offsetof(K8GroupInfo, transform) == either(4, 8));
static_assert(offsetof(K8GroupInfo, childHandleCount) == either(8, 16));
static_assert(offsetof(K8GroupInfo, childHandles) == either(12, 24));
static_assert(offsetof(K8GroupInfo, childData) == either(16, 32));
static_assert(offsetof(K8GroupInfo, flag) == either(20, 40));
static_assert(sizeof(K8GroupInfo) == either(24, 48));

static_assert(offsetof(K8LightInfo, position) == 0);
static_assert(offsetof(K8LightInfo, direction) == 12);
static_assert(sizeof(K8LightInfo) == 24);

static_assert(offsetof(K8PrimitiveInfo, perspectiveCorrection) == 0);
static_assert(offsetof(K8PrimitiveInfo, blendMode) == 2);
static_assert(offsetof(K8PrimitiveInfo, size) == 4);
static_assert(offsetof(K8PrimitiveInfo, reserved) == 8);
static_assert(offsetof(K8PrimitiveInfo, texture) == either(12, 16));
static_assert(offsetof(K8PrimitiveInfo, type) == either(16, 24));
static_assert(offsetof(K8PrimitiveInfo, params) == either(20, 28));
static_assert(offsetof(K8PrimitiveInfo, primitiveCount) == either(24, 32));
static_assert(offsetof(K8PrimitiveInfo, counts) == either(28, 36));
static_assert(offsetof(K8PrimitiveInfo, values) == either(48, 56));
static_assert(sizeof(K8PrimitiveInfo) == either(68, 96));

static_assert(offsetof(K8Transform, elements) == 0);
static_assert(offsetof(K8Transform, allocator) == 64);
static_assert(offsetof(K8Transform, ownBlock) == either(68, 72));
static_assert(sizeof(K8Transform) == either(72, 80));

static_assert(offsetof(qelTransform, elements) == 0);
static_assert(offsetof(qelTransform, identityState) == 64);
static_assert(offsetof(qelTransform, uniformDiagonalState) == 68);
static_assert(offsetof(qelTransform, changed) == 72);
static_assert(sizeof(qelTransform) == 76);

static_assert(offsetof(qelRayIntersection, distance) == 0);
static_assert(offsetof(qelRayIntersection, intersected) == either(4, 8));
static_assert(offsetof(qelRayIntersection, submeshIndex) == either(8, 16));
static_assert(offsetof(qelRayIntersection, textureS) == either(12, 20));
static_assert(offsetof(qelRayIntersection, textureT) == either(20, 28));
static_assert(offsetof(qelRayIntersection, normal) == either(28, 36));
static_assert(offsetof(qelRayIntersection, ray) == either(40, 48));
static_assert(sizeof(qelRayIntersection) == either(64, 72));

static_assert(offsetof(qelRayIntersectionArray, capacity) == 0);
static_assert(offsetof(qelRayIntersectionArray, count) == 4);
static_assert(offsetof(qelRayIntersectionArray, records) == 8);
static_assert(sizeof(qelRayIntersectionArray) == either(12, 16));

static_assert(sizeof(Atrans3i) == 48);

static_assert(offsetof(K8RenderParams, projection) == 0);
static_assert(offsetof(K8RenderParams, screenWidth) == 2);
static_assert(offsetof(K8RenderParams, screenHeight) == 4);
static_assert(offsetof(K8RenderParams, nearDistance) == 8);
static_assert(offsetof(K8RenderParams, farDistance) == 12);
static_assert(offsetof(K8RenderParams, verticalAngle) == 16);
static_assert(offsetof(K8RenderParams, viewingTransform) == either(20, 24));
static_assert(offsetof(K8RenderParams, lightCount) == either(24, 32));
static_assert(offsetof(K8RenderParams, lights) == either(28, 40));
static_assert(offsetof(K8RenderParams, lightTransforms) == either(32, 48));
static_assert(offsetof(K8RenderParams, fog) == either(36, 56));
static_assert(sizeof(K8RenderParams) == either(40, 64));

static_assert(offsetof(K8AllocatorFunctions, alloc) == 0);
static_assert(offsetof(K8AllocatorFunctions, realloc) == sizeof(void*));
static_assert(offsetof(K8AllocatorFunctions, free) == 2 * sizeof(void*));
static_assert(sizeof(K8Allocator) == sizeof(void*));
