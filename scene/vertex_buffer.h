#pragma once

#include "render/capabilities.h"
#include "scene/object3d.h"

struct qelVertexBuffer : Object3D {
    VertexArray* colors;  // arrays: one reference, or null
    VertexArray* normals;
    VertexArray* positions;
    float positionScale;  // real position = scale x integer + bias
    float positionBias[3];
    VertexArray* texCoords[kMaxTextureUnits];
    float texCoordScale[kMaxTextureUnits];
    float texCoordBias[kMaxTextureUnits][3];
    uint32_t defaultColor;  // 0xAARRGGBB
    uint8_t defaultColorChanged, positionsChanged, normalsChanged;
    uint8_t isLaidOver;            // unit 1 was given the coordinates of unit 0 to draw with; nothing that is morphed
    qelTransform scaleBiasMatrix;  // kept by the renderer
};

VertexBuffer* qelVertexBuffer_create();
Result qelVertexBuffer_setPositions(VertexBuffer* buffer, VertexArray* array, float scale, const float* bias);
// Normalises the array's integers in place.
Result qelVertexBuffer_setNormals(VertexBuffer* buffer, VertexArray* array);
// Takes the normals as they are.
Result qelVertexBuffer_setNormalsAsIs(VertexBuffer* buffer, VertexArray* array);
Result qelVertexBuffer_setColors(VertexBuffer* buffer, VertexArray* array);
Result qelVertexBuffer_setTexCoords(VertexBuffer* buffer, int32_t unit, VertexArray* array, float scale,
                                    const float* bias);
void qelVertexBuffer_setDefaultColor(VertexBuffer* buffer, uint32_t argb);
VertexArray* qelVertexBuffer_getTexCoords(const VertexBuffer* buffer, int32_t unit, float* scaleBias, Result* result);
int32_t qelVertexBuffer_getVertexCount(const VertexBuffer* buffer);
Object3D* qelVertexBuffer_duplicate(const VertexBuffer* buffer);
