#include "render/gl_image_draw.h"

#include <GLES/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "render/gl_geometry.h"
#include "render/gl_texture_units.h"
#include "render/renderer_texture.h"

// --- Shared ---

static void setParameter(GLenum name, GLenum value) { glTexParameterf(GL_TEXTURE_2D, name, GLfloat(value)); }

static void useOneTexture() {
    GLTextureUnits_switchOff(1);
    GLTextureUnits_switchOn(0);
}

static void push(GLenum matrixMode) {
    glMatrixMode(matrixMode);
    glPushMatrix();
}

static void popMatrices() {
    for (const GLenum mode : {GL_TEXTURE, GL_PROJECTION, GL_MODELVIEW}) {
        glMatrixMode(mode);
        glPopMatrix();
    }
}

// The stretch of a crop that lies inside the image, along one axis.
struct Extent {
    int64_t first, end;
    bool isEmpty() const { return first >= end; }
};

static Extent coveredBy(int32_t crop, int64_t length, int32_t imageSide) {
    return {std::max<int64_t>(crop, 0), std::min<int64_t>(int64_t(crop) + length, imageSide)};
}

// --- Backdrops ---

// One axis of the rectangle: where it lies on the target, in fractions from the left or top, and which texels it shows.
struct BackdropAxis {
    float from, to;
    float firstTexel, endTexel;
    bool isEmpty;
};

static BackdropAxis layOut(ImageMode mode, int32_t crop, int32_t length, int32_t imageSide) {
    if (mode == ImageMode::Repeat) {
        const int32_t phase = ((crop % imageSide) + imageSide) % imageSide;
        return {0, 1, float(phase), float(phase) + float(length), length <= 0};
    }
    const Extent covered = coveredBy(crop, length, imageSide);
    const auto fraction = [&](int64_t texel) { return float(double(texel - crop) / length); };
    if (covered.isEmpty()) return {0, 0, 0, 0, true};
    return {fraction(covered.first), fraction(covered.end), float(covered.first), float(covered.end), false};
}

static void clearForBackdrop(GLBackend* backend, uint32_t color) {
    glDisable(GL_DEPTH_TEST);
    glBlendFunc(GL_ONE, GL_ZERO);
    glDisable(GL_BLEND);
    glDisable(GL_LIGHTING);
    glFrontFace(GL_CCW);
    for (const GLenum inTheWay : {GL_ALPHA_TEST, GL_FOG, GL_CULL_FACE}) glDisable(inTheWay);
    GLState_sendClearColor(backend, color);
    glClear(GL_COLOR_BUFFER_BIT);
    glViewport(0, 0, backend->targetWidth, backend->targetHeight);
}

static void sendBackdropMatrices(float texelWidth, float texelHeight) {
    push(GL_MODELVIEW);
    glLoadIdentity();
    push(GL_PROJECTION);
    glLoadIdentity();
    glOrthof(-1, 1, -1, 1, -1, 1);
    push(GL_TEXTURE);
    glLoadIdentity();
    glScalef(texelWidth, texelHeight, 1);
}

static void drawBackdropRectangle(const BackdropAxis& x, const BackdropAxis& y) {
    const float left = 2 * x.from - 1, right = 2 * x.to - 1, top = 1 - 2 * y.from, bottom = 1 - 2 * y.to;
    const float corners[] = {left, top, left, bottom, right, top, right, bottom};
    const float texels[] = {x.firstTexel, y.firstTexel, x.firstTexel, y.endTexel,
                            x.endTexel,   y.firstTexel, x.endTexel,   y.endTexel};
    glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    setParameter(GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    setParameter(GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glColor4f(1, 1, 1, 1);  // the alpha of an image that has none
    glTexCoordPointer(2, GL_FLOAT, 0, texels);
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(2, GL_FLOAT, 0, corners);
    GLGeometry_disableAttributes();
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

Result GLImageDraw_backdrop(GLBackend* backend, const Image2D* image, const BackdropView& view,
                            RendererTexture* texture, bool imageChanged) {
    GLState_forgetComponents(backend);
    clearForBackdrop(backend, view.clearColor);
    if (image->width == 0 || image->height == 0) return QEL_STATUS_OK;
    const BackdropAxis x = layOut(view.modeX, view.cropX, view.cropWidth, image->width);
    const BackdropAxis y = layOut(view.modeY, view.cropY, view.cropHeight, image->height);
    if (x.isEmpty || y.isEmpty) return QEL_STATUS_OK;

    // Repeating is left to the texture, whose period is its side: a repeated image has to fill it.
    const bool stretchX = view.modeX == ImageMode::Repeat, stretchY = view.modeY == ImageMode::Repeat;
    useOneTexture();
    const Result result = qelRendererTexture_bind(texture, image, stretchX, stretchY, imageChanged);
    if (result != QEL_STATUS_OK) return result;
    sendBackdropMatrices(1 / float(stretchX ? image->width : texture->width),
                         1 / float(stretchY ? image->height : texture->height));
    drawBackdropRectangle(x, y);
    popMatrices();
    return QEL_STATUS_OK;
}

Result GLImageDraw_background(GLBackend* backend, Background* background) {
    const BackdropView view = {background->cropX,      background->cropY,      background->cropWidth,
                               background->cropHeight, background->imageModeX, background->imageModeY,
                               background->color};
    const Image2D* image = background->image;
    const bool imageChanged = background->imageVersionSeen != image->version;
    const Result result = GLImageDraw_backdrop(backend, image, view, background->rendererTexture, imageChanged);
    if (result != QEL_STATUS_OK) return result;
    background->imageVersionSeen = image->version;
    background->stateChanged = 0;
    return QEL_STATUS_OK;
}

// --- Sprites ---

// Where a sprite stands: its origin before the camera and in clip coordinates, and its sides as fractions of the
// whole clip volume's side at that depth, before cropping.
struct SpritePlace {
    float eyeZ;
    float clip[4];
    float sideX, sideY;  // clip units from edge to edge, at the origin's w
};

static void project(const qelTransform& matrix, const float point[4], float out[4]) {
    std::copy_n(point, 4, out);
    qelTransform_transformVectors(&matrix, out, 1);
}

static float lengthOf(const float v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// The sprite is a unit square that faces the camera: as wide and high as its unit vectors are long before the camera.
static void sizeByUnitVectors(const GLBackend* backend, const qelTransform& modelView, const float origin[4],
                              SpritePlace* place) {
    float sides[2];
    for (int axis = 0; axis < 2; ++axis) {
        float column[4], tip[4], projected[4];
        qelTransform_getColumn(&modelView, axis, column);
        std::copy_n(origin, 4, tip);
        tip[axis] += lengthOf(column);
        project(backend->projection, tip, projected);
        sides[axis] = std::fabs(projected[axis] / projected[3] * place->clip[3] - place->clip[axis]);
    }
    place->sideX = sides[0];
    place->sideY = sides[1];
}

// One image pixel per target pixel, with the edges on pixel boundaries so that none is sampled twice.
static void sizeByPixels(const GLBackend* backend, float width, float height, SpritePlace* place) {
    const float w = place->clip[3];
    const float pixels[] = {width, height};
    const float target[] = {float(backend->viewport.width), float(backend->viewport.height)};
    for (int axis = 0; axis < 2; ++axis) {
        const float edge = (place->clip[axis] / w + 1) * target[axis] / 2 - pixels[axis] / 2;
        place->clip[axis] += (std::floor(edge + 0.5f) - edge) * 2 / target[axis] * w;
    }
    place->sideX = width * 2 / target[0] * w;
    place->sideY = height * 2 / target[1] * w;
}

// False for a sprite in or behind the plane of the camera.
static bool placeSprite(const GLBackend* backend, const Sprite3D* sprite, const qelTransform* modelTransform,
                        SpritePlace* place) {
    qelTransform modelView;
    qelTransform_multiplyInto(&modelView, &backend->view, modelTransform);
    float origin[4];
    qelTransform_getColumn(&modelView, 3, origin);
    place->eyeZ = origin[2];
    project(backend->projection, origin, place->clip);
    if (!(place->clip[3] > 0)) return false;
    if (sprite->scaled)
        sizeByUnitVectors(backend, modelView, origin, place);
    else
        sizeByPixels(backend, std::fabs(float(sprite->cropWidth)), std::fabs(float(sprite->cropHeight)), place);
    return true;
}

// Vertices are texels from the corner of what is visible; these matrices put them where they belong. All corners
// share the origin's depth, before the camera for the fog and in clip coordinates for the depth test.
struct SpriteMatrices {
    qelTransform modelView, projection, texture;
};

static SpriteMatrices matricesOf(const Sprite3D* sprite, const SpritePlace& place, const Extent& x, const Extent& y,
                                 const RendererTexture* texture) {
    const float cropWidth = std::fabs(float(sprite->cropWidth)), cropHeight = std::fabs(float(sprite->cropHeight));
    const float stepX = place.sideX / float(sprite->cropWidth);    // negative sizes mirror
    const float stepY = -place.sideY / float(sprite->cropHeight);  // image rows go down
    float corner[4];
    std::copy_n(place.clip, 4, corner);
    corner[0] += (float(x.first - sprite->cropX) - cropWidth / 2) * stepX;
    corner[1] += (float(y.first - sprite->cropY) - cropHeight / 2) * stepY;

    SpriteMatrices m;
    qelTransform_setIdentity(&m.modelView);
    qelTransform_postTranslate(&m.modelView, 0, 0, place.eyeZ);
    const float columns[3][4] = {{stepX, 0, 0, 0}, {0, stepY, 0, 0}, {0, 0, 0, 0}};
    for (int i = 0; i < 3; ++i) qelTransform_setColumn(&m.projection, i, columns[i]);
    qelTransform_setColumn(&m.projection, 3, corner);
    qelTransform_setIdentity(&m.texture);
    qelTransform_postScale(&m.texture, 1 / float(texture->width), 1 / float(texture->height), 1);
    qelTransform_postTranslate(&m.texture, float(x.first), float(y.first), 0);
    return m;
}

static void loadPushed(GLenum matrixMode, const qelTransform& matrix) {
    push(matrixMode);
    GLState_loadMatrix(matrix);
}

// A texture without alpha of its own, or one that fades, takes alpha from the current colour.
static void sendSpriteColor(uint32_t alphaScale) {
    static constexpr float kNoColor[] = {0, 0, 0, 0};
    const bool fades = alphaScale != kFullAlpha;
    glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, fades ? GL_MODULATE : GL_REPLACE);
    glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, kNoColor);
    glColor4f(1, 1, 1, float(GLState_scaleAlpha(0xFF, alphaScale)) / 255);
}

static void drawSpriteRectangle(const SpriteMatrices& matrices, int16_t width, int16_t height, uint32_t alphaScale) {
    const int16_t texels[] = {0, 0, 0, height, width, 0, width, height};
    loadPushed(GL_MODELVIEW, matrices.modelView);
    loadPushed(GL_PROJECTION, matrices.projection);
    loadPushed(GL_TEXTURE, matrices.texture);
    glTexCoordPointer(2, GL_SHORT, 0, texels);
    setParameter(GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    setParameter(GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    setParameter(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    setParameter(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    sendSpriteColor(alphaScale);
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(2, GL_SHORT, 0, texels);
    GLGeometry_disableAttributes();
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    popMatrices();
}

static Result bindSpriteImage(Sprite3D* sprite) {
    const bool imageChanged = sprite->imageVersionSeen != sprite->image->version;
    useOneTexture();
    const Result result = qelRendererTexture_bind(sprite->rendererTexture, sprite->image, false, false, imageChanged);
    if (result == QEL_STATUS_OK) sprite->imageVersionSeen = sprite->image->version;
    return result;
}

Result GLImageDraw_sprite(GLBackend* backend, Sprite3D* sprite, const qelTransform* modelTransform, float alphaFactor) {
    const Appearance* appearance = sprite->appearance;
    if (!appearance) return QEL_STATUS_OK;  // switched off, like a submesh without one
    const Image2D* image = sprite->image;
    const Extent x = coveredBy(sprite->cropX, std::abs(int64_t(sprite->cropWidth)), image->width);
    const Extent y = coveredBy(sprite->cropY, std::abs(int64_t(sprite->cropHeight)), image->height);
    SpritePlace place;
    if (backend->viewport.width <= 0 || backend->viewport.height <= 0) return QEL_STATUS_OK;
    if (x.isEmpty() || y.isEmpty() || !placeSprite(backend, sprite, modelTransform, &place)) return QEL_STATUS_OK;

    backend->material.known = backend->polygon.known = false;  // the current colour and culling
    GLState_sendViewport(backend);
    glDisable(GL_LIGHTING);
    GLState_sendFog(backend, appearance->fog);
    GLState_sendCompositing(backend, appearance->compositingMode);
    glDisable(GL_CULL_FACE);
    const Result result = bindSpriteImage(sprite);
    if (result != QEL_STATUS_OK) return result;
    const SpriteMatrices matrices = matricesOf(sprite, place, x, y, sprite->rendererTexture);
    // No texture reaches 32768 texels: a longer side than 16 bits hold has failed to upload.
    drawSpriteRectangle(matrices, int16_t(std::min<int64_t>(x.end - x.first, INT16_MAX)),
                        int16_t(std::min<int64_t>(y.end - y.first, INT16_MAX)),
                        GLState_alphaScale(appearance, alphaFactor));
    sprite->stateChanged = 0;
    return QEL_STATUS_OK;
}
