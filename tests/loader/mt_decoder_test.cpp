#include "loader/mt_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>

#include "tests/loader/content.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/mt_encoder.h"

namespace {

using namespace encode;
using testing::ElementsAre;

// A table, and the file that it was decoded from.
struct Decoded {
    explicit Decoded(const ByteList& file) {
        const HeapCopy copy(file);
        MemoryStream stream;
        MemoryStream_init(&stream, copy.data(), copy.size());
        table = qelActTable_create();
        succeeded = table && D_ActTable_decode(table, &stream);
        bytesLeft = LoaderStream_bytesLeft(&stream);
    }
    ~Decoded() { qelObject3D_unref(table); }
    template <typename Record>
    const Record& record(uint32_t action, uint32_t bone) const {
        return *trackRecordOf<Record>(table, table->tracks[action][bone]);
    }
    ActTable* table;
    bool succeeded;
    uint32_t bytesLeft;
};

bool decodes(const ByteList& file) { return Decoded(file).succeeded; }

bool decodesFromOpaqueStream(const HeapCopy& file) {
    OpaqueStream stream(file.data(), file.size());
    ActTable* table = qelActTable_create();
    const bool succeeded = D_ActTable_decode(table, &stream);
    qelObject3D_unref(table);
    return succeeded;
}

// One action of 300 frames with a track of every kind, and a pattern track.
MtTable everyKind() {
    const MtAction action = {
        .name = "every kind",
        .frameCount = 300,
        .tracks = {MtConstantMatrix{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, -1}}, MtUnchanged{},
                   MtTranslateScaleDirectionRoll{
                       {{0, 1, 2, 3}}, {{0, 4, 5, 6}}, {{0, 7, 8, 9}, {300, 1, 0, -32768}}, {{0, -5}}},
                   MtDirectionFixedTranslateRoll{{11, 12, -13}, {{0, 14, 15, 16}}, -17},
                   MtDirectionRoll{{{0, 18, 19, 20}}, {{0, 21}, {1, 22}}}, MtDirection{{{0, 23, 24, 25}}},
                   MtTranslateDirectionRoll{{{0, 26, 27, 28}}, {{0, 29, 30, 31}}, {{0, 32}, {2, 33}, {7, 34}}}},
        .patterns = {{0, 0x80000001}, {9, 2}}};
    return {.version = 5, .boneCount = 7, .actions = {action}};
}

MtTable withOneTrack(int32_t version, const MtTrack& track, int32_t frameCount = 10) {
    return {.version = version, .boneCount = 1, .actions = {{.frameCount = frameCount, .tracks = {track}}}};
}

ByteList frames(const std::vector<uint16_t>& list, int32_t frameCount) {
    MtDirection track;
    for (const uint16_t frame : list) track.direction.push_back({frame, 0, 0, 4096});
    MtTable table = withOneTrack(2, track, frameCount);
    table.allowInvalidKeys = true;
    return encodeMt(table).bytes;
}

TEST(MtDecoder, DecodesTheSmallestTable) {
    const Decoded decoded(encodeMt(withOneTrack(2, MtUnchanged{}, 0)).bytes);
    ASSERT_TRUE(decoded.succeeded);
    const ActTable* table = decoded.table;
    EXPECT_EQ(table->actionCount, 1u);
    EXPECT_EQ(table->boneCount, 1u);
    EXPECT_EQ(table->frameCounts[0], 0);
    EXPECT_THAT(std::span(table->tracks[0], 2), ElementsAre(1u << 24, 0u)) << "no pattern track before version 5";
}

TEST(MtDecoder, DecodesEveryKindOfTrack) {
    const Decoded decoded(encodeMt(everyKind()).bytes);
    ASSERT_TRUE(decoded.succeeded);
    EXPECT_EQ(decoded.bytesLeft, 0u);
    const ActTable* table = decoded.table;
    EXPECT_EQ(table->frameCounts[0], 300 << 16);
    for (uint32_t bone = 0; bone < 7; ++bone) EXPECT_EQ(uint32_t(trackKindOf(table->tracks[0][bone])), bone);
    EXPECT_EQ(table->tracks[0][7] >> 24, 0u) << "patterns have no kind";

    EXPECT_THAT(decoded.record<ConstantMatrixTrack>(0, 0).m, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, -1));

    const auto& kind2 = decoded.record<TranslateScaleDirectionRollTrack>(0, 2);
    EXPECT_EQ(kind2.translationCount, 1);
    EXPECT_THAT(kind2.translation[0].v, ElementsAre(1, 2, 3));
    EXPECT_EQ(kind2.scaleCount, 1);
    EXPECT_THAT(kind2.scale[0].v, ElementsAre(4, 5, 6));
    EXPECT_EQ(kind2.directionCount, 2);
    EXPECT_THAT(kind2.direction[0].v, ElementsAre(7, 8, 9));
    EXPECT_EQ(kind2.direction[1].frame, 300);
    EXPECT_THAT(kind2.direction[1].v, ElementsAre(1, 0, -32768));
    EXPECT_EQ(kind2.rollCount, 1);
    EXPECT_EQ(kind2.roll[0].value, -5);

    const auto& kind3 = decoded.record<DirectionFixedTranslateRollTrack>(0, 3);
    EXPECT_THAT(kind3.translation, ElementsAre(11, 12, -13));
    EXPECT_EQ(kind3.directionCount, 1);
    EXPECT_THAT(kind3.direction[0].v, ElementsAre(14, 15, 16));
    EXPECT_EQ(kind3.roll, -17);

    const auto& kind4 = decoded.record<DirectionRollTrack>(0, 4);
    EXPECT_EQ(kind4.directionCount, 1);
    EXPECT_THAT(kind4.direction[0].v, ElementsAre(18, 19, 20));
    EXPECT_EQ(kind4.rollCount, 2);
    EXPECT_EQ(kind4.roll[1].frame, 1);
    EXPECT_EQ(kind4.roll[1].value, 22);

    const auto& kind5 = decoded.record<DirectionTrack>(0, 5);
    EXPECT_EQ(kind5.directionCount, 1);
    EXPECT_THAT(kind5.direction[0].v, ElementsAre(23, 24, 25));

    const auto& kind6 = decoded.record<TranslateDirectionRollTrack>(0, 6);
    EXPECT_EQ(kind6.translationCount, 1);
    EXPECT_THAT(kind6.translation[0].v, ElementsAre(26, 27, 28));
    EXPECT_EQ(kind6.directionCount, 1);
    EXPECT_THAT(kind6.direction[0].v, ElementsAre(29, 30, 31));
    EXPECT_EQ(kind6.rollCount, 3);
    EXPECT_EQ(kind6.roll[2].value, 34);

    const auto& pattern = decoded.record<PatternTrack>(0, 7);
    EXPECT_EQ(pattern.keyCount, 2);
    EXPECT_EQ(pattern.keys[0].low, 1);
    EXPECT_EQ(pattern.keys[0].high, 0x8000);
    EXPECT_EQ(pattern.keys[1].frame, 9);
}

TEST(MtDecoder, KeepsTheActionsApart) {
    const MtTable table = {.version = 3,
                           .boneCount = 2,
                           .actions = {{.frameCount = 1, .tracks = {MtUnchanged{}, MtDirection{{{0, 1, 1, 1}}}}},
                                       {.frameCount = 32767, .tracks = {MtDirection{{{0, 2, 2, 2}}}, MtUnchanged{}}}}};
    const Decoded decoded(encodeMt(table).bytes);
    ASSERT_TRUE(decoded.succeeded);
    EXPECT_THAT(std::span(decoded.table->frameCounts, 2), ElementsAre(1 << 16, 32767 << 16));
    EXPECT_EQ(decoded.record<DirectionTrack>(0, 1).direction[0].v[0], 1);
    EXPECT_EQ(decoded.record<DirectionTrack>(1, 0).direction[0].v[0], 2);
}

TEST(MtDecoder, TakesATableWithoutActionsAndTracks) {
    EXPECT_TRUE(decodes(encodeMt({.version = 2, .boneCount = 3, .actions = {}}).bytes));
    EXPECT_TRUE(decodes(encodeMt({.version = 4, .boneCount = 0, .actions = {{.frameCount = 5}}}).bytes));
}

TEST(MtDecoder, ChecksTheFramesOfKeys) {
    struct Case {
        const char* what;
        std::vector<uint16_t> frames;
        bool valid;
    };
    for (const Case& c : {Case{"one key", {0}, true}, Case{"the last key at the action's end", {0, 5, 10}, true},
                          Case{"no keys", {}, false}, Case{"not from frame 0", {1}, false},
                          Case{"twice the same frame", {0, 5, 5}, false}, Case{"back in time", {0, 6, 5}, false},
                          Case{"one frame beyond the end", {0, 11}, false}})
        EXPECT_EQ(decodes(frames(c.frames, 10)), c.valid) << c.what;
}

TEST(MtDecoder, RefusesANegativeLengthEvenWithoutKeys) {
    EncodedFile file = encodeMt(withOneTrack(2, MtUnchanged{}));
    for (const auto& [frameCount, valid] :
         {std::pair(32767u, true), std::pair(32768u, false), std::pair(65535u, false)}) {
        file.set("action[0].frameCount", frameCount);
        EXPECT_EQ(decodes(file.bytes), valid) << frameCount;
    }
}

TEST(MtDecoder, RefusesEveryBrokenField) {
    const auto set = [](const char* field, uint64_t value) {
        return [=](EncodedFile& file) { file.set(field, value); };
    };
    const auto add = [](const char* field, int value) {
        return [=](EncodedFile& file) { file.set(field, file.get(field) + uint64_t(value)); };
    };
    const BrokenFile cases[] = {
        {"another magic", set("magic", 0x4D54)},
        {"version 1", set("version", 1)},
        {"version 6", set("version", 6)},
        {"version -1", set("version", 0xFFFF)},
        {"an action more", add("actionCount", 1)},
        {"an action less", add("actionCount", -1)},
        {"a bone more", add("boneCount", 1)},
        {"a track more than the tracks of all actions", add("kindCount[1]", 1)},
        {"a track of kind 7 announced", set("kindCount[7]", 1)},
        {"kinds announced wrongly, the sum right",
         [](EncodedFile& file) {
             file.set("kindCount[0]", 2);
             file.set("kindCount[1]", 0);
         }},
        {"a kind byte of 7", set("action[0].track[1].kind", 7)},
        {"a kind byte of 255", set("action[0].track[1].kind", 255)},
        {"one key value too few", add("keyValueCount", -1)},
        {"one key value too many",
         [](EncodedFile& file) {
             file.set("keyValueCount", file.get("keyValueCount") + 1);
             file.bytes.insert(file.bytes.end(), 2, 0);
         }},
        {"as many key values as can be said", set("keyValueCount", 0xFFFFFFFF)},
        {"an array longer than all keys", set("action[0].track[5].direction.count", 0xFFFF)},
        {"an empty pattern track", set("action[0].pattern.count", 0)},
        {"a pattern track from frame 3", set("action[0].pattern[0].frame", 3)},
        {"a translation that starts late", set("action[0].track[2].translation[0].frame", 1)},
        {"a scale that starts late", set("action[0].track[2].scale[0].frame", 1)},
        {"a direction that goes on too long", set("action[0].track[2].direction[1].frame", 301)},
        {"a roll that starts late", set("action[0].track[2].roll[0].frame", 1)},
        {"kind 3: a direction that starts late", set("action[0].track[3].direction[0].frame", 1)},
        {"kind 4: a direction that starts late", set("action[0].track[4].direction[0].frame", 1)},
        {"kind 4: a roll that does not rise", set("action[0].track[4].roll[1].frame", 0)},
        {"kind 6: a translation that starts late", set("action[0].track[6].translation[0].frame", 1)},
        {"kind 6: a direction that starts late", set("action[0].track[6].direction[0].frame", 1)},
        {"kind 6: a roll that does not rise", set("action[0].track[6].roll[2].frame", 2)},
    };
    for (const BrokenFile& c : cases) {
        EncodedFile file = encodeMt(everyKind());
        c.breakIt(file);
        EXPECT_FALSE(decodes(file.bytes)) << c.what;
        EXPECT_FALSE(decodesFromOpaqueStream(HeapCopy(file.bytes))) << c.what << ", length not known";
    }
}

TEST(MtDecoder, RefusesEveryTruncation) {
    for (const int32_t version : {2, 3, 4, 5}) {
        MtTable table = everyKind();
        table.version = version;
        if (version < 5) table.actions[0].patterns.clear();
        ByteList file = encodeMt(table).bytes;
        for (size_t length = 0; length < file.size(); ++length) {
            EXPECT_FALSE(decodes(ByteList(file.begin(), file.begin() + ptrdiff_t(length))))
                << version << ": " << length;
            EXPECT_FALSE(decodesFromOpaqueStream(HeapCopy(file, length))) << version << ": " << length;
        }
        EXPECT_TRUE(decodesFromOpaqueStream(HeapCopy(file)));
        file.push_back(0);
        const Decoded decoded(file);
        EXPECT_TRUE(decoded.succeeded) << "more bytes may follow";
        EXPECT_EQ(decoded.bytesLeft, 1u);
    }
}

TEST(MtDecoder, AFailureEmptiesTheTable) {
    const ByteList good = encodeMt(everyKind()).bytes;
    ActTable* table = qelActTable_create();
    table->creationParameter = 5;
    MemoryStream stream;
    for (int i = 0; i < 2; ++i) {  // the second time over what the first left
        MemoryStream_init(&stream, good.data(), uint32_t(good.size()));
        EXPECT_TRUE(D_ActTable_decode(table, &stream));
    }
    MemoryStream_init(&stream, good.data(), uint32_t(good.size()) - 1);
    EXPECT_FALSE(D_ActTable_decode(table, &stream));
    EXPECT_EQ(table->data, nullptr);
    EXPECT_EQ(table->actionCount, 0u);
    EXPECT_EQ(table->tracks, nullptr);
    EXPECT_EQ(table->creationParameter, 5);
    qelObject3D_unref(table);
}

TEST(MtDecoder, GivesEverythingBackWhenMemoryRunsOut) {
    const ByteList file = encodeMt(everyKind()).bytes;
    const int32_t calls = sweepEngineAllocations(FailMode::Once, [&](CountingHeap& heap) {
        const bool succeeded = decodes(file);
        EXPECT_EQ(succeeded, !heap.hasFailed());
    });
    EXPECT_EQ(calls, 2) << "the object and one block";
}

// Headers that promise the most, and the tables that use the most memory for their length.
TEST(MtDecoder, ReservesInProportionToTheFile) {
    EncodedFile greedy = encodeMt(everyKind());
    for (const char* field : {"actionCount", "kindCount[0]", "kindCount[2]"}) greedy.set(field, 0xFFFF);
    greedy.set("boneCount", 2);
    for (const char* field : {"kindCount[1]", "kindCount[3]", "kindCount[4]", "kindCount[5]", "kindCount[6]"})
        greedy.set(field, 0);
    MtTable empty = {.version = 2, .boneCount = 0, .actions = std::vector<MtAction>(65535)};
    MtTable still = {
        .version = 2, .boneCount = 65535, .actions = {{.tracks = std::vector<MtTrack>(65535, MtUnchanged{})}}};
    struct Case {
        const char* what;
        ByteList file;
        bool valid;
    };
    for (const Case& c :
         {Case{"promises 65535 actions", greedy.bytes, false}, Case{"65535 empty actions", encodeMt(empty).bytes, true},
          Case{"65535 unmoved bones", encodeMt(still).bytes, true}}) {
        CountingHeap heap;
        EXPECT_EQ(decodes(c.file), c.valid) << c.what;
        EXPECT_LE(heap.peakBytes(), int64_t(c.file.size() * 17 + 1024)) << c.what;
    }
}

}  // namespace
