#pragma once

#include "tools/encode/m3g_encoder.h"

// One object of every class, hung together, with values that no class has by itself.
struct FullScene {
    encode::M3gScene scene;
    encode::M3gRef sequence, controller, track, compositingMode, fog, polygonMode, material, image, texture, appearance,
        background, camera, light, positions, normals, colors, texCoords, vertices, strips, mesh, morphingMesh, bone,
        skeleton, skinnedMesh, sprite, group, world;

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
        world = scene.add(M3gWorld{.children = {camera, morphingMesh, skinnedMesh, sprite, group},
                                   .activeCamera = camera,
                                   .background = background});
    }
};
