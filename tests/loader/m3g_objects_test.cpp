// Sequences of objects: numbers, roots, lengths, and what the readers refuse.
#include "loader/m3g_objects.h"

#include <limits>

#include "scene/appearance.h"
#include "scene/fog.h"
#include "scene/group.h"
#include "tests/loader/m3g_scenes.h"
#include "tests/support/counting_heap.h"

using namespace encode;

namespace {

constexpr auto kNone = uint8_t(LoadReason::None), kFailed = uint8_t(LoadReason::ObjectFailed),
               kLength = uint8_t(LoadReason::ObjectLength), kInvalid = uint8_t(LoadReason::InvalidValue);

std::vector<uint32_t> rootsOf(const ParsedObjects& parsed) {
    std::vector<uint32_t> roots;
    for (uint32_t i = 0; i < parsed.context().objectCount; ++i)
        if (parsed.context().rootFlags[i]) roots.push_back(i);
    return roots;
}

// Checks of a file: that it parses (kNone), or why it does not.
auto expectReason(uint8_t reason) {
    return [reason](const EncodedFile& file) {
        const ParsedObjects parsed(file);
        EXPECT_EQ(parsed.ok(), reason == kNone);
        EXPECT_EQ(parsed.context().status, reason == kNone ? QEL_STATUS_OK : kStatusCorruptData);
        EXPECT_EQ(parsed.context().reason, reason);
    };
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
    const ParsedObjects parsed(encodeM3gObjects(scene));
    ASSERT_TRUE(parsed.ok());
    const LoaderContext& context = parsed.context();
    EXPECT_EQ(context.versionMajor, 1);
    EXPECT_EQ(context.versionMinor, 2);
    EXPECT_EQ(context.totalFileSize, 345u);
    ASSERT_EQ(context.externalNameCount, 1u);
    EXPECT_STREQ(context.externalNames[0], "over/there.m3g");
    ASSERT_EQ(context.objectCount, 2u);
    EXPECT_EQ(static_cast<Appearance*>(context.objects[1])->fog, static_cast<Fog*>(context.objects[0]));
}

TEST(M3gObjects, ANumberIsThatOfAnEarlierObject) {
    const CountingHeap heap;
    M3gScene scene;
    scene.add(M3gMaterial{});
    scene.add(M3gFog{});
    const M3gRef appearance = scene.add(M3gAppearance{});
    const EncodedFile file = encodeM3gObjects(scene);
    const std::string prefix = fieldOf(appearance, "");
    forEachChange(file, "fog=1 fog=2 fog=4 fog=-1", expectReason(kInvalid), prefix);
    using Roots = std::vector<uint32_t>;
    const auto expectRoots = [](const Roots& roots) {
        return [roots](const EncodedFile& changed) { EXPECT_EQ(rootsOf(ParsedObjects(changed)), roots); };
    };
    forEachChange(file, "fog=0", expectRoots({0, 1, 2}), prefix);
    forEachChange(file, "fog=3", expectRoots({0, 2}), prefix);
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
    EXPECT_EQ(rootsOf(parsed), (std::vector<uint32_t>{0, 1, 3}));
}

TEST(M3gObjects, LengthsHaveToAddUp) {
    const CountingHeap heap;
    const EncodedFile file = encodeM3gObjects({.objects = {M3gFog{}, M3gCamera{}, M3gGroup{}, M3gBackground{}}});
    forEachChange(file, "object[0].length+=1&object[1].length+=-1", expectReason(kNone));
    forEachChange(file,
                  "object[0].length+=1 object[0].length+=-1 object[2].length+=1&object[1].length+=-1 "
                  "object[3].length+=-1&object[1].length+=1",
                  expectReason(kLength));
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

TEST(M3gObjects, FloatsAreZeroOrNormalised) {
    const CountingHeap heap;
    const EncodedFile good = encodeM3gObjects({.objects = {M3gMaterial{}}});
    forEachChange(good, "shininess=0 shininess=0x00800000", expectReason(kNone), "object[0].");
    forEachChange(good,
                  "shininess=0x80000000 shininess=0x007FFFFF shininess=0x80000001 shininess=0x7F800000 "
                  "shininess=0xFF800000 shininess=0x7FC00000",
                  expectReason(kFailed), "object[0].");
}

// --- Refusals ---

struct Refusals {
    M3gRef object;
    uint8_t reason;
    const char* changes;
};

TEST(M3gObjects, RefusesFieldByField) {
    const CountingHeap heap;
    const FullScene s;
    const EncodedFile good = encodeM3gObjects(s.scene);
    const std::vector<Refusals> refusals = {
        {s.light, kLength, "trackCount=-1 parameterCount=-1 parameter[0].length=-1"},
        {s.light, kInvalid,
         "track[0]=0 track[0]=1 hasComponents=2 hasMatrix=2 rendering=2 picking=2 hasAlignment=2 zTarget=143 "
         "yTarget=149 zReference=1"},
        {s.light, kFailed,
         "translation[2]=-0.0 scale[0]=-0.0 angle=-0.0 axis[2]=0 matrix[3]=-0.0 matrix[15]=2.0 attenuation[0]=-1.0 "
         "mode=132 "
         "intensity=-0.0 spotAngle=91.0 spotExponent=129.0"},
        {s.controller, kFailed, "speed=-0.0 weight=-1.0 activeStart=91 referenceSequenceTime=-0.0"},
        {s.track, kInvalid, "sequence=0 property=255 property=277"},
        {s.track, kFailed, "property=256"},
        {s.appearance, kFailed, "layer=64 layer=128"},
        {s.appearance, kLength, "textureCount=-1"},
        {s.background, kFailed, "modeX=34 cropHeight=0x80000000"},
        {s.background, kInvalid, "depthClear=2 colorClear=2"},
        {s.camera, kInvalid, "projection=47 projection=51"},
        {s.camera, kFailed, "aspectRatio=0 near=-0.0"},
        {s.compositingMode, kInvalid, "depthTest=2 alphaWrite=2"},
        {s.compositingMode, kFailed, "blending=69 depthOffsetUnits=-0.0"},
        {s.fog, kFailed, "mode=82 density=-1.0"},
        {s.polygonMode, kFailed, "culling=163 shading=163 winding=167"},
        {s.polygonMode, kInvalid, "perspectiveCorrection=2"},
        {s.skeleton, kLength, "childCount=-1"},
        {s.group, kInvalid, "child[0]=0"},
        {s.image, kInvalid, "format=95 isMutable=2"},
        {s.image, 5, "width=3 width=-1 pixelLength=5"},
        {s.image, kLength, "pixelLength=-1 paletteLength=-1"},
        {s.strips, kInvalid, "encoding=3 encoding=131 strip[0]=4"},
        {s.strips, kLength, "indexCount=-1"},
        {s.strips, kFailed, "strip[0]=2"},
        {s.material, kFailed, "shininess=129.0"},
        {s.material, kInvalid, "vertexColorTracking=2"},
        {s.mesh, kInvalid, "vertices=0 submesh[1].strips=0"},
        {s.mesh, kLength, "submeshCount=-1"},
        {s.morphingMesh, kLength, "targetCount=-1"},
        {s.morphingMesh, kInvalid, "target[1].vertices=0"},
        {s.morphingMesh, kFailed, "target[1].weight=-0.0"},
        {s.skinnedMesh, kInvalid, "skeleton=0 binding[0].bone=0"},
        {s.skinnedMesh, kLength, "bindingCount=-1"},
        {s.skinnedMesh, kFailed, "binding[0].vertexCount=0 binding[0].firstVertex=-1 binding[0].weight=0"},
        {s.texture, kInvalid, "image=0"},
        {s.texture, kFailed, "blending=229 wrapT=239 levelFilter=211 imageFilter=208"},
        {s.sprite, kInvalid, "image=0 scaled=2"},
        {s.sprite, kFailed, "cropWidth=2049"},
        {s.sequence, kFailed,
         "interpolation=175 interpolation=177 repeatMode=194 duration=0 validLast=3 keyframe[0].time=0x80000000 "
         "keyframe[2].value[2]=-0.0"},
        {s.sequence, kInvalid, "encoding=3 componentCount=0 keyframeCount=0"},
        {s.sequence, kLength, "componentCount=-1 keyframeCount=-1"},
        {s.positions, kFailed, "componentSize=3 vertexCount=0"},
        {s.positions, kLength, "componentSize=255 vertexCount=65535"},
        {s.positions, kInvalid, "encoding=2"},
        {s.vertices, kFailed, "positionScale=-0.0 texCoord[1].bias[0]=-0.0"},
        {s.vertices, kLength, "texCoordCount=-1"},
    };
    struct Wrong {
        M3gRef object;
        std::string field;
        M3gRef named;
        uint8_t reason;
    };
    const std::vector<Wrong> wrongs = {
        {s.light, "track[0]=", s.light, kInvalid},
        {s.light, "yReference=", s.light, kInvalid},
        {s.track, "sequence=", s.controller, kInvalid},
        {s.track, "controller=", s.sequence, kInvalid},
        {s.appearance, "compositingMode=", s.fog, kInvalid},
        {s.appearance, "material=", s.fog, kInvalid},
        {s.appearance, "texture[0]=", s.image, kInvalid},
        {s.background, "image=", s.fog, kInvalid},
        {s.group, "child[0]=", s.fog, kInvalid},
        {s.group, "child[0]=", s.bone, QEL_STATUS_ILLEGAL_ARGUMENT},  // has a parent
        {s.group, "child[0]=", s.mesh, QEL_STATUS_ILLEGAL_ARGUMENT},  // twice the same
        {s.mesh, "submesh[1].appearance=", s.fog, kInvalid},
        {s.skinnedMesh, "skeleton=", s.bone, kFailed},           // has a parent
        {s.skinnedMesh, "binding[0].bone=", s.camera, kFailed},  // outside the skeleton
        {s.vertices, "positions=", s.texCoords, kFailed},        // two components
        {s.vertices, "positions=", s.fog, kInvalid},
        {s.vertices, "normals=", s.colors, kFailed},
        {s.vertices, "colors=", s.positions, kFailed},
        {s.world, "child[0]=", s.group, QEL_STATUS_ILLEGAL_ARGUMENT},  // twice the same
        {s.world, "activeCamera=", s.light, kInvalid},
        {s.world, "background=", s.camera, kInvalid},
    };
    for (const Refusals& refusal : refusals)
        forEachChange(good, refusal.changes, expectReason(refusal.reason), fieldOf(refusal.object, ""));
    for (const Wrong& wrong : wrongs)
        forEachChange(good, wrong.field + std::to_string(wrong.named.position + 2), expectReason(wrong.reason),
                      fieldOf(wrong.object, ""));
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

}  // namespace
