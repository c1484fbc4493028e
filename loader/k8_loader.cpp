// The one loading function of the K8 interface: tells formats apart by their first two bytes.
#include "frame/error_status.h"
#include "loader/k8_content.h"
#include "loader/k8_package.h"

static K8Handle* headerOf(K8ActionTable* handle) { return handle ? &handle->header : nullptr; }
static K8Handle* headerOf(K8Figure* handle) { return handle ? &handle->header : nullptr; }
static K8Handle* headerOf(K8Texture* handle) { return handle ? &handle->header : nullptr; }

using Load = K8Handle* (*)(MemoryStream* stream, K8Allocator* allocator);

struct Format {
    char magic[3];
    Load load;
};
constexpr Format kFormats[] = {
    {"MT", [](MemoryStream* s, K8Allocator* a) { return headerOf(K8Content_loadActionTable(s, a)); }},
    {"MB", [](MemoryStream* s, K8Allocator* a) { return headerOf(K8Content_loadFigure(s, a)); }},
    {"BM", [](MemoryStream* s, K8Allocator* a) { return headerOf(K8Content_loadTexture(s, a)); }},
    {"K8", K8Package_load},
};

static Load findLoad(LoaderStream* stream) {
    const char first = char(readByte(stream)), second = char(readByte(stream));
    for (const Format& format : kFormats)
        if (format.magic[0] == first && format.magic[1] == second) return format.load;
    return nullptr;
}

K8Handle* K8Loader_loadObject(int32_t size, const void* data, K8Allocator* allocator) {
    Load load = nullptr;
    MemoryStream stream;
    if (size > 0 && data && allocator) {
        MemoryStream_init(&stream, data, uint32_t(size));
        load = findLoad(&stream);
    }
    if (!load) {
        K8ErrStorage_fail();
        return nullptr;
    }
    const FailureMark mark = FailureMark_now();
    MemoryStream_init(&stream, data, uint32_t(size));
    K8Handle* handle = load(&stream, allocator);
    if (!handle) K8ErrStorage_storeFailure(mark);
    return handle;
}
