#include "loader/mt_decoder.h"

#include <gtest/gtest.h>

#include "tests/loader/content.h"
#include "tests/loader/small_files.h"
#include "tests/support/counting_heap.h"

namespace {

using namespace encode;

bool decode(LoaderStream* stream) {
    ActTable* table = qelActTable_create();
    const bool succeeded = table && D_ActTable_decode(table, stream);
    qelObject3D_unref(table);
    return succeeded;
}

bool decodes(const ByteList& file) { return decodes(HeapCopy(file), decode); }

ByteList frames(const std::vector<uint16_t>& list, int32_t frameCount) {
    MtDirection track;
    for (const uint16_t frame : list) track.direction.push_back({frame, 0, 0, 4096});
    return encodeMt({.version = 2,
                     .boneCount = 1,
                     .actions = {{.frameCount = frameCount, .tracks = {track}}},
                     .allowInvalidKeys = true})
        .bytes;
}

TEST(MtDecoder, ChecksTheFramesOfKeys) {
    EXPECT_TRUE(decodes(frames({0}, 10)) && decodes(frames({0, 5, 10}, 10)));
    for (const auto& invalid : std::vector<std::vector<uint16_t>>{{}, {1}, {0, 5, 5}, {0, 6, 5}, {0, 11}})
        EXPECT_FALSE(decodes(frames(invalid, 10))) << testing::PrintToString(invalid);
}

TEST(MtDecoder, RefusesEveryBrokenField) {
    const EncodedFile good = encodeMt(tableOfEveryTrack());
    const auto refuse = [](const EncodedFile& file) { expectRefused(HeapCopy(file.bytes), decode); };
    const char* const changes =
        "magic=0x4D54 version=1 version=6 action[0].frameCount=0x8000 actionCount+=1 actionCount+=-1 boneCount+=1 "
        "kindCount[1]+=1 kindCount[7]=1 kindCount[0]=2&kindCount[1]=0 "
        "action[0].track[1].kind=7 action[0].track[1].kind=255 keyValueCount+=-1 "
        "keyValueCount=-1 action[0].track[5].direction.count=0xFFFF "
        "action[0].pattern.count=0 action[0].pattern[0].frame=3 action[0].track[2].translation[0].frame=1 "
        "action[0].track[2].scale[0].frame=1 action[0].track[2].direction[1].frame=301 "
        "action[0].track[2].roll[0].frame=1 action[0].track[3].direction[0].frame=1 "
        "action[0].track[4].direction[0].frame=1 action[0].track[4].roll[1].frame=0 "
        "action[0].track[6].translation[0].frame=1 action[0].track[6].direction[0].frame=1 "
        "action[0].track[6].roll[2].frame=2";
    forEachChange(good, changes, refuse);
    EncodedFile oneMore = good;
    changeFields(oneMore, "keyValueCount+=1");
    oneMore.bytes.insert(oneMore.bytes.end(), 2, 0);
    refuse(oneMore);
}

TEST(MtDecoder, RefusesEveryTruncation) {
    for (const int32_t version : {2, 3, 4, 5}) {
        SCOPED_TRACE(version);
        MtTable table = tableOfEveryTrack();
        table.version = version;
        if (version < 5) table.actions[0].patterns.clear();
        expectOnlyWhole(encodeMt(table).bytes, decode);
    }
}

TEST(MtDecoder, AFailureEmptiesTheTable) {
    const ByteList good = encodeMt(tableOfEveryTrack()).bytes;
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

// A header that promises the most, and the tables that use the most memory for their length.
TEST(MtDecoder, ReservesInProportionToTheFile) {
    EncodedFile greedy = encodeMt(tableOfEveryTrack());
    changeFields(greedy,
                 "actionCount=-1&boneCount=2&kindCount[0]=-1&kindCount[2]=-1&kindCount[1]=0&kindCount[3]=0&"
                 "kindCount[4]=0&kindCount[5]=0&kindCount[6]=0");
    const MtTable empty = {.version = 2, .actions = std::vector<MtAction>(65535)};
    const MtTable still = {
        .version = 2, .boneCount = 65535, .actions = {{.tracks = std::vector<MtTrack>(65535, MtUnchanged{})}}};
    for (const ByteList& file : {greedy.bytes, encodeMt(empty).bytes, encodeMt(still).bytes}) {
        CountingHeap heap;
        EXPECT_EQ(decodes(file), file != greedy.bytes) << file.size();
        EXPECT_LE(heap.peakBytes(), int64_t(file.size() * 17 + 1024)) << file.size();
    }
}

// --- Through the encoder, which knows nothing of the library, and back ---

MtVectorKey described(const VectorKey& key) { return {key.frame, key.v[0], key.v[1], key.v[2]}; }
MtScalarKey described(const ScalarKey& key) { return {key.frame, key.value}; }
MtPatternKey described(const PatternKey& key) { return {key.frame, uint32_t(key.high) << 16 | key.low}; }

template <typename Key>
auto described(const Key* keys, uint32_t count) {
    std::vector<decltype(described(*keys))> list;
    for (uint32_t k = 0; k < count; ++k) list.push_back(described(keys[k]));
    return list;
}

MtTrack described(const ConstantMatrixTrack& t) { return MtConstantMatrix{std::to_array(t.m)}; }
MtTrack described(const TranslateScaleDirectionRollTrack& t) {
    return MtTranslateScaleDirectionRoll{described(t.translation, t.translationCount), described(t.scale, t.scaleCount),
                                         described(t.direction, t.directionCount), described(t.roll, t.rollCount)};
}
MtTrack described(const DirectionFixedTranslateRollTrack& t) {
    return MtDirectionFixedTranslateRoll{std::to_array(t.translation), described(t.direction, t.directionCount),
                                         t.roll};
}
MtTrack described(const DirectionRollTrack& t) {
    return MtDirectionRoll{described(t.direction, t.directionCount), described(t.roll, t.rollCount)};
}
MtTrack described(const DirectionTrack& t) { return MtDirection{described(t.direction, t.directionCount)}; }
MtTrack described(const TranslateDirectionRollTrack& t) {
    return MtTranslateDirectionRoll{described(t.translation, t.translationCount),
                                    described(t.direction, t.directionCount), described(t.roll, t.rollCount)};
}

MtTrack described(const ActTable* table, uint32_t word) {
    switch (trackKindOf(word)) {
        case TrackKind::ConstantMatrix: return described(*trackRecordOf<ConstantMatrixTrack>(table, word));
        case TrackKind::Unchanged: break;
        case TrackKind::TranslateScaleDirectionRoll:
            return described(*trackRecordOf<TranslateScaleDirectionRollTrack>(table, word));
        case TrackKind::DirectionFixedTranslateRoll:
            return described(*trackRecordOf<DirectionFixedTranslateRollTrack>(table, word));
        case TrackKind::DirectionRoll: return described(*trackRecordOf<DirectionRollTrack>(table, word));
        case TrackKind::Direction: return described(*trackRecordOf<DirectionTrack>(table, word));
        case TrackKind::TranslateDirectionRoll:
            return described(*trackRecordOf<TranslateDirectionRollTrack>(table, word));
    }
    return MtUnchanged{};
}

MtTable described(const ActTable* table, int32_t version) {
    MtTable description = {.version = version, .boneCount = table->boneCount};
    for (uint32_t a = 0; a < table->actionCount; ++a) {
        MtAction action = {.frameCount = table->frameCounts[a] >> 16};
        const uint32_t* words = table->tracks[a];
        for (uint32_t b = 0; b < table->boneCount; ++b) action.tracks.push_back(described(table, words[b]));
        const uint32_t patternWord = words[table->boneCount];
        EXPECT_EQ(patternWord != 0, version == 5);
        if (patternWord) {
            const auto* track = trackRecordOf<PatternTrack>(table, patternWord);
            action.patterns = described(track->keys, track->keyCount);
        }
        description.actions.push_back(action);
    }
    return description;
}

// Two bones in actions of every length, with kinds in another order than their numbers.
MtTable severalActions() {
    const MtVectorKeys moving = {{0, -32768, 1, 2}, {1, 3, 32767, 4}, {20, 5, 6, -7}};
    const MtScalarKeys rolling = {{0, -1}, {19, 32767}, {20, -32768}};
    MtTable table = {.boneCount = 2,
                     .actions = {{.frameCount = 0, .tracks = {MtDirection{{{0, 1, 2, 3}}}, MtUnchanged{}}},
                                 {.frameCount = 20,
                                  .tracks = {MtTranslateDirectionRoll{moving, {{0, 8, 9, 10}}, rolling},
                                             MtDirectionRoll{moving, {{0, 7}}}}},
                                 {.frameCount = 1, .tracks = {MtUnchanged{}, MtConstantMatrix{}}},
                                 {.frameCount = 32767,
                                  .tracks = {MtTranslateScaleDirectionRoll{moving, moving, {{0, 1, 1, 1}}, rolling},
                                             MtDirection{{{0, 0, 0, 1}, {32767, 1, 0, 0}}}}}}};
    table.actions[3].patterns = {{0, 0x12345678}, {1, 0xFFFFFFFF}, {32767, 0}};
    return table;
}

TEST(MtRoundtrip, DecodesToWhatWasDescribed) {
    for (const MtTable& each :
         {tableOfEveryTrack(), severalActions(), MtTable{.boneCount = 3}, MtTable{.actions = std::vector<MtAction>(2)}})
        for (const int32_t version : {2, 3, 4, 5}) {
            MtTable description = each;
            description.version = version;
            if (version < 5)
                for (MtAction& action : description.actions) action.patterns.clear();
            const EncodedFile file = encodeMt(description);
            const CountingHeap heap;
            MemoryStream stream;
            MemoryStream_init(&stream, file.bytes.data(), uint32_t(file.bytes.size()));
            ActTable* table = qelActTable_create();
            ASSERT_TRUE(D_ActTable_decode(table, &stream));
            EXPECT_EQ(stream.cursor, stream.end);
            EXPECT_EQ(encodeMt(described(table, version)).bytes, file.bytes) << "version " << version;
            qelObject3D_unref(table);
        }
}

}  // namespace
