#include "render/depth_sequence.h"

#include <algorithm>
#include <cmath>

void qelEntryList_insert(EntryList* list, EntryLinks* links, int32_t before, int32_t entry) {
    const int32_t previous = before == kNoEntry ? list->last : links[before].previous;
    links[entry] = {previous, before};
    (previous == kNoEntry ? list->first : links[previous].next) = entry;
    (before == kNoEntry ? list->last : links[before].previous) = entry;
}

// --- Spans: what a node knows of all below it ---

constexpr uint32_t kHasNaN = kDepthKinds;
constexpr uint32_t kIsMixed = kDepthKinds << 1;  // not all are of the node's own kind

static uint32_t kindOf(const DepthNode& node) { return node.kindAndFlags & (kDepthKinds - 1); }

static void setOwnSpan(DepthNode& node) {
    const bool isNaN = std::isnan(node.depth);
    node.least = isNaN ? INFINITY : node.depth;
    node.greatest = isNaN ? -INFINITY : node.depth;
    node.kindAndFlags = kindOf(node) | (isNaN ? kHasNaN : 0);
}

static void extend(DepthNode& node, const DepthNode& below) {
    node.least = std::min(node.least, below.least);
    node.greatest = std::max(node.greatest, below.greatest);
    const uint32_t isOtherKind = kindOf(node) != kindOf(below) ? kIsMixed : 0;
    node.kindAndFlags |= (below.kindAndFlags & (kHasNaN | kIsMixed)) | isOtherKind;
}

// --- The tree ---

// Scrambles the bits, so that no order of insertion comes out in the order of priorities.
static uint32_t priorityOf(int32_t entry) {
    uint32_t bits = uint32_t(entry) + 1;
    bits = (bits ^ bits >> 16) * 0x85EBCA6Bu;
    bits = (bits ^ bits >> 13) * 0xC2B2AE35u;
    return bits ^ bits >> 16;
}

// Puts an entry in the place of its parent, which becomes its child.
static void rotateUp(DepthSequence* sequence, DepthNode* nodes, int32_t entry) {
    DepthNode& node = nodes[entry];
    const int32_t above = node.parent;
    DepthNode& parent = nodes[above];
    const bool wasLeft = parent.left == entry;
    int32_t& inner = wasLeft ? node.right : node.left;  // what changes sides
    (wasLeft ? parent.left : parent.right) = inner;
    if (inner != kNoEntry) nodes[inner].parent = above;
    inner = above;
    if (wasLeft)
        parent.leftCount -= node.leftCount + 1;
    else
        node.leftCount += parent.leftCount + 1;

    node.parent = parent.parent;
    parent.parent = entry;
    if (node.parent == kNoEntry) {
        sequence->root = entry;
    } else {
        DepthNode& top = nodes[node.parent];
        (top.left == above ? top.left : top.right) = entry;
    }
    // The stretch is the same; of another kind than its old top or than its new one, both are mixed.
    extend(node, parent);
    setOwnSpan(parent);
    for (const int32_t child : {parent.left, parent.right})
        if (child != kNoEntry) extend(parent, nodes[child]);
}

void qelDepthSequence_insert(DepthSequence* sequence, EntryLinks* links, DepthNode* nodes, int32_t before,
                             int32_t entry, uint32_t kind, float depth) {
    qelEntryList_insert(&sequence->list, links, before, entry);
    // Of two neighbours one lies below the other, and has no child on the side of the other.
    const bool isLeft = before != kNoEntry && nodes[before].left == kNoEntry;
    const int32_t parent = isLeft ? before : links[entry].previous;
    if (parent == kNoEntry)
        sequence->root = entry;
    else
        (isLeft ? nodes[parent].left : nodes[parent].right) = entry;
    DepthNode& node = nodes[entry];
    node = {parent, kNoEntry, kNoEntry, 0, depth, 0, 0, kind};
    setOwnSpan(node);
    ++sequence->count;
    for (int32_t child = entry, above = parent; above != kNoEntry; child = above, above = nodes[above].parent) {
        extend(nodes[above], node);
        nodes[above].leftCount += nodes[above].left == child;
    }
    while (node.parent != kNoEntry && priorityOf(node.parent) < priorityOf(entry)) rotateUp(sequence, nodes, entry);
}

uint32_t qelDepthSequence_kind(const DepthNode* nodes, int32_t entry) { return kindOf(nodes[entry]); }

int32_t qelDepthSequence_position(const DepthSequence& sequence, const DepthNode* nodes, int32_t place) {
    if (place == kNoEntry) return sequence.count;
    int32_t position = nodes[place].leftCount;
    for (int32_t child = place, above; (above = nodes[child].parent) != kNoEntry; child = above) {
        const int32_t isRight = nodes[above].right == child;  // a factor: no branch predictor can tell the sides
        position += isRight * (nodes[above].leftCount + 1);
    }
    return position;
}

// --- Searches ---

// Of a node alone, or of all below it: whether it holds what is searched for.
struct NotDeeper {
    float depth;
    bool isAt(const DepthNode& node) const { return !(node.depth > depth); }
    bool isBelow(const DepthNode& node) const { return (node.kindAndFlags & kHasNaN) || !(node.least > depth); }
};

struct OtherDepth {
    float depth;
    bool isAt(const DepthNode& node) const { return node.depth < depth || node.depth > depth; }
    bool isBelow(const DepthNode& node) const { return node.least < depth || node.greatest > depth; }
};

struct OtherKindOrLessDeep {
    uint32_t kind;
    float depth;
    bool isAt(const DepthNode& node) const { return kindOf(node) != kind || node.depth < depth; }
    bool isBelow(const DepthNode& node) const {
        return (node.kindAndFlags & (kIsMixed | (kDepthKinds - 1))) != kind || node.least < depth;
    }
};

// Below and with `top`, whose own stretch begins at position 0.
template <typename Search>
static DepthPlace firstBelow(const DepthNode* nodes, int32_t top, const Search& search) {
    if (top == kNoEntry || !search.isBelow(nodes[top])) return {kNoEntry, 0};
    DepthPlace place = {top, 0};
    for (;;) {
        const DepthNode& node = nodes[place.entry];
        if (node.left != kNoEntry && search.isBelow(nodes[node.left])) {
            place.entry = node.left;
            continue;
        }
        place.position += node.leftCount;
        if (search.isAt(node)) return place;
        place.entry = node.right;
        ++place.position;
    }
}

template <typename Search>
static int32_t firstFrom(const DepthNode* nodes, int32_t from, const Search& search) {
    for (int32_t entry = from; entry != kNoEntry;) {
        if (search.isAt(nodes[entry])) return entry;
        const int32_t found = firstBelow(nodes, nodes[entry].right, search).entry;
        if (found != kNoEntry) return found;
        // To the next one above that stands behind all this.
        int32_t child = entry;
        entry = nodes[child].parent;
        while (entry != kNoEntry && nodes[entry].right == child) {
            child = entry;
            entry = nodes[child].parent;
        }
    }
    return kNoEntry;
}

DepthPlace qelDepthSequence_firstNotDeeper(const DepthSequence& sequence, const DepthNode* nodes, float depth) {
    const DepthPlace place = firstBelow(nodes, sequence.root, NotDeeper{depth});
    return place.entry == kNoEntry ? DepthPlace{kNoEntry, sequence.count} : place;
}

int32_t qelDepthSequence_firstOfOtherDepth(const DepthNode* nodes, int32_t from, float depth) {
    return firstFrom(nodes, from, OtherDepth{depth});
}

int32_t qelDepthSequence_endOfKind(const DepthNode* nodes, int32_t from, float depth) {
    return firstFrom(nodes, from, OtherKindOrLessDeep{qelDepthSequence_kind(nodes, from), depth});
}
