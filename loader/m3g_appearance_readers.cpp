// Appearances and their components.
#include <array>

#include "loader/m3g_fields.h"
#include "loader/m3g_object_readers.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/fog.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"

// Texture units beyond those of the engine may be there, but empty.
static void readTextures(M3gReader* reader, Appearance* appearance) {
    const uint32_t count = M3gReader_readCount(reader, sizeof(uint32_t));
    for (uint32_t unit = 0; unit < count; ++unit)
        if (auto* texture = M3gReader_readOptional<Texture2D>(reader, ClassId::Texture2D))
            M3gReader_require(reader, qelAppearance_setTexture(appearance, int32_t(unit), texture));
}

Object3D* M3gReader_readAppearance(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Appearance* appearance = qelAppearance_create();
    if (!appearance) return M3gReader_failCreation(reader);
    const auto layer = int8_t(readByte(reader->stream));
    M3gReader_require(reader, qelAppearance_setLayer(appearance, layer));
    qelAppearance_setCompositingMode(appearance,
                                     M3gReader_readOptional<CompositingMode>(reader, ClassId::CompositingMode));
    qelAppearance_setFog(appearance, M3gReader_readOptional<Fog>(reader, ClassId::Fog));
    qelAppearance_setPolygonMode(appearance, M3gReader_readOptional<PolygonMode>(reader, ClassId::PolygonMode));
    qelAppearance_setMaterial(appearance, M3gReader_readOptional<Material>(reader, ClassId::Material));
    readTextures(reader, appearance);
    return M3gFields_complete(reader, fields, appearance);
}

Object3D* M3gReader_readCompositingMode(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const bool depthTest = M3gReader_readBoolean(reader), depthWrite = M3gReader_readBoolean(reader);
    const bool colorWrite = M3gReader_readBoolean(reader), alphaWrite = M3gReader_readBoolean(reader);
    const uint8_t blending = readByte(reader->stream);
    const uint8_t threshold = readByte(reader->stream);
    const float factor = M3gReader_readFloat(reader), units = M3gReader_readFloat(reader);
    if (!M3gReader_isIntact(reader)) return nullptr;
    CompositingMode* mode = qelCompositingMode_create();
    if (!mode) return M3gReader_failCreation(reader);
    qelCompositingMode_setDepthTestEnable(mode, depthTest);
    qelCompositingMode_setDepthWriteEnable(mode, depthWrite);
    qelCompositingMode_setColorWriteEnable(mode, colorWrite);
    qelCompositingMode_setAlphaWriteEnable(mode, alphaWrite);
    M3gReader_require(reader, qelCompositingMode_setBlending(mode, blending));
    M3gReader_require(reader, qelCompositingMode_setAlphaThreshold(mode, float(threshold) / 255.0f));
    qelCompositingMode_setDepthOffset(mode, factor, units);
    return M3gFields_complete(reader, fields, mode);
}

Object3D* M3gReader_readFog(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint32_t color = M3gReader_readRgb(reader);
    const uint8_t mode = readByte(reader->stream);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Fog* fog = qelFog_create();
    if (!fog) return M3gReader_failCreation(reader);
    qelFog_setColor(fog, color);
    M3gReader_require(reader, qelFog_setMode(fog, mode));
    if (fog->mode == FogMode::Exponential) {
        M3gReader_require(reader, qelFog_setDensity(fog, M3gReader_readFloat(reader)));
    } else {
        const float near = M3gReader_readFloat(reader), far = M3gReader_readFloat(reader);
        qelFog_setLinear(fog, near, far);
    }
    return M3gFields_complete(reader, fields, fog);
}

Object3D* M3gReader_readPolygonMode(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint8_t culling = readByte(reader->stream);
    const uint8_t shading = readByte(reader->stream);
    const uint8_t winding = readByte(reader->stream);
    const bool twoSided = M3gReader_readBoolean(reader);
    const bool localCamera = M3gReader_readBoolean(reader);
    const bool perspectiveCorrection = M3gReader_readBoolean(reader);
    if (!M3gReader_isIntact(reader)) return nullptr;
    PolygonMode* mode = qelPolygonMode_create();
    if (!mode) return M3gReader_failCreation(reader);
    M3gReader_require(reader, qelPolygonMode_setCulling(mode, culling));
    M3gReader_require(reader, qelPolygonMode_setShading(mode, shading));
    M3gReader_require(reader, qelPolygonMode_setWinding(mode, winding));
    qelPolygonMode_setTwoSidedLightingEnable(mode, twoSided);
    qelPolygonMode_setLocalCameraLightingEnable(mode, localCamera);
    qelPolygonMode_setPerspectiveCorrectionEnable(mode, perspectiveCorrection);
    return M3gFields_complete(reader, fields, mode);
}

Object3D* M3gReader_readMaterial(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint32_t ambient = M3gReader_readRgb(reader), diffuse = M3gReader_readRgba(reader);
    const uint32_t emissive = M3gReader_readRgb(reader), specular = M3gReader_readRgb(reader);
    const float shininess = M3gReader_readFloat(reader);
    const bool tracksVertexColors = M3gReader_readBoolean(reader);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Material* material = qelMaterial_create();
    if (!material) return M3gReader_failCreation(reader);
    qelMaterial_setColor(material, QEL_MATERIAL_AMBIENT, ambient);
    qelMaterial_setColor(material, QEL_MATERIAL_DIFFUSE, diffuse);
    qelMaterial_setColor(material, QEL_MATERIAL_EMISSIVE, emissive);
    qelMaterial_setColor(material, QEL_MATERIAL_SPECULAR, specular);
    M3gReader_require(reader, qelMaterial_setShininess(material, shininess));
    qelMaterial_setVertexColorTrackingEnable(material, tracksVertexColors);
    return M3gFields_complete(reader, fields, material);
}

// Every texture with a level filter has mipmaps of its own, however many share the image.
static void accountForMipmaps(M3gReader* reader, const Image2D* image) {
    const uint64_t texels = uint64_t(image->width) * uint64_t(image->height);
    M3gReader_deriveBytes(reader, sizeof(MipmapChain) + kPaletteEntries * 4 + texels * 2);
}

Object3D* M3gReader_readTexture2D(M3gReader* reader) {
    const M3gTransformFields fields = M3gFields_readTransform(reader);
    auto* image = M3gReader_readRequired<Image2D>(reader, ClassId::Image2D);
    const uint32_t blendColor = M3gReader_readRgb(reader);
    const uint8_t blending = readByte(reader->stream);
    const uint8_t wrapS = readByte(reader->stream), wrapT = readByte(reader->stream);
    const uint8_t levelFilter = readByte(reader->stream), imageFilter = readByte(reader->stream);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    Texture2D* texture = qelTexture2D_create(image, &result);
    if (!texture) return M3gReader_failCreation(reader, result);
    qelTexture2D_setBlendColor(texture, blendColor);
    M3gReader_require(reader, qelTexture2D_setBlending(texture, blending));
    M3gReader_require(reader, qelTexture2D_setWrapping(texture, wrapS, wrapT));
    if (levelFilter != uint8_t(TextureFilter::BaseLevel)) accountForMipmaps(reader, image);
    if (M3gReader_isIntact(reader))
        M3gReader_require(reader, qelTexture2D_setFiltering(texture, levelFilter, imageFilter));
    return M3gFields_complete(reader, fields, texture);
}
