// K8Render_CheckAlphaBlend: whether anything queued blends.
#include "frame/fixed_point.h"
#include "render/draw_list.h"
#include "render/draw_primitive.h"
#include "render/figure_parameters.h"
#include "scene/figure_mesh.h"

// The status word. A 2 would say that a scene is too large to be searched.
constexpr uint32_t kSearched = 0, kNoContext = 1;

constexpr int32_t kLargestUndrawnSize = 50 * kFixedOne;  // of sprites that are added

static bool modeBlends(int16_t blendMode) { return K8FigureParameters_blending(blendMode) != Blending::Replace; }

// Counts all patterns: which of them are drawn is known only when the figure is posed.
static bool figureBlends(const K8Figure* figure) {
    if (figure->info && modeBlends(figure->info->blendMode)) return true;
    const Object3D* object = figure->header.object;
    if (!object || object->classId != ClassId::FigureMesh) return false;
    return static_cast<const FigureMesh*>(object)->blendFlags & 1;
}

static bool spriteBlends(const K8PrimitiveInfo& info) {
    if (info.blendMode == K8_BLEND_ADDITIVE) return info.size > kLargestUndrawnSize;
    return info.blendMode == K8_BLEND_ALPHA && info.size != 0;
}

static bool primitiveBlends(const DrawItem* item) {
    const K8PrimitiveInfo* info = reinterpret_cast<const K8Primitive*>(item->object)->info;
    switch (K8DrawList_primitiveType(item)) {
        case K8_PRIM_TRIANGLES:
        case K8_PRIM_QUADS: return modeBlends(info->blendMode);
        case K8_PRIM_SPRITES: return spriteBlends(*info);
        default: return false;  // points and lines count as opaque whatever their mode
    }
}

static bool itemBlends(const DrawItem* item) {
    switch (item->object->classId) {
        case K8_CLASS_FIGURE: return figureBlends(reinterpret_cast<const K8Figure*>(item->object));
        case K8_CLASS_PRIMITIVE: return primitiveBlends(item);
        default: return false;
    }
}

bool K8Render_CheckAlphaBlend(K8Render* handle, uint32_t* out) {
    const bool hasContext = handle && handle->context;
    if (out) *out = hasContext ? kSearched : kNoContext;
    if (!hasContext) return true;
    for (const DrawItem* item = handle->context->head; item; item = item->next)
        if (itemBlends(item)) return true;
    return false;
}
