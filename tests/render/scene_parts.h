// Engine objects for rendering tests, made in one line each.
#pragma once

#include <utility>
#include <vector>

#include "render/gl_backend.h"
#include "scene/compositing_mode.h"
#include "scene/fog.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"
#include "scene/transform.h"

// Holds the creator's reference of an engine object.
template <typename T>
class Held {
public:
    Held() = default;
    explicit Held(T* object) : object_(object) {}
    Held(Held&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Held& operator=(Held&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Held() { qelObject3D_unref(object_); }
    T* get() const { return object_; }
    T* operator->() const { return object_; }
    operator T*() const { return object_; }
    void drop() { qelObject3D_unref(std::exchange(object_, nullptr)); }

private:
    T* object_ = nullptr;
};

template <typename Value>
Held<VertexArray> makeArray(int32_t componentCount, std::vector<Value> values) {
    Result result;
    const auto count = int32_t(values.size()) / componentCount;
    Held<VertexArray> array(qelVertexArray_create(count, componentCount, sizeof(Value), &result));
    if constexpr (sizeof(Value) == 1)
        qelVertexArray_set8(array, 0, count, reinterpret_cast<const int8_t*>(values.data()));
    else
        qelVertexArray_set16(array, 0, count, values.data());
    return array;
}

// Pixels counting up from `first`, one byte each.
inline std::vector<uint8_t> ramp(size_t count, uint8_t first = 0) {
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i) bytes[i] = uint8_t(first + i);
    return bytes;
}

inline size_t givenBytes(ImageFormat format) {
    constexpr size_t kBytes[] = {1, 1, 2, 3, 4};
    return kBytes[int32_t(format) - int32_t(ImageFormat::Alpha)];
}

inline Held<Image2D> makeImage(ImageFormat format, int32_t width, int32_t height) {
    Result result;
    const auto pixels = ramp(size_t(width) * size_t(height) * givenBytes(format));
    return Held<Image2D>(qelImage2D_createFromPixels(int32_t(format), width, height, pixels.data(), true, &result));
}

inline Held<Image2D> makeMutableImage(ImageFormat format, int32_t width, int32_t height) {
    Result result;
    return Held<Image2D>(qelImage2D_createMutable(int32_t(format), width, height, &result));
}

inline Held<Image2D> makePaletteImage(ImageFormat format, int32_t width, int32_t height) {
    Result result;
    const auto indices = ramp(size_t(width) * size_t(height));
    const auto palette = ramp(kPaletteEntries * givenBytes(format), 3);
    return Held<Image2D>(qelImage2D_createPalettized(int32_t(format), width, height, indices.data(), palette.data(),
                                                     int32_t(palette.size()), &result));
}

inline Held<Texture2D> makeTexture(Image2D* image) {
    Result result;
    return Held<Texture2D>(qelTexture2D_create(image, &result));
}

// One square as a strip of four vertices, with whatever a test gives it.
struct Square {
    Held<VertexBuffer> buffer{qelVertexBuffer_create()};
    Held<TriangleStripArray> strip;
    Held<Appearance> appearance{qelAppearance_create()};
    qelTransform model;
    float alphaFactor = 1;

    Square() {
        Result result;
        int32_t length = 4;
        strip = Held<TriangleStripArray>(qelTriangleStripArray_createImplicit(0, &length, 1, true, &result));
        const auto positions = makeArray<int16_t>(3, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0});
        qelVertexBuffer_setPositions(buffer, positions, 1, nullptr);
        qelTransform_setIdentity(&model);
    }
    SubmeshDraw submesh() const { return {buffer, strip, appearance, buffer->colors, &model, alphaFactor}; }

    void setNormals() {
        qelVertexBuffer_setNormals(buffer, makeArray<int8_t>(3, {0, 0, 9, 0, 0, 9, 0, 0, 9, 0, 0, 9}));
    }
    void setColors() {
        qelVertexBuffer_setColors(buffer,
                                  makeArray<uint8_t>(4, {255, 0, 0, 255, 0, 255, 0, 128, 0, 0, 255, 64, 9, 8, 7, 0}));
    }
    void setTexture(int32_t unit, Texture2D* texture) {
        qelAppearance_setTexture(appearance, unit, texture);
        qelVertexBuffer_setTexCoords(buffer, unit, makeArray<int16_t>(2, {0, 0, 8, 0, 0, 8, 8, 8}), 1, nullptr);
    }
    Material* setMaterial() {
        const Held<Material> material(qelMaterial_create());
        qelAppearance_setMaterial(appearance, material);
        return material;
    }
    PolygonMode* setPolygonMode() {
        const Held<PolygonMode> mode(qelPolygonMode_create());
        qelAppearance_setPolygonMode(appearance, mode);
        return mode;
    }
    CompositingMode* setCompositing(Blending blending = Blending::Replace) {
        const Held<CompositingMode> mode(qelCompositingMode_create());
        qelCompositingMode_setBlending(mode, int32_t(blending));
        qelAppearance_setCompositingMode(appearance, mode);
        return mode;
    }
    Fog* setFog() {
        const Held<Fog> fog(qelFog_create());
        qelAppearance_setFog(appearance, fog);
        return fog;
    }
};
