// What drawing changes on the meshes of a loaded scene, kept so that it can be put back: the scene is the host's, and
// the next draw must find what its author put there.
#pragma once

#include "render/growing_block.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/mesh.h"
#include "scene/polygon_mode.h"

// One submesh, or a sprite, and what its appearance and the components of that held.
struct SceneChange {
    Node* node;                // borrowed, like the next two: all outlive the draw
    Appearance* appearance;    // null for a submesh that has none
    const K8FigureInfo* info;  // of the figure that stands for the mesh, or null
    float alphaFactor;         // of the node
    Fog* fog;                  // one reference each, or null, down to the image
    CompositingMode* compositingMode;
    Texture2D* textures[kMaxTextureUnits];
    Image2D* image;  // of textures[0]
    Blending blending;
    Culling culling;
    uint8_t depthTest, depthWrite;
    uint8_t perspectiveCorrection;
};
using SceneChanges = GrowingBlock<SceneChange>;

// A texture that a scene is drawn with in place of one of its own; borrowed from the queued copy of its handle.
struct SceneTexture {
    Texture2D* texture;
    Texture2D* secondMap;  // or null
    uint8_t isOfScene;     // came with a scene and is used as it is
};

// Remembers every submesh of a mesh of any class, or a sprite; nothing of other nodes. All of them are to be saved
// before any appearance is changed, because they share appearances. False, with what was remembered kept, when memory
// runs out.
bool K8SceneChanges_save(SceneChanges& changes, Node* node, const K8FigureInfo* info, K8Allocator* allocator);
// Puts everything back and forgets it.
void K8SceneChanges_restore(SceneChanges& changes);

// A Mesh, MorphingMesh or SkinnedMesh.
bool K8SceneChanges_isMesh(const Node* node);
// The appearances of a mesh, null entries included, or that of a sprite; empty for other nodes.
std::span<Appearance* const> K8SceneChanges_appearancesOf(const Node* node);
