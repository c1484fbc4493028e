#include "loader/scene_handles.h"

#include <algorithm>
#include <array>

#include "frame/allocator.h"
#include "frame/fixed_point.h"
#include "loader/k8_content.h"
#include "scene/appearance.h"
#include "scene/light.h"
#include "scene/mesh.h"
#include "scene/subtree.h"
#include "scene/texture2d.h"

// --- Lists that grow ---

template <typename T>
struct List {
    T* items;
    uint32_t count, capacity;
};

template <typename T>
static bool append(List<T>& list, const T& item) {
    if (list.count == list.capacity) {
        const uint32_t capacity = std::max(2 * list.capacity, 16u);
        void* grown = qelReallocArray(list.items, capacity, sizeof(T));
        if (!grown) return false;
        list.items = static_cast<T*>(grown);
        list.capacity = capacity;
    }
    list.items[list.count++] = item;
    return true;
}

// --- Making handles ---

// A group with its handle, and the first of its children that may have no handle yet.
struct OpenGroup {
    const Group* group;
    K8GroupInfo* info;
    int32_t nextChild;
};

struct SceneHandles {
    K8Allocator* allocator;
    List<K8Handle*> made;  // the World's first
    List<OpenGroup> open;  // the way from the World down to the group that gets its children
};

// Enters a new handle, which may be null, into the list by which everything is given back. Null on failure.
template <typename Handle>
static Handle* enter(SceneHandles& handles, Handle* handle) {
    if (!handle || append(handles.made, &handle->header)) return handle;
    K8Object3D_destroy(&handle->header);
    return nullptr;
}

template <typename Handle>
static void wrap(Handle* handle, Object3D* object) {
    qelObject3D_exchange(handle->header.object, object);
}

// --- Figures and their textures ---

static K8Texture* makeTexture(SceneHandles& handles, Texture2D* object) {
    K8Texture* texture = enter(handles, K8Texture_create(nullptr, handles.allocator));
    if (!texture) return nullptr;
    wrap(texture, object);
    texture->keepsBlending = 1;
    const K8TextureInfo info = {};
    return K8Texture_setTmpData(texture, &info) ? texture : nullptr;
}

// The textures of one figure.
constexpr uint32_t kMaxMeshTextures = 64;  // second maps included

struct FigureTextures {
    std::array<K8Texture*, kMaxMeshTextures> first;  // of texture unit 0
    uint16_t firstCount;
    uint32_t count;
};

// A texture of unit 1 becomes the second map of the one on unit 0. Without one it is left out.
static bool addTexturesOf(SceneHandles& handles, const Appearance* appearance, FigureTextures& textures) {
    static_assert(kMaxTextureUnits == 2);
    if (!appearance || !appearance->textures[0]) return true;
    Texture2D* second = appearance->textures[1];
    textures.count += second ? 2 : 1;
    if (textures.count > kMaxMeshTextures) return false;
    K8Texture* texture = makeTexture(handles, appearance->textures[0]);
    if (!texture) return false;
    textures.first[textures.firstCount++] = texture;
    if (!second) return true;
    texture->info->secondMap = makeTexture(handles, second);
    texture->info->hasSecondMap = texture->info->secondMap != nullptr;
    return texture->info->hasSecondMap;
}

static bool isMesh(const Node* node) {
    return node->classId == ClassId::Mesh || node->classId == ClassId::MorphingMesh ||
           node->classId == ClassId::SkinnedMesh;
}

// Those of a mesh and, where it has a skeleton, of the meshes below.
static bool collectTextures(SceneHandles& handles, Node* top, FigureTextures& textures) {
    SubtreeWalk walk{top, top, 0};
    do {
        if (!isMesh(walk.node)) continue;
        const auto* mesh = static_cast<const Mesh*>(walk.node);
        for (int32_t i = 0; i < mesh->submeshCount; ++i)
            if (!addTexturesOf(handles, mesh->appearances[i], textures)) return false;
    } while (qelSubtreeWalk_next(&walk));
    return true;
}

static bool attachTextures(K8Figure* figure, const FigureTextures& textures) {
    if (textures.firstCount == 0) return true;
    auto* list = K8Allocator_allocArrayOf<K8Texture*>(figure->header.allocator, textures.firstCount);
    if (!list) return false;
    std::copy_n(textures.first.data(), textures.firstCount, list);
    figure->info->loadedTextures = list;
    figure->info->loadedTextureCount = textures.firstCount;
    return true;
}

static K8Handle* makeFigure(SceneHandles& handles, Node* mesh) {
    K8Figure* figure = enter(handles, K8Figure_create(nullptr, handles.allocator));
    if (!figure) return nullptr;
    wrap(figure, mesh);
    const K8FigureInfo info = K8Content_figureDefaults();
    if (!K8Figure_setTmpData(figure, &info)) return nullptr;
    FigureTextures textures{};
    if (!collectTextures(handles, mesh, textures) || !attachTextures(figure, textures)) return nullptr;
    return &figure->header;
}

// --- Lights ---

// Where the light stands in the World and which way it shines. Where the transform leaves nothing of the direction, it
// is as without one.
static K8LightInfo placeLight(Light* light) {
    constexpr float kDirection[3] = {0, 0, -1};
    qelTransform toWorld;
    qelNode_computeToRoot(light, &toWorld);
    float direction[3];
    qelTransform_transformNormal(&toWorld, kDirection, direction);
    const float* shines = _qel_normalize3(direction) ? direction : kDirection;
    K8LightInfo info;
    for (int32_t i = 0; i < 3; ++i) {
        info.position[i] = j2f(toWorld.elements[4 * i + 3]);
        info.direction[i] = j2f(shines[i]);
    }
    return info;
}

static K8Handle* makeLight(SceneHandles& handles, Node* node) {
    K8Light* light = enter(handles, K8Light_create(nullptr, handles.allocator));
    if (!light) return nullptr;
    wrap(light, node);
    const K8LightInfo info = placeLight(static_cast<Light*>(node));
    return K8Light_setTmpData(light, &info) ? &light->header : nullptr;
}

// --- Groups ---

static bool hasHandle(const Node* node) {
    return node->classId != ClassId::Camera && node->classId != ClassId::Sprite3D;
}

static std::span<Node* const> childrenOf(const Group* group) { return {group->children, size_t(group->childCount)}; }

// Makes the handle of a group, with room for those of its children, and opens the group.
static K8Handle* makeGroup(SceneHandles& handles, Group* group) {
    K8Group* handle = enter(handles, K8Group_create(nullptr, handles.allocator));
    if (!handle) return nullptr;
    handle->header.classId = K8_CLASS_SCENE_GROUP;
    wrap(handle, group);
    K8GroupInfo info = {};
    info.flag = 1;
    if (!K8Group_setTmpData(handle, &info)) return nullptr;
    const auto count = uint32_t(std::ranges::count_if(childrenOf(group), hasHandle));
    if (count > 0) {
        handle->info->childHandles = K8Allocator_allocArrayOf<K8Handle*>(handles.allocator, count);
        if (!handle->info->childHandles) return nullptr;
    }
    return append(handles.open, OpenGroup{group, handle->info, 0}) ? &handle->header : nullptr;
}

static K8Handle* makeHandle(SceneHandles& handles, Node* node) {
    if (isMesh(node)) return makeFigure(handles, node);
    if (node->classId == ClassId::Light) return makeLight(handles, node);
    return node->classId == ClassId::Group ? makeGroup(handles, static_cast<Group*>(node)) : nullptr;
}

// Makes the handle of the next child of the innermost open group, or closes the group.
static bool advance(SceneHandles& handles) {
    OpenGroup& innermost = handles.open.items[handles.open.count - 1];
    if (innermost.nextChild == innermost.group->childCount) {
        --handles.open.count;
        return true;
    }
    Node* child = innermost.group->children[innermost.nextChild++];
    if (!hasHandle(child)) return true;
    K8GroupInfo* info = innermost.info;  // opening a group may move the list
    K8Handle* handle = makeHandle(handles, child);
    if (!handle) return false;
    info->childHandles[info->childHandleCount++] = handle;
    return true;
}

static bool listAll(const SceneHandles& handles, K8Group* root) {
    const std::span others = std::span(handles.made.items, handles.made.count).subspan(1);
    root->info->childData = K8Allocator_allocArrayOf<K8Handle*>(handles.allocator, uint32_t(others.size() + 1));
    if (!root->info->childData) return false;
    std::ranges::copy(others, root->info->childData);  // the last entry is null as it came
    return true;
}

K8Group* K8SceneHandles_make(World* world, K8Allocator* allocator) {
    SceneHandles handles{allocator, {}, {}};
    auto* root = reinterpret_cast<K8Group*>(makeGroup(handles, world));
    bool ok = root != nullptr;
    while (ok && handles.open.count > 0) ok = advance(handles);
    ok = ok && listAll(handles, root);
    if (!ok)
        for (K8Handle* handle : std::span(handles.made.items, handles.made.count)) K8Object3D_destroy(handle);
    qelFree(handles.made.items);
    qelFree(handles.open.items);
    return ok ? root : nullptr;
}
