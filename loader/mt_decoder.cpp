#include "loader/mt_decoder.h"

#include <array>

#include "frame/allocator.h"

constexpr uint16_t kMtMagic = 0x544D;  // "MT"
constexpr int32_t kFirstPatternVersion = 5;
constexpr int32_t kFirstTrailerVersion = 4;
constexpr uint32_t kTrailerSize = 20;

// Per track kind: the record in memory, and what a track of that kind takes in the file beside its kind byte and its
// keys' values, in bytes.
constexpr std::array<uint32_t, kTrackKindCount> kRecordSizes = {sizeof(ConstantMatrixTrack),
                                                                0,
                                                                sizeof(TranslateScaleDirectionRollTrack),
                                                                sizeof(DirectionFixedTranslateRollTrack),
                                                                sizeof(DirectionRollTrack),
                                                                sizeof(DirectionTrack),
                                                                sizeof(TranslateDirectionRollTrack)};
constexpr std::array<uint32_t, kTrackKindCount> kFixedFileSizes = {24, 0, 4 * 2, 8 + 2, 2 * 2, 2, 3 * 2};

// Offsets of records always fit the lower 24 bits of a track word: the counts that the block is made of have 16 bits.
constexpr uint64_t endOfLargestRecordPool() {
    uint64_t perCount = sizeof(uint32_t*) + sizeof(uint32_t) + sizeof(int32_t) + sizeof(PatternTrack);
    for (const uint32_t recordSize : kRecordSizes) perCount += sizeof(uint32_t) + recordSize;
    return perCount * UINT16_MAX + alignof(PatternTrack);
}
static_assert(endOfLargestRecordPool() < 1u << 24);

struct MtHeader {
    int32_t version;
    uint32_t actionCount, boneCount;
    std::array<uint32_t, kTrackKindCount> kindCounts;
    uint32_t keyValueCount;
};

// Offsets of the parts of the data block.
struct MtLayout {
    uint64_t words, frameCounts, records, keys, end;
};

struct MtDecoder {
    LoaderStream* stream;
    ActTable* table;
    uint8_t* nextRecord;
    uint16_t* nextKeyValue;
    // What the header announced and the file has not yet shown. The pools have room for exactly this.
    std::array<uint32_t, kTrackKindCount> kindsLeft;
    uint32_t keyValuesLeft;
    int32_t frameCount;  // of the action being read
};

static bool readHeader(LoaderStream* stream, MtHeader& header) {
    const uint16_t magic = readUInt16(stream);
    header.version = readInt16(stream);
    header.actionCount = readUInt16(stream);
    header.boneCount = readUInt16(stream);
    uint64_t trackCount = 0;
    for (uint32_t& count : header.kindCounts) {
        count = readUInt16(stream);
        trackCount += count;
    }
    const uint16_t kind7Count = readUInt16(stream);
    header.keyValueCount = readUInt32(stream);
    if (hasError(stream) || magic != kMtMagic || header.version < 2 || header.version > 5) return false;
    return kind7Count == 0 && trackCount == uint64_t(header.actionCount) * header.boneCount;
}

// The header tells how long the rest of the file must be. Holding that against the stream first means that the block,
// at most 16 times as long as this, is only ever allocated for a file that can fill it.
static uint64_t bodyLengthOf(const MtHeader& header) {
    uint64_t perAction = 2 + header.boneCount;
    if (header.version >= kFirstPatternVersion) perAction += 2;
    uint64_t length = perAction * header.actionCount + uint64_t(header.keyValueCount) * 2;
    for (uint32_t kind = 0; kind < kTrackKindCount; ++kind)
        length += uint64_t(header.kindCounts[kind]) * kFixedFileSizes[kind];
    return header.version >= kFirstTrailerVersion ? length + kTrailerSize : length;
}

static uint64_t alignUp(uint64_t offset, uint64_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

static MtLayout layOut(const MtHeader& header) {
    const uint64_t actionCount = header.actionCount;
    MtLayout layout;
    layout.words = actionCount * sizeof(uint32_t*);
    layout.frameCounts = layout.words + actionCount * (header.boneCount + 1) * sizeof(uint32_t);
    layout.records = alignUp(layout.frameCounts + actionCount * sizeof(int32_t), alignof(PatternTrack));
    layout.keys = layout.records + actionCount * sizeof(PatternTrack);
    for (uint32_t kind = 0; kind < kTrackKindCount; ++kind)
        layout.keys += uint64_t(header.kindCounts[kind]) * kRecordSizes[kind];
    layout.end = alignUp(layout.keys + uint64_t(header.keyValueCount) * sizeof(uint16_t), sizeof(uint32_t));
    return layout;
}

static bool allocateBlock(ActTable* table, const MtHeader& header, const MtLayout& layout) {
    qelActTable_releaseData(table);
    table->data = static_cast<uint8_t*>(qelAllocArray(uint32_t(layout.end / sizeof(uint32_t)), sizeof(uint32_t)));
    if (!table->data) return false;
    table->actionCount = header.actionCount;
    table->boneCount = header.boneCount;
    table->tracks = reinterpret_cast<uint32_t**>(table->data);
    auto* words = reinterpret_cast<uint32_t*>(table->data + layout.words);
    for (uint32_t action = 0; action < header.actionCount; ++action)
        table->tracks[action] = words + size_t(action) * (header.boneCount + 1);
    table->frameCounts = reinterpret_cast<int32_t*>(table->data + layout.frameCounts);
    return true;
}

// The first key is at frame 0, frames rise, and the last one lies within the action.
template <typename Key>
static bool framesAreValid(const Key* keys, uint32_t count, int32_t frameCount) {
    if (keys[0].frame != 0) return false;
    for (uint32_t i = 1; i < count; ++i)
        if (keys[i].frame <= keys[i - 1].frame) return false;
    return keys[count - 1].frame <= frameCount;
}

// Reads a key array into the key pool.
template <typename Key>
static bool readKeys(MtDecoder& decoder, uint16_t& count, const Key*& keys) {
    constexpr uint32_t kValuesPerKey = sizeof(Key) / sizeof(uint16_t);
    count = readUInt16(decoder.stream);
    const uint32_t valueCount = count * kValuesPerKey;
    if (count == 0 || valueCount > decoder.keyValuesLeft) return false;
    decoder.keyValuesLeft -= valueCount;
    keys = reinterpret_cast<const Key*>(decoder.nextKeyValue);
    for (uint32_t i = 0; i < valueCount; ++i) *decoder.nextKeyValue++ = readUInt16(decoder.stream);
    return framesAreValid(keys, count, decoder.frameCount);
}

static bool readRecord(MtDecoder& decoder, ConstantMatrixTrack& track) {
    for (int16_t& element : track.m) element = readInt16(decoder.stream);
    return true;
}

static bool readRecord(MtDecoder& decoder, TranslateScaleDirectionRollTrack& track) {
    return readKeys(decoder, track.translationCount, track.translation) &&
           readKeys(decoder, track.scaleCount, track.scale) &&
           readKeys(decoder, track.directionCount, track.direction) && readKeys(decoder, track.rollCount, track.roll);
}

static bool readRecord(MtDecoder& decoder, DirectionFixedTranslateRollTrack& track) {
    for (int16_t& element : track.translation) element = readInt16(decoder.stream);
    if (!readKeys(decoder, track.directionCount, track.direction)) return false;
    track.roll = readInt16(decoder.stream);
    return true;
}

static bool readRecord(MtDecoder& decoder, DirectionRollTrack& track) {
    return readKeys(decoder, track.directionCount, track.direction) && readKeys(decoder, track.rollCount, track.roll);
}

static bool readRecord(MtDecoder& decoder, DirectionTrack& track) {
    return readKeys(decoder, track.directionCount, track.direction);
}

static bool readRecord(MtDecoder& decoder, TranslateDirectionRollTrack& track) {
    return readKeys(decoder, track.translationCount, track.translation) &&
           readKeys(decoder, track.directionCount, track.direction) && readKeys(decoder, track.rollCount, track.roll);
}

static bool readRecord(MtDecoder& decoder, PatternTrack& track) {
    return readKeys(decoder, track.keyCount, track.keys);
}

// Takes the next record of the pool, fills it and stores its track word.
template <typename Record>
static bool readNextRecord(MtDecoder& decoder, uint32_t kind, uint32_t& word) {
    word = kind << 24 | uint32_t(decoder.nextRecord - decoder.table->data);
    auto* record = reinterpret_cast<Record*>(decoder.nextRecord);
    decoder.nextRecord += sizeof(Record);
    return readRecord(decoder, *record);
}

static bool readTrack(MtDecoder& decoder, uint32_t& word) {
    const uint32_t kind = readByte(decoder.stream);
    if (hasError(decoder.stream) || kind >= kTrackKindCount || decoder.kindsLeft[kind] == 0) return false;
    --decoder.kindsLeft[kind];
    switch (TrackKind(kind)) {
        case TrackKind::ConstantMatrix: return readNextRecord<ConstantMatrixTrack>(decoder, kind, word);
        case TrackKind::Unchanged: word = kind << 24; return true;
        case TrackKind::TranslateScaleDirectionRoll:
            return readNextRecord<TranslateScaleDirectionRollTrack>(decoder, kind, word);
        case TrackKind::DirectionFixedTranslateRoll:
            return readNextRecord<DirectionFixedTranslateRollTrack>(decoder, kind, word);
        case TrackKind::DirectionRoll: return readNextRecord<DirectionRollTrack>(decoder, kind, word);
        case TrackKind::Direction: return readNextRecord<DirectionTrack>(decoder, kind, word);
        case TrackKind::TranslateDirectionRoll: return readNextRecord<TranslateDirectionRollTrack>(decoder, kind, word);
    }
    return false;
}

static bool readAction(MtDecoder& decoder, uint32_t action, bool hasPatterns) {
    ActTable* table = decoder.table;
    decoder.frameCount = readInt16(decoder.stream);
    if (hasError(decoder.stream) || decoder.frameCount < 0) return false;
    table->frameCounts[action] = decoder.frameCount << 16;
    uint32_t* words = table->tracks[action];
    for (uint32_t bone = 0; bone < table->boneCount; ++bone)
        if (!readTrack(decoder, words[bone])) return false;
    return !hasPatterns || readNextRecord<PatternTrack>(decoder, 0, words[table->boneCount]);
}

// As many tracks were counted down as there are bones in all actions, so every kind has come out at 0; the key values
// may still fall short.
static bool readActions(MtDecoder& decoder, const MtHeader& header) {
    for (uint32_t action = 0; action < header.actionCount; ++action)
        if (!readAction(decoder, action, header.version >= kFirstPatternVersion)) return false;
    return !hasError(decoder.stream) && decoder.keyValuesLeft == 0;
}

static bool readTrailer(LoaderStream* stream, const MtHeader& header) {
    if (header.version >= kFirstTrailerVersion) skipBytes(stream, kTrailerSize);
    return !hasError(stream);
}

bool D_ActTable_decode(ActTable* table, LoaderStream* stream) {
    MtHeader header;
    bool decoded = false;
    if (readHeader(stream, header) && bodyLengthOf(header) <= LoaderStream_bytesLeft(stream)) {
        const MtLayout layout = layOut(header);
        if (allocateBlock(table, header, layout)) {
            MtDecoder decoder = {stream,
                                 table,
                                 table->data + layout.records,
                                 reinterpret_cast<uint16_t*>(table->data + layout.keys),
                                 header.kindCounts,
                                 header.keyValueCount,
                                 0};
            decoded = readActions(decoder, header) && readTrailer(stream, header);
        }
    }
    if (!decoded) qelActTable_releaseData(table);
    return decoded;
}
