// An entry is put where a scan of the queue from the front, comparing it with one entry after the other, would put it;
// the tests write that scan down. Scanning takes time in the square of a scene's size, so its outcome is found from
// less. Layers stand in their order, and in each layer the opaque entries before the blended ones.
//
// Opaque: the scan sees the entries without compositing mode that stand before the first one with a mode. Among them
// the entries of an appearance form one run, which grows at its front; every further run begins in front of the others,
// since they share that they have no mode. An entry with a mode goes before the first of these runs that it shares a
// component with, which is the youngest such. That hides this run and all older ones from every later scan: they are
// closed. So a run is known by the entry that began it, and is open when that came later than the beginning of the last
// one closed.
//
// Blended: the scan passes the entries that are deeper, then those of equal depth, and ends where the depth differs, or
// earlier at the first entry of the same appearance. Depths are not sorted, since an entry stays with its appearance
// whatever stands behind, so a DepthSequence does the finding. Entries of equal depth form a run as well, in which the
// first entry that has a component is looked up.
#include "render/render_queue.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "frame/allocator.h"
#include "render/depth_sequence.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"

constexpr uintptr_t kCacheLine = 64;
constexpr int32_t kFirstEntryCapacity = 32;
constexpr int32_t kFirstSlotCapacity = 64;
constexpr int32_t kLayerCount = 2 * kMaxLayer + 1;

// --- The queue: one block, in which the arrays lie behind the structure ---

struct EntryRun {
    int32_t front;    // of the opaque run that the entry began: the first entry
    int32_t founder;  // of a blended entry: the one that began its run
    bool hasSeveral;  // of the blended run that it began: the components are in the index
};

struct Layer {
    EntryList opaque;
    int32_t closedRun;    // no run up to this one is open
    int32_t firstClosed;  // the entry behind the open runs
    DepthSequence blended;
    bool hasNaN;  // of the blended depths
};

constexpr Layer kEmptyLayer = {kEmptyList, kNoEntry, kNoEntry, kEmptyDepthSequence, false};

// A slot of the index, a hash table from something within a scope to an entry. Scopes are numbered on from frame to
// frame: a slot with a scope of an earlier frame is free.
struct IndexSlot {
    uintptr_t key;
    uint32_t scope;
    int32_t entry;
};

struct RenderQueue {
    RenderQueueEntry* entries;        // as they came, from the start of a cache line on
    DepthNode* nodes;                 // of the entry with the same number, if it is a blended one
    EntryLinks* links;                // of the entry with the same number
    EntryRun* runs;                   // the same
    const RenderQueueEntry** sorted;  // written when they are asked for
    IndexSlot* slots;
    int32_t entryCount, entryCapacity;
    int32_t keyCount, slotCapacity;     // a power of 2, at least twice the count
    uint32_t firstScope;                // of this frame, above 0
    int32_t lowestLayer, highestLayer;  // of those in use
    Layer layers[kLayerCount];
};

static_assert(sizeof(RenderQueueEntry) % alignof(DepthNode) == 0 && sizeof(DepthNode) % alignof(IndexSlot) == 0 &&
              sizeof(IndexSlot) % alignof(RenderQueueEntry*) == 0 &&
              sizeof(RenderQueueEntry*) % alignof(EntryLinks) == 0 && sizeof(EntryLinks) % alignof(EntryRun) == 0);

// --- Appearances ---

static int32_t layerOf(const Appearance* appearance) { return appearance ? appearance->layer : 0; }

static const CompositingMode* modeOf(const Appearance* appearance) {
    return appearance ? appearance->compositingMode : nullptr;
}

static bool blends(const Appearance* appearance) {
    const CompositingMode* mode = modeOf(appearance);
    return mode && mode->blending != Blending::Replace;
}

// What stands for the components in the index. Two absent ones of a kind count as the same.
static std::array<uintptr_t, 4> componentKeysOf(const Appearance* appearance) {
    static const qelAppearance none = {};
    const Appearance* a = appearance ? appearance : &none;
    std::array<uintptr_t, 4> keys = {reinterpret_cast<uintptr_t>(a->compositingMode),
                                     reinterpret_cast<uintptr_t>(a->fog), reinterpret_cast<uintptr_t>(a->polygonMode),
                                     reinterpret_cast<uintptr_t>(a->material)};
    for (uintptr_t kind = 0; kind < keys.size(); ++kind)
        if (!keys[kind]) keys[kind] = kind + 1;  // the address of nothing
    return keys;
}

static bool sharesComponent(const Appearance* a, const Appearance* b) {
    const auto x = componentKeysOf(a), y = componentKeysOf(b);
    return x[0] == y[0] || x[1] == y[1] || x[2] == y[2] || x[3] == y[3];
}

// --- The index: of a layer, the appearances and the components of opaque entries; of a blended run, the components ---

constexpr int32_t kMostKeysPerEntry = 9;  // its appearance, its components, and those of the one that began its run

static uint32_t layerScope(const RenderQueue* queue, const Appearance* appearance) {
    return queue->firstScope + uint32_t(layerOf(appearance) + kMaxLayer);
}

static uint32_t runScope(const RenderQueue* queue, int32_t run) {
    return queue->firstScope + uint32_t(kLayerCount + run);
}

static bool isFree(const RenderQueue* queue, const IndexSlot* slot) { return slot->scope < queue->firstScope; }

// The slot of the key, or the free one that it would take.
static IndexSlot* slotOf(const RenderQueue* queue, uint32_t scope, uintptr_t key) {
    const uint64_t hash = (uint64_t(key) + (uint64_t(scope) << 40)) * 0x9E3779B97F4A7C15u;
    const uint32_t mask = uint32_t(queue->slotCapacity) - 1;
    for (uint32_t i = uint32_t(hash >> 32);; ++i) {
        IndexSlot* slot = &queue->slots[i & mask];
        if (isFree(queue, slot) || (slot->key == key && slot->scope == scope)) return slot;
    }
}

static int32_t find(const RenderQueue* queue, uint32_t scope, uintptr_t key) {
    const IndexSlot* slot = slotOf(queue, scope, key);
    return isFree(queue, slot) ? kNoEntry : slot->entry;
}

static void put(RenderQueue* queue, uint32_t scope, uintptr_t key, int32_t entry) {
    IndexSlot* slot = slotOf(queue, scope, key);
    queue->keyCount += isFree(queue, slot);
    *slot = {key, scope, entry};
}

static uintptr_t keyOf(const Appearance* appearance) { return reinterpret_cast<uintptr_t>(appearance); }

// --- Opaque entries ---

static int32_t placeWithoutMode(RenderQueue* queue, Layer* layer, int32_t added) {
    const Appearance* appearance = queue->entries[added].appearance;
    const uint32_t scope = layerScope(queue, appearance);
    const int32_t run = appearance ? find(queue, scope, keyOf(appearance)) : kNoEntry;
    if (run > layer->closedRun) return std::exchange(queue->runs[run].front, added);
    queue->runs[added].front = added;
    if (appearance) put(queue, scope, keyOf(appearance), added);
    for (const uintptr_t key : componentKeysOf(appearance)) put(queue, scope, key, added);
    return layer->opaque.first;
}

static int32_t placeWithMode(RenderQueue* queue, Layer* layer, int32_t added) {
    const Appearance* appearance = queue->entries[added].appearance;
    const int32_t behindOpen = std::exchange(layer->firstClosed, added);
    if (behindOpen != kNoEntry && queue->entries[behindOpen].appearance == appearance) return behindOpen;
    int32_t youngest = kNoEntry;
    for (const uintptr_t key : componentKeysOf(appearance))
        youngest = std::max(youngest, find(queue, layerScope(queue, appearance), key));
    if (youngest <= layer->closedRun) return behindOpen;
    layer->closedRun = youngest;
    return queue->runs[youngest].front;
}

static void insertOpaque(RenderQueue* queue, Layer* layer, int32_t added) {
    const bool hasMode = modeOf(queue->entries[added].appearance);
    const int32_t before = hasMode ? placeWithMode(queue, layer, added) : placeWithoutMode(queue, layer, added);
    qelEntryList_insert(&layer->opaque, queue->links, before, added);
}

// --- Blended entries ---

// What the scan of an entry of some depth meets of equal depth: the entries from `first` to before `end`.
struct DepthRun {
    DepthPlace first, end;
};

static DepthRun runFor(const RenderQueue* queue, const Layer* layer, float depth) {
    const DepthPlace first = qelDepthSequence_firstNotDeeper(layer->blended, queue->nodes, depth);
    if (first.entry == kNoEntry) return {first, first};
    const int32_t end = qelDepthSequence_firstOfOtherDepth(queue->nodes, first.entry, depth);
    if (end == first.entry) return {first, first};
    return {first, {end, qelDepthSequence_position(layer->blended, queue->nodes, end)}};
}

// Before the first in the run that shares a component, or behind the run.
static int32_t placeInRun(const RenderQueue* queue, const Layer* layer, const DepthRun& run,
                          const Appearance* appearance) {
    const auto sharesWith = [&](int32_t entry) {
        return sharesComponent(queue->entries[entry].appearance, appearance);
    };
    if (sharesWith(run.first.entry)) return run.first.entry;
    if (layer->hasNaN) {  // which is equal to every depth: runs overlap, and have no index
        int32_t place = run.first.entry;
        while (place != run.end.entry && !sharesWith(place)) place = queue->links[place].next;
        return place;
    }
    DepthPlace place = run.end;  // the index also knows entries of the depth that stand behind it
    for (const uintptr_t key : componentKeysOf(appearance)) {
        const int32_t entry = find(queue, runScope(queue, queue->runs[run.first.entry].founder), key);
        if (entry == kNoEntry) continue;
        const int32_t position = qelDepthSequence_position(layer->blended, queue->nodes, entry);
        if (position < place.position) place = {entry, position};
    }
    return place.entry;
}

static void noteComponents(RenderQueue* queue, const Layer* layer, int32_t entry) {
    const uint32_t scope = runScope(queue, queue->runs[entry].founder);
    const int32_t position = qelDepthSequence_position(layer->blended, queue->nodes, entry);
    for (const uintptr_t key : componentKeysOf(queue->entries[entry].appearance)) {
        const int32_t noted = find(queue, scope, key);
        if (noted == kNoEntry || position < qelDepthSequence_position(layer->blended, queue->nodes, noted))
            put(queue, scope, key, entry);
    }
}

static void insertBlended(RenderQueue* queue, Layer* layer, int32_t added) {
    const Appearance* appearance = queue->entries[added].appearance;
    const float depth = queue->entries[added].depth;
    layer->hasNaN |= std::isnan(depth);
    const DepthRun run = runFor(queue, layer, depth);
    const int32_t same = find(queue, layerScope(queue, appearance), keyOf(appearance));
    const bool meetsSame =
        same != kNoEntry && qelDepthSequence_position(layer->blended, queue->nodes, same) <= run.end.position;
    int32_t before = run.end.entry;
    if (meetsSame)
        before = qelDepthSequence_endOfKind(queue->nodes, same, depth);
    else if (run.first.entry != run.end.entry)
        before = placeInRun(queue, layer, run, appearance);
    // Also when it is put behind the run: its position then tells.
    const bool joins = run.first.entry != kNoEntry && queue->nodes[run.first.entry].depth == depth;

    const uint32_t kind = same != kNoEntry ? qelDepthSequence_kind(queue->nodes, same) : uint32_t(added);
    qelDepthSequence_insert(&layer->blended, queue->links, queue->nodes, before, added, kind, depth);
    if (!meetsSame || before == same) put(queue, layerScope(queue, appearance), keyOf(appearance), added);
    queue->runs[added].founder = joins ? queue->runs[run.first.entry].founder : added;
    if (!joins || layer->hasNaN) return;
    const int32_t founder = queue->runs[added].founder;
    if (!queue->runs[founder].hasSeveral) noteComponents(queue, layer, founder);
    queue->runs[founder].hasSeveral = true;
    noteComponents(queue, layer, added);
}

// --- Memory ---

static RenderQueue* makeEmpty(uint64_t bytes) {
    auto* queue = static_cast<RenderQueue*>(qelAllocArray(uint32_t(std::min<uint64_t>(bytes, UINT32_MAX)), 1));
    if (!queue) return nullptr;
    queue->firstScope = 1;
    queue->lowestLayer = kLayerCount;
    queue->highestLayer = -1;
    std::ranges::fill(queue->layers, kEmptyLayer);
    return queue;
}

static void moveContents(RenderQueue* to, const RenderQueue* from) {
    std::copy_n(from->entries, from->entryCount, to->entries);
    std::copy_n(from->nodes, from->entryCount, to->nodes);
    std::copy_n(from->links, from->entryCount, to->links);
    std::copy_n(from->runs, from->entryCount, to->runs);
    to->entryCount = from->entryCount;
    to->firstScope = from->firstScope;
    for (const IndexSlot& slot : std::span(from->slots, size_t(from->slotCapacity)))
        if (!isFree(from, &slot)) *slotOf(to, slot.scope, slot.key) = slot;
    to->keyCount = from->keyCount;
    to->lowestLayer = from->lowestLayer;
    to->highestLayer = from->highestLayer;
    std::ranges::copy(from->layers, to->layers);
}

static void* startOfLine(void* address) {
    return reinterpret_cast<void*>((reinterpret_cast<uintptr_t>(address) + kCacheLine - 1) & ~(kCacheLine - 1));
}

static bool resize(Group* owner, int32_t entryCapacity, int32_t slotCapacity) {
    constexpr uint64_t kBytesPerEntry = sizeof(RenderQueueEntry) + sizeof(RenderQueueEntry*) + sizeof(DepthNode) +
                                        sizeof(EntryLinks) + sizeof(EntryRun);
    RenderQueue* queue = makeEmpty(sizeof(RenderQueue) + kCacheLine + uint64_t(entryCapacity) * kBytesPerEntry +
                                   uint64_t(slotCapacity) * sizeof(IndexSlot));
    if (!queue) return false;
    queue->entries = reinterpret_cast<RenderQueueEntry*>(startOfLine(queue + 1));
    queue->nodes = reinterpret_cast<DepthNode*>(queue->entries + entryCapacity);
    queue->slots = reinterpret_cast<IndexSlot*>(queue->nodes + entryCapacity);
    queue->sorted = reinterpret_cast<const RenderQueueEntry**>(queue->slots + slotCapacity);
    queue->links = reinterpret_cast<EntryLinks*>(queue->sorted + entryCapacity);
    queue->runs = reinterpret_cast<EntryRun*>(queue->links + entryCapacity);
    queue->entryCapacity = entryCapacity;
    queue->slotCapacity = slotCapacity;
    if (owner->queue) moveContents(queue, owner->queue);
    qelFree(owner->queue);
    owner->queue = queue;
    return true;
}

static bool ensureRoom(Group* owner) {
    const RenderQueue* queue = owner->queue;
    if (!queue) return resize(owner, kFirstEntryCapacity, kFirstSlotCapacity);
    const bool isFull = queue->entryCount == queue->entryCapacity;
    const bool indexIsFull = 2 * (queue->keyCount + kMostKeysPerEntry) > queue->slotCapacity;
    if (!isFull && !indexIsFull) return true;
    if (queue->entryCapacity > INT32_MAX / 2 || queue->slotCapacity > INT32_MAX / 4) return false;
    return resize(owner, queue->entryCapacity << isFull, queue->slotCapacity << indexIsFull);
}

// --- Use ---

Result qelRenderQueue_insert(Group* owner, const RenderQueueEntry& entry) {
    if (!ensureRoom(owner)) return QEL_STATUS_OUT_OF_MEMORY;
    RenderQueue* queue = owner->queue;
    const int32_t added = queue->entryCount++;
    const int32_t layer = layerOf(entry.appearance) + kMaxLayer;
    queue->entries[added] = entry;
    queue->runs[added] = {kNoEntry, kNoEntry, false};
    queue->lowestLayer = std::min(queue->lowestLayer, layer);
    queue->highestLayer = std::max(queue->highestLayer, layer);
    if (blends(entry.appearance))
        insertBlended(queue, &queue->layers[layer], added);
    else
        insertOpaque(queue, &queue->layers[layer], added);
    return QEL_STATUS_OK;
}

std::span<const RenderQueueEntry* const> qelRenderQueue_sorted(const Group* owner) {
    const RenderQueue* queue = owner->queue;
    if (!queue) return {};
    const RenderQueueEntry** out = queue->sorted;
    for (int32_t layer = queue->lowestLayer; layer <= queue->highestLayer; ++layer)
        for (const EntryList& list : {queue->layers[layer].opaque, queue->layers[layer].blended.list})
            for (int32_t entry = list.first; entry != kNoEntry; entry = queue->links[entry].next)
                *out++ = &queue->entries[entry];
    return {queue->sorted, out};
}

void qelRenderQueue_clear(Group* owner) {
    RenderQueue* queue = owner->queue;
    if (!queue) return;
    for (int32_t layer = queue->lowestLayer; layer <= queue->highestLayer; ++layer) queue->layers[layer] = kEmptyLayer;
    queue->lowestLayer = kLayerCount;
    queue->highestLayer = -1;
    queue->firstScope += uint32_t(kLayerCount + queue->entryCount);
    queue->entryCount = queue->keyCount = 0;
    if (queue->firstScope <= uint32_t(INT32_MAX)) return;  // a frame has room for 2^31 more
    std::fill_n(queue->slots, queue->slotCapacity, IndexSlot{});
    queue->firstScope = 1;
}
