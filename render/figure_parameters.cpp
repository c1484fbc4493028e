#include "render/figure_parameters.h"

#include "frame/fixed_point.h"

Blending K8FigureParameters_blending(int16_t blendMode) {
    switch (blendMode) {
        case K8_BLEND_ALPHA: return Blending::Alpha;
        case K8_BLEND_ADDITIVE: return Blending::AlphaAdd;
        default: return Blending::Replace;
    }
}

float K8FigureParameters_alphaFactor(int32_t transparency) {
    // Percent of a little more than a hundred: a figure at 100 blends with 0.997.
    const float alpha = f2j(transparency) / 100.3f;
    return alpha < 0.0f ? 0.0f : alpha > 1.0f ? 1.0f : alpha;
}

void K8FigureParameters_applyCompositing(CompositingMode* mode, Blending figureBlending) {
    if (!mode) return;
    const bool writesDepth = figureBlending == Blending::Replace && mode->blending == Blending::Replace;
    if (figureBlending != Blending::Replace) qelCompositingMode_setBlending(mode, int32_t(figureBlending));
    qelCompositingMode_setDepthTestEnable(mode, true);
    qelCompositingMode_setDepthWriteEnable(mode, writesDepth);
}

static void setBlending(Texture2D* texture, TextureBlending blending) {
    if (texture) qelTexture2D_setBlending(texture, int32_t(blending));
}

void K8FigureParameters_applyTextureMode(const K8Texture* handle) {
    const bool replaces = handle->info && handle->info->textureMode == 1;
    setBlending(static_cast<Texture2D*>(handle->header.object),
                replaces ? TextureBlending::Replace : TextureBlending::Modulate);
    setBlending(K8FigureParameters_secondMap(handle), TextureBlending::Add);
}

Texture2D* K8FigureParameters_secondMap(const K8Texture* handle) {
    const bool isShown = handle->info && handle->info->hasSecondMap == 1 && handle->info->secondMap;
    return isShown ? static_cast<Texture2D*>(handle->info->secondMap->header.object) : nullptr;
}

void K8FigureParameters_ensureSecondCoordinates(VertexBuffer* buffer) {
    if (!buffer || buffer->texCoords[1] || !buffer->texCoords[0]) return;
    qelVertexBuffer_setTexCoords(buffer, 1, buffer->texCoords[0], buffer->texCoordScale[0], buffer->texCoordBias[0]);
    buffer->isLaidOver = 1;
}
