// What a load gives can be posed, drawn, picked and asked whether it touches itself, whatever the bytes said. The input
// is the length of a file (16 bits), the file, and the rest as the action table of a single figure; either may be
// refused. OpenGL ES only counts its calls here.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "k8.h"
#include "tests/support/dispose.h"

static void setTime(const std::set<K8Handle*>& handles, uint32_t action, int32_t frame) {
    for (K8Handle* handle : handles) {
        if (handle->classId == K8_CLASS_FIGURE) {
            K8FigureInfo* info = reinterpret_cast<K8Figure*>(handle)->info;
            info->action = action;
            info->frame = frame;
        } else if (handle->classId == K8_CLASS_GROUP || handle->classId == K8_CLASS_SCENE_GROUP) {
            reinterpret_cast<K8Group*>(handle)->info->frame = frame;
        }
    }
}

static void draw(K8Render* render, K8Handle* root) {
    K8RenderParams params = {};
    params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
    params.screenWidth = params.screenHeight = 64;
    params.nearDistance = 4096;
    params.farDistance = 1 << 20;
    params.verticalAngle = 40 << 12;
    const std::set<K8Handle*> handles = handlesOf(root);
    for (const uint32_t action : {0u, 1u, 0x80000002u})
        for (const int32_t frame : {0, 0x18000, 0x7FFFFFFF, -1}) {
            setTime(handles, action, frame);
            K8Render_render3D(render, &params, root, nullptr);
        }
    K8Render_CheckAlphaBlend(render, nullptr);
    K8Render_flush(render, 0, 0, 64, 64);
}

static void pick(qelObject3D* object, qelRayIntersectionArray* hits) {
    if (!object) return;
    int32_t result;
    switch (qelObject3D_getClassID(object)) {
        case QEL_CLASS_MESH:
            qelMesh_pickMultiple(reinterpret_cast<qelMesh*>(object), 1, 2, -90, 0, 0, 1, hits, &result);
            break;
        case QEL_CLASS_MORPHING_MESH:
            qelMorphingMesh_pickMultiple(reinterpret_cast<qelMorphingMesh*>(object), 1, 2, -90, 0, 0, 1, hits, &result);
            break;
        case QEL_CLASS_SKINNED_MESH:
        case QEL_CLASS_FIGURE_MESH:
            qelSkinnedMesh_pickMultiple(reinterpret_cast<qelSkinnedMesh*>(object), 1, 2, -90, 0, 0, 1, hits, &result);
            break;
        default: break;
    }
}

static void query(K8Handle* root) {
    constexpr int kPicks = 18;  // from one on it is a tree that answers
    qelRayIntersectionArray hits;
    qelRayIntersectionArray_initialize(&hits);
    for (K8Handle* handle : handlesOf(root))
        for (int i = 0; i < kPicks && handle->classId == K8_CLASS_FIGURE; ++i) pick(handle->object, &hits);
    qelRayIntersectionArray_finalize(&hits);

    K8Transform* aside = K8Transform_create(nullptr, &MALK8_malc);
    K8Transform_translate(aside, 3 << 12, 0, 1 << 12);
    K8Util_getCrossStatus(root, nullptr, root, aside);
    K8Transform_destroy(aside);
}

// Whether a table can be the figure's.
static bool givesActions(const K8Handle* root, const K8Handle* actions) {
    return root && actions && root->classId == K8_CLASS_FIGURE && actions->classId == K8_CLASS_ACTION_TABLE &&
           !reinterpret_cast<const K8Figure*>(root)->info->loadedAction;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint16_t fileSize;
    if (size < sizeof fileSize) return 0;
    std::memcpy(&fileSize, data, sizeof fileSize);
    data += sizeof fileSize;
    size -= sizeof fileSize;
    const size_t split = std::min<size_t>(fileSize, size);

    MALK8_touchMA();
    K8Handle* root = K8Loader_loadObject(int32_t(split), data, &MALK8_malc);
    K8Handle* actions = K8Loader_loadObject(int32_t(size - split), data + split, &MALK8_malc);
    if (givesActions(root, actions)) {  // dispose finds the table with the figure then
        reinterpret_cast<K8Figure*>(root)->info->loadedAction = reinterpret_cast<K8ActionTable*>(actions);
        actions = nullptr;
    }
    K8Render* render = K8Render_create(nullptr, &MALK8_malc);
    if (root && K8Render_bind(render, render, 64, 64, 64, 0, 0, 64, 64)) draw(render, root);
    if (root) query(root);
    K8Render_destroy(render);
    dispose(root);
    dispose(actions);
    return 0;
}
