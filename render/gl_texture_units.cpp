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

static void sendEnvironment(const Texture2D* texture) {
    glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GLfloat(environmentModeOf(texture->blending)));
    glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, GLState_channels(texture->blendColor).data());
}

// From stored coordinates to texture space: the buffer's scale and bias, then the texture's own transform.
static void sendTextureMatrix(Texture2D* texture, const VertexBuffer* buffer, int32_t unit) {
    const float scale = buffer->texCoordScale[unit];
    const float* bias = buffer->texCoordBias[unit];
    qelTransformable_updateComposite(texture);
    if (scale == 1 && bias[0] == 0 && bias[1] == 0 && bias[2] == 0) return GLState_loadMatrix(texture->composite);
    qelTransform matrix = texture->composite;
    qelTransform_postTranslate(&matrix, bias[0], bias[1], bias[2]);
    qelTransform_postScale(&matrix, scale, scale, scale);
    GLState_loadMatrix(matrix);
}

static Result sendUnit(const GLBackend* backend, const SubmeshDraw& draw, int32_t unit) {
    Texture2D* texture = draw.appearance->textures[unit];
    GLTextureUnits_switchOn(unit);
    const Result result = qelTextures_bind(texture, backend->textureMemoryLimit);
    if (result != QEL_STATUS_OK) return result;
    glMatrixMode(GL_TEXTURE);
    glLoadIdentity();
    sendEnvironment(texture);
    const VertexArray* coordinates = draw.vertexBuffer->texCoords[unit];
    glTexCoordPointer(coordinates->componentCount, coordinates->componentSize == 1 ? GL_BYTE : GL_SHORT, 0,
                      coordinates->data);
    sendTextureMatrix(texture, draw.vertexBuffer, unit);
    return QEL_STATUS_OK;
}

Result GLTextureUnits_send(const GLBackend* backend, const SubmeshDraw& draw) {
    Appearance* appearance = draw.appearance;
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit) {
        appearance->textureChanged[unit] = 0;
        if (!appearance->textures[unit]) GLTextureUnits_switchOff(unit);
    }
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit) {
        if (!appearance->textures[unit]) continue;
        const Result result = sendUnit(backend, draw, unit);
        if (result != QEL_STATUS_OK) return result;
    }
    return QEL_STATUS_OK;
}
