#pragma once

#include "tools/encode/m3g_encoder.h"

// One object of every class and of every form that a class has, hung together, with values that no class has by itself.
// The header and the external reference, which are no objects of the scene, stand behind them all.
struct FullScene {
    encode::M3gScene scene;
    encode::M3gRef sequence, controller, track, compositingMode, fog, polygonMode, material, image, texture, appearance,
        background, camera, light, positions, normals, colors, texCoords, vertices, strips, mesh, morphingMesh, bone,
        skeleton, skinnedMesh, sprite, group, world;
    encode::M3gRef growing, fading, turning, genericCamera, perspectiveCamera, linearFog, twoTextures, blankImage,
        indexedImage, greyImage, rgbaImage, start32, start8, start16, indices32, indices8, indices16, wideDeltas,
        narrowDeltas, formMesh;

    FullScene() {
        using namespace encode;
        const M3gTransform moved = {M3gComponents{{1, 2, 3}, {4, 5, 6}, 90, {0, 0, 2}},
                                    M3gMatrix{1, 0, 0, 7, 0, 1, 0, 8, 0, 0, 1, 9, 0, 0, 0, 1}};
        sequence = scene.add(M3gKeyframeSequence{.object = {.userId = 12},
                                                 .interpolation = M3gInterpolation::Spline,
                                                 .repeatMode = M3gRepeatMode::Loop,
                                                 .duration = 900,
                                                 .validFirst = 1,
                                                 .validLast = 2,
                                                 .keyframes = {{10, {1, 2, 3}}, {20, {4, 5, 6}}, {30, {7, 8, -9}}}});
        controller = scene.add(M3gAnimationController{.speed = 2.5f,
                                                      .weight = 0.75f,
                                                      .activeStart = -5,
                                                      .activeEnd = 90,
                                                      .referenceSequenceTime = 12.5f,
                                                      .referenceWorldTime = -7});
        track = scene.add(
            M3gAnimationTrack{.sequence = sequence, .controller = controller, .property = M3gProperty::Translation});
        compositingMode = scene.add(M3gCompositingMode{.depthTest = false,
                                                       .depthWrite = false,
                                                       .colorWrite = false,
                                                       .alphaWrite = false,
                                                       .blending = M3gBlending::AlphaAdd,
                                                       .alphaThreshold = 51,
                                                       .depthOffsetFactor = 1.5f,
                                                       .depthOffsetUnits = -2});
        fog = scene.add(M3gFog{.color = 0x102030, .mode = M3gFogMode::Exponential, .density = 0.25f});
        polygonMode = scene.add(M3gPolygonMode{.culling = M3gCulling::Front,
                                               .shading = M3gShading::Flat,
                                               .winding = M3gWinding::Clockwise,
                                               .twoSidedLighting = true,
                                               .localCameraLighting = true,
                                               .perspectiveCorrection = true});
        material = scene.add(M3gMaterial{.ambient = 0x010203,
                                         .diffuse = 0x04050607,
                                         .emissive = 0x08090A,
                                         .specular = 0x0B0C0D,
                                         .shininess = 12.5f,
                                         .vertexColorTracking = true});
        image = scene.add(M3gImage2D{
            .format = M3gImageFormat::Rgb, .width = 2, .height = 1, .pixels = {0x12, 0x34, 0x56, 0xFF, 0, 0}});
        texture = scene.add(
            M3gTexture2D{.transform = {moved.components, M3gMatrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 4}},
                         .image = image,
                         .blendColor = 0xABCDEF,
                         .blending = M3gTextureBlending::Decal,
                         .wrapS = M3gTextureWrap::Clamp,
                         .levelFilter = M3gTextureFilter::Linear,
                         .imageFilter = M3gTextureFilter::Linear});
        appearance = scene.add(M3gAppearance{.layer = -3,
                                             .compositingMode = compositingMode,
                                             .fog = fog,
                                             .polygonMode = polygonMode,
                                             .material = material,
                                             .textures = {{}, texture}});
        background = scene.add(M3gBackground{.color = 0x40506070,
                                             .image = image,
                                             .modeX = M3gImageMode::Repeat,
                                             .cropX = 1,
                                             .cropY = -2,
                                             .cropWidth = 3,
                                             .cropHeight = 4,
                                             .depthClear = false,
                                             .colorClear = false});
        camera = scene.add(M3gCamera{
            .projection = M3gProjection::Parallel, .fieldOfView = 5, .aspectRatio = 1.5f, .near = -4, .far = 40});
        light = scene.add(
            M3gLight{.object = {.userId = 0xFFFFFFFE, .tracks = {track}, .parameters = {{7, {1, 2, 3}}, {8, {}}}},
                     .node = {moved, false, false, 51, 0x80000001,
                              M3gAlignment{M3gAlignmentTarget::ZAxis, M3gAlignmentTarget::Origin, camera, {}}},
                     .attenuation = {0.5f, 0.25f, 2},
                     .color = 0x334455,
                     .mode = M3gLightMode::Spot,
                     .intensity = -3,
                     .spotAngle = 30,
                     .spotExponent = 17});
        positions = scene.add(M3gVertexArray{.values = {0, 0, 0, 100, 0, 0, 0, -100, 300}});
        normals = scene.add(M3gVertexArray{.componentSize = 1, .values = {0, 0, 5, 3, 4, 0, -9, 0, 0}});
        colors = scene.add(M3gVertexArray{
            .componentSize = 1, .componentCount = 4, .values = {1, 2, 3, 4, 5, 6, 7, 8, 250, 251, 252, 253}});
        texCoords = scene.add(M3gVertexArray{.componentCount = 2, .values = {0, 1, 2, 3, 4, 5}});
        vertices = scene.add(M3gVertexBuffer{.defaultColor = 0x11223344,
                                             .positions = {positions, 0.5f, {1, 2, 3}},
                                             .normals = normals,
                                             .colors = colors,
                                             .texCoords = {{texCoords, 2, {4, 5, 0}}, {texCoords, 3, {6, 7, 0}}}});
        strips = scene.add(M3gTriangleStripArray{.indices = {0, 1, 2}, .strips = {3}});
        mesh = scene.add(M3gMesh{.vertices = vertices, .submeshes = {{strips, appearance}, {strips, {}}}});
        morphingMesh = scene.add(M3gMorphingMesh{
            .vertices = vertices, .submeshes = {{strips, {}}}, .targets = {{vertices, 0.25f}, {vertices, -2}}});
        bone = scene.add(M3gGroup{.node = {.transform = moved}});
        skeleton = scene.add(M3gGroup{.children = {bone}});
        skinnedMesh = scene.add(M3gSkinnedMesh{.vertices = vertices,
                                               .submeshes = {{strips, appearance}},
                                               .skeleton = skeleton,
                                               .bindings = {{bone, 1, 2, 5}, {skeleton, 0, 1, 6}}});
        sprite = scene.add(M3gSprite3D{.image = image,
                                       .appearance = appearance,
                                       .scaled = true,
                                       .cropX = -1,
                                       .cropY = 2,
                                       .cropWidth = -3,
                                       .cropHeight = 4});
        group = scene.add(M3gGroup{.children = {light, mesh}});
        addForms();
        world = scene.add(M3gWorld{.children = {camera, morphingMesh, skinnedMesh, sprite, group, formGroup_},
                                   .activeCamera = camera,
                                   .background = background});
        scene.add(M3gHeader{.author = "a"});
        scene.add(M3gExternalReference{.name = "b"});
    }

private:
    encode::M3gRef formGroup_;

    encode::M3gRef addTrack(encode::M3gRef of, encode::M3gProperty property) {
        return scene.add(encode::M3gAnimationTrack{.sequence = of, .controller = controller, .property = property});
    }
    encode::M3gRef addSprite(encode::M3gRef of) { return scene.add(encode::M3gSprite3D{.image = of}); }
    encode::M3gRef addTexture(encode::M3gRef of) { return scene.add(encode::M3gTexture2D{.image = of}); }

    void addForms() {
        using namespace encode;
        growing = scene.add(M3gKeyframeSequence{.encoding = M3gKeyframeEncoding::Quantised8,
                                                .keyframes = {{0, {10, 1, 5}}, {4, {61, -1, 5}}}});
        fading = scene.add(M3gKeyframeSequence{.encoding = M3gKeyframeEncoding::Quantised16,
                                               .keyframes = {{0, {10}}, {4, {61}}},
                                               .bias = {10},
                                               .scale = {255}});
        turning =
            scene.add(M3gKeyframeSequence{.interpolation = M3gInterpolation::Slerp, .keyframes = {{0, {0, 0, 3, 4}}}});
        const M3gRef grows = addTrack(growing, M3gProperty::Scale), fades = addTrack(fading, M3gProperty::Alpha),
                     turns = addTrack(turning, M3gProperty::Orientation);
        genericCamera = scene.add(M3gCamera{.projection = M3gProjection::Generic,
                                            .matrix = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}});
        perspectiveCamera = scene.add(M3gCamera{.fieldOfView = 50, .aspectRatio = 2, .near = 3, .far = 4});
        linearFog = scene.add(M3gFog{.near = 5, .far = 6});
        blankImage = scene.add(M3gImage2D{.format = M3gImageFormat::Rgba, .isMutable = true, .width = 4, .height = 8});
        indexedImage = scene.add(
            M3gImage2D{.width = 4, .height = 1, .palette = {0xFF, 0x88, 0x88, 1, 2, 3}, .pixels = {0, 1, 1, 0}});
        greyImage = scene.add(
            M3gImage2D{.format = M3gImageFormat::LuminanceAlpha, .width = 1, .height = 2, .pixels = {1, 2, 3, 4}});
        rgbaImage = scene.add(
            M3gImage2D{.format = M3gImageFormat::Rgba, .width = 1, .height = 1, .pixels = {0x12, 0x34, 0x56, 0x78}});
        const M3gRef blank = addTexture(blankImage), indexed = addTexture(indexedImage);
        twoTextures = scene.add(M3gAppearance{.fog = linearFog, .textures = {blank, indexed}});
        const M3gRef grey = addSprite(greyImage), rgba = addSprite(rgbaImage);

        start32 = scene.add(M3gTriangleStripArray{.encoding = M3gStripEncoding::Start32, .start = 300, .strips = {4}});
        start8 = scene.add(M3gTriangleStripArray{.start = 255, .strips = {4, 3}});
        start16 = scene.add(M3gTriangleStripArray{.start = 300, .strips = {3}});
        const std::vector<uint32_t> narrow = {9, 8, 7, 255}, wide = {9, 8, 7, 300};
        indices32 =
            scene.add(M3gTriangleStripArray{.encoding = M3gStripEncoding::Indices32, .indices = wide, .strips = {4}});
        indices8 = scene.add(M3gTriangleStripArray{.indices = narrow, .strips = {4}});
        indices16 = scene.add(M3gTriangleStripArray{.indices = wide, .strips = {4}});
        wideDeltas =
            scene.add(M3gVertexArray{.asDeltas = true, .values = {30000, 1, 0, -5536, -2, 0, 24464, -2, 32767}});
        narrowDeltas =
            scene.add(M3gVertexArray{.componentSize = 1, .asDeltas = true, .values = {200, 1, 0, 44, 3, 0, 250, 6, 9}});
        const M3gRef deltas = scene.add(M3gVertexBuffer{.positions = {wideDeltas}, .colors = narrowDeltas});
        formMesh = scene.add(
            M3gMesh{.object = {.tracks = {grows, fades, turns}},
                    .vertices = deltas,
                    .submeshes = {{start32, twoTextures}, {start8}, {start16}, {indices32}, {indices8}, {indices16}}});
        formGroup_ = scene.add(M3gGroup{.node = {.transform = {M3gComponents{{0, 0, 5}, {2, 2, 2}}}},
                                        .children = {genericCamera, perspectiveCamera, grey, rgba, formMesh}});
    }
};
