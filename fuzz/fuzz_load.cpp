// Any bytes may be given to K8Loader_loadObject: it neither crashes nor leaks, and holds no more memory at any moment
// than 64 times the input plus 1 MiB, 2 MiB for packages, or 18 MiB for scenes. The dispatch on the first bytes leads
// to every format.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "k8.h"
#include "tests/support/dispose.h"

static std::unordered_map<void*, int64_t> liveBlocks;
static int64_t liveBytes = 0, liveLimit = 0;

static void require(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

static void release(K8Allocator*, void* block) {
    const auto live = liveBlocks.find(block);
    if (live == liveBlocks.end()) return require(!block, "free of a block that is not live");
    liveBytes -= live->second;
    liveBlocks.erase(live);
    std::free(block);
}

static void* allocate(K8Allocator*, int32_t size) {
    if (size < 0) return nullptr;
    void* block = std::calloc(1, size_t(size));
    liveBlocks[block] = size;
    liveBytes += size;
    require(liveBytes <= liveLimit, "more memory than the input justifies");
    return block;
}

static void* reallocate(K8Allocator* allocator, void* block, int32_t size) {
    void* moved = allocate(allocator, size);
    if (moved && block) {
        std::memcpy(moved, block, size_t(std::min<int64_t>(size, liveBlocks.at(block))));
        release(allocator, block);
    }
    return moved;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const K8AllocatorFunctions functions = {allocate, reallocate, release};
    MALK8_touchMA();
    MALK8_malc.functions = &functions;
    const bool isPackage = size > 0 && data[0] == 'K', isScene = isPackage && size > 3 && data[3] == 1;
    const int32_t unpaidMiB = isScene ? 18 : isPackage ? 2 : 1;
    liveLimit = 64 * int64_t(size) + (unpaidMiB << 20);
    dispose(K8Loader_loadObject(int32_t(size), data, &MALK8_malc));
    require(liveBlocks.empty(), "left allocated");
    return 0;
}
