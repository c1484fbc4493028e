#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <vector>

#include "animation/figure_pose.h"
#include "animation/pose_kernels.h"
#include "bench/plain_figure.h"
#include "frame/atrans3i.h"
#include "frame/fixed_point.h"
#include "tests/support/figure_fixture.h"

namespace {

using namespace encode;

struct Table {
    explicit Table(const MtTable& description) : table(loadTable(description)) { EXPECT_NE(table, nullptr); }
    Table(const Table&) = delete;
    ~Table() { qelObject3D_unref(table); }
    ActTable* table;
};

MtTable tableOf(const MtTrack& track, MtPatternKeys patterns = {}) {
    return {.boneCount = 1, .actions = {{.frameCount = 100, .tracks = {track}, .patterns = patterns}}};
}

Atrans3i transformAt(const ActTable* table, int32_t frame, const Atrans3i& rest) {
    Atrans3i out;
    ActTable__calcTrans(table, 0, 0, frame, &out, &rest);
    return out;
}

constexpr Atrans3i kIdentity = {{4096, 0, 0, 0, 0, 4096, 0, 0, 0, 0, 4096, 0}};
const MtVectorKeys kAlongZ = {{0, 0, 0, 4096}};

// --- Keys ---

TEST(ActionEval, InterpolatesVectors) {
    const MtVectorKeys ramp = {{0, 0, 0, 0}, {10, 100, 0, -100}};
    const MtVectorKeys uneven = {{0, 0, 0, 0},   {1, 1, 0, 0},  {3, 2, 0, 0},
                                 {50, 96, 0, 0}, {51, 0, 0, 0}, {100, 1, 0, 0}};
    struct Case {
        const char* what;
        MtVectorKeys keys;
        int32_t position;
        std::array<int32_t, 3> value;
    };
    for (const Case& c :
         {Case{"between", ramp, 0x58000, {55, 0, -55}},
          Case{"half up: 0.5 to 1, -0.5 to 0", {{0, 0, 0, 0}, {10, 2, 0, -2}}, 0x28000, {1, 0, 0}},
          Case{"before the first key", ramp, -1, {0, 0, 0}}, Case{"long behind it", ramp, INT32_MAX, {100, 0, -100}},
          Case{"at a key between", uneven, 3 << 16, {2, 0, 0}},
          Case{"just before it", uneven, (3 << 16) - 1, {2, 0, 0}},
          Case{"a difference beyond 32767 wraps",
               {{0, -32768, 0, 0}, {4, 32767, 0, 0}},
               3 << 16,
               {-32768 + 49151 - 65536, 0, 0}}}) {
        const Table table(tableOf(MtTranslateDirectionRoll{c.keys, kAlongZ, {{0, 0}}}));
        const Atrans3i out = transformAt(table.table, c.position, kIdentity);
        EXPECT_EQ((std::array{out.m[3], out.m[7], out.m[11]}), c.value) << c.what;
    }
}

// The roll is the last thing in the table: behind its last key there is nothing to compare with the keys that the
// direction was found between.
TEST(ActionEval, LooksNoFurtherThanTheLastKey) {
    MtTable description =
        tableOf(MtDirectionRoll{{{0, 0, 0, 4096}, {5, 0, 0, 4096}, {9, 0, 0, 4096}}, {{0, 0}, {5, 7}}});
    description.version = 3;
    const Table table(description);
    EXPECT_EQ(transformAt(table.table, 7 << 16, kIdentity).m[4], sine12(7));
}

// --- Track kinds ---

TEST(ActionEval, EvaluatesEveryKind) {
    // A quarter turn about x takes z to -y; rolled by a quarter turn before, x goes to y and y to -x.
    const MtVectorKeys alongX = {{0, 2000, 0, 0}};
    const Atrans3i rest = {{4096, 0, 0, 1, 0, 4096, 0, 2, 0, 0, 8192, 3}};
    const std::pair<MtTrack, std::array<int32_t, 12>> kCases[] = {
        {MtConstantMatrix{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}, {1, 2, 3, 5, 5, 6, 7, 10, 18, 20, 22, 27}},
        {MtTranslateScaleDirectionRoll{{{0, 10, 20, 30}}, {{0, 2048, 4096, 8192}}, alongX, {{0, 0}}},
         {0, 0, 8192, 11, 0, 4096, 0, 22, -4096, 0, 0, 63}},
        {MtDirectionRoll{alongX, {{0, -1024}}}, {0, 0, 4096, 1, -4096, 0, 0, 2, 0, -8192, 0, 3}},
        {MtDirection{{{0, 0, 0, 4096}, {1, 0, 0, -4096}}}, {4096, 0, 0, 1, 0, 4096, 0, 2, 0, 0, 8192, 3}},  // none
        {MtTranslateDirectionRoll{{{0, 1, 2, 3}}, alongX, {{0, 2048}}},
         {0, 0, 4096, 2, 0, -4096, 0, 4, 8192, 0, 0, 9}}};
    for (const auto& [track, product] : kCases) {
        const Table table(tableOf(track));
        EXPECT_EQ(std::to_array(transformAt(table.table, 0x8000, rest).m), product) << track.index();
    }
}

TEST(ActionEval, MatchesThePlainLoop) {
    std::mt19937 random(21);
    for (const bool hasSharedFrames : {false, true}) {
        constexpr uint32_t kBoneCount = 40, kActionCount = 3;
        const Table table(randomTable(random, {.boneCount = kBoneCount,
                                               .actionCount = kActionCount,
                                               .frameCount = 70,
                                               .keyCount = 25,
                                               .hasSharedFrames = hasSharedFrames}));
        for (int32_t round = 0; round < 5000; ++round) {
            const int32_t action = round % int32_t(kActionCount), bone = randomBetween(random, 0, kBoneCount - 1);
            const int32_t frame = randomBetween(random, -(1 << 16), 75 << 16) & (round % 2 ? -1 : ~0xFFFF);
            Atrans3i rest, expected, out;
            for (int32_t& element : rest.m) element = int32_t(random()) >> (round % 20);
            plainCalcTrans(table.table, action, bone, frame, &expected, &rest);
            ActTable__calcTrans(table.table, action, bone, frame, &out, &rest);
            ASSERT_EQ(std::to_array(out.m), std::to_array(expected.m)) << "bone " << bone << " at " << frame;
            ASSERT_EQ(ActTable__calcPattern(table.table, action, frame), plainCalcPattern(table.table, action, frame));
        }
    }
}

// --- Patterns and counts ---

TEST(ActionEval, PatternsHoldUntilTheNextKey) {
    const Table table(tableOf(MtUnchanged{}, {{0, 0x1}, {5, 0x3}, {9, 0x80010002}}));
    for (const auto& [position, mask] : {std::pair{-1, 1u}, {0x4FFFF, 1u}, {0x50000, 3u}, {INT32_MAX, 0x80010002u}})
        EXPECT_EQ(ActTable__calcPattern(table.table, 0, position), mask) << position;
    EXPECT_EQ(D_ActTable_getFrameCount(table.table, 0), 100 << 16);
    for (const int32_t outside : {-1, 1}) EXPECT_EQ(D_ActTable_getFrameCount(table.table, outside), 0);
    MtTable old = tableOf(MtUnchanged{});
    old.version = 4;
    EXPECT_EQ(ActTable__calcPattern(Table(old).table, 0, 0), 0u) << "no pattern track";
}

// --- Kernels ---

struct PosedBone {
    TrackValues values;
    Atrans3i rest;
};

// A kernel makes of up to a batch of bones what TrackValues_apply makes of each, and writes nothing beyond them.
void expectBatch(const PoseKernelChoice& kernel, std::span<const PosedBone> bones) {
    PoseBatch batch = {};
    std::array<Atrans3i, kPoseBatchSize> out;
    std::memset(out.data(), 0x5A, sizeof out);
    const Atrans3i untouched = out[0];
    for (const PosedBone& bone : bones) {
        batch.values[batch.count] = bone.values;
        batch.rest[batch.count] = &bone.rest;
        batch.out[batch.count] = &out[batch.count];
        ++batch.count;
    }
    kernel.kernel(batch);
    for (size_t i = 0; i < kPoseBatchSize; ++i) {
        Atrans3i expected = untouched;
        if (i < bones.size()) TrackValues_apply(&bones[i].values, &bones[i].rest, &expected);
        const TrackValues& v = batch.values[i];
        ASSERT_EQ(std::to_array(out[i].m), std::to_array(expected.m))
            << kernel.name << ", lane " << i << " of " << bones.size() << ": direction " << v.direction[0] << " "
            << v.direction[1] << " " << v.direction[2] << ", roll " << v.roll;
    }
}

TEST(PoseKernels, AgreeWithTheFormulaOfOneBone) {
    std::mt19937 random(22);
    std::vector<PosedBone> bones;
    const auto add = [&](int32_t x, int32_t y, int32_t z, int32_t roll) {
        bones.push_back({{{1, 2, 3}, roll, {4096, 4096, 4096}, 0, {x, y, z}, 0}, kIdentity});
    };
    for (int32_t roll = -4097; roll <= 4097; ++roll) add(3000, -1000, 500, roll);
    for (const int32_t roll : {-65536, 65535, 1 << 20}) add(0, 0, 1, roll);
    for (int32_t i = 0; i < 15 * 15 * 15; ++i) add(i % 15 - 7, i / 15 % 15 - 7, i / 225 - 7, 0);
    // Close to the z axis p and q of the rotation are smallest.
    for (int32_t x = -200; x <= 200; ++x)
        for (const int32_t y : {0, 1, 63, 64, 91, 128})
            for (const int32_t z : {-4096, -4095, 4096}) add(x, y, z, 700);
    for (int32_t round = 0; round < 200000; ++round) {
        const int32_t limit = 1 << randomBetween(random, 0, 16);  // a track can say 2^16, no more
        add(0, 0, 0, round % 2 ? 0 : randomBetween(random, -70000, 70000));
        TrackValues& values = bones.back().values;
        for (int i = 0; i < 3; ++i) {
            values.direction[i] = randomBetween(random, -limit, limit);
            values.translation[i] = int32_t(random()) >> 15;
            values.scale[i] = int32_t(random()) >> (15 + round % 8);
        }
        for (int32_t& element : bones.back().rest.m)
            if (round % 2 == 0) element = int32_t(random()) >> (round % 24);
    }
    for (const PoseKernelChoice& kernel : PoseKernels_supported())
        for (size_t first = 0, count; first < bones.size() && !HasFailure(); first += count) {
            count = std::min(bones.size() - first, random() % 2 ? kPoseBatchSize : 1 + random() % kPoseBatchSize);
            expectBatch(kernel, std::span(bones).subspan(first, count));
        }
}

}  // namespace
