// A figure and an action table of any bytes can be posed and drawn. The input is the length of the figure file (16 bits), the
// figure, and the rest as action table; either may be refused. OpenGL ES only counts its calls here.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "k8.h"

static void draw(K8Render* render, K8Handle* handle, K8Handle* actions) {
    auto* figure = reinterpret_cast<K8Figure*>(handle);
    figure->info->loadedAction = reinterpret_cast<K8ActionTable*>(actions);
    K8RenderParams params = {};
    params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
    params.screenWidth = params.screenHeight = 64;
    params.nearDistance = 4096;
    params.farDistance = 1 << 20;
    params.verticalAngle = 40 << 12;
    const int32_t actionCount = actions ? K8ActionTable_getNumActions(figure->info->loadedAction) : 1;
    for (int32_t action = 0; action < std::min(actionCount, 4); ++action) {
        figure->info->action = uint32_t(action);
        for (const int32_t frame : {0, 0x18000, 0x7FFFFFFF, -1}) {
            figure->info->frame = frame;
            K8Render_render3D(render, &params, handle, nullptr);
        }
    }
    K8Render_flush(render, 0, 0, 64, 64);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint16_t figureSize;
    if (size < sizeof figureSize) return 0;
    std::memcpy(&figureSize, data, sizeof figureSize);
    data += sizeof figureSize;
    size -= sizeof figureSize;
    const size_t split = std::min<size_t>(figureSize, size);

    MALK8_touchMA();
    K8Handle* figure = K8Loader_loadObject(int32_t(split), data, &MALK8_malc);
    K8Handle* actions = K8Loader_loadObject(int32_t(size - split), data + split, &MALK8_malc);
    if (actions && K8Object3D_getClassId(actions) != K8_CLASS_ACTION_TABLE) {
        K8Object3D_destroy(actions);
        actions = nullptr;
    }
    K8Render* render = K8Render_create(nullptr, &MALK8_malc);
    if (figure && K8Object3D_getClassId(figure) == K8_CLASS_FIGURE &&
        K8Render_bind(render, render, 64, 64, 64, 0, 0, 64, 64))
        draw(render, figure, actions);
    K8Render_destroy(render);
    K8Object3D_destroy(figure);
    K8Object3D_destroy(actions);
    return 0;
}
