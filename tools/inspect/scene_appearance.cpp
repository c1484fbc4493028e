// Appearances, their components, and images.
#include "tools/inspect/scene_reader.h"

namespace inspect {

constexpr uint32_t kTextureUnits = 2;

static SceneAppearance readAppearance(ObjectReader& o) {
    SceneAppearance out;
    out.layer = int8_t(o.in.u8("the layer"));
    o.in.expect(out.layer >= -63 && out.layer <= 63, "the layer", out.layer, "-63 to 63");
    out.compositingMode = o.optional("the compositing mode", SceneType::CompositingMode);
    out.fog = o.optional("the fog", SceneType::Fog);
    out.polygonMode = o.optional("the polygon mode", SceneType::PolygonMode);
    out.material = o.optional("the material", SceneType::Material);
    const uint32_t count = o.count("the texture count", 4);
    for (uint32_t unit = 0; unit < count; ++unit) {
        const uint32_t texture = o.optional("a texture", SceneType::Texture2D);
        if (unit < kTextureUnits) {
            out.textures.push_back(texture);
        } else if (texture != 0) {
            o.in.reject("there is a texture in unit " + std::to_string(unit) + ", expected units 0 and 1 alone");
        }
    }
    return out;
}

static SceneCompositingMode readCompositingMode(ObjectReader& o) {
    SceneCompositingMode out;
    out.testsDepth = o.flag("the depth test flag");
    out.writesDepth = o.flag("the depth write flag");
    out.writesColor = o.flag("the colour write flag");
    out.writesAlpha = o.flag("the alpha write flag");
    out.blending = o.oneOf("the blending", 64, 71);
    o.in.expect(out.blending != 69, "the blending", out.blending, "64 to 68, 70 or 71");
    out.alphaThreshold = o.in.u8("the alpha threshold");
    out.depthOffsetFactor = o.real("the depth offset factor");
    out.depthOffsetUnits = o.real("the depth offset units");
    return out;
}

static SceneFog readFog(ObjectReader& o) {
    SceneFog out;
    out.color = o.rgb("the colour");
    out.mode = o.oneOf("the mode", 80, 81);
    if (out.mode == 80) {
        out.density = o.real("the density");
        if (out.density < 0) o.in.reject("the density is negative");
    } else {
        out.near = o.real("the near distance");
        out.far = o.real("the far distance");
    }
    return out;
}

static ScenePolygonMode readPolygonMode(ObjectReader& o) {
    ScenePolygonMode out;
    out.culling = o.oneOf("the culling", 160, 162);
    out.shading = o.oneOf("the shading", 164, 165);
    out.winding = o.oneOf("the winding", 168, 169);
    out.twoSidedLighting = o.flag("the two-sided lighting flag");
    out.localCameraLighting = o.flag("the local camera lighting flag");
    out.perspectiveCorrection = o.flag("the perspective correction flag");
    return out;
}

static SceneMaterial readMaterial(ObjectReader& o) {
    SceneMaterial out;
    out.ambient = o.rgb("the ambient colour");
    out.diffuse = o.argb("the diffuse colour");
    out.emissive = o.rgb("the emissive colour");
    out.specular = o.rgb("the specular colour");
    out.shininess = o.real("the shininess");
    if (out.shininess < 0 || out.shininess > 128) o.in.reject("the shininess is outside 0 to 128");
    out.tracksVertexColors = o.flag("the vertex colour tracking flag");
    return out;
}

// --- Images ---

static uint32_t bytesPerPixelOf(uint32_t format) {
    static constexpr uint32_t kBytes[] = {1, 1, 2, 3, 4};
    return kBytes[format - 96];
}

static void readPixels(ObjectReader& o, SceneImage& image) {
    const uint32_t bytesPerPixel = bytesPerPixelOf(image.format);
    const uint32_t paletteLength = o.count("the palette length", 1);
    o.in.expect(paletteLength <= 256 * bytesPerPixel && paletteLength % bytesPerPixel == 0, "the palette length",
                paletteLength, "at most 256 entries of " + std::to_string(bytesPerPixel));
    image.paletteEntries = paletteLength / bytesPerPixel;
    o.in.skip("the palette", paletteLength);
    const uint32_t pixelLength = o.count("the pixel length", 1);
    const uint64_t perPixel = image.paletteEntries > 0 ? 1 : bytesPerPixel;
    // Sides are 32 bits wide, so that their product times 4 can leave 64.
    const uint64_t pixelCount = uint64_t(image.width) * image.height;
    if (pixelCount > pixelLength || pixelCount * perPixel != pixelLength)
        o.in.expect(false, "the pixel length", pixelLength,
                    std::to_string(image.width) + " x " + std::to_string(image.height) + " pixels of " +
                        std::to_string(perPixel));
    o.in.skip("the pixels", pixelLength);
}

static SceneImage readImage(ObjectReader& o) {
    constexpr uint32_t kMaxBlankSide = 2048;
    SceneImage out;
    out.format = o.oneOf("the format", 96, 100);
    out.isMutable = o.flag("the mutable flag");
    const uint32_t maxSide = out.isMutable ? kMaxBlankSide : INT32_MAX;
    const std::string range = "at most " + std::to_string(maxSide);
    out.width = o.in.u32("the width");
    o.in.expect(out.width <= maxSide, "the width", out.width, range);
    out.height = o.in.u32("the height");
    o.in.expect(out.height <= maxSide, "the height", out.height, range);
    if (out.isMutable)
        o.deriveBytes("the blank image", uint64_t(out.width) * out.height * bytesPerPixelOf(out.format));
    else
        readPixels(o, out);
    return out;
}

static bool isTextureSide(uint32_t side) { return side >= 1 && side <= 256 && (side & (side - 1)) == 0; }

static SceneTexture readTexture(ObjectReader& o) {
    constexpr uint32_t kBaseLevel = 208;
    constexpr uint64_t kMipmapOverhead = 104 + 256 * 4;  // the chain's own record and a palette
    SceneTexture out;
    readTransform(o);
    out.image = o.required("the image", SceneType::Image2D);
    const auto& image = o.scene.contentOf<SceneImage>(out.image);
    if (!isTextureSide(image.width) || !isTextureSide(image.height))
        o.in.reject("the image is " + std::to_string(image.width) + " x " + std::to_string(image.height) +
                    ", expected sides that are powers of two up to 256");
    out.blendColor = o.rgb("the blend colour");
    out.blending = o.oneOf("the blending", 224, 228);
    out.wrapS = o.oneOf("the wrapping of s", 240, 241);
    out.wrapT = o.oneOf("the wrapping of t", 240, 241);
    out.levelFilter = o.oneOf("the level filter", kBaseLevel, 210);
    out.imageFilter = o.oneOf("the image filter", 209, 210);
    if (out.levelFilter != kBaseLevel)
        o.deriveBytes("the mipmap chain", kMipmapOverhead + 2ull * image.width * image.height);
    return out;
}

SceneContent readAppearanceClass(ObjectReader& o, SceneType type) {
    switch (type) {
        case SceneType::Appearance: return readAppearance(o);
        case SceneType::CompositingMode: return readCompositingMode(o);
        case SceneType::Fog: return readFog(o);
        case SceneType::PolygonMode: return readPolygonMode(o);
        case SceneType::Material: return readMaterial(o);
        case SceneType::Image2D: return readImage(o);
        default: return readTexture(o);
    }
}

}  // namespace inspect
