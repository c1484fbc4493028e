// Triangles and quadrilaterals: meshes made for the draw.
#include "frame/allocator.h"
#include "frame/primitive_handle.h"
#include "render/draw_camera.h"
#include "render/draw_primitive.h"
#include "render/figure_parameters.h"
#include "render/fixed_geometry.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/material.h"
#include "scene/mesh.h"
#include "scene/polygon_mode.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr uint32_t kMaxVertices = 65535;      // of a vertex array
constexpr float kAlphaTestThreshold = 0.01f;  // between the alphas of a transparent and of any other texel
constexpr uint32_t kWhite = 0xFFFFFF;

struct FaceSet {
    const K8PrimitiveInfo* info;
    uint32_t corners;        // of a face
    uint8_t alpha;           // of every vertex
    FixedGrid grid;          // of positions
    FixedGrid textureGrid;   // of texture coordinates
    Appearance* appearance;  // one reference
};

static bool has(const PrimitiveValues& values, int32_t kind) { return !values.arrays[size_t(kind)].empty(); }

static uint32_t argbOf(const FaceSet& faces) { return uint32_t(faces.alpha) << 24 | kWhite; }

// --- Vertices ---

// Hands an array to the buffer, which takes its own reference. False when there is none: memory ran out.
template <typename Set>
static bool giveArray(VertexArray* array, Set set) {
    if (!array) return false;
    set(array);
    qelObject3D_unref(array);
    return true;
}

// The vertices of the faces are all their own: what neighbours share comes once for each.
static VertexArray* makeArray(const FaceSet& faces, uint32_t faceCount, int32_t componentCount, int32_t componentSize) {
    Result result;
    return qelVertexArray_create(int32_t(faceCount * faces.corners), componentCount, componentSize, &result);
}

static bool addPositions(VertexBuffer* buffer, const FaceSet& faces, const PrimitiveValues& part) {
    return giveArray(makeArray(faces, part.count, 3, sizeof(int16_t)), [&](VertexArray* array) {
        FixedGrid_place(faces.grid, part.arrays[K8_PRIM_POSITIONS], 3, static_cast<int16_t*>(array->data));
        float bias[3];
        FixedGrid_bias(faces.grid, bias);
        qelVertexBuffer_setPositions(buffer, array, FixedGrid_scale(faces.grid), bias);
    });
}

static bool addTextureCoords(VertexBuffer* buffer, const FaceSet& faces, const PrimitiveValues& part) {
    if (!has(part, K8_PRIM_TEXTURE_COORDS)) return true;
    return giveArray(makeArray(faces, part.count, 2, sizeof(int16_t)), [&](VertexArray* array) {
        FixedGrid_place(faces.textureGrid, part.arrays[K8_PRIM_TEXTURE_COORDS], 2, static_cast<int16_t*>(array->data));
        float bias[3];
        FixedGrid_bias(faces.textureGrid, bias);
        qelVertexBuffer_setTexCoords(buffer, 0, array, FixedGrid_scale(faces.textureGrid), bias);
    });
}

// How many vertices in a row have one value of an array.
static uint32_t verticesPerValue(const FaceSet& faces, uint32_t faceCount, size_t valueCount) {
    return uint32_t(faceCount * faces.corners / valueCount);
}

static bool addNormals(VertexBuffer* buffer, const FaceSet& faces, const PrimitiveValues& part) {
    const std::span<const int32_t> normals = part.arrays[K8_PRIM_NORMALS];
    if (normals.empty()) return true;
    return giveArray(makeArray(faces, part.count, 3, sizeof(int16_t)), [&](VertexArray* array) {
        FixedGeometry_shortenNormals(normals, verticesPerValue(faces, part.count, normals.size() / 3),
                                     static_cast<int16_t*>(array->data));
        qelVertexBuffer_setNormalsAsIs(buffer, array);
    });
}

static bool addColors(VertexBuffer* buffer, const FaceSet& faces, const PrimitiveValues& part) {
    const std::span<const int32_t> colors = part.arrays[K8_PRIM_COLORS];
    if (colors.empty()) return true;
    return giveArray(makeArray(faces, part.count, 4, sizeof(uint8_t)), [&](VertexArray* array) {
        FixedGeometry_expandColors(colors, faces.alpha, verticesPerValue(faces, part.count, colors.size()),
                                   static_cast<uint8_t*>(array->data));
        qelVertexBuffer_setColors(buffer, array);
    });
}

static VertexBuffer* makeVertexBuffer(const FaceSet& faces, const PrimitiveValues& part) {
    VertexBuffer* buffer = qelVertexBuffer_create();
    if (!buffer) return nullptr;
    qelVertexBuffer_setDefaultColor(buffer, argbOf(faces));
    if (addPositions(buffer, faces, part) && addNormals(buffer, faces, part) && addColors(buffer, faces, part) &&
        addTextureCoords(buffer, faces, part))
        return buffer;
    qelObject3D_unref(buffer);
    return nullptr;
}

// Every face a strip of its own. The corners of a quadrilateral go round, so its strip takes the last two exchanged: it
// becomes the triangles 0, 1, 3 and 3, 1, 2.
static TriangleStripArray* makeIndexBuffer(uint32_t corners, uint32_t faceCount) {
    static constexpr uint32_t kTriangle[] = {0, 1, 2}, kQuad[] = {0, 1, 3, 2};
    const uint32_t* order = corners == 3 ? kTriangle : kQuad;
    const Scratch<int32_t> lengths(faceCount), indices(faceCount * corners);
    if (!lengths.data || !indices.data) return nullptr;
    for (uint32_t face = 0; face < faceCount; ++face) {
        lengths.data[face] = int32_t(corners);
        for (uint32_t i = 0; i < corners; ++i) indices.data[face * corners + i] = int32_t(face * corners + order[i]);
    }
    Result result;
    return qelTriangleStripArray_createExplicit(lengths.data, int32_t(faceCount), indices.data,
                                                int32_t(faceCount * corners), true, &result);
}

// --- Appearance ---

// Components are handed to the appearance, which takes its own reference. False when there is none: memory ran out.

static bool addCompositingMode(const FaceSet& faces) {
    CompositingMode* mode = qelCompositingMode_create();
    if (!mode) return false;
    K8FigureParameters_applyCompositing(mode, K8FigureParameters_blending(faces.info->blendMode));
    if (faces.info->params & K8_PRIM_ALPHA_TEST) qelCompositingMode_setAlphaThreshold(mode, kAlphaTestThreshold);
    qelAppearance_setCompositingMode(faces.appearance, mode);
    qelObject3D_unref(mode);
    return true;
}

// Faces are seen from both sides, whichever way their corners go.
static bool addPolygonMode(const FaceSet& faces) {
    PolygonMode* mode = qelPolygonMode_create();
    if (!mode) return false;
    qelPolygonMode_setCulling(mode, int32_t(Culling::None));
    qelPolygonMode_setPerspectiveCorrectionEnable(mode, faces.info->perspectiveCorrection);
    qelAppearance_setPolygonMode(faces.appearance, mode);
    qelObject3D_unref(mode);
    return true;
}

// What has normals is lit: as white, or in its own colours.
static bool addMaterial(const FaceSet& faces, const PrimitiveValues& values) {
    if (!has(values, K8_PRIM_NORMALS)) return true;
    Material* material = qelMaterial_create();
    if (!material) return false;
    qelMaterial_setColor(material, QEL_MATERIAL_AMBIENT | QEL_MATERIAL_DIFFUSE, argbOf(faces));
    qelMaterial_setVertexColorTrackingEnable(material, has(values, K8_PRIM_COLORS));
    qelAppearance_setMaterial(faces.appearance, material);
    qelObject3D_unref(material);
    return true;
}

// Coordinates count texels, so the texture's own scale makes fractions of its sides of them.
static void addTexture(const K8RenderContext* context, const FaceSet& faces, const PrimitiveValues& values) {
    if (!has(values, K8_PRIM_TEXTURE_COORDS)) return;
    const K8Texture* handle = faces.info->texture;
    Texture2D* texture = context->whiteTexture;
    if (handle && handle->header.object) {
        texture = static_cast<Texture2D*>(handle->header.object);
        if (!handle->keepsBlending) K8FigureParameters_applyTextureMode(handle);
        qelTransformable_setScale(texture, 1.0f / float(texture->image->width), 1.0f / float(texture->image->height),
                                  1.0f);
    }
    qelAppearance_setTexture(faces.appearance, 0, texture);
}

static bool makeAppearance(const K8RenderContext* context, const PrimitiveValues& values, Fog* fog, FaceSet* faces) {
    faces->appearance = qelAppearance_create();
    if (!faces->appearance) return false;
    qelAppearance_setFog(faces->appearance, fog);
    addTexture(context, *faces, values);
    return addCompositingMode(*faces) && addPolygonMode(*faces) && addMaterial(*faces, values);
}

// --- Drawing ---

static Mesh* makeMesh(const FaceSet& faces, const PrimitiveValues& part) {
    VertexBuffer* vertices = makeVertexBuffer(faces, part);
    TriangleStripArray* indices = vertices ? makeIndexBuffer(faces.corners, part.count) : nullptr;
    Result result;
    Mesh* mesh = indices ? qelMesh_create(vertices, &indices, &faces.appearance, 1, &result) : nullptr;
    qelObject3D_unref(vertices);
    qelObject3D_unref(indices);
    return mesh;
}

static bool renderPart(K8Render* handle, const FaceSet& faces, const PrimitiveValues& part,
                       const qelTransform& matrix) {
    Mesh* mesh = makeMesh(faces, part);
    if (!mesh) return false;
    const Result result = qelGraphics3D_render(K8Render_graphics(handle), mesh, &matrix);
    qelObject3D_unref(mesh);
    return result == QEL_STATUS_OK;
}

// As many faces at a time as a vertex array holds.
static bool renderAll(K8Render* handle, const FaceSet& faces, const PrimitiveValues& values,
                      const qelTransform& matrix) {
    const uint32_t atOnce = kMaxVertices / faces.corners;
    for (uint32_t first = 0; first < values.count; first += atOnce) {
        const uint32_t rest = values.count - first;
        if (!renderPart(handle, faces, K8Primitive_partOf(values, first, rest < atOnce ? rest : atOnce), matrix))
            return false;
    }
    return true;
}

bool K8DrawList_drawFaces(K8Render* handle, const DrawItem* item) {
    const uint32_t type = K8DrawList_primitiveType(item);
    if (type != K8_PRIM_TRIANGLES && type != K8_PRIM_QUADS) return false;
    const K8PrimitiveInfo* info = reinterpret_cast<const K8Primitive*>(item->object)->info;
    PrimitiveValues values;
    if (!K8Primitive_readValues(*info, &values)) return false;
    if (values.count == 0) return true;
    FaceSet faces = {};
    faces.info = info;
    faces.corners = type == K8_PRIM_TRIANGLES ? 3 : 4;
    faces.alpha = faces.info->blendMode == K8_BLEND_ALPHA ? 128 : 255;
    // One grid for the whole set, so that its parts meet.
    faces.grid = FixedGrid_fit(values.arrays[K8_PRIM_POSITIONS], 3);
    faces.textureGrid = FixedGrid_fit(values.arrays[K8_PRIM_TEXTURE_COORDS], 2);

    K8DrawList_setCamera(handle, item->params);
    const bool drawn = makeAppearance(handle->context, values, item->fog, &faces) &&
                       renderAll(handle, faces, values, K8DrawList_sceneMatrix(item->transform, 1.0f));
    qelObject3D_unref(faces.appearance);
    return drawn;
}
