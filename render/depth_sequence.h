// A sequence of entries that is searched by depth and by kind, in whatever order they stand: a treap, which is a binary
// tree in the order of the sequence, balanced by a random-looking priority of each entry. Every node knows what the
// stretch of the sequence below it holds. Finding and inserting take time in the logarithm of the length.
//
// Entries are numbers into arrays of links and nodes, which a caller provides, may move, and may share among sequences.
#pragma once

#include <cstdint>

constexpr int32_t kNoEntry = -1;  // as a place in a sequence: its end

struct EntryLinks {
    int32_t previous, next;
};

// Entries in a row that is not searched.
struct EntryList {
    int32_t first, last;
};

constexpr EntryList kEmptyList = {kNoEntry, kNoEntry};

void qelEntryList_insert(EntryList* list, EntryLinks* links, int32_t before, int32_t entry);

constexpr uint32_t kDepthKinds = 1u << 30;  // kinds are numbers below

// Two to a cache line.
struct DepthNode {
    int32_t parent, left, right;
    int32_t leftCount;  // entries below the left child, with it
    float depth;
    // Of the node and all below it:
    float least, greatest;  // among the depths that are numbers; of none, +infinity and -infinity
    uint32_t kindAndFlags;  // the node's own kind; and of all: some depth is no number, not all are of its kind
};

static_assert(sizeof(DepthNode) == 32);

struct DepthSequence {
    EntryList list;
    int32_t root;
    int32_t count;
};

// A place in a sequence, and how many entries stand before it.
struct DepthPlace {
    int32_t entry;
    int32_t position;
};

constexpr DepthSequence kEmptyDepthSequence = {kEmptyList, kNoEntry, 0};

// For `entry`, links and node are written. The kind is below kDepthKinds.
void qelDepthSequence_insert(DepthSequence* sequence, EntryLinks* links, DepthNode* nodes, int32_t before,
                             int32_t entry, uint32_t kind, float depth);
uint32_t qelDepthSequence_kind(const DepthNode* nodes, int32_t entry);
// How many entries stand before a place.
int32_t qelDepthSequence_position(const DepthSequence& sequence, const DepthNode* nodes, int32_t place);

// The first entry that is not deeper than this; a NaN is neither deeper nor less deep than anything.
DepthPlace qelDepthSequence_firstNotDeeper(const DepthSequence& sequence, const DepthNode* nodes, float depth);
// From an entry on: the first that is deeper or less deep than this.
int32_t qelDepthSequence_firstOfOtherDepth(const DepthNode* nodes, int32_t from, float depth);
// From an entry on: the first that is of another kind than it or less deep than this.
int32_t qelDepthSequence_endOfKind(const DepthNode* nodes, int32_t from, float depth);
