// Sequences of objects: numbers, roots, lengths, and what the readers refuse.
#include "loader/m3g_objects.h"

#include <gmock/gmock.h>

#include <limits>

#include "scene/appearance.h"
#include "scene/fog.h"
#include "scene/group.h"
#include "tests/loader/m3g_scenes.h"
#include "tests/support/counting_heap.h"

using namespace encode;
using testing::ElementsAre;

namespace {

constexpr auto kNone = uint8_t(LoadReason::None), kFailed = uint8_t(LoadReason::ObjectFailed),
               kLength = uint8_t(LoadReason::ObjectLength), kInvalid = uint8_t(LoadReason::InvalidValue);

std::vector<uint32_t> rootsOf(const ParsedObjects& parsed) {
    std::vector<uint32_t> roots;
    for (uint32_t i = 0; i < parsed.context().objectCount; ++i)
        if (parsed.context().rootFlags[i]) roots.push_back(i);
    return roots;
}

TEST(M3gObjects, EverythingThatIsReferredToIsNoRoot) {
    const CountingHeap heap;
    const FullScene full;
    const ParsedObjects parsed(encodeM3gObjects(full.scene));
    ASSERT_TRUE(parsed.ok());
    EXPECT_THAT(rootsOf(parsed), ElementsAre(full.world.position));
}

TEST(M3gObjects, TheHeaderTakesANumberAndExternalNamesTakeNone) {
    const CountingHeap heap;
    M3gScene scene;
    scene.add(M3gHeader{.versionMajor = 1,
                        .versionMinor = 2,
                        .totalFileSize = 345,
                        .approximateContentSize = 678,
                        .author = "someone"});
    const M3gRef fog = scene.add(M3gFog{});
    scene.add(M3gExternalReference{"over/there.m3g"});
    scene.add(M3gAppearance{.fog = fog});
    EncodedFile file = encodeM3gObjects(scene);
    file.set("object[0].hasExternalReferences", 1);
    const ParsedObjects parsed(file);
    ASSERT_TRUE(parsed.ok());
    const LoaderContext& context = parsed.context();
    EXPECT_EQ(context.versionMajor, 1);
    EXPECT_EQ(context.versionMinor, 2);
    EXPECT_EQ(context.hasExternalReferences, 1);
    EXPECT_EQ(context.totalFileSize, 345u);
    EXPECT_EQ(context.approximateContentSize, 678u);
    ASSERT_EQ(context.externalNameCount, 1u);
    EXPECT_STREQ(context.externalNames[0], "over/there.m3g");
    ASSERT_EQ(context.objectCount, 2u);
    EXPECT_EQ(static_cast<Appearance*>(context.objects[1])->fog, static_cast<Fog*>(context.objects[0]));
}

TEST(M3gObjects, ANumberIsThatOfAnEarlierObject) {
    const CountingHeap heap;
    M3gScene scene;
    scene.add(M3gMaterial{});
    const M3gRef fog = scene.add(M3gFog{});
    const M3gRef appearance = scene.add(M3gAppearance{.fog = fog});
    EncodedFile file = encodeM3gObjects(scene);
    struct Case {
        const char* what;
        uint32_t number;
        bool reads;
        std::vector<uint32_t> roots;
    };
    for (const Case& c : {Case{"none", 0, true, {0, 1, 2}}, Case{"the header", 1, false, {}},
                          Case{"another class", 2, false, {}}, Case{"the fog", 3, true, {0, 2}},
                          Case{"itself", 4, false, {}}, Case{"a negative one", UINT32_MAX, false, {}}}) {
        file.set(fieldOf(appearance, "fog"), c.number);
        const ParsedObjects parsed(file);
        EXPECT_EQ(parsed.ok(), c.reads) << c.what;
        EXPECT_EQ(parsed.context().status, c.reads ? QEL_STATUS_OK : kStatusCorruptData) << c.what;
        EXPECT_EQ(parsed.context().reason, c.reads ? kNone : kInvalid) << c.what;
        EXPECT_TRUE(!c.reads || rootsOf(parsed) == c.roots) << c.what;
    }
}

TEST(M3gObjects, WhatIsNoTrackAndWhatCannotBeAlignedToStaysARoot) {
    const CountingHeap heap;
    M3gScene scene{.allowInvalid = true};
    const M3gRef fog = scene.add(M3gFog{});
    const M3gRef aligned = scene.add(
        M3gGroup{.object = {.tracks = {fog}},
                 .node = {.alignment = M3gAlignment{.zTarget = M3gAlignmentTarget::ZAxis, .zReference = fog}}});
    const M3gRef camera = scene.add(M3gCamera{});
    scene.add(
        M3gGroup{.node = {.alignment = M3gAlignment{.yTarget = M3gAlignmentTarget::ZAxis, .yReference = camera}}});
    const ParsedObjects parsed(encodeM3gObjects(scene));
    ASSERT_TRUE(parsed.ok());
    EXPECT_EQ(parsed.at<Group>(aligned)->animationTrackCount, 0);
    EXPECT_EQ(parsed.at<Group>(aligned)->zTarget, AlignmentTarget::None);
    EXPECT_THAT(rootsOf(parsed), ElementsAre(0, 1, 3));
}

TEST(M3gObjects, LengthsHaveToAddUp) {
    const CountingHeap heap;
    M3gScene scene;
    const M3gRef fog = scene.add(M3gFog{}), camera = scene.add(M3gCamera{}), group = scene.add(M3gGroup{});
    const M3gRef background = scene.add(M3gBackground{});
    const EncodedFile file = encodeM3gObjects(scene);
    struct Case {
        const char* what;
        M3gRef object;
        int32_t more, moreOfOther;
        uint8_t reason;
    };
    for (const Case& c :
         {Case{"as they are", fog, 0, 0, kNone}, Case{"one takes what another gives", fog, 1, -1, kNone},
          Case{"longer than the rest", fog, 1, 0, kLength},
          Case{"shorter, with a byte of nothing behind", fog, -1, 0, kLength},
          Case{"a group of another length", group, 1, -1, kLength},
          Case{"a background of another length", background, -1, 1, kLength}}) {
        EncodedFile changed = file;
        const auto lengthen = [&](M3gRef ref, int32_t by) {
            changed.set(fieldOf(ref, "length"), uint64_t(int64_t(file.get(fieldOf(ref, "length"))) + by));
        };
        lengthen(c.object, c.more);
        lengthen(camera, c.moreOfOther);
        const ParsedObjects parsed(changed);
        EXPECT_EQ(parsed.ok(), c.reason == kNone) << c.what;
        EXPECT_EQ(parsed.context().reason, c.reason) << c.what;
    }
}

TEST(M3gObjects, OfEveryLengthButTheWholeNothingIsLeft) {
    const CountingHeap heap;
    const ByteList file = encodeM3gObjects(FullScene().scene).bytes;
    for (size_t length = 1; length < file.size(); ++length) {
        const ParsedObjects promised(ByteList(file.begin(), file.begin() + int64_t(length)), uint32_t(file.size()));
        EXPECT_FALSE(promised.ok()) << length;
        EXPECT_EQ(promised.context().status, kStatusCorruptData) << length;
        EXPECT_NE(promised.context().reason, kNone) << length;
    }
}

TEST(M3gObjects, RefusesUnknownTypesAndTooManyObjects) {
    const CountingHeap heap;
    const auto parse = [](uint8_t type, uint32_t limit) {
        EncodedFile file = encodeM3gSections({.objects = {M3gFog{}, M3gFog{}, M3gExternalReference{"name"}}});
        file.set("object[1].type", type);
        const ByteList segment(file.bytes.begin() + 9, file.bytes.end());
        LoaderContext* context = LoaderContext_create();
        context->objectLimit = limit;
        const bool ok = M3gObjects_parseSegment(context, segment.data(), uint32_t(segment.size()));
        EXPECT_EQ(context->status, ok ? QEL_STATUS_OK : kStatusCorruptData);
        EXPECT_EQ(context->reason, kNone);
        EXPECT_EQ(context->segmentBytes, segment.size() - 4);
        for (uint32_t i = 0; i < context->objectCount; ++i) qelObject3D_unref(context->objects[i]);
        LoaderContext_destroy(context);
        return ok;
    };
    EXPECT_TRUE(parse(7, 0));
    EXPECT_TRUE(parse(7, 2)) << "names do not count";
    EXPECT_FALSE(parse(7, 1));
    EXPECT_FALSE(parse(23, 0));
    EXPECT_FALSE(parse(254, 0));
}

TEST(M3gObjects, Takes255ExternalNames) {
    const CountingHeap heap;
    M3gScene scene;
    while (scene.objects.size() < 255) scene.add(M3gExternalReference{"name"});
    EXPECT_TRUE(ParsedObjects(encodeM3gObjects(scene)).ok());
    scene.add(M3gExternalReference{"name"});
    const ParsedObjects parsed(encodeM3gObjects(scene));
    EXPECT_FALSE(parsed.ok());
    EXPECT_EQ(parsed.context().status, kStatusCorruptData);
}

TEST(M3gObjects, FloatsAreZeroOrNormalised) {
    const CountingHeap heap;
    const EncodedFile good = encodeM3gObjects({.objects = {M3gMaterial{}}});
    struct Case {
        const char* what;
        uint32_t bits;
        bool reads;
    };
    for (const Case& c :
         {Case{"zero", 0, true}, Case{"negative zero", 0x80000000, false},
          Case{"the least normalised", 0x00800000, true}, Case{"the largest that is not", 0x007FFFFF, false},
          Case{"a denormal below zero", 0x80000001, false}, Case{"infinity", 0x7F800000, false},
          Case{"negative infinity", 0xFF800000, false}, Case{"not a number", 0x7FC00000, false}}) {
        EncodedFile file = good;
        file.set("object[0].shininess", c.bits);
        const ParsedObjects parsed(file);
        EXPECT_EQ(parsed.ok(), c.reads) << c.what;
        EXPECT_EQ(parsed.context().reason, c.reads ? kNone : kFailed) << c.what;
    }
}

// --- Refusals ---

constexpr uint32_t kNegativeZero = 0x80000000, kHuge = 0xFFFFFFFF;
const uint32_t kMinusOne = 0xBF800000, kTwo = 0x40000000;

struct Refusal {
    M3gRef object;
    const char* field;
    uint64_t value;
    uint8_t reason;
};

TEST(M3gObjects, RefusesFieldByField) {
    const CountingHeap heap;
    const FullScene s;
    const EncodedFile good = encodeM3gObjects(s.scene);
    const auto number = [](M3gRef ref) { return ref.position + 2; };
    const std::vector<Refusal> refusals = {
        // What objects, transformables and nodes share.
        {s.light, "trackCount", kHuge, kLength},
        {s.light, "track[0]", 0, kInvalid},
        {s.light, "track[0]", 1, kInvalid},
        {s.light, "track[0]", number(s.light), kInvalid},
        {s.light, "parameterCount", kHuge, kLength},
        {s.light, "parameter[0].length", kHuge, kLength},
        {s.light, "hasComponents", 2, kInvalid},
        {s.light, "translation[2]", kNegativeZero, kFailed},
        {s.light, "scale[0]", kNegativeZero, kFailed},
        {s.light, "angle", kNegativeZero, kFailed},
        {s.light, "axis[2]", 0, kFailed},
        {s.light, "hasMatrix", 2, kInvalid},
        {s.light, "matrix[3]", kNegativeZero, kFailed},
        {s.light, "matrix[15]", kTwo, kFailed},
        {s.light, "rendering", 2, kInvalid},
        {s.light, "picking", 2, kInvalid},
        {s.light, "hasAlignment", 2, kInvalid},
        {s.light, "zTarget", 143, kInvalid},
        {s.light, "yTarget", 149, kInvalid},
        {s.light, "zReference", 1, kInvalid},
        {s.light, "yReference", number(s.light), kInvalid},
        // By class, in the order of the types.
        {s.controller, "speed", kNegativeZero, kFailed},
        {s.controller, "weight", kMinusOne, kFailed},
        {s.controller, "activeStart", 91, kFailed},
        {s.controller, "referenceSequenceTime", kNegativeZero, kFailed},
        {s.track, "sequence", 0, kInvalid},
        {s.track, "sequence", number(s.controller), kInvalid},
        {s.track, "controller", number(s.sequence), kInvalid},
        {s.track, "property", 255, kInvalid},
        {s.track, "property", 277, kInvalid},
        {s.track, "property", 256, kFailed},  // one component
        {s.appearance, "layer", 64, kFailed},
        {s.appearance, "layer", 0x80, kFailed},
        {s.appearance, "compositingMode", number(s.fog), kInvalid},
        {s.appearance, "material", number(s.fog), kInvalid},
        {s.appearance, "textureCount", kHuge, kLength},
        {s.appearance, "texture[0]", number(s.image), kInvalid},
        {s.background, "image", number(s.fog), kInvalid},
        {s.background, "modeX", 34, kFailed},
        {s.background, "cropHeight", 0x80000000, kFailed},
        {s.background, "depthClear", 2, kInvalid},
        {s.background, "colorClear", 2, kInvalid},
        {s.camera, "projection", 47, kInvalid},
        {s.camera, "projection", 51, kInvalid},
        {s.camera, "aspectRatio", 0, kFailed},
        {s.camera, "near", kNegativeZero, kFailed},
        {s.compositingMode, "depthTest", 2, kInvalid},
        {s.compositingMode, "alphaWrite", 2, kInvalid},
        {s.compositingMode, "blending", 69, kFailed},
        {s.compositingMode, "depthOffsetUnits", kNegativeZero, kFailed},
        {s.fog, "mode", 82, kFailed},
        {s.fog, "density", kMinusOne, kFailed},
        {s.polygonMode, "culling", 163, kFailed},
        {s.polygonMode, "shading", 163, kFailed},
        {s.polygonMode, "winding", 167, kFailed},
        {s.polygonMode, "perspectiveCorrection", 2, kInvalid},
        {s.skeleton, "childCount", kHuge, kLength},
        {s.group, "child[0]", 0, kInvalid},
        {s.group, "child[0]", number(s.fog), kInvalid},
        {s.group, "child[0]", number(s.bone), QEL_STATUS_ILLEGAL_ARGUMENT},  // has a parent
        {s.group, "child[0]", number(s.mesh), QEL_STATUS_ILLEGAL_ARGUMENT},  // twice the same
        {s.image, "format", 95, kInvalid},
        {s.image, "isMutable", 2, kInvalid},
        {s.image, "width", 3, 5},
        {s.image, "width", kHuge, 5},
        {s.image, "pixelLength", 5, 5},
        {s.image, "pixelLength", kHuge, kLength},
        {s.image, "paletteLength", kHuge, kLength},
        {s.strips, "encoding", 3, kInvalid},
        {s.strips, "encoding", 131, kInvalid},
        {s.strips, "indexCount", kHuge, kLength},
        {s.strips, "strip[0]", 4, kInvalid},
        {s.strips, "strip[0]", 2, kFailed},
        {s.light, "attenuation[0]", kMinusOne, kFailed},
        {s.light, "mode", 132, kFailed},
        {s.light, "intensity", kNegativeZero, kFailed},
        {s.light, "spotAngle", 0x42B60000, kFailed},     // 91
        {s.light, "spotExponent", 0x43010000, kFailed},  // 129
        {s.material, "shininess", 0x43010000, kFailed},
        {s.material, "vertexColorTracking", 2, kInvalid},
        {s.mesh, "vertices", 0, kInvalid},
        {s.mesh, "submeshCount", kHuge, kLength},
        {s.mesh, "submesh[1].strips", 0, kInvalid},
        {s.mesh, "submesh[1].appearance", number(s.fog), kInvalid},
        {s.morphingMesh, "targetCount", kHuge, kLength},
        {s.morphingMesh, "target[1].vertices", 0, kInvalid},
        {s.morphingMesh, "target[1].weight", kNegativeZero, kFailed},
        {s.skinnedMesh, "skeleton", 0, kInvalid},
        {s.skinnedMesh, "skeleton", number(s.bone), kFailed},  // has a parent
        {s.skinnedMesh, "bindingCount", kHuge, kLength},
        {s.skinnedMesh, "binding[0].bone", 0, kInvalid},
        {s.skinnedMesh, "binding[0].bone", number(s.camera), kFailed},  // outside the skeleton
        {s.skinnedMesh, "binding[0].vertexCount", 0, kFailed},
        {s.skinnedMesh, "binding[0].firstVertex", kHuge, kFailed},
        {s.skinnedMesh, "binding[0].weight", 0, kFailed},
        {s.texture, "image", 0, kInvalid},
        {s.texture, "blending", 229, kFailed},
        {s.texture, "wrapT", 239, kFailed},
        {s.texture, "levelFilter", 211, kFailed},
        {s.texture, "imageFilter", 208, kFailed},
        {s.sprite, "image", 0, kInvalid},
        {s.sprite, "scaled", 2, kInvalid},
        {s.sprite, "cropWidth", 2049, kFailed},
        {s.sequence, "interpolation", 175, kFailed},
        {s.sequence, "interpolation", 177, kFailed},  // no quaternions
        {s.sequence, "repeatMode", 194, kFailed},
        {s.sequence, "encoding", 3, kInvalid},
        {s.sequence, "duration", 0, kFailed},
        {s.sequence, "validLast", 3, kFailed},
        {s.sequence, "componentCount", 0, kInvalid},
        {s.sequence, "componentCount", kHuge, kLength},
        {s.sequence, "keyframeCount", 0, kInvalid},
        {s.sequence, "keyframeCount", kHuge, kLength},
        {s.sequence, "keyframe[0].time", 0x80000000, kFailed},
        {s.sequence, "keyframe[2].value[2]", kNegativeZero, kFailed},
        {s.positions, "componentSize", 3, kFailed},
        {s.positions, "componentSize", 255, kLength},
        {s.positions, "encoding", 2, kInvalid},
        {s.positions, "vertexCount", 0, kFailed},
        {s.positions, "vertexCount", 0xFFFF, kLength},
        {s.vertices, "positions", number(s.texCoords), kFailed},  // two components
        {s.vertices, "positions", number(s.fog), kInvalid},
        {s.vertices, "positionScale", kNegativeZero, kFailed},
        {s.vertices, "normals", number(s.colors), kFailed},
        {s.vertices, "colors", number(s.positions), kFailed},
        {s.vertices, "texCoordCount", kHuge, kLength},
        {s.vertices, "texCoord[1].bias[0]", kNegativeZero, kFailed},
        {s.world, "child[0]", number(s.group), QEL_STATUS_ILLEGAL_ARGUMENT},  // twice the same
        {s.world, "activeCamera", number(s.light), kInvalid},
        {s.world, "background", number(s.camera), kInvalid},
    };
    for (const Refusal& refusal : refusals) {
        EncodedFile file = good;
        const std::string field = fieldOf(refusal.object, refusal.field);
        file.set(field, refusal.value);
        const ParsedObjects parsed(file);
        EXPECT_FALSE(parsed.ok()) << field << " " << refusal.value;
        EXPECT_EQ(parsed.context().status, kStatusCorruptData) << field << " " << refusal.value;
        EXPECT_EQ(parsed.context().reason, refusal.reason) << field << " " << refusal.value;
    }
}

// What takes more than one changed field.
TEST(M3gObjects, RefusesWhole) {
    const CountingHeap heap;
    const auto refusalOf = [](M3gScene scene) {
        scene.allowInvalid = true;
        const ParsedObjects parsed(encodeM3gObjects(scene));
        return parsed.ok() ? kNone : parsed.context().reason;
    };
    using Target = M3gAlignmentTarget;
    EXPECT_EQ(refusalOf({.objects = {M3gGroup{.node = {.alignment = M3gAlignment{Target::ZAxis, Target::ZAxis}}}}}),
              kFailed);
    EXPECT_EQ(refusalOf({.objects = {M3gGroup{.node = {.alignment = M3gAlignment{}}}}}), kNone) << "aligned to nothing";

    const M3gImage2D square = {.width = 1, .height = 1, .palette = std::vector<uint8_t>(257 * 3), .pixels = {0}};
    EXPECT_EQ(refusalOf({.objects = {square}}), 5) << "a palette of 257";
    M3gImage2D oddPalette = square;
    oddPalette.palette.resize(256 * 3 - 1);
    EXPECT_EQ(refusalOf({.objects = {oddPalette}}), QEL_STATUS_ILLEGAL_ARGUMENT);

    M3gScene scene;
    const M3gRef image = scene.add(M3gImage2D{.width = 1, .height = 1, .pixels = {1, 2, 3}});
    const M3gRef texture = scene.add(M3gTexture2D{.image = image});
    M3gScene two = scene, three = scene, empty = scene;
    two.add(M3gAppearance{.textures = {texture, texture}});
    three.add(M3gAppearance{.textures = {texture, texture, texture}});
    empty.add(M3gAppearance{.textures = {texture, {}, {}}});
    EXPECT_EQ(refusalOf(two), kNone);
    EXPECT_EQ(refusalOf(three), kFailed);
    EXPECT_EQ(refusalOf(empty), kNone);

    M3gScene tracks;
    const M3gRef sequence = tracks.add(M3gKeyframeSequence{.keyframes = {{0, {1}}}});
    const M3gRef color = tracks.add(M3gKeyframeSequence{.keyframes = {{0, {1, 2, 3}}}});
    const M3gRef alpha = tracks.add(M3gAnimationTrack{.sequence = sequence, .property = M3gProperty::Alpha});
    const M3gRef once = tracks.add(M3gAnimationTrack{.sequence = sequence, .property = M3gProperty::Scale});
    const M3gRef again = tracks.add(M3gAnimationTrack{.sequence = color, .property = M3gProperty::Scale});
    const auto tracksOf = [&](M3gRecord record) {
        M3gScene with = tracks;
        with.add(std::move(record));
        return refusalOf(with);
    };
    EXPECT_EQ(tracksOf(M3gGroup{.object = {.tracks = {alpha, once}}}), kNone);
    EXPECT_EQ(tracksOf(M3gGroup{.object = {.tracks = {alpha, alpha}}}), kFailed) << "the same twice";
    EXPECT_EQ(tracksOf(M3gGroup{.object = {.tracks = {once, again}}}), kFailed) << "of other component counts";
    EXPECT_EQ(tracksOf(M3gFog{.object = {.tracks = {alpha}}}), kFailed) << "not of this class";

    const float large = std::numeric_limits<float>::max();
    EncodedFile quantised =
        encodeM3gObjects({.objects = {M3gKeyframeSequence{.encoding = M3gKeyframeEncoding::Quantised8,
                                                          .keyframes = {{0, {large}}},
                                                          .bias = {large},
                                                          .scale = {large}}}});
    EXPECT_TRUE(ParsedObjects(quantised).ok());
    quantised.set("object[0].keyframe[0].value[0]", 255);
    EXPECT_FALSE(ParsedObjects(quantised).ok()) << "a sum beyond all floats";
}

TEST(M3gObjects, GivesEverythingBackWhenMemoryRunsOut) {
    FullScene full;
    full.scene.allowInvalid = true;  // a header does not stand at the end
    full.scene.add(M3gExternalReference{"name"});
    full.scene.add(M3gHeader{.author = "someone"});
    const EncodedFile file = encodeM3gObjects(full.scene);
    for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn})
        sweepEngineAllocations(mode, [&](CountingHeap& heap) {
            LoaderContext* context = LoaderContext_create();
            if (!context) return;
            SegmentStream stream;
            SegmentStream_init(&stream, file.bytes.data(), uint32_t(file.bytes.size()));
            const bool ok = M3gObjects_parseSequence(context, &stream, uint32_t(file.bytes.size()));
            EXPECT_EQ(ok, !heap.hasFailed());
            EXPECT_EQ(context->status, ok ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY);
            for (uint32_t i = 0; i < context->objectCount; ++i) qelObject3D_unref(context->objects[i]);
            LoaderContext_destroy(context);
        });
}

}  // namespace
