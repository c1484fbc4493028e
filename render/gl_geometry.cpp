#include "render/gl_geometry.h"

#include <GLES/gl.h>

#include <algorithm>

#include "frame/allocator.h"

// --- Colours ---

// Attached to a colour array: its colours as four bytes with the alpha scaled.
struct ColorCache {
    uint64_t contents;  // of the array when the copy was made
    uint32_t alphaScale;
    uint8_t rgba[];
};

static void fillColorCache(ColorCache* cache, const VertexArray* colors, uint32_t alphaScale) {
    const auto* in = static_cast<const uint8_t*>(colors->data);
    const bool hasAlpha = colors->componentCount == 4;
    uint8_t* out = cache->rgba;
    for (int32_t i = 0; i < colors->vertexCount; ++i, in += colors->componentCount, out += 4) {
        std::copy(in, in + 3, out);
        out[3] = uint8_t(GLState_scaleAlpha(hasAlpha ? in[3] : 0xFF, alphaScale));
    }
    cache->contents = colors->contents;
    cache->alphaScale = alphaScale;
}

// The colours as OpenGL ES takes them: four unsigned bytes. Null when memory runs out.
static const void* readyColors(VertexArray* colors, uint32_t alphaScale) {
    if (colors->componentCount == 4 && alphaScale == kFullAlpha) return colors->data;
    auto* cache = static_cast<ColorCache*>(colors->cache);
    if (cache && cache->contents == colors->contents && cache->alphaScale == alphaScale) return cache->rgba;
    if (!cache) {
        cache = static_cast<ColorCache*>(qelAlloc(kScratchTag, int32_t(sizeof(ColorCache)) + colors->vertexCount * 4));
        if (!cache) return nullptr;
        colors->cache = cache;
    }
    fillColorCache(cache, colors, alphaScale);
    return cache->rgba;
}

// The array that the draw takes colours from, or null.
static VertexArray* colorsOf(const SubmeshDraw& draw) {
    return GLState_usesVertexColors(draw.appearance) ? draw.colors : nullptr;
}

// --- Arrays ---

static GLenum typeOf(const VertexArray* array) { return array->componentSize == 1 ? GL_BYTE : GL_SHORT; }

// Submeshes of one mesh have the same model-view matrix, so what it was made of is compared before it is made again.
static void updateModelView(GLBackend* backend, const SubmeshDraw& draw) {
    VertexBuffer* buffer = draw.vertexBuffer;
    const float* bias = buffer->positionBias;
    const std::array<float, 4> scaleBias = {buffer->positionScale, bias[0], bias[1], bias[2]};
    ModelViewSource& source = backend->modelViewSource;
    if (source.isKnown && source.scaleBias == scaleBias && GLState_sameElements(source.model, *draw.modelTransform))
        return;
    source = {true, scaleBias, *draw.modelTransform};
    qelTransform_setIdentity(&buffer->scaleBiasMatrix);
    qelTransform_postTranslate(&buffer->scaleBiasMatrix, bias[0], bias[1], bias[2]);
    qelTransform_postScale(&buffer->scaleBiasMatrix, scaleBias[0], scaleBias[0], scaleBias[0]);
    qelTransform modelView;
    qelTransform_multiplyInto(&modelView, &backend->view, draw.modelTransform);
    qelTransform_multiplyInto(&modelView, &modelView, &buffer->scaleBiasMatrix);
    qelTransform_getColumnMajor(&modelView, backend->modelView.data());
}

static void sendModelView(GLBackend* backend, const SubmeshDraw& draw) {
    updateModelView(backend, draw);
    glMatrixMode(GL_MODELVIEW);
    glLoadMatrixf(backend->modelView.data());
}

static void sendPositions(int32_t componentCount, GLenum type, const void* data) {
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(componentCount, type, 0, data);
}

// Null data: the draw has no normals.
static void sendNormals(GLenum type, const void* data) {
    if (data) {
        glEnableClientState(GL_NORMAL_ARRAY);
        glNormalPointer(type, 0, data);
    } else {
        glDisableClientState(GL_NORMAL_ARRAY);
    }
}

// Null: the draw has no colours.
static void sendColors(const void* rgba) {
    if (rgba) {
        glEnableClientState(GL_COLOR_ARRAY);
        glColorPointer(4, GL_UNSIGNED_BYTE, 0, rgba);
    } else {
        glDisableClientState(GL_COLOR_ARRAY);
    }
}

Result GLGeometry_sendArrays(GLBackend* backend, const SubmeshDraw& draw, uint32_t alphaScale) {
    const VertexArray* positions = draw.vertexBuffer->positions;
    const VertexArray* normals = draw.vertexBuffer->normals;
    VertexArray* colors = colorsOf(draw);
    sendModelView(backend, draw);
    sendPositions(positions->componentCount, typeOf(positions), positions->data);
    sendNormals(normals ? typeOf(normals) : GL_BYTE, normals ? normals->data : nullptr);
    const void* rgba = colors ? readyColors(colors, alphaScale) : nullptr;
    if (colors && !rgba) return QEL_STATUS_OUT_OF_MEMORY;
    sendColors(rgba);
    return QEL_STATUS_OK;
}

void GLGeometry_disableAttributes() {
    glDisableClientState(GL_NORMAL_ARRAY);
    glDisableClientState(GL_COLOR_ARRAY);
}

// --- Drawing ---

// How many vertices every array of the draw has: nothing keeps the arrays of a buffer equally long.
static int32_t usableVertexCount(const SubmeshDraw& draw) {
    const VertexBuffer* buffer = draw.vertexBuffer;
    int32_t count = buffer->positions->vertexCount;
    const auto limitBy = [&](const VertexArray* array) {
        if (array) count = std::min(count, array->vertexCount);
    };
    limitBy(buffer->normals);
    limitBy(colorsOf(draw));
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit)
        if (draw.appearance->textures[unit]) limitBy(buffer->texCoords[unit]);
    return count;
}

static Result drawImplicit(const TriangleStripArray* strips, int32_t vertexCount) {
    if (strips->indexLimit > vertexCount) return QEL_STATUS_ILLEGAL_STATE;
    GLint first = strips->firstIndex;
    for (const int32_t length : std::span(strips->stripLengths, size_t(strips->stripCount))) {
        glDrawArrays(GL_TRIANGLE_STRIP, first, length);
        first += length;
    }
    return QEL_STATUS_OK;
}

static Result drawExplicit(const TriangleStripArray* list, int32_t vertexCount) {
    if (list->indexLimit >= vertexCount) return QEL_STATUS_ILLEGAL_STATE;
    for (int32_t i = 0; i < list->stripCount; ++i)
        glDrawElements(GL_TRIANGLES, list->stripLengths[0], GL_UNSIGNED_SHORT, list->indices);
    return QEL_STATUS_OK;
}

Result GLGeometry_draw(const SubmeshDraw& draw) {
    const int32_t vertexCount = usableVertexCount(draw);
    return draw.indexBuffer->indices ? drawExplicit(draw.indexBuffer, vertexCount)
                                     : drawImplicit(draw.indexBuffer, vertexCount);
}

// --- Immediate draws ---

static void drawKind(ImmediateKind kind, int32_t count) {
    switch (kind) {
        case ImmediateKind::Points: return glDrawArrays(GL_POINTS, 0, count);
        case ImmediateKind::Lines: return glDrawArrays(GL_LINES, 0, 2 * count);
        case ImmediateKind::Triangles:
        case ImmediateKind::Sprites: return glDrawArrays(GL_TRIANGLES, 0, 3 * count);
    }
}

void GLGeometry_drawImmediate(const GLBackend* backend, const ImmediateDraw& draw) {
    glMatrixMode(GL_MODELVIEW);
    GLState_loadMatrix(backend->view);
    sendPositions(3, GL_SHORT, draw.positions);
    sendNormals(GL_SHORT, draw.normals);
    sendColors(GLState_usesVertexColors(draw.appearance) ? draw.colors : nullptr);
    drawKind(draw.kind, draw.count);
}
