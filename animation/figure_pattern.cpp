// Which parts of a figure are shown, and with which textures.

#include <algorithm>
#include <span>

#include "animation/figure_pose.h"
#include "scene/appearance.h"
#include "scene/texture2d.h"

// --- Patterns ---

// Fills the appearance slots of the submeshes from `first` on.
static void showSubmeshes(FigureMesh* figure, uint32_t first, uint32_t count) {
    const uint32_t coloredCount = figure->hasColors * figure->classCount;
    const uint32_t* appearanceIndices = figure->patternTable + figure->patternCount;
    for (uint32_t slot = first; slot < first + count; ++slot) {
        const uint32_t index = appearanceIndices[slot];
        figure->appearances[slot] = figure->appearanceTable[index];
        figure->slotFlags[slot] |= index < coloredCount ? kSlotColored : kSlotTextured;
    }
}

// Pattern 0 is never hidden.
static void showPatterns(FigureMesh* figure, uint32_t mask) {
    const std::span counts(figure->patternTable, figure->patternCount);
    std::fill(figure->appearances + counts[0], figure->appearances + figure->submeshCount, nullptr);
    uint32_t first = 0;
    for (uint32_t pattern = 0; pattern < std::min(figure->patternCount, 32u); ++pattern) {
        if (mask >> pattern & 1) showSubmeshes(figure, first, counts[pattern]);
        first += counts[pattern];
    }
}

uint32_t D_Figure_setPattern(FigureMesh* figure, uint32_t mask) {
    figure->requestedPattern = mask;
    if (mask == figure->appliedPattern || figure->patternCount < 2) return mask;
    showPatterns(figure, mask);
    figure->appliedPattern = mask;
    return mask;
}

uint32_t D_Figure_getPattern(const FigureMesh* figure) { return figure->requestedPattern; }

int32_t D_Figure_getNumPatterns(const FigureMesh* figure) { return int32_t(figure->patternCount); }

// --- Textures ---

// Texture coordinates of figures are in texels, counted along the width in both directions.
static void scaleToTexels(Texture2D* texture) {
    const float texel = 1.0f / float(texture->image->width);
    if (texture->scale[0] != texel || texture->scale[1] != texel || texture->scale[2] != 1)
        qelTransformable_setScale(texture, texel, texel, 1);
}

static void setTextureOfUnit(FigureMesh* figure, int32_t slot, Texture2D* texture, int32_t unit) {
    if (texture) scaleToTexels(texture);
    Appearance** textured = figure->appearanceTable + figure->hasColors * figure->classCount;
    for (uint32_t attributeClass = 0; attributeClass < figure->classCount; ++attributeClass) {
        Appearance* appearance = textured[attributeClass * figure->textureSlotCount + uint32_t(slot)];
        if (appearance->textures[unit] != texture) qelAppearance_setTexture(appearance, unit, texture);
    }
}

static bool hasSlot(const FigureMesh* figure, int32_t slot) {
    return slot >= 0 && uint32_t(slot) < figure->textureSlotCount;
}

void D_Figure_setTexture(FigureMesh* figure, int32_t slot, Texture2D* texture) {
    if (!hasSlot(figure, slot)) return;
    figure->textureSlots[slot] = texture;
    setTextureOfUnit(figure, slot, texture, 0);
}

void D_Figure_setSecondTexture(FigureMesh* figure, int32_t slot, Texture2D* texture) {
    if (!hasSlot(figure, slot)) return;
    setTextureOfUnit(figure, slot, texture, 1);
}
