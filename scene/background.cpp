#include "scene/background.h"

#include "animation/animate.h"
#include "render/renderer_texture.h"
#include "scene/image2d.h"

static Object3D* findInBackground(Object3D* object, int32_t userId) {
    auto* background = static_cast<Background*>(object);
    if (Object3D* found = qelObject3D_findCommon(background, userId)) return found;
    return qelObject3D_findIn(background->image, userId);
}

static int32_t getReferencesOfBackground(const Object3D* object, Object3D** out) {
    const int32_t count = qelObject3D_getReferencesCommon(object, out);
    return qelObject3D_appendReference(static_cast<const Background*>(object)->image, out, count);
}

static void destroyBackground(Object3D* object) {
    qelBackground_finalise(static_cast<Background*>(object));
    qelFree(object);
}

static void setDefaults(Background* background) {
    qelObject3D_init(background);
    background->classId = ClassId::Background;
    background->find = findInBackground;
    background->getReferences = getReferencesOfBackground;
    background->animate = qelObject3D_animateCommon;
    background->destroy = destroyBackground;
    background->color = 0;
    background->image = nullptr;
    background->cropX = background->cropY = background->cropWidth = background->cropHeight = 0;
    background->colorClearEnabled = background->depthClearEnabled = 1;
    background->imageModeX = background->imageModeY = ImageMode::Border;
    background->imageVersionSeen = 0;
    background->rendererTexture = nullptr;
}

Background* qelBackground_create() {
    auto* background = qelObject3D_alloc<Background>(ClassId::Background);
    if (!background) return nullptr;
    if (qelBackground_init(background) == QEL_STATUS_OK) return background;
    qelObject3D_unref(background);
    return nullptr;
}

Result qelBackground_init(Background* background) {
    setDefaults(background);
    background->rendererTexture = qelRendererTexture_create();
    return background->rendererTexture ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY;
}

// Leaves a default background, but without a renderer texture: releasing must not allocate.
void qelBackground_finalise(Background* background) {
    qelObject3D_unref(background->image);
    qelRendererTexture_destroy(background->rendererTexture);
    qelObject3D_finalise(background);
    setDefaults(background);
}

Object3D* qelBackground_duplicate(const Background* background) {
    Background* copy = qelObject3D_copy(background);
    if (!copy) return nullptr;
    qelObject3D_ref(copy->image);
    copy->imageVersionSeen = 0;
    copy->rendererTexture = qelRendererTexture_create();
    if (copy->rendererTexture) return copy;
    qelObject3D_unref(copy);
    return nullptr;
}

void qelBackground_setColor(Background* background, uint32_t argb) {
    background->color = argb;
    background->stateChanged = 1;
}

static void storeCrop(Background* background, int32_t x, int32_t y, int32_t width, int32_t height) {
    background->cropX = x;
    background->cropY = y;
    background->cropWidth = width;
    background->cropHeight = height;
    background->stateChanged = 1;
}

Result qelBackground_setImage(Background* background, Image2D* image) {
    if (image && image->format != ImageFormat::Rgb && image->format != ImageFormat::Rgba)
        return QEL_STATUS_ILLEGAL_ARGUMENT;
    qelObject3D_exchange(background->image, image);
    background->imageVersionSeen = 0;
    storeCrop(background, 0, 0, image ? image->width : 0, image ? image->height : 0);
    return QEL_STATUS_OK;
}

Result qelBackground_setCrop(Background* background, int32_t x, int32_t y, int32_t width, int32_t height) {
    if (width < 0 || height < 0) return QEL_STATUS_ILLEGAL_ARGUMENT;
    storeCrop(background, x, y, width, height);
    return QEL_STATUS_OK;
}

static bool isImageMode(int32_t mode) {
    return mode == int32_t(ImageMode::Border) || mode == int32_t(ImageMode::Repeat);
}

Result qelBackground_setImageMode(Background* background, int32_t modeX, int32_t modeY) {
    if (!isImageMode(modeX) || !isImageMode(modeY)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    background->imageModeX = ImageMode(modeX);
    background->imageModeY = ImageMode(modeY);
    background->stateChanged = 1;
    return QEL_STATUS_OK;
}

void qelBackground_setColorClearEnable(Background* background, bool enabled) {
    background->colorClearEnabled = enabled;
    background->stateChanged = 1;
}

void qelBackground_setDepthClearEnable(Background* background, bool enabled) {
    background->depthClearEnabled = enabled;
    background->stateChanged = 1;
}
