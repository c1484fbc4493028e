// Nodes other than meshes, and the background.
#include <array>
#include <bit>

#include "loader/m3g_fields.h"
#include "loader/m3g_object_readers.h"
#include "scene/appearance.h"
#include "scene/background.h"
#include "scene/camera.h"
#include "scene/image2d.h"
#include "scene/light.h"
#include "scene/sprite3d.h"
#include "scene/world.h"

// Fails when an object does not end where its length says.
static void requireLength(M3gReader* reader, uint32_t bytesLeftBefore) {
    reader->context->bytesRead = bytesLeftBefore - LoaderStream_bytesLeft(reader->stream);
    if (reader->context->bytesRead != reader->length) M3gReader_fail(reader, LoadReason::ObjectLength);
}

Object3D* M3gReader_readBackground(M3gReader* reader) {
    const uint32_t bytesLeft = LoaderStream_bytesLeft(reader->stream);
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint32_t color = M3gReader_readRgba(reader);
    auto* image = M3gReader_readOptional<Image2D>(reader, ClassId::Image2D);
    const uint8_t modeX = readByte(reader->stream), modeY = readByte(reader->stream);
    const int32_t x = readInt32(reader->stream), y = readInt32(reader->stream);
    const int32_t width = readInt32(reader->stream), height = readInt32(reader->stream);
    const bool depthClear = M3gReader_readBoolean(reader), colorClear = M3gReader_readBoolean(reader);
    requireLength(reader, bytesLeft);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Background* background = qelBackground_create();
    if (!background) return M3gReader_failCreation(reader);
    qelBackground_setColor(background, color);
    M3gReader_require(reader, qelBackground_setImage(background, image));
    M3gReader_require(reader, qelBackground_setImageMode(background, modeX, modeY));
    M3gReader_require(reader, qelBackground_setCrop(background, x, y, width, height));
    qelBackground_setDepthClearEnable(background, depthClear);
    qelBackground_setColorClearEnable(background, colorClear);
    return M3gFields_complete(reader, fields, background);
}

static Result readProjection(M3gReader* reader, Camera* camera, uint8_t type) {
    if (type == uint8_t(ProjectionType::Generic)) {
        std::array<float, 16> elements;
        M3gReader_readFloats(reader, elements);
        qelTransform projection;
        qelTransform_set_fl(&projection, elements.data());
        return qelCamera_setGeneric(camera, &projection);
    }
    std::array<float, 4> parameters;
    M3gReader_readFloats(reader, parameters);
    const auto [fovyOrHeight, aspectRatio, near, far] = parameters;
    return type == uint8_t(ProjectionType::Parallel)
               ? qelCamera_setParallel(camera, fovyOrHeight, aspectRatio, near, far)
               : qelCamera_setPerspective(camera, fovyOrHeight, aspectRatio, near, far);
}

Object3D* M3gReader_readCamera(M3gReader* reader) {
    const M3gNodeFields fields = M3gFields_readNode(reader);
    const uint8_t type = readByte(reader->stream);
    if (type < uint8_t(ProjectionType::Generic) || type > uint8_t(ProjectionType::Perspective))
        M3gReader_fail(reader, LoadReason::InvalidValue);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Camera* camera = qelCamera_create();
    if (!camera) return M3gReader_failCreation(reader);
    M3gReader_require(reader, readProjection(reader, camera, type));
    return M3gFields_complete(reader, fields, camera);
}

Object3D* M3gReader_readLight(M3gReader* reader) {
    const M3gNodeFields fields = M3gFields_readNode(reader);
    std::array<float, 3> attenuation;
    M3gReader_readFloats(reader, attenuation);
    const uint32_t color = M3gReader_readRgb(reader);
    const uint8_t mode = readByte(reader->stream);
    const float intensity = M3gReader_readFloat(reader);
    const float spotAngle = M3gReader_readFloat(reader), spotExponent = M3gReader_readFloat(reader);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Light* light = qelLight_create();
    if (!light) return M3gReader_failCreation(reader);
    M3gReader_require(reader, qelLight_setAttenuation(light, attenuation[0], attenuation[1], attenuation[2]));
    qelLight_setColor(light, color);
    M3gReader_require(reader, qelLight_setMode(light, mode));
    qelLight_setIntensity(light, intensity);
    M3gReader_require(reader, qelLight_setSpotAngle(light, spotAngle));
    M3gReader_require(reader, qelLight_setSpotExponent(light, spotExponent));
    return M3gFields_complete(reader, fields, light);
}

// Every sprite has a texture of its own, however many share the image. Its sides are powers of two.
static void accountForTexture(M3gReader* reader, const Image2D* image) {
    const uint64_t columns = std::bit_ceil(uint64_t(image->width)), rows = std::bit_ceil(uint64_t(image->height));
    M3gReader_deriveTexture(reader, columns * rows);
}

Object3D* M3gReader_readSprite3D(M3gReader* reader) {
    const M3gNodeFields fields = M3gFields_readNode(reader);
    auto* image = M3gReader_readRequired<Image2D>(reader, ClassId::Image2D);
    auto* appearance = M3gReader_readOptional<Appearance>(reader, ClassId::Appearance);
    const bool isScaled = M3gReader_readBoolean(reader);
    const int32_t x = readInt32(reader->stream), y = readInt32(reader->stream);
    const int32_t width = readInt32(reader->stream), height = readInt32(reader->stream);
    if (!M3gReader_isIntact(reader)) return nullptr;
    accountForTexture(reader, image);
    M3gReader_deriveAppearanceAnimation(reader, appearance);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    Sprite3D* sprite = qelSprite3D_create(isScaled, image, appearance, &result);
    if (!sprite) return M3gReader_failCreation(reader, result);
    M3gReader_require(reader, qelSprite3D_setCrop(sprite, x, y, width, height));
    return M3gFields_complete(reader, fields, sprite);
}

// --- Groups ---

// A child that the group refuses, because it has a parent already, say, leaves the group's result as reason.
static void readChildren(M3gReader* reader, Group* group) {
    const uint32_t count = M3gReader_readCount(reader, sizeof(uint32_t));
    for (uint32_t i = 0; i < count; ++i) {
        Node* child = M3gReader_readNodeReference(reader);
        if (!M3gReader_isIntact(reader)) return;
        const Result result = qelGroup_addChild(group, child);
        if (result == QEL_STATUS_OK) continue;
        M3gReader_require(reader, result);
        reader->context->reason = uint8_t(result);
    }
}

Object3D* M3gReader_readGroup(M3gReader* reader) {
    const uint32_t bytesLeft = LoaderStream_bytesLeft(reader->stream);
    const M3gNodeFields fields = M3gFields_readNode(reader);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Group* group = qelGroup_create();
    if (!group) return M3gReader_failCreation(reader);
    readChildren(reader, group);
    requireLength(reader, bytesLeft);
    return M3gFields_complete(reader, fields, group);
}

Object3D* M3gReader_readWorld(M3gReader* reader) {
    const M3gNodeFields fields = M3gFields_readNode(reader);
    if (!M3gReader_isIntact(reader)) return nullptr;
    World* world = qelWorld_create();
    if (!world) return M3gReader_failCreation(reader);
    readChildren(reader, world);
    if (auto* camera = M3gReader_readOptional<Camera>(reader, ClassId::Camera)) qelWorld_setActiveCamera(world, camera);
    qelWorld_setBackground(world, M3gReader_readOptional<Background>(reader, ClassId::Background));
    return M3gFields_complete(reader, fields, world);
}
