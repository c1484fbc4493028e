// Content that was loaded as a host does it.
#pragma once

#include "frame/error_status.h"
#include "tests/loader/content.h"
#include "tests/loader/small_files.h"
#include "tests/support/counting_heap.h"
#include "tests/support/dispose.h"

inline K8Handle* load(const ByteList& file, K8Allocator* allocator) {
    const HeapCopy copy(file);
    return K8Loader_loadObject(int32_t(copy.size()), copy.data(), allocator);
}

template <typename Handle>
const Handle* as(const K8Handle* handle) {
    return reinterpret_cast<const Handle*>(handle);
}

// Content in memory that is watched: whatever is left when it has been disposed of fails the test.
struct Loaded {
    CountingHeap heap;
    CountingAllocator host;
    K8Handle* root;

    explicit Loaded(const ByteList& file) : root(load(file, host.get())) {}
    explicit Loaded(const encode::EncodedFile& file) : Loaded(file.bytes) {}
    ~Loaded() { dispose(root); }
    Loaded(const Loaded&) = delete;

    K8Handle* made(size_t index) const { return as<K8Group>(root)->info->childData[index]; }
};

// Whether it loads; if not, with the status of content that is not accepted, and nothing left.
inline bool loads(const encode::EncodedFile& file) {
    K8ErrStorage_setErrorStatus(77);
    const Loaded loaded(file);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), loaded.root ? 77 : K8_ERR_FAILURE);
    if (!loaded.root) {
        EXPECT_EQ(loaded.heap.liveBlocks() + loaded.host.liveBlocks(), 0);
    }
    return loaded.root != nullptr;
}
