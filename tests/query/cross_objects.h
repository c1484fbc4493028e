// Objects for collision tests and benchmarks, made in one line each. Handles live as long as what made them.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "frame/allocator.h"
#include "scene/mesh.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

struct MeshShape {
    std::vector<int16_t> positions;
    std::vector<std::vector<int32_t>> submeshes = {};  // index triples
    bool isByte = false;                               // 8-bit components
    std::vector<int32_t> strips = {};                  // lengths of one more submesh, of consecutive vertices
    int32_t firstOfStrips = 0;
    float scale = 1;
    std::array<float, 3> bias = {};
};

inline VertexBuffer* makeVertexBuffer(const MeshShape& shape) {
    Result result;
    const auto count = int32_t(shape.positions.size()) / 3;
    VertexArray* array = qelVertexArray_create(count, 3, shape.isByte ? 1 : 2, &result);
    const std::vector<int8_t> bytes(shape.positions.begin(), shape.positions.end());
    if (shape.isByte)
        qelVertexArray_set8(array, 0, count, bytes.data());
    else
        qelVertexArray_set16(array, 0, count, shape.positions.data());
    VertexBuffer* buffer = qelVertexBuffer_create();
    qelVertexBuffer_setPositions(buffer, array, shape.scale, shape.bias.data());
    qelObject3D_unref(array);
    return buffer;
}

inline std::vector<TriangleStripArray*> makeIndexBuffers(const MeshShape& shape) {
    Result result;
    std::vector<TriangleStripArray*> buffers;
    for (const std::vector<int32_t>& triples : shape.submeshes) {
        std::vector<int32_t> lengths(triples.size() / 3, 3), indices = triples;
        buffers.push_back(qelTriangleStripArray_createExplicit(lengths.data(), int32_t(lengths.size()), indices.data(),
                                                               int32_t(indices.size()), true, &result));
    }
    std::vector<int32_t> strips = shape.strips;
    if (!strips.empty())
        buffers.push_back(qelTriangleStripArray_createImplicit(shape.firstOfStrips, strips.data(),
                                                               int32_t(strips.size()), true, &result));
    return buffers;
}

inline Mesh* makeMesh(const MeshShape& shape) {
    Result result;
    VertexBuffer* buffer = makeVertexBuffer(shape);
    const std::vector<TriangleStripArray*> indices = makeIndexBuffers(shape);
    Mesh* mesh = qelMesh_create(buffer, indices.data(), nullptr, int32_t(indices.size()), &result);
    qelObject3D_unref(buffer);
    for (TriangleStripArray* each : indices) qelObject3D_unref(each);
    return mesh;
}

class CrossObjects {
public:
    explicit CrossObjects(K8Allocator* allocator) : allocator_(allocator) {}
    CrossObjects(const CrossObjects&) = delete;
    CrossObjects& operator=(const CrossObjects&) = delete;
    ~CrossObjects() {
        for (K8Handle* handle : handles_) K8Object3D_destroy(handle);
        for (K8Transform* transform : transforms_) K8Transform_destroy(transform);
    }

    // Takes the creator's reference of the object over.
    K8Handle* figure(Object3D* object) {
        K8Figure* handle = K8Figure_create(nullptr, allocator_);
        handle->header.object = object;
        return keep(handle);
    }
    K8Handle* mesh(const MeshShape& shape) { return figure(makeMesh(shape)); }

    // As many primitives as there are positions for, unless another number is given.
    K8Handle* primitive(uint32_t type, const std::vector<int32_t>& positions, int64_t count = -1) {
        K8PrimitiveInfo info{};
        info.type = type;
        const size_t each = type >> 24 ? 3 * (type >> 24) : type == K8_PRIM_SPRITES ? 3 : 3 * type;
        info.primitiveCount = uint32_t(count < 0 ? positions.size() / each : size_t(count));
        info.counts[K8_PRIM_POSITIONS] = uint32_t(positions.size());
        info.values[K8_PRIM_POSITIONS] = copied(positions);
        K8Primitive* handle = K8Primitive_create(nullptr, allocator_);
        K8Primitive_setTmpData(handle, &info);
        return keep(handle);
    }

    K8Handle* group(const std::vector<K8Handle*>& children, const K8Transform* transform = nullptr) {
        K8GroupInfo info{};
        info.transform = const_cast<K8Transform*>(transform);
        info.childHandleCount = uint16_t(children.size());
        info.childHandles = children.empty() ? nullptr : copied(children);
        K8Group* handle = K8Group_create(nullptr, allocator_);
        K8Group_setTmpData(handle, &info);
        return keep(handle);
    }
    K8Handle* groupWithoutInfo() { return keep(K8Group_create(nullptr, allocator_)); }
    K8Handle* light() { return keep(K8Light_create(nullptr, allocator_)); }

    K8Transform* transform(const std::array<float, 16>& elements) {
        return transforms_.emplace_back(K8Transform_createT(nullptr, allocator_, elements.data()));
    }
    K8Transform* moved(float x, float y, float z, float scale = 1) {
        return transform({scale, 0, 0, x, 0, scale, 0, y, 0, 0, scale, z, 0, 0, 0, 1});
    }

private:
    template <typename T>
    T* copied(const std::vector<T>& values) {
        T* block = K8Allocator_allocArrayOf<T>(allocator_, uint32_t(values.size()));
        std::ranges::copy(values, block);
        return block;
    }
    template <typename Handle>
    K8Handle* keep(Handle* handle) {
        return handles_.emplace_back(reinterpret_cast<K8Handle*>(handle));
    }

    K8Allocator* allocator_;
    std::vector<K8Handle*> handles_;
    std::vector<K8Transform*> transforms_;
};
