// The context behind a K8Render handle.
#pragma once

#include "render/graphics3d.h"
#include "render/record_pool.h"

struct DrawItem;

struct K8RenderContext {
    void* target;  // the host's; non-null once bound
    int32_t targetWidth, targetHeight;
    int32_t bufferWidth;
    PixelRect bindRect;
    Camera* drawCamera;
    DrawItem* head;
    DrawItem* tail;
    uint32_t queuedCalls;  // K8Render_render3D calls since the last flush or clear
    int32_t maxLights;
    Light** lights;                 // of the current call; no references
    K8Transform** lightTransforms;  // one record per slot
    uint32_t* lightWords;
    int32_t textureUnits;  // used by the draw list
    Texture2D* whiteTexture;  // 1 x 1, ALPHA 255
    RecordPool* pool;
    int32_t collectedCount;  // lights of the item queued last
    Light** collectedLights;          // owned by the item; identities for comparing
    K8Transform** collectedTransforms;
};

// The process-wide Graphics3D that every bound context shares; null while none is bound.
Graphics3D* K8Render_sharedGraphics();
