#include "render/gl_texture_units.h"

#include <GLES/gl.h>

#include "render/texture_upload.h"

void GLTextureUnits_switchOff(int32_t unit) {
    glActiveTexture(GL_TEXTURE0 + uint32_t(unit));
    glClientActiveTexture(GL_TEXTURE0 + uint32_t(unit));
    glDisable(GL_TEXTURE_2D);
    glDisableClientState(GL_TEXTURE_COORD_ARRAY);
}

void GLTextureUnits_switchOn(int32_t unit) {
    glClientActiveTexture(GL_TEXTURE0 + uint32_t(unit));
    glActiveTexture(GL_TEXTURE0 + uint32_t(unit));
    glEnableClientState(GL_TEXTURE_COORD_ARRAY);
    glEnable(GL_TEXTURE_2D);
}

static GLenum environmentModeOf(TextureBlending blending) {
    switch (blending) {
        case TextureBlending::Add: return GL_ADD;
        case TextureBlending::Blend: return GL_BLEND;
        case TextureBlending::Decal: return GL_DECAL;
        case TextureBlending::Modulate: return GL_MODULATE;
        case TextureBlending::Replace: return GL_REPLACE;
    }
    return GL_MODULATE;
}

// --- What a draw uses ---

TextureUnits GLTextureUnits_ofSubmesh(const SubmeshDraw& draw) {
    TextureUnits units = {};
    const VertexBuffer* buffer = draw.vertexBuffer;
    for (size_t i = 0; i < units.size(); ++i) {
        draw.appearance->textureChanged[i] = 0;
        Texture2D* texture = draw.appearance->textures[i];
        if (!texture) continue;
        const VertexArray* coordinates = buffer->texCoords[i];
        const float* bias = buffer->texCoordBias[i];
        units[i] = {texture,
                    texture->blending,
                    coordinates->data,
                    coordinates->componentCount,
                    coordinates->componentSize,
                    buffer->texCoordScale[i],
                    {bias[0], bias[1], bias[2]}};
    }
    return units;
}

TextureUnits GLTextureUnits_ofImmediate(const ImmediateDraw& draw) {
    TextureUnits units = {};
    for (size_t i = 0; i < units.size(); ++i)
        if (draw.textures[i] && draw.textureCoords[i])
            units[i] = {draw.textures[i], draw.blendings[i], draw.textureCoords[i], 2, sizeof(int16_t), 1, {}};
    return units;
}

bool GLTextureUnits_replaceColor(const TextureUnits& units) {
    const TextureUnit& first = units[0];
    return first.texture && first.blending == TextureBlending::Replace &&
           first.texture->image->format != ImageFormat::Alpha;
}

// --- Sending ---

static void sendEnvironment(const TextureUnit& unit) {
    glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GLfloat(environmentModeOf(unit.blending)));
    glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, GLState_channels(unit.texture->blendColor).data());
}

// From stored coordinates to texture space: their scale and bias, then the texture's own transform.
static void sendTextureMatrix(const TextureUnit& unit) {
    const float scale = unit.scale;
    const float* bias = unit.bias;
    qelTransformable_updateComposite(unit.texture);
    const qelTransform& composite = unit.texture->composite;
    if (scale == 1 && bias[0] == 0 && bias[1] == 0 && bias[2] == 0) return GLState_loadMatrix(composite);
    qelTransform matrix = composite;
    qelTransform_postTranslate(&matrix, bias[0], bias[1], bias[2]);
    qelTransform_postScale(&matrix, scale, scale, scale);
    GLState_loadMatrix(matrix);
}

static Result sendUnit(const GLBackend* backend, const TextureUnit& unit, int32_t index) {
    GLTextureUnits_switchOn(index);
    const Result result = qelTextures_bind(unit.texture, backend->textureMemoryLimit);
    if (result != QEL_STATUS_OK) return result;
    glMatrixMode(GL_TEXTURE);
    glLoadIdentity();
    sendEnvironment(unit);
    glTexCoordPointer(unit.componentCount, unit.componentSize == 1 ? GL_BYTE : GL_SHORT, 0, unit.coordinates);
    sendTextureMatrix(unit);
    return QEL_STATUS_OK;
}

Result GLTextureUnits_send(const GLBackend* backend, const TextureUnits& units) {
    for (size_t i = 0; i < units.size(); ++i)
        if (!units[i].texture) GLTextureUnits_switchOff(int32_t(i));
    for (size_t i = 0; i < units.size(); ++i) {
        if (!units[i].texture) continue;
        const Result result = sendUnit(backend, units[i], int32_t(i));
        if (result != QEL_STATUS_OK) return result;
    }
    return QEL_STATUS_OK;
}
