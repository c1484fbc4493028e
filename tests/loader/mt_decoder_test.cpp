#include "loader/mt_decoder.h"

#include <gtest/gtest.h>

#include "tests/loader/content.h"
#include "tests/loader/random.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/mt_encoder.h"

namespace {

using namespace encode;

bool decodes(const ByteList& file) {
    const HeapCopy copy(file);
    MemoryStream stream;
    MemoryStream_init(&stream, copy.data(), copy.size());
    ActTable* table = qelActTable_create();
    const bool succeeded = table && D_ActTable_decode(table, &stream);
    qelObject3D_unref(table);
    return succeeded;
}

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

TEST(MtDecoder, ChecksTheFramesOfKeys) {
    for (const auto& valid : std::vector<std::vector<uint16_t>>{{0}, {0, 5, 10}})
        EXPECT_TRUE(decodes(frames(valid, 10))) << valid.back();
    for (const auto& invalid : std::vector<std::vector<uint16_t>>{{}, {1}, {0, 5, 5}, {0, 6, 5}, {0, 11}})
        EXPECT_FALSE(decodes(frames(invalid, 10))) << invalid.size();
}

TEST(MtDecoder, RefusesEveryBrokenField) {
    const EncodedFile good = encodeMt(everyKind());
    const auto expectRefused = [](const EncodedFile& file) {
        EXPECT_FALSE(decodes(file.bytes));
        EXPECT_FALSE(decodesFromOpaqueStream(HeapCopy(file.bytes))) << "length not known";
    };
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
    forEachChange(good, changes, expectRefused);
    EncodedFile oneMore = good;
    changeFields(oneMore, "keyValueCount+=1");
    oneMore.bytes.insert(oneMore.bytes.end(), 2, 0);
    expectRefused(oneMore);
}

TEST(MtDecoder, RefusesEveryTruncation) {
    for (const int32_t version : {2, 3, 4, 5}) {
        SCOPED_TRACE(version);
        MtTable table = everyKind();
        table.version = version;
        if (version < 5) table.actions[0].patterns.clear();
        expectOnlyWhole(encodeMt(table).bytes, decodes, decodesFromOpaqueStream);
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

// --- Random tables through the encoder, which knows nothing of the library, and back ---

// A track as a list of numbers: kind, then its values and key arrays in the order of the format, each array with its
// length.
using Numbers = std::vector<int64_t>;

void append(Numbers& out, const MtVectorKey& key) { out.insert(out.end(), {key.frame, key.x, key.y, key.z}); }
void append(Numbers& out, const MtScalarKey& key) { out.insert(out.end(), {key.frame, key.value}); }
void append(Numbers& out, const MtPatternKey& key) { out.insert(out.end(), {key.frame, key.mask}); }
void append(Numbers& out, const VectorKey& key) { out.insert(out.end(), {key.frame, key.v[0], key.v[1], key.v[2]}); }
void append(Numbers& out, const ScalarKey& key) { out.insert(out.end(), {key.frame, key.value}); }
void append(Numbers& out, const PatternKey& key) {
    out.insert(out.end(), {key.frame, int64_t(key.high) << 16 | key.low});
}

template <typename Key>
void appendKeys(Numbers& out, const Key* keys, size_t count) {
    out.push_back(int64_t(count));
    for (size_t k = 0; k < count; ++k) append(out, keys[k]);
}
template <typename Key>
void appendKeys(Numbers& out, const std::vector<Key>& keys) {
    appendKeys(out, keys.data(), keys.size());
}

Numbers described(const MtTrack& track) {
    Numbers out = {int64_t(track.index())};
    if (const auto* t = std::get_if<MtConstantMatrix>(&track))
        out.insert(out.end(), t->matrix.begin(), t->matrix.end());
    if (const auto* t = std::get_if<MtTranslateScaleDirectionRoll>(&track))
        appendKeys(out, t->translation), appendKeys(out, t->scale), appendKeys(out, t->direction),
            appendKeys(out, t->roll);
    if (const auto* t = std::get_if<MtDirectionFixedTranslateRoll>(&track)) {
        out.insert(out.end(), t->translation.begin(), t->translation.end());
        appendKeys(out, t->direction);
        out.push_back(t->roll);
    }
    if (const auto* t = std::get_if<MtDirectionRoll>(&track)) appendKeys(out, t->direction), appendKeys(out, t->roll);
    if (const auto* t = std::get_if<MtDirection>(&track)) appendKeys(out, t->direction);
    if (const auto* t = std::get_if<MtTranslateDirectionRoll>(&track))
        appendKeys(out, t->translation), appendKeys(out, t->direction), appendKeys(out, t->roll);
    return out;
}

Numbers decoded(const ActTable* table, uint32_t word) {
    Numbers out = {word >> 24};
    const auto keys = [&](const auto* list, size_t count) { appendKeys(out, list, count); };
    switch (trackKindOf(word)) {
        case TrackKind::ConstantMatrix: {
            const auto* t = trackRecordOf<ConstantMatrixTrack>(table, word);
            out.insert(out.end(), std::begin(t->m), std::end(t->m));
            break;
        }
        case TrackKind::Unchanged: break;
        case TrackKind::TranslateScaleDirectionRoll: {
            const auto* t = trackRecordOf<TranslateScaleDirectionRollTrack>(table, word);
            keys(t->translation, t->translationCount), keys(t->scale, t->scaleCount);
            keys(t->direction, t->directionCount), keys(t->roll, t->rollCount);
            break;
        }
        case TrackKind::DirectionFixedTranslateRoll: {
            const auto* t = trackRecordOf<DirectionFixedTranslateRollTrack>(table, word);
            out.insert(out.end(), std::begin(t->translation), std::end(t->translation));
            keys(t->direction, t->directionCount);
            out.push_back(t->roll);
            break;
        }
        case TrackKind::DirectionRoll: {
            const auto* t = trackRecordOf<DirectionRollTrack>(table, word);
            keys(t->direction, t->directionCount), keys(t->roll, t->rollCount);
            break;
        }
        case TrackKind::Direction: {
            const auto* t = trackRecordOf<DirectionTrack>(table, word);
            keys(t->direction, t->directionCount);
            break;
        }
        case TrackKind::TranslateDirectionRoll: {
            const auto* t = trackRecordOf<TranslateDirectionRollTrack>(table, word);
            keys(t->translation, t->translationCount), keys(t->direction, t->directionCount);
            keys(t->roll, t->rollCount);
            break;
        }
    }
    return out;
}

// Keys from frame 0 on; sometimes the last one is at the action's end.
std::vector<uint16_t> randomFrames(Random& random, int32_t frameCount) {
    std::vector<uint16_t> frames = {0};
    for (uint32_t left = random.below(6); left > 0 && frames.back() < frameCount; --left)
        frames.push_back(uint16_t(random.chance(4) ? frameCount : random.between(frames.back() + 1, frameCount)));
    return frames;
}

MtVectorKeys randomVectorKeys(Random& random, int32_t frameCount) {
    MtVectorKeys keys;
    for (const uint16_t frame : randomFrames(random, frameCount))
        keys.push_back({frame, random.anyInt16(), random.anyInt16(), random.anyInt16()});
    return keys;
}

MtScalarKeys randomScalarKeys(Random& random, int32_t frameCount) {
    MtScalarKeys keys;
    for (const uint16_t frame : randomFrames(random, frameCount)) keys.push_back({frame, random.anyInt16()});
    return keys;
}

MtTrack randomTrack(Random& random, int32_t frameCount) {
    const auto vectors = [&] { return randomVectorKeys(random, frameCount); };
    const auto scalars = [&] { return randomScalarKeys(random, frameCount); };
    switch (random.below(kTrackKindCount)) {
        case 0: {
            MtConstantMatrix track;
            for (int16_t& element : track.matrix) element = random.anyInt16();
            return track;
        }
        case 1: return MtUnchanged{};
        case 2: return MtTranslateScaleDirectionRoll{vectors(), vectors(), vectors(), scalars()};
        case 3:
            return MtDirectionFixedTranslateRoll{
                {random.anyInt16(), random.anyInt16(), random.anyInt16()}, vectors(), random.anyInt16()};
        case 4: return MtDirectionRoll{vectors(), scalars()};
        case 5: return MtDirection{vectors()};
        default: return MtTranslateDirectionRoll{vectors(), vectors(), scalars()};
    }
}

MtTable randomTable(Random& random) {
    MtTable table = {.version = random.between(2, 5), .boneCount = random.below(10)};
    table.actions.resize(random.below(6));
    for (MtAction& action : table.actions) {
        constexpr int32_t kLengths[] = {0, 1, 20, 32767};
        action.frameCount = kLengths[random.below(4)];
        for (uint32_t b = 0; b < table.boneCount; ++b) action.tracks.push_back(randomTrack(random, action.frameCount));
        if (table.version < 5) continue;
        for (const uint16_t frame : randomFrames(random, action.frameCount))
            action.patterns.push_back({frame, uint32_t(random.engine())});
    }
    return table;
}

void expectDecoded(const ActTable* table, const MtTable& description) {
    ASSERT_EQ(table->actionCount, description.actions.size());
    ASSERT_EQ(table->boneCount, description.boneCount);
    for (size_t a = 0; a < description.actions.size(); ++a) {
        SCOPED_TRACE("action " + std::to_string(a));
        const MtAction& action = description.actions[a];
        const uint32_t* words = table->tracks[a];
        EXPECT_EQ(table->frameCounts[a], action.frameCount << 16);
        for (size_t b = 0; b < action.tracks.size(); ++b)
            EXPECT_EQ(decoded(table, words[b]), described(action.tracks[b])) << "track " << b;
        const uint32_t patternWord = words[description.boneCount];
        if (description.version < 5) {
            EXPECT_EQ(patternWord, 0u);
            continue;
        }
        Numbers expected, found;
        appendKeys(expected, action.patterns);
        const auto* track = trackRecordOf<PatternTrack>(table, patternWord);
        appendKeys(found, track->keys, track->keyCount);
        EXPECT_EQ(found, expected);
    }
}

TEST(MtRoundtrip, DecodesToWhatWasDescribed) {
    Random random{std::mt19937(30)};
    for (int round = 0; round < 1000 && !testing::Test::HasFailure(); ++round) {
        const MtTable description = randomTable(random);
        SCOPED_TRACE("round " + std::to_string(round) + ", version " + std::to_string(description.version));
        const EncodedFile file = encodeMt(description);
        CountingHeap heap;
        MemoryStream stream;
        MemoryStream_init(&stream, file.bytes.data(), uint32_t(file.bytes.size()));
        ActTable* table = qelActTable_create();
        ASSERT_TRUE(D_ActTable_decode(table, &stream));
        EXPECT_EQ(stream.cursor, stream.end);
        expectDecoded(table, description);
        qelObject3D_unref(table);
        EXPECT_EQ(heap.liveBlocks(), 0);
    }
}

}  // namespace
