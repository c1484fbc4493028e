// Random action tables go through the encoder, which knows nothing of the library, and back through the decoder.
#include <gtest/gtest.h>

#include "loader/mt_decoder.h"
#include "tests/loader/random.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/mt_encoder.h"

namespace {

using namespace encode;

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

void appendTrack(Numbers& out, const MtConstantMatrix& track) {
    out.insert(out.end(), track.matrix.begin(), track.matrix.end());
}
void appendTrack(Numbers&, const MtUnchanged&) {}
void appendTrack(Numbers& out, const MtTranslateScaleDirectionRoll& track) {
    appendKeys(out, track.translation);
    appendKeys(out, track.scale);
    appendKeys(out, track.direction);
    appendKeys(out, track.roll);
}
void appendTrack(Numbers& out, const MtDirectionFixedTranslateRoll& track) {
    out.insert(out.end(), track.translation.begin(), track.translation.end());
    appendKeys(out, track.direction);
    out.push_back(track.roll);
}
void appendTrack(Numbers& out, const MtDirectionRoll& track) {
    appendKeys(out, track.direction);
    appendKeys(out, track.roll);
}
void appendTrack(Numbers& out, const MtDirection& track) { appendKeys(out, track.direction); }
void appendTrack(Numbers& out, const MtTranslateDirectionRoll& track) {
    appendKeys(out, track.translation);
    appendKeys(out, track.direction);
    appendKeys(out, track.roll);
}

Numbers described(const MtTrack& track) {
    Numbers numbers = {int64_t(track.index())};
    std::visit([&](const auto& each) { appendTrack(numbers, each); }, track);
    return numbers;
}

Numbers decoded(const ActTable* table, uint32_t word) {
    Numbers numbers = {word >> 24};
    switch (trackKindOf(word)) {
        case TrackKind::ConstantMatrix: {
            const auto* track = trackRecordOf<ConstantMatrixTrack>(table, word);
            numbers.insert(numbers.end(), std::begin(track->m), std::end(track->m));
            break;
        }
        case TrackKind::Unchanged: break;
        case TrackKind::TranslateScaleDirectionRoll: {
            const auto* track = trackRecordOf<TranslateScaleDirectionRollTrack>(table, word);
            appendKeys(numbers, track->translation, track->translationCount);
            appendKeys(numbers, track->scale, track->scaleCount);
            appendKeys(numbers, track->direction, track->directionCount);
            appendKeys(numbers, track->roll, track->rollCount);
            break;
        }
        case TrackKind::DirectionFixedTranslateRoll: {
            const auto* track = trackRecordOf<DirectionFixedTranslateRollTrack>(table, word);
            numbers.insert(numbers.end(), std::begin(track->translation), std::end(track->translation));
            appendKeys(numbers, track->direction, track->directionCount);
            numbers.push_back(track->roll);
            break;
        }
        case TrackKind::DirectionRoll: {
            const auto* track = trackRecordOf<DirectionRollTrack>(table, word);
            appendKeys(numbers, track->direction, track->directionCount);
            appendKeys(numbers, track->roll, track->rollCount);
            break;
        }
        case TrackKind::Direction: {
            const auto* track = trackRecordOf<DirectionTrack>(table, word);
            appendKeys(numbers, track->direction, track->directionCount);
            break;
        }
        case TrackKind::TranslateDirectionRoll: {
            const auto* track = trackRecordOf<TranslateDirectionRollTrack>(table, word);
            appendKeys(numbers, track->translation, track->translationCount);
            appendKeys(numbers, track->direction, track->directionCount);
            appendKeys(numbers, track->roll, track->rollCount);
            break;
        }
    }
    return numbers;
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
