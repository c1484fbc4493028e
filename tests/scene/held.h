// Engine objects that a test holds, and short ways to make them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "scene/duplicate.h"
#include "scene/group.h"
#include "scene/texture2d.h"
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

inline Image2D* makeImage(ImageFormat format = ImageFormat::Rgb, int32_t width = 2, int32_t height = 2) {
    Result result;
    return qelImage2D_createMutable(int32_t(format), width, height, &result);
}

inline Texture2D* makeTexture(Image2D* adopted = makeImage()) {
    const Held image(adopted);
    Result result;
    return adopted ? qelTexture2D_create(adopted, &result) : nullptr;
}

template <typename T>
T* addTo(Group* parent, T* adopted) {
    EXPECT_EQ(qelGroup_addChild(parent, adopted), QEL_STATUS_OK);
    qelObject3D_unref(adopted);
    return adopted;
}

inline std::vector<Object3D*> referencesOf(const Object3D* object) {
    std::vector<Object3D*> references(size_t(object->getReferences(object, nullptr)));
    EXPECT_EQ(object->getReferences(object, references.data()), int32_t(references.size()));
    return references;
}

// An object lists its parts in one order, finds a user id among them in another, and shares them with its duplicate.
inline void expectParts(Object3D* object, const std::vector<Object3D*>& listed,
                        const std::vector<Object3D*>& searched) {
    EXPECT_EQ(referencesOf(object), listed);
    EXPECT_EQ(object->find(object, 5), nullptr);
    for (size_t i = searched.size(); i-- > 0;) {  // each hides those after it
        searched[i]->userId = 5;
        EXPECT_EQ(object->find(object, 5), searched[i]) << i;
    }
    for (Object3D* part : searched) part->userId = 0;
    std::vector<int32_t> counts;
    for (const Object3D* part : listed) counts.push_back(part->refCount + 1);
    const Held copy(qelObject3D_duplicate(object));
    EXPECT_EQ(referencesOf(copy), listed);
    for (size_t i = 0; i < listed.size(); ++i) EXPECT_EQ(listed[i]->refCount, counts[i]) << i;
}

// An object animates its parts in order until one fails; the smallest validity is its own.
inline void expectAnimates(Object3D* object, const std::vector<Object3D*>& parts) {
    static std::vector<Object3D*> animated;
    for (size_t failing = 0; failing <= parts.size(); ++failing) {  // the last time none
        SCOPED_TRACE(failing);
        animated.clear();
        for (size_t i = 0; i < parts.size(); ++i) {
            parts[i]->userId = i == failing ? -1 : int32_t(50 - (3 * i) % 4);
            parts[i]->animate = [](Object3D* part, int32_t, Result* result) {
                animated.push_back(part);
                *result = part->userId < 0 ? QEL_STATUS_ILLEGAL_STATE : QEL_STATUS_OK;
                return part->userId < 0 ? 0 : part->userId;
            };
        }
        int32_t smallest = 50;
        for (const Object3D* part : parts) smallest = std::min(smallest, part->userId);
        Result result;
        EXPECT_EQ(object->animate(object, 0, &result), std::max(smallest, 0));
        EXPECT_EQ(result, failing < parts.size() ? QEL_STATUS_ILLEGAL_STATE : QEL_STATUS_OK);
        EXPECT_EQ(animated, std::vector<Object3D*>(
                                parts.begin(), parts.begin() + std::ptrdiff_t(std::min(failing + 1, parts.size()))));
    }
    for (Object3D* part : parts) part->userId = 0;
}
