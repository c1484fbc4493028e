#include "render/depth_sequence.h"

#include <algorithm>
#include <cmath>

void qelEntryList_insert(EntryList* list, EntryLinks* links, int32_t before, int32_t entry) {
    const int32_t previous = before == kNoEntry ? list->last : links[before].previous;
    links[entry] = {previous, before};
    (previous == kNoEntry ? list->first : links[previous].next) = entry;
    (before == kNoEntry ? list->last : links[before].previous) = entry;
}

// --- Spans ---

static DepthSpan spanOf(const DepthNode& node) {
    if (std::isnan(node.depth)) return {INFINITY, -INFINITY, node.appearance, true};
    return {node.depth, node.depth, node.appearance, false};
}

static void extend(DepthSpan& span, const DepthSpan& by) {
    span.least = std::min(span.least, by.least);
    span.greatest = std::max(span.greatest, by.greatest);
    if (span.appearance != by.appearance) span.appearance = nullptr;
    span.hasNaN |= by.hasNaN;
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
    node.span = parent.span;
    parent.span = spanOf(parent);
    for (const int32_t child : {parent.left, parent.right})
        if (child != kNoEntry) extend(parent.span, nodes[child].span);
}

void qelDepthSequence_insert(DepthSequence* sequence, EntryLinks* links, DepthNode* nodes, int32_t before,
                             int32_t entry, const Appearance* appearance, float depth) {
    qelEntryList_insert(&sequence->list, links, before, entry);
    // Of two neighbours one lies below the other, and has no child on the side of the other.
    const bool isLeft = before != kNoEntry && nodes[before].left == kNoEntry;
    const int32_t parent = isLeft ? before : links[entry].previous;
    if (parent == kNoEntry)
        sequence->root = entry;
    else
        (isLeft ? nodes[parent].left : nodes[parent].right) = entry;
    DepthNode& node = nodes[entry];
    node = {parent, kNoEntry, kNoEntry, 0, appearance, depth, {}};
    node.span = spanOf(node);
    ++sequence->count;
    for (int32_t child = entry, above = parent; above != kNoEntry; child = above, above = nodes[above].parent) {
        extend(nodes[above].span, node.span);
        nodes[above].leftCount += nodes[above].left == child;
    }
    while (node.parent != kNoEntry && priorityOf(node.parent) < priorityOf(entry)) rotateUp(sequence, nodes, entry);
}

int32_t qelDepthSequence_position(const DepthSequence& sequence, const DepthNode* nodes, int32_t place) {
    if (place == kNoEntry) return sequence.count;
    int32_t position = nodes[place].leftCount;
    for (int32_t child = place, above; (above = nodes[child].parent) != kNoEntry; child = above) {
        const int32_t isRight = nodes[above].right == child;  // a factor: no branch predictor can tell the sides
        position += isRight * (nodes[above].leftCount + 1);
    }
    return position;
}

// --- Searches: isIn tells of a span whether it holds what is searched for ---

// Below and with `top`, whose own stretch begins at position 0.
template <typename IsIn>
static DepthPlace firstBelow(const DepthNode* nodes, int32_t top, IsIn isIn) {
    if (top == kNoEntry || !isIn(nodes[top].span)) return {kNoEntry, 0};
    DepthPlace place = {top, 0};
    for (;;) {
        const DepthNode& node = nodes[place.entry];
        if (node.left != kNoEntry && isIn(nodes[node.left].span)) {
            place.entry = node.left;
            continue;
        }
        place.position += node.leftCount;
        if (isIn(spanOf(node))) return place;
        place.entry = node.right;
        ++place.position;
    }
}

template <typename IsIn>
static int32_t firstFrom(const DepthNode* nodes, int32_t from, IsIn isIn) {
    for (int32_t entry = from; entry != kNoEntry;) {
        if (isIn(spanOf(nodes[entry]))) return entry;
        const int32_t found = firstBelow(nodes, nodes[entry].right, isIn).entry;
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
    const DepthPlace place =
        firstBelow(nodes, sequence.root, [=](const DepthSpan& s) { return s.hasNaN || !(s.least > depth); });
    return place.entry == kNoEntry ? DepthPlace{kNoEntry, sequence.count} : place;
}

int32_t qelDepthSequence_firstOfOtherDepth(const DepthNode* nodes, int32_t from, float depth) {
    return firstFrom(nodes, from, [=](const DepthSpan& s) { return s.least < depth || s.greatest > depth; });
}

int32_t qelDepthSequence_endOfAppearance(const DepthNode* nodes, int32_t from, float depth) {
    const Appearance* appearance = nodes[from].appearance;
    return firstFrom(nodes, from, [=](const DepthSpan& s) { return s.appearance != appearance || s.least < depth; });
}
