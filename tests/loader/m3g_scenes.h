// What becomes of the objects of a scene.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "frame/allocator.h"
#include "loader/m3g_objects.h"
#include "scene/object3d.h"
#include "tests/loader/content.h"
#include "tests/loader/full_scene.h"

// The objects of a file, as the readers leave them in their table. A reference is the place in that table where no
// header and no external reference stands before the object.
class ParsedObjects {
public:
    explicit ParsedObjects(const ByteList& file, uint32_t byteCount) : context_(LoaderContext_create()) {
        const HeapCopy copy(file);
        SegmentStream stream;
        SegmentStream_init(&stream, copy.data(), copy.size());
        context_->segmentBytes = copy.size();
        ok_ = M3gObjects_parseSequence(context_, &stream, byteCount);
    }
    explicit ParsedObjects(const encode::EncodedFile& file) : ParsedObjects(file.bytes, uint32_t(file.bytes.size())) {}
    ~ParsedObjects() {
        for (uint32_t i = 0; i < context_->objectCount; ++i) qelObject3D_unref(context_->objects[i]);
        LoaderContext_destroy(context_);
    }
    ParsedObjects(const ParsedObjects&) = delete;
    ParsedObjects& operator=(const ParsedObjects&) = delete;

    bool ok() const { return ok_; }
    const LoaderContext& context() const { return *context_; }
    template <typename T>
    T* at(encode::M3gRef ref) const {
        return static_cast<T*>(context_->objects[ref.position]);
    }

private:
    LoaderContext* context_;
    bool ok_;
};

inline std::string fieldOf(encode::M3gRef ref, const char* field) {
    return encode::indexed("object", ref.position) + "." + field;
}
