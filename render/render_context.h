// The context behind a K8Render handle, and the one Graphics3D that all bound contexts share.
#pragma once

#include "render/graphics3d.h"
#include "render/record_pool.h"
#include "render/render_state.h"
#include "render/scene_changes.h"

struct DrawItem;

struct K8RenderContext {
    uint8_t isOurs;  // allocated by K8Render_create, not given by the host
    void* target;    // the host's; non-null once bound
    int32_t targetWidth, targetHeight;
    PixelRect bindRect;
    RenderState renderState;  // of points, lines and sprites
    Camera* drawCamera;
    DrawItem* head;
    DrawItem* tail;
    uint32_t queuedCalls;  // K8Render_render3D calls since the last flush or clear

    // Lights of the current call: maxLights entries each.
    int32_t maxLights;
    int32_t lightCount;
    Light** lights;                 // no references
    K8Transform** lightTransforms;  // owned records
    uint32_t* lightWords;           // see K8CallLights_orderWord

    int32_t textureUnits;     // that the draw list uses
    Texture2D* whiteTexture;  // one reference; 1 x 1, ALPHA 255
    RecordPool* pool;

    // Of the scene being drawn; both empty between draws, and their blocks kept.
    SceneChanges sceneChanges;
    GrowingBlock<SceneTexture> sceneTextures;

    // Lights of the item whose lights changed last, which hold for the items behind it: maxLights entries each, all
    // borrowed from that item.
    int32_t collectedCount;
    Light** collectedLights;
    const K8Transform** collectedTransforms;
};

static_assert(sizeof(K8RenderContext) <= K8_RENDER_CONTEXT_SIZE);

// Null for an unbound handle.
Graphics3D* K8Render_graphics(const K8Render* handle);

// Limits the render state of a context to a part of its target.
void K8Render_setClip(K8RenderContext* context, const PixelRect& area);
