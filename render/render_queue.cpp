#include "render/render_queue.h"

#include <cstring>

#include "frame/allocator.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"

constexpr int32_t kFirstCapacity = 32;

enum class QueueOrder { Same, Before, Equal, After };

static int32_t layerOf(const RenderQueueEntry& entry) { return entry.appearance ? entry.appearance->layer : 0; }

static const CompositingMode* modeOf(const RenderQueueEntry& entry) {
    return entry.appearance ? entry.appearance->compositingMode : nullptr;
}

static bool blends(const RenderQueueEntry& entry) {
    const CompositingMode* mode = modeOf(entry);
    return mode && mode->blending != Blending::Replace;
}

// Where n belongs relative to e.
static QueueOrder compare(const RenderQueueEntry& e, const RenderQueueEntry& n) {
    if (n.appearance && n.appearance == e.appearance) return QueueOrder::Same;
    if (layerOf(n) != layerOf(e)) return layerOf(n) < layerOf(e) ? QueueOrder::Before : QueueOrder::After;
    if (!blends(n)) return !modeOf(e) || blends(e) ? QueueOrder::Equal : QueueOrder::Before;
    if (!blends(e)) return QueueOrder::After;
    if (e.depth < n.depth) return QueueOrder::Before;
    return e.depth > n.depth ? QueueOrder::After : QueueOrder::Equal;
}

// Two absent components count as the same one.
static bool sharesComponent(const RenderQueueEntry& a, const RenderQueueEntry& b) {
    static const qelAppearance none = {};
    const Appearance* x = a.appearance ? a.appearance : &none;
    const Appearance* y = b.appearance ? b.appearance : &none;
    return x->compositingMode == y->compositingMode || x->fog == y->fog || x->polygonMode == y->polygonMode ||
           x->material == y->material;
}

// Within a run of equals: before the first that shares a component, but an opaque entry never behind a blended one.
static int32_t placeInRun(const RenderQueueEntry* entries, int32_t first, int32_t last, const RenderQueueEntry& n) {
    for (int32_t i = first; i <= last; ++i)
        if (sharesComponent(entries[i], n) || (!blends(n) && blends(entries[i]))) return i;
    return last + 1;
}

// Behind the entries of the same appearance that are at least as deep; opaque entries go in front.
static int32_t placeBySame(const RenderQueueEntry* entries, int32_t count, int32_t same, const RenderQueueEntry& n) {
    int32_t place = same;
    if (blends(n))
        while (place < count && entries[place].appearance == n.appearance && entries[place].depth >= n.depth) ++place;
    return place;
}

static int32_t placeOf(const RenderQueueEntry* entries, int32_t count, const RenderQueueEntry& n) {
    int32_t firstEqual = -1;
    int32_t lastEqual = -1;
    for (int32_t i = 0; i < count; ++i) {
        const QueueOrder order = compare(entries[i], n);
        if (order == QueueOrder::Same) return placeBySame(entries, count, i, n);
        if (order == QueueOrder::Equal) {
            if (firstEqual < 0) firstEqual = i;
            lastEqual = i;
        } else if (firstEqual >= 0) {
            break;
        } else if (order == QueueOrder::Before) {
            return i;
        }
    }
    return firstEqual < 0 ? count : placeInRun(entries, firstEqual, lastEqual, n);
}

static bool ensureRoom(Group* owner) {
    if (owner->queueCount < owner->queueCapacity) return true;
    if (owner->queueCapacity > INT32_MAX / 2 / int32_t(sizeof(RenderQueueEntry))) return false;
    const int32_t capacity = owner->queueCapacity ? 2 * owner->queueCapacity : kFirstCapacity;
    void* grown = qelRealloc(owner->queueEntries, capacity * int32_t(sizeof(RenderQueueEntry)));
    if (!grown) return false;
    owner->queueEntries = static_cast<RenderQueueEntry*>(grown);
    owner->queueCapacity = capacity;
    return true;
}

Result qelRenderQueue_insert(Group* owner, const RenderQueueEntry& entry) {
    if (!ensureRoom(owner)) return QEL_STATUS_OUT_OF_MEMORY;
    const int32_t place = placeOf(owner->queueEntries, owner->queueCount, entry);
    RenderQueueEntry* at = owner->queueEntries + place;
    memmove(static_cast<void*>(at + 1), at, size_t(owner->queueCount - place) * sizeof entry);
    *at = entry;
    ++owner->queueCount;
    return QEL_STATUS_OK;
}
