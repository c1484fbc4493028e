// How Graphics3D renders a node: from a scene graph to a queue, and from the queue to draws.
#include <algorithm>

#include "render/graphics3d.h"
#include "render/render_queue.h"
#include "render/submesh_bounds.h"
#include "scene/appearance.h"
#include "scene/camera.h"
#include "scene/compositing_mode.h"
#include "scene/figure_mesh.h"
#include "scene/morphing_mesh.h"
#include "scene/sprite3d.h"
#include "scene/transform.h"
#include "scene/vertex_array.h"

// A mesh made ready for drawing: deformed if its class deforms.
struct PreparedMesh {
    VertexBuffer* vertexBuffer;  // null: the mesh is not drawn
    Result result;
};

static PreparedMesh prepareMorphing(MorphingMesh* mesh) {
    const Result result = qelMorphingMesh_update(mesh);
    if (result == QEL_STATUS_OUT_OF_MEMORY) return {nullptr, result};
    return {result == QEL_STATUS_OK ? mesh->morphedBuffer : nullptr, QEL_STATUS_OK};
}

static PreparedMesh prepareSkinned(SkinnedMesh* mesh) {
    const Result result = qelSkinnedMesh_skin(mesh, true);
    if (result == QEL_STATUS_OUT_OF_MEMORY) return {nullptr, result};
    return {result == QEL_STATUS_OK ? mesh->skinnedBuffer : nullptr, QEL_STATUS_OK};
}

static PreparedMesh prepareMesh(Mesh* mesh) {
    switch (mesh->classId) {
        case ClassId::MorphingMesh: return prepareMorphing(static_cast<MorphingMesh*>(mesh));
        case ClassId::SkinnedMesh: return prepareSkinned(static_cast<SkinnedMesh*>(mesh));
        case ClassId::FigureMesh: return {static_cast<SkinnedMesh*>(mesh)->skinnedBuffer, QEL_STATUS_OK};
        default: return {mesh->vertexBuffer, QEL_STATUS_OK};
    }
}

// A figure's textured polygons are not coloured; its opaque colour polygons draw from colours without alpha.
static VertexArray* colorsOf(const Mesh* mesh, int32_t submesh, const VertexBuffer* buffer) {
    if (mesh->classId != ClassId::FigureMesh) return buffer->colors;
    const auto* figure = static_cast<const FigureMesh*>(mesh);
    const uint32_t flags = figure->slotFlags[submesh];
    if (!(flags & kSlotColored)) return nullptr;
    return flags & kSlotBlended ? buffer->colors : figure->opaqueColors;
}

static bool isBlended(const Appearance* appearance) {
    const CompositingMode* mode = appearance->compositingMode;
    return mode && mode->blending != Blending::Replace;
}

static void originOf(const qelTransform* world, float out[3]) {
    for (int i = 0; i < 3; ++i) out[i] = world->elements[4 * i + 3];
}

static bool originIsInView(const Graphics3D* graphics, const qelTransform* world) {
    float origin[3];
    originOf(world, origin);
    return qelViewVolume_containsPoint(&graphics->viewVolume, origin);
}

// Whether a submesh may be seen. Spheres are computed only where something depends on them: to cull, or to sort what
// blends.
static bool submeshIsVisible(const Graphics3D* graphics, Mesh* mesh, int32_t submesh, const VertexBuffer* buffer,
                             bool inView) {
    SubmeshBounds* bounds = &mesh->bounds[submesh];
    const TriangleStripArray* strips = mesh->indexBuffers[submesh];
    if (graphics->viewVolume.type == ProjectionType::Generic) return true;
    if (inView && !isBlended(mesh->appearances[submesh])) return true;
    if (!qelSubmeshBounds_indicesFit(buffer, strips)) return true;  // drawing it reports the failure
    qelSubmeshBounds_compute(buffer, strips, &mesh->toWorld, bounds);
    if (!inView) return qelViewVolume_testSphere(&graphics->viewVolume, bounds->center, bounds->radius, &bounds->depth);
    qelViewVolume_sphereDepth(&graphics->viewVolume, bounds->center, bounds->radius, &bounds->depth);
    return true;
}

// --- One mesh ---

static Result drawMeshSubmesh(Graphics3D* graphics, const Mesh* mesh, int32_t submesh, VertexBuffer* buffer) {
    const SubmeshDraw draw = {.vertexBuffer = buffer,
                              .indexBuffer = mesh->indexBuffers[submesh],
                              .appearance = mesh->appearances[submesh],
                              .colors = colorsOf(mesh, submesh, buffer),
                              .modelTransform = &mesh->toWorld,
                              .alphaFactor = mesh->worldAlpha};
    return qelGraphics3D_drawSubmesh(graphics, draw, mesh->scope);
}

// Draws a mesh by itself: its opaque submeshes first, then the blended ones, each in their order.
static Result drawMesh(Graphics3D* graphics, Mesh* mesh) {
    const PreparedMesh prepared = prepareMesh(mesh);
    if (!prepared.vertexBuffer) return prepared.result;
    const bool inView = originIsInView(graphics, &mesh->toWorld);
    for (const bool blended : {false, true}) {
        for (int32_t i = 0; i < mesh->submeshCount; ++i) {
            if (!mesh->appearances[i] || isBlended(mesh->appearances[i]) != blended) continue;
            if (!inView && !submeshIsVisible(graphics, mesh, i, prepared.vertexBuffer, inView)) continue;
            const Result result = drawMeshSubmesh(graphics, mesh, i, prepared.vertexBuffer);
            if (result != QEL_STATUS_OK) return result;
        }
    }
    return QEL_STATUS_OK;
}

// --- A group ---

// parentInView: the origin of the group or skinned mesh above was seen, which counts for what hangs directly below it.
static Result queueMesh(Graphics3D* graphics, Group* owner, Mesh* mesh, bool parentInView) {
    const PreparedMesh prepared = prepareMesh(mesh);
    if (!prepared.vertexBuffer) return prepared.result;
    const bool inView = parentInView || originIsInView(graphics, &mesh->toWorld);
    for (int32_t i = 0; i < mesh->submeshCount; ++i) {
        if (!mesh->appearances[i]) continue;
        if (!submeshIsVisible(graphics, mesh, i, prepared.vertexBuffer, inView)) continue;
        const RenderQueueEntry entry = {.node = mesh,
                                        .vertexBuffer = prepared.vertexBuffer,
                                        .indexBuffer = mesh->indexBuffers[i],
                                        .appearance = mesh->appearances[i],
                                        .colors = colorsOf(mesh, i, prepared.vertexBuffer),
                                        .worldTransform = mesh->toWorld,
                                        .alphaFactor = mesh->worldAlpha,
                                        .scope = mesh->scope,
                                        .depth = mesh->bounds[i].depth};
        const Result result = qelRenderQueue_insert(owner, entry);
        if (result != QEL_STATUS_OK) return result;
    }
    return QEL_STATUS_OK;
}

// Sprites are not culled and carry depth 0: among blended entries of a layer they come last, in front of everything.
static Result queueSprite(Group* owner, Sprite3D* sprite) {
    RenderQueueEntry entry = {};
    entry.node = sprite;
    entry.appearance = sprite->appearance;
    entry.worldTransform = sprite->toWorld;
    entry.alphaFactor = sprite->worldAlpha;
    entry.scope = sprite->scope;
    return qelRenderQueue_insert(owner, entry);
}

static Result queueNode(Graphics3D* graphics, Group* owner, Node* node, bool parentInView) {
    switch (node->classId) {
        case ClassId::Mesh:
        case ClassId::MorphingMesh:
        case ClassId::SkinnedMesh: return queueMesh(graphics, owner, static_cast<Mesh*>(node), parentInView);
        case ClassId::Sprite3D: return queueSprite(owner, static_cast<Sprite3D*>(node));
        default: return QEL_STATUS_OK;
    }
}

// World transform, alpha and visibility of a node whose parent has just been entered. transformChanged stays set while
// the subtree is walked, which tells the children; leaving the node clears it.
static void enterChild(const Graphics3D* graphics, Node* node) {
    const Node* parent = node->parent;
    qelTransformable_updateComposite(node);
    if (parent->transformChanged) node->transformChanged = 1;
    if (node->transformChanged) qelTransform_multiplyInto(&node->toWorld, &parent->toWorld, &node->composite);
    node->worldAlpha = parent->worldAlpha * node->alphaFactor;
    if (qelObject3D_isGroup(node) || node->classId == ClassId::SkinnedMesh) {
        node->originInView = originIsInView(graphics, &node->toWorld);
        // A skeleton takes over what the skinned mesh sees.
        if (parent->classId == ClassId::SkinnedMesh && parent->originInView) node->originInView = 1;
    }
}

// As numbers: the lines may reach behind an object, where no pointer may.
static inline void prefetchLines(const void* from, size_t bytes) {
    constexpr size_t kCacheLine = 64;
    for (uintptr_t at = reinterpret_cast<uintptr_t>(from), end = at + bytes; at < end; at += kCacheLine)
        __builtin_prefetch(reinterpret_cast<const void*>(at));
}

// A large scene does not stay in the caches: what the walk reads of a child is asked for while its siblings before it
// are walked. Behind the members of a node lie those of its class.
static inline void prefetchChild(const Group* group, int32_t index) {
    const Node* child = index < group->childCount ? group->children[index] : nullptr;
    if (!child) return;
    prefetchLines(child, 1);
    prefetchLines(&child->transformChanged, 2 * sizeof(qelTransform) + 64);
    prefetchLines(&child->childSlot, 192);
}

// The next node below `node` that the walk enters, from child slot *next on, which moves behind it; null when there is
// none. The duplicate of a single group has empty slots.
static Node* nextChild(Node* node, int32_t* next) {
    if (node->classId == ClassId::SkinnedMesh)
        return (*next)++ == 0 ? static_cast<SkinnedMesh*>(node)->skeleton : nullptr;
    if (!qelObject3D_isGroup(node)) return nullptr;
    const auto* group = static_cast<const Group*>(node);
    prefetchChild(group, *next + 2);
    while (*next < group->childCount)
        if (Node* child = group->children[(*next)++]) return child;
    return nullptr;
}

// Walks the subtree without recursion, depth first in child order, and queues what is to be drawn. A failure ends it at
// once: flags that stay set only have transforms computed again.
static Result queueSubtree(Graphics3D* graphics, Group* owner, Node* root) {
    // Whatever its scope, like a mesh without skeleton; and what its parent saw was another traversal.
    Result result = queueNode(graphics, owner, root, false);
    Node* node = root;
    int32_t next = 0;
    while (result == QEL_STATUS_OK) {
        Node* child = nextChild(node, &next);
        if (child) {
            if (!child->renderingEnabled) continue;
            enterChild(graphics, child);
            if (child->scope & graphics->camera->scope) result = queueNode(graphics, owner, child, node->originInView);
            node = child;
            next = 0;
            continue;
        }
        node->transformChanged = 0;
        if (node == root) break;
        next = qelObject3D_isGroup(node->parent) ? node->childSlot + 1 : 1;
        node = node->parent;
    }
    return result;
}

static Result drawEntry(Graphics3D* graphics, const RenderQueueEntry& entry) {
    if (!entry.vertexBuffer)
        return qelGLBackend_drawSprite(graphics->backend, static_cast<Sprite3D*>(entry.node), &entry.worldTransform,
                                       entry.alphaFactor);
    const SubmeshDraw draw = {.vertexBuffer = entry.vertexBuffer,
                              .indexBuffer = entry.indexBuffer,
                              .appearance = entry.appearance,
                              .colors = entry.colors,
                              .modelTransform = &entry.worldTransform,
                              .alphaFactor = entry.alphaFactor};
    return qelGraphics3D_drawSubmesh(graphics, draw, entry.scope);
}

// A large queue does not stay in the caches, and its entries do not lie in the order of drawing: they are asked for
// some draws ahead.
static inline void prefetchEntry(std::span<const RenderQueueEntry* const> coming) {
    constexpr size_t kAhead = 8;
    if (coming.size() > kAhead) prefetchLines(coming[kAhead], sizeof(RenderQueueEntry));
}

// The queue belongs to the group given, or to the skeleton of a skinned mesh given.
static Result drawSubtree(Graphics3D* graphics, Group* owner, Node* root) {
    Result result = queueSubtree(graphics, owner, root);
    std::span<const RenderQueueEntry* const> queue = qelRenderQueue_sorted(owner);
    for (; !queue.empty() && result == QEL_STATUS_OK; queue = queue.subspan(1)) {
        prefetchEntry(queue.subspan(1));
        result = drawEntry(graphics, *queue.front());
    }
    qelRenderQueue_clear(owner);
    return result;
}

// --- The node given ---

static float alphaFromAncestors(const Node* node) {
    float alpha = 1.0f;
    for (; node; node = node->parent) alpha *= node->alphaFactor;
    return alpha;
}

// The given transform takes the place of the node's own. A node inside a tree is marked, since its cached transform no
// longer comes from its parent.
static void enterRoot(const Graphics3D* graphics, Node* node, const qelTransform* transform) {
    qelTransform identity;
    qelTransform_setIdentity(&identity);
    const qelTransform* given = transform ? transform : &identity;
    if (!std::equal(std::begin(given->elements), std::end(given->elements), node->toWorld.elements)) {
        qelTransform_set_tr(&node->toWorld, given);
        node->transformChanged = 1;
    }
    node->worldAlpha = alphaFromAncestors(node);
    node->originInView = originIsInView(graphics, &node->toWorld);
}

static Result renderEntered(Graphics3D* graphics, Node* node) {
    switch (node->classId) {
        case ClassId::FigureMesh:
        case ClassId::Mesh:
        case ClassId::MorphingMesh: return drawMesh(graphics, static_cast<Mesh*>(node));
        case ClassId::SkinnedMesh:
            // The copy of a single skinned mesh has no skeleton.
            if (Group* skeleton = static_cast<SkinnedMesh*>(node)->skeleton)
                return drawSubtree(graphics, skeleton, node);
            return drawMesh(graphics, static_cast<Mesh*>(node));
        case ClassId::Group:
        case ClassId::World: return drawSubtree(graphics, static_cast<Group*>(node), node);
        case ClassId::Sprite3D:
            return qelGLBackend_drawSprite(graphics->backend, static_cast<Sprite3D*>(node), &node->toWorld,
                                           node->worldAlpha);
        default: return QEL_STATUS_ILLEGAL_ARGUMENT;
    }
}

// Cameras and lights stand in scenes, but nothing of them is to be seen.
static bool isRenderable(const Node* node) {
    return node->classId != ClassId::Camera && node->classId != ClassId::Light;
}

Result qelGraphics3D_render(Graphics3D* graphics, Node* node, const qelTransform* transform) {
    if (!node) return QEL_STATUS_NULL_POINTER;
    if (!graphics->isBound || !graphics->cameraIsSet) return QEL_STATUS_ILLEGAL_STATE;
    const Camera* camera = graphics->camera;
    if (camera->projectionType != ProjectionType::Generic && camera->near == camera->far) return QEL_STATUS_OK;
    if (!isRenderable(node)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!node->renderingEnabled) return QEL_STATUS_OK;
    const Result prepared = qelGraphics3D_prepareCamera(graphics);
    if (prepared != QEL_STATUS_OK) return prepared;
    enterRoot(graphics, node, transform);
    graphics->isRendering = 1;
    const Result result = renderEntered(graphics, node);
    graphics->isRendering = graphics->lightsAreChosen = 0;
    // After a failure not everything below has come up to date; within a tree the parent decides where the node stands.
    node->transformChanged = result != QEL_STATUS_OK || node->parent;
    return result;
}
