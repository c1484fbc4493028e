#include "loader/k8_package.h"

#include <algorithm>
#include <bit>
#include <span>

#include "frame/allocator.h"
#include "frame/fixed_point.h"
#include "frame/group_handle.h"
#include "loader/package_record.h"
#include "loader/scene_package.h"

constexpr uint16_t kObjectsVersion = 0x0000, kSceneVersion = 0x0100;
constexpr uint32_t kMaxSizeLimit = 0x80000;
constexpr uint32_t kMaxObjects = 1024, kMaxGroups = 1024, kMaxChildren = 1024;
constexpr uint32_t kMinRecordSize = 5, kMinGroupSize = 2, kChildSize = 2;  // bytes that each takes at the least

// Some short records make large objects: a narrow image that is padded to a square, a few polygons of many classes and
// textures. Together they must come with a share of bytes of file, beyond an amount that a package should not need.
constexpr uint64_t kUnpaidBytes = 1 << 20;
constexpr uint64_t kHeldPerByte = 64;

struct PackageGroup {
    MemoryStream children;  // stands at the first child's entry
    uint32_t childCount;
    uint32_t parentCount;  // entries that name it; those not yet seen while circles are looked for
};

struct Package {
    Package(MemoryStream* source, K8Allocator* host, uint32_t objectCount, uint32_t groupCount)
        : stream(source), allocator(host), objects(objectCount), records(groupCount), groups(groupCount) {}

    MemoryStream* stream;
    K8Allocator* allocator;
    Scratch<K8Handle*> objects;  // null while not loaded
    Scratch<PackageGroup> records;
    Scratch<K8Group*> groups;

    bool hasMemory() const { return objects.data && records.data && groups.data; }
};

// --- What the groups say ---

enum class ChildKind { Object, Group, Invalid, PlacedGroup };  // the top two bits of an entry

struct ChildEntry {
    ChildKind kind;
    uint32_t index;
    float elements[16];  // of a placed group
};

static ChildEntry readChild(LoaderStream* stream) {
    ChildEntry child = {};
    const uint32_t word = readUInt16(stream);
    child.kind = ChildKind(word >> 14);
    child.index = word & 0x3FFF;
    if (child.kind == ChildKind::PlacedGroup)
        for (float& element : child.elements) element = f2j(j2f(std::bit_cast<float>(readUInt32(stream))));
    return child;
}

static bool isValid(const Package& package, const ChildEntry& child) {
    if (child.kind == ChildKind::Invalid) return false;
    return child.index < (child.kind == ChildKind::Object ? package.objects.count : package.records.count);
}

static bool readGroups(Package& package) {
    MemoryStream* stream = package.stream;
    for (PackageGroup& group : package.records.span()) {
        group.childCount = readUInt16(stream);
        if (group.childCount > kMaxChildren || group.childCount > LoaderStream_bytesLeft(stream) / kChildSize)
            return false;
        group.children = *stream;
        for (uint32_t c = 0; c < group.childCount; ++c) {
            const ChildEntry child = readChild(stream);
            if (!isValid(package, child)) return false;
            if (child.kind != ChildKind::Object) ++package.records.data[child.index].parentCount;
        }
    }
    return !hasError(stream);
}

// Whether no group is its own ancestor. Goes from the groups that stand nowhere down to each group when all places
// where it stands are counted, and so never reaches one below itself.
static bool isFreeOfCircles(Package& package) {
    const std::span<PackageGroup> groups = package.records.span();
    const Scratch<uint32_t> order(uint32_t(groups.size()));
    if (!order.data) return false;
    uint32_t found = 0;
    for (uint32_t g = 0; g < groups.size(); ++g)
        if (groups[g].parentCount == 0) order.data[found++] = g;
    for (uint32_t visited = 0; visited < found; ++visited) {
        const PackageGroup& group = groups[order.data[visited]];
        MemoryStream children = group.children;
        for (uint32_t c = 0; c < group.childCount; ++c) {
            const ChildEntry child = readChild(&children);
            if (child.kind != ChildKind::Object && --groups[child.index].parentCount == 0)
                order.data[found++] = child.index;
        }
    }
    return found == groups.size();
}

// --- Objects ---

static K8Handle* loadRecord(Package& package, uint32_t sizeLimit) {
    MemoryStream* stream = package.stream;
    const uint32_t header = readUInt32(stream);
    const uint32_t type = (header >> 24) - kFirstRecordType, size = header & 0xFFFFFF;
    if (size == 0 || size >= sizeLimit || size > LoaderStream_bytesLeft(stream) || type >= kRecordTypeCount)
        return nullptr;
    PackageRecord record = {{}, package.objects.count, package.allocator};
    MemoryStream_init(&record.body, stream->cursor, size);
    skipBytes(stream, size);
    return PackageRecord_load(type, &record);
}

static bool loadObjects(Package& package, uint32_t sizeLimit) {
    const uint64_t limit = kUnpaidBytes + LoaderStream_bytesLeft(package.stream) * kHeldPerByte;
    uint64_t held = 0;
    for (K8Handle*& object : package.objects.span()) {
        object = loadRecord(package, sizeLimit);
        if (!object) return false;
        held += PackageRecord_heldBytes(object);
        if (held > limit) return false;
    }
    return true;
}

// --- Links ---

// False when an index names an object of another family; 0 is none.
template <typename Handle>
static bool findObject(const Package& package, uint32_t index, int16_t classId, Handle*& out) {
    if (index == 0) return true;
    K8Handle* object = package.objects.data[index];
    if (object->classId != classId) return false;
    out = reinterpret_cast<Handle*>(object);
    return true;
}

static bool linkFigure(const Package& package, K8FigureInfo* info) {
    const uint32_t count = info->loadedTextureCount;
    if (count > 0) {
        info->loadedTextures = K8Allocator_allocArrayOf<K8Texture*>(package.allocator, count);
        if (!info->loadedTextures) return false;
    }
    for (uint32_t k = 0; k < count; ++k)
        if (!findObject(package, info->textureIndices[k], K8_CLASS_TEXTURE, info->loadedTextures[k])) return false;
    if (!findObject(package, info->textureIndices[count], K8_CLASS_ACTION_TABLE, info->loadedAction)) return false;
    K8Allocator_free(package.allocator, info->textureIndices);
    info->textureIndices = nullptr;
    return true;
}

static bool linkFigures(const Package& package) {
    for (K8Handle* object : package.objects.span())
        if (object->classId == K8_CLASS_FIGURE && !linkFigure(package, reinterpret_cast<K8Figure*>(object)->info))
            return false;
    return true;
}

static bool makeGroups(Package& package) {
    K8GroupInfo info = {};
    info.flag = 1;
    for (K8Group*& group : package.groups.span()) {
        group = K8Group_create(nullptr, package.allocator);
        if (!group || !K8Group_setTmpData(group, &info)) return false;
    }
    return true;
}

// A group that is placed more than once has the transform of the last place.
static bool placeGroup(K8Group* group, const float* elements) {
    K8Transform* transform = K8Group_makeOwnTransform(group);
    K8Transform_setAll(transform, elements);
    return transform;
}

static bool fillGroup(const Package& package, const PackageGroup& record, K8GroupInfo* info) {
    if (record.childCount == 0) return true;
    info->childHandles = K8Allocator_allocArrayOf<K8Handle*>(package.allocator, record.childCount);
    if (!info->childHandles) return false;
    info->childHandleCount = uint16_t(record.childCount);
    MemoryStream children = record.children;
    for (uint32_t c = 0; c < record.childCount; ++c) {
        const ChildEntry child = readChild(&children);
        if (child.kind == ChildKind::Object) {
            info->childHandles[c] = package.objects.data[child.index];
            continue;
        }
        K8Group* group = package.groups.data[child.index];
        info->childHandles[c] = &group->header;
        if (child.kind == ChildKind::PlacedGroup && !placeGroup(group, child.elements)) return false;
    }
    return true;
}

static bool fillGroups(const Package& package) {
    for (uint32_t g = 0; g < package.groups.count; ++g)
        if (!fillGroup(package, package.records.data[g], package.groups.data[g]->info)) return false;
    return true;
}

// --- The result ---

// The first group, whose childData lists everything else.
static K8Handle* takeRootGroup(Package& package) {
    const std::span<K8Handle*> objects = package.objects.span();
    const std::span<K8Group*> groups = package.groups.span();
    auto* list = K8Allocator_allocArrayOf<K8Handle*>(package.allocator, uint32_t(objects.size() + groups.size()));
    if (!list) return nullptr;
    groups[0]->info->childData = list;
    list = std::ranges::copy(objects, list).out;
    std::ranges::transform(groups.subspan(1), list, [](K8Group* group) { return &group->header; });
    return &groups[0]->header;  // the list's last entry is null as it came
}

static bool leadsTo(const K8Handle* handle, const K8Handle* other) {
    if (handle->classId != K8_CLASS_FIGURE) return false;
    const K8FigureInfo* info = reinterpret_cast<const K8Figure*>(handle)->info;
    const std::span<K8Texture*> textures(info->loadedTextures, info->loadedTextureCount);
    return reinterpret_cast<const K8Handle*>(info->loadedAction) == other ||
           std::ranges::any_of(textures,
                               [=](const K8Texture* texture) { return texture && &texture->header == other; });
}

// The first object. Those that it does not lead to would be lost to the host, so they go.
static K8Handle* takeFirstObject(Package& package) {
    const std::span<K8Handle*> objects = package.objects.span();
    for (K8Handle* object : objects.subspan(1))
        if (!leadsTo(objects[0], object)) K8Object3D_destroy(object);
    return objects[0];
}

static void destroyAll(Package& package) {
    for (K8Handle* object : package.objects.span()) K8Object3D_destroy(object);
    for (K8Group* group : package.groups.span()) K8Group_destroy(group);
}

static K8Handle* loadObjectsPackage(MemoryStream* stream, uint32_t sizeLimit, uint32_t objectCount,
                                    K8Allocator* allocator) {
    const uint32_t groupCount = readUInt16(stream);
    if (groupCount > kMaxGroups || (groupCount == 0 && objectCount == 0)) return nullptr;
    if (groupCount * kMinGroupSize + objectCount * kMinRecordSize > LoaderStream_bytesLeft(stream)) return nullptr;
    Package package(stream, allocator, objectCount, groupCount);
    K8Handle* root = nullptr;
    if (package.hasMemory() && readGroups(package) && isFreeOfCircles(package) && loadObjects(package, sizeLimit) &&
        linkFigures(package) && makeGroups(package) && fillGroups(package))
        root = groupCount > 0 ? takeRootGroup(package) : takeFirstObject(package);
    if (!root) destroyAll(package);
    return root;
}

static K8Handle* loadScenePackage(MemoryStream* stream, uint16_t objectCount, K8Allocator* allocator) {
    K8Group* root = K8ScenePackage_load(stream, objectCount, allocator);
    return root ? &root->header : nullptr;
}

K8Handle* K8Package_load(MemoryStream* stream, K8Allocator* allocator) {
    skipBytes(stream, 2);  // the magic
    const uint16_t version = readUInt16(stream);
    const uint32_t sizeLimit = readUInt32(stream);
    const uint16_t objectCount = readUInt16(stream);
    if (hasError(stream) || sizeLimit > kMaxSizeLimit || objectCount > kMaxObjects) return nullptr;
    switch (version) {
        case kObjectsVersion: return loadObjectsPackage(stream, sizeLimit, objectCount, allocator);
        case kSceneVersion: return loadScenePackage(stream, objectCount, allocator);
        default: return nullptr;
    }
}
