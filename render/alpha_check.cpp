// K8Render_CheckAlphaBlend: whether anything queued blends.
#include "frame/allocator.h"
#include "frame/fixed_point.h"
#include "render/draw_list.h"
#include "render/draw_primitive.h"
#include "render/figure_parameters.h"
#include "render/scene_changes.h"
#include "scene/figure_mesh.h"
#include "scene/subtree.h"

// The status word.
constexpr uint32_t kSearched = 0, kNoContext = 1, kTooLarge = 2;

constexpr uint32_t kSceneWorkLimit = 512;  // figures and groups of a scene that are searched

constexpr int32_t kLargestUndrawnSize = 50 * kFixedOne;  // of sprites that are added

static bool modeBlends(int16_t blendMode) { return K8FigureParameters_blending(blendMode) != Blending::Replace; }

// What covers the frame in part or adds to it; modulating it counts as opaque here.
static bool blends(const CompositingMode* mode) {
    switch (mode ? mode->blending : Blending::Replace) {
        case Blending::Alpha:
        case Blending::AlphaAdd:
        case Blending::Add:
        case Blending::AddWeighted: return true;
        case Blending::Modulate:
        case Blending::ModulateX2:
        case Blending::Replace: break;
    }
    return false;
}

// With what is in the skeleton of a skinned mesh.
static bool meshBlends(Node* mesh) {
    SubtreeWalk walk = {mesh, mesh, 0};
    do {
        for (const Appearance* appearance : K8SceneChanges_appearancesOf(walk.node))
            if (appearance && blends(appearance->compositingMode)) return true;
    } while (qelSubtreeWalk_next(&walk));
    return false;
}

// Counts all patterns: which of them are drawn is known only when the figure is posed.
static bool figureBlends(const K8Figure* figure) {
    if (figure->info && modeBlends(figure->info->blendMode)) return true;
    Object3D* object = figure->header.object;
    if (object && object->classId == ClassId::FigureMesh) return static_cast<const FigureMesh*>(object)->blendFlags & 1;
    return qelObject3D_isNode(object) && meshBlends(static_cast<Node*>(object));
}

// The figures and groups of a scene that are still to be looked at.
struct SceneWork {
    const K8Handle* handles[kSceneWorkLimit];
    uint32_t first, count;
};

// False when the list is full.
static bool addChildren(SceneWork* work, const K8GroupInfo* info) {
    for (uint32_t i = 0; info && i < info->childHandleCount; ++i) {
        const K8Handle* child = info->childHandles[i];
        if (!child || (child->classId != K8_CLASS_FIGURE && child->classId != K8_CLASS_SCENE_GROUP)) continue;
        if (work->count == kSceneWorkLimit) return false;
        work->handles[work->count++] = child;
    }
    return true;
}

static bool searchScene(SceneWork* work, const K8Handle* scene, uint32_t* status) {
    *work = {.handles = {scene}, .first = 0, .count = 1};
    while (work->first < work->count) {
        const K8Handle* handle = work->handles[work->first++];
        if (handle->classId == K8_CLASS_FIGURE) {
            if (figureBlends(reinterpret_cast<const K8Figure*>(handle))) return true;
        } else if (!addChildren(work, reinterpret_cast<const K8Group*>(handle)->info)) {
            *status = kTooLarge;
            return true;
        }
    }
    return false;
}

static bool sceneBlends(const K8Handle* scene, K8Allocator* allocator, uint32_t* status) {
    auto* work = K8Allocator_allocArrayOf<SceneWork>(allocator, 1);
    if (!work) {
        *status = kTooLarge;
        return true;
    }
    const bool blends = searchScene(work, scene, status);
    K8Allocator_free(allocator, work);
    return blends;
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

static bool itemBlends(const DrawItem* item, K8Allocator* allocator, uint32_t* status) {
    switch (item->object->classId) {
        case K8_CLASS_FIGURE: return figureBlends(reinterpret_cast<const K8Figure*>(item->object));
        case K8_CLASS_PRIMITIVE: return primitiveBlends(item);
        case K8_CLASS_SCENE_GROUP: return sceneBlends(item->object, allocator, status);
        default: return false;
    }
}

bool K8Render_CheckAlphaBlend(K8Render* handle, uint32_t* out) {
    const bool hasContext = handle && handle->context;
    uint32_t status = hasContext ? kSearched : kNoContext;
    bool blends = !hasContext;
    for (const DrawItem* item = hasContext ? handle->context->head : nullptr; item && !blends; item = item->next)
        blends = itemBlends(item, handle->header.allocator, &status);
    if (out) *out = status;
    return blends;
}
