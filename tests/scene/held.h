// Engine objects that a test holds, and short ways to make them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// One reference, given back at the end of the scope. Converts to the object.
template <typename T>
class Held {
public:
    explicit Held(T* adopted) : object_(adopted) {}
    ~Held() { qelObject3D_unref(object_); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    operator T*() const { return object_; }
    T* operator->() const { return object_; }
    T* get() const { return object_; }

private:
    T* object_;
};

template <typename T>
std::vector<T> valuesOf(const VertexArray* array) {
    const auto* data = static_cast<const T*>(array->data);
    return {data, data + array->vertexCount * array->componentCount};
}

// An array of that many components per vertex, in the width of the values; null when memory runs out.
template <typename T>
VertexArray* makeArray(int32_t componentCount, const std::vector<T>& values) {
    Result result;
    VertexArray* array =
        qelVertexArray_create(int32_t(values.size()) / componentCount, componentCount, sizeof(T), &result);
    if (array) std::copy(values.begin(), values.end(), static_cast<T*>(array->data));
    return array;
}

// A buffer with positions alone.
template <typename T>
VertexBuffer* makeBuffer(const std::vector<T>& positions, float scale = 1, const std::vector<float>& bias = {0, 0, 0}) {
    const Held array(makeArray<T>(3, positions));
    if (!array.get()) return nullptr;
    VertexBuffer* buffer = qelVertexBuffer_create();
    if (buffer) qelVertexBuffer_setPositions(buffer, array, scale, bias.data());
    return buffer;
}

// One triangle over vertices 0 to 2.
inline TriangleStripArray* makeTriangle() {
    Result result;
    int32_t length = 3;
    return qelTriangleStripArray_createImplicit(0, &length, 1, true, &result);
}

inline std::vector<Object3D*> referencesOf(const Object3D* object) {
    std::vector<Object3D*> references(size_t(object->getReferences(object, nullptr)));
    EXPECT_EQ(object->getReferences(object, references.data()), int32_t(references.size()));
    return references;
}
