#include "scene/sprite3d.h"

#include <algorithm>

#include "animation/animate.h"
#include "render/capabilities.h"
#include "render/renderer_texture.h"
#include "scene/animate_parts.h"
#include "scene/appearance.h"
#include "scene/image2d.h"

static Object3D* findInSprite(Object3D* object, int32_t userId) {
    auto* sprite = static_cast<Sprite3D*>(object);
    if (Object3D* found = qelObject3D_findCommon(sprite, userId)) return found;
    if (Object3D* found = qelObject3D_findIn(sprite->image, userId)) return found;
    return qelObject3D_findIn(sprite->appearance, userId);
}

static int32_t getReferencesOfSprite(const Object3D* object, Object3D** out) {
    const auto* sprite = static_cast<const Sprite3D*>(object);
    int32_t count = qelObject3D_getReferencesCommon(sprite, out);
    count = qelObject3D_appendReference(sprite->appearance, out, count);
    return qelObject3D_appendReference(sprite->image, out, count);
}

static int32_t animateSprite(Object3D* object, int32_t worldTime, Result* result) {
    int32_t validity = qelObject3D_animateCommon(object, worldTime, result);
    if (*result == QEL_STATUS_OK) animatePart(static_cast<Sprite3D*>(object)->appearance, worldTime, &validity, result);
    return validity;
}

static void destroySprite(Object3D* object) {
    qelSprite3D_finalise(static_cast<Sprite3D*>(object));
    qelFree(object);
}

static void setDefaults(Sprite3D* sprite) {
    qelNode_init(sprite);
    sprite->classId = ClassId::Sprite3D;
    sprite->find = findInSprite;
    sprite->getReferences = getReferencesOfSprite;
    sprite->animate = animateSprite;
    sprite->destroy = destroySprite;
    sprite->zTarget = AlignmentTarget::ZAxis;
    sprite->yTarget = AlignmentTarget::YAxis;
    sprite->image = nullptr;
    sprite->scaled = 0;
    sprite->appearance = nullptr;
    sprite->cropX = sprite->cropY = sprite->cropWidth = sprite->cropHeight = 0;
    sprite->imageVersionSeen = 0;
    sprite->rendererTexture = nullptr;
}

Sprite3D* qelSprite3D_create(bool scaled, Image2D* image, Appearance* appearance, Result* result) {
    *result = QEL_STATUS_NULL_POINTER;
    if (!image) return nullptr;
    *result = QEL_STATUS_OUT_OF_MEMORY;
    auto* sprite = qelObject3D_alloc<Sprite3D>(ClassId::Sprite3D);
    if (!sprite) return nullptr;
    *result = qelSprite3D_init(sprite, scaled, image, appearance);
    if (*result == QEL_STATUS_OK) return sprite;
    qelObject3D_unref(sprite);
    return nullptr;
}

// The whole image, as far as a crop can reach; at creation too, so that no sprite has a crop that setCrop refuses.
static void cropToImage(Sprite3D* sprite) {
    qelSprite3D_setCrop(sprite, 0, 0, std::min(sprite->image->width, kMaxSpriteCropDimension),
                        std::min(sprite->image->height, kMaxSpriteCropDimension));
}

Result qelSprite3D_init(Sprite3D* sprite, bool scaled, Image2D* image, Appearance* appearance) {
    setDefaults(sprite);
    if (!image) return QEL_STATUS_NULL_POINTER;
    sprite->scaled = scaled;
    qelObject3D_exchange(sprite->image, image);
    image->stateChanged = 1;
    qelSprite3D_setAppearance(sprite, appearance);
    cropToImage(sprite);
    sprite->rendererTexture = qelRendererTexture_create();
    return sprite->rendererTexture ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY;
}

// Leaves a default sprite without image and renderer texture.
void qelSprite3D_finalise(Sprite3D* sprite) {
    qelObject3D_unref(sprite->image);
    qelObject3D_unref(sprite->appearance);
    qelRendererTexture_destroy(sprite->rendererTexture);
    qelNode_finalise(sprite);
    setDefaults(sprite);
}

Object3D* qelSprite3D_duplicate(const Sprite3D* sprite) {
    Sprite3D* copy = qelNode_copy(sprite);
    if (!copy) return nullptr;
    qelObject3D_ref(copy->image);
    qelObject3D_ref(copy->appearance);
    copy->imageVersionSeen = 0;
    copy->rendererTexture = qelRendererTexture_create();
    if (copy->rendererTexture) return copy;
    qelObject3D_unref(copy);
    return nullptr;
}

static void storePair(Sprite3D* sprite, int32_t& first, int32_t& second, int32_t newFirst, int32_t newSecond) {
    if (first == newFirst && second == newSecond) return;
    first = newFirst;
    second = newSecond;
    sprite->stateChanged = 1;
}

// The origin is kept even when the size is refused.
Result qelSprite3D_setCrop(Sprite3D* sprite, int32_t x, int32_t y, int32_t width, int32_t height) {
    storePair(sprite, sprite->cropX, sprite->cropY, x, y);
    if (width > kMaxSpriteCropDimension || height > kMaxSpriteCropDimension) return QEL_STATUS_ILLEGAL_ARGUMENT;
    storePair(sprite, sprite->cropWidth, sprite->cropHeight, width, height);
    return QEL_STATUS_OK;
}

Result qelSprite3D_setImage(Sprite3D* sprite, Image2D* image) {
    if (!image) return QEL_STATUS_NULL_POINTER;
    if (image != sprite->image) {
        sprite->stateChanged = 1;
        sprite->imageVersionSeen = 0;
        qelObject3D_exchange(sprite->image, image);
    }
    cropToImage(sprite);
    return QEL_STATUS_OK;
}

void qelSprite3D_setAppearance(Sprite3D* sprite, Appearance* appearance) {
    qelObject3D_exchange(sprite->appearance, appearance);
    if (appearance) appearance->stateChanged = 1;
}
