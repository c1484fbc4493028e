#include "scene/texture2d.h"

#include "animation/animate.h"
#include "frame/fixed_point.h"
#include "loader/mipmaps.h"
#include "render/capabilities.h"
#include "render/renderer_texture.h"

static Object3D* findInTexture2D(Object3D* object, int32_t userId) {
    if (Object3D* found = qelObject3D_findCommon(object, userId)) return found;
    return qelObject3D_findIn(static_cast<Texture2D*>(object)->image, userId);
}

static int32_t getTexture2DReferences(const Object3D* object, Object3D** out) {
    const int32_t count = qelObject3D_getReferencesCommon(object, out);
    return qelObject3D_appendReference(static_cast<const Texture2D*>(object)->image, out, count);
}

static void destroyTexture2D(Object3D* object) {
    auto* texture = static_cast<Texture2D*>(object);
    qelObject3D_unref(texture->image);
    qelMipmaps_destroy(texture->mipmapLevels);
    qelRendererTexture_destroy(texture->rendererTexture);
    qelTransformable_finalise(texture);
    qelFree(texture);
}

static bool isPowerOfTwo(int32_t side) { return side >= 1 && (side & (side - 1)) == 0; }

static bool suits(const Image2D* image) {
    return isPowerOfTwo(image->width) && isPowerOfTwo(image->height) && image->width <= kMaxTextureDimension &&
           image->height <= kMaxTextureDimension;
}

static void exchangeImage(Texture2D* texture, Image2D* image) {
    qelObject3D_exchange(texture->image, image);
    texture->widthLog2 = int32_t(highestBit(uint32_t(image->width)));
    texture->heightLog2 = int32_t(highestBit(uint32_t(image->height)));
}

Texture2D* qelTexture2D_create(Image2D* image, Result* result) {
    *result = image ? QEL_STATUS_ILLEGAL_ARGUMENT : QEL_STATUS_NULL_POINTER;
    if (!image || !suits(image)) return nullptr;
    *result = QEL_STATUS_OUT_OF_MEMORY;
    auto* texture = qelObject3D_alloc<Texture2D>(ClassId::Texture2D);
    if (!texture) return nullptr;
    qelTransformable_init(texture);
    texture->classId = ClassId::Texture2D;
    texture->find = findInTexture2D;
    texture->getReferences = getTexture2DReferences;
    texture->animate = qelObject3D_animateCommon;
    texture->destroy = destroyTexture2D;
    texture->blending = TextureBlending::Modulate;
    texture->levelFilter = TextureFilter::BaseLevel;
    texture->imageFilter = TextureFilter::Nearest;
    texture->wrapS = TextureWrap::Repeat;
    texture->wrapT = TextureWrap::Repeat;
    exchangeImage(texture, image);
    texture->rendererTexture = qelRendererTexture_create();
    if (!texture->rendererTexture) {
        qelObject3D_unref(texture);
        *result = QEL_STATUS_ILLEGAL_ARGUMENT;  // the engine status tells that memory ran out
        return nullptr;
    }
    *result = QEL_STATUS_OK;
    return texture;
}

Result qelTexture2D_setImage(Texture2D* texture, Image2D* image) {
    if (!image) return QEL_STATUS_NULL_POINTER;
    if (!suits(image)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    // The chain of the old image must not be taken for one of the new; the next upload or choice of filters builds
    // another.
    if (image != texture->image) {
        qelMipmaps_destroy(texture->mipmapLevels);
        texture->mipmapLevels = nullptr;
        texture->mipmapsBuilt = 0;
    }
    exchangeImage(texture, image);
    texture->stateChanged = 1;
    return QEL_STATUS_OK;
}

static bool isFilter(int32_t filter, TextureFilter first) {
    return filter >= int32_t(first) && filter <= int32_t(TextureFilter::Nearest);
}

Result qelTexture2D_setFiltering(Texture2D* texture, int32_t levelFilter, int32_t imageFilter) {
    if (!isFilter(levelFilter, TextureFilter::BaseLevel) || !isFilter(imageFilter, TextureFilter::Linear))
        return QEL_STATUS_ILLEGAL_ARGUMENT;
    const auto level = TextureFilter(levelFilter), within = TextureFilter(imageFilter);
    if (level == texture->levelFilter && within == texture->imageFilter) return QEL_STATUS_OK;
    const bool needsLevels = level != TextureFilter::BaseLevel && !texture->mipmapsBuilt;
    if (needsLevels && !qelMipmaps_build(texture, texture->image)) return QEL_STATUS_OUT_OF_MEMORY;
    texture->levelFilter = level;
    texture->imageFilter = within;
    texture->stateChanged = 1;
    return QEL_STATUS_OK;
}

static bool isWrap(int32_t wrap) { return wrap == int32_t(TextureWrap::Clamp) || wrap == int32_t(TextureWrap::Repeat); }

Result qelTexture2D_setWrapping(Texture2D* texture, int32_t wrapS, int32_t wrapT) {
    if (!isWrap(wrapS) || !isWrap(wrapT)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    texture->wrapS = TextureWrap(wrapS);
    texture->wrapT = TextureWrap(wrapT);
    texture->stateChanged = 1;
    return QEL_STATUS_OK;
}

Result qelTexture2D_setBlending(Texture2D* texture, int32_t blending) {
    if (blending < int32_t(TextureBlending::Add) || blending > int32_t(TextureBlending::Replace))
        return QEL_STATUS_ILLEGAL_ARGUMENT;
    texture->blending = TextureBlending(blending);
    texture->stateChanged = 1;
    return QEL_STATUS_OK;
}

void qelTexture2D_setBlendColor(Texture2D* texture, uint32_t color) {
    texture->blendColor = color & 0xFFFFFF;
    texture->stateChanged = 1;
}

Object3D* qelTexture2D_duplicate(const Texture2D* texture) {
    Texture2D* copy = qelObject3D_copy(texture);
    if (!copy) return nullptr;
    qelObject3D_ref(copy->image);
    copy->mipmapLevels = nullptr;
    copy->rendererTexture = qelRendererTexture_create();
    const bool hasChain = texture->mipmapLevels != nullptr;
    if (copy->rendererTexture && hasChain) copy->mipmapLevels = qelMipmaps_duplicate(texture->mipmapLevels);
    if (!copy->rendererTexture || (hasChain && !copy->mipmapLevels)) {
        qelObject3D_unref(copy);
        return nullptr;
    }
    return copy;
}
