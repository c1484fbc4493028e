#include "loader/package_record.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <numeric>

#include "frame/allocator.h"
#include "frame/fixed_point.h"
#include "loader/k8_content.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/figure_mesh.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"

static int32_t readFixed(LoaderStream* stream) { return j2f(std::bit_cast<float>(readUInt32(stream))); }

// --- Primitives ---

static bool readValues(PackageRecord* record, const K8Primitive* primitive) {
    K8PrimitiveInfo& info = *primitive->info;
    for (size_t i = 0; i < std::size(info.counts); ++i) {
        const uint32_t count = info.counts[i];
        if (count == 0) continue;
        info.values[i] = K8Allocator_allocArrayOf<int32_t>(record->allocator, count);
        if (!info.values[i]) return false;
        for (uint32_t k = 0; k < count; ++k) info.values[i][k] = readInt32(&record->body);
    }
    return true;
}

static K8Handle* loadPrimitive(PackageRecord* record) {
    LoaderStream* body = &record->body;
    K8PrimitiveInfo info = {};
    info.reserved = 1;
    info.type = readUInt32(body);
    info.params = readUInt32(body);
    info.primitiveCount = readUInt16(body);
    for (uint32_t& count : info.counts) count = readUInt16(body);
    if (hasError(body) || info.primitiveCount == 0 || info.counts[K8_PRIM_POSITIONS] == 0) return nullptr;
    const uint32_t valueCount = std::accumulate(std::begin(info.counts), std::end(info.counts), 0u);
    if (valueCount > LoaderStream_bytesLeft(body) / sizeof(int32_t)) return nullptr;
    if (K8Primitive_checkValues(info.type, info.params) != 0) return nullptr;

    K8Primitive* primitive = K8Primitive_create(nullptr, record->allocator);
    if (!primitive) return nullptr;
    if (K8Primitive_setTmpData(primitive, &info) && readValues(record, primitive)) return &primitive->header;
    K8Primitive_destroy(primitive);
    return nullptr;
}

// --- Lights and fogs ---

// One word holds the mode, in the top byte, and the colour. Values that a light or fog cannot have leave its defaults,
// as they do when a host sets them.

static K8Handle* loadLight(PackageRecord* record) {
    LoaderStream* body = &record->body;
    K8LightInfo info;
    int32_t attenuation[3];
    for (int32_t& coordinate : info.position) coordinate = readFixed(body);
    for (int32_t& coordinate : info.direction) coordinate = readFixed(body);
    for (int32_t& factor : attenuation) factor = readFixed(body);
    const uint32_t word = readUInt32(body), mode = word >> 24;
    const int32_t intensity = readFixed(body), spotAngle = readFixed(body), spotExponent = readFixed(body);
    if (hasError(body) || mode < K8_LIGHT_AMBIENT || mode > K8_LIGHT_SPOT) return nullptr;

    K8Light* light = K8Light_create(nullptr, record->allocator);
    if (!light) return nullptr;
    if (!K8Light_setTmpData(light, &info)) {
        K8Light_destroy(light);
        return nullptr;
    }
    K8Light_setMode(light, int32_t(mode));
    K8Light_setColor(light, word & 0xFFFFFF);
    K8Light_setIntensity(light, intensity);
    K8Light_setSpotAngle(light, spotAngle);
    K8Light_setSpotExponent(light, spotExponent);
    K8Light_setAttenuation(light, attenuation[0], attenuation[1], attenuation[2]);
    return &light->header;
}

static K8Handle* loadFog(PackageRecord* record) {
    LoaderStream* body = &record->body;
    const uint32_t word = readUInt32(body), mode = word >> 24;
    const int32_t first = readFixed(body), second = readFixed(body);
    if (hasError(body) || (mode != K8_FOG_EXPONENTIAL && mode != K8_FOG_LINEAR)) return nullptr;

    K8Fog* fog = K8Fog_create(nullptr, record->allocator);
    if (!fog) return nullptr;
    K8Fog_setMode(fog, int32_t(mode));
    K8Fog_setColor(fog, word & 0xFFFFFF);
    if (mode == K8_FOG_EXPONENTIAL)
        K8Fog_setDensity(fog, first);
    else
        K8Fog_setLinear(fog, first, second);
    return &fog->header;
}

// --- Records that hold files ---

static K8Handle* loadTexture(PackageRecord* record) {
    K8Texture* texture = K8Content_loadTexture(&record->body, record->allocator);
    return texture ? &texture->header : nullptr;
}

static K8Handle* loadActionTable(PackageRecord* record) {
    K8ActionTable* table = K8Content_loadActionTable(&record->body, record->allocator);
    return table ? &table->header : nullptr;
}

static K8Handle* loadFigure(PackageRecord* record) {
    LoaderStream* body = &record->body;
    uint16_t indices[kMaxFigureTextures + 1];
    const uint16_t actionTable = readUInt16(body);
    const uint32_t textureCount = readUInt16(body);
    if (hasError(body) || textureCount > kMaxFigureTextures) return nullptr;
    for (uint32_t k = 0; k < textureCount; ++k) indices[k] = readUInt16(body);
    indices[textureCount] = actionTable;
    for (uint32_t k = 0; k <= textureCount; ++k)
        if (indices[k] >= record->objectCount) return nullptr;

    K8Figure* figure = K8Content_loadFigure(body, record->allocator);
    if (!figure) return nullptr;
    figure->info->loadedTextureCount = uint16_t(textureCount);
    figure->info->textureIndices = K8Allocator_allocArrayOf<uint16_t>(record->allocator, textureCount + 1);
    if (!figure->info->textureIndices) {
        K8Figure_destroy(figure);
        return nullptr;
    }
    std::copy_n(indices, textureCount + 1, figure->info->textureIndices);
    return &figure->header;
}

// --- All of them ---

K8Handle* PackageRecord_load(uint32_t type, PackageRecord* record) {
    static constexpr K8Handle* (*kLoads[kRecordTypeCount])(PackageRecord*) = {
        loadPrimitive, loadLight, loadFog, loadTexture, loadFigure, loadActionTable};
    return kLoads[type](record);
}

static uint64_t heldBytesOf(const FigureMesh* figure) {
    constexpr uint64_t kBytesPerPolygon = 32, kBytesPerSubmesh = 256;
    constexpr uint64_t kBytesPerAppearance =
        sizeof(Appearance) + sizeof(Material) + sizeof(PolygonMode) + sizeof(CompositingMode);
    return figure->polygonCount * kBytesPerPolygon + uint64_t(figure->submeshCount) * kBytesPerSubmesh +
           figure->appearanceCount * kBytesPerAppearance;
}

static uint64_t heldBytesOf(const Image2D* image) {
    return uint64_t(image->width) * uint64_t(image->height) *
           (image->paletteBlock ? 1 : uint64_t(image->bytesPerPixel));
}

uint64_t PackageRecord_heldBytes(const K8Handle* handle) {
    switch (handle->classId) {
        case K8_CLASS_FIGURE: return heldBytesOf(static_cast<const FigureMesh*>(handle->object));
        case K8_CLASS_TEXTURE: return heldBytesOf(static_cast<const Texture2D*>(handle->object)->image);
        default: return 0;
    }
}
