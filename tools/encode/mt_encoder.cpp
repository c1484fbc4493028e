#include "tools/encode/mt_encoder.h"

#include <stdexcept>

namespace encode {

static constexpr uint32_t kKindCount = 8;  // the header counts one kind more than there is

// Values that a key adds to the header's key value count; the frame number is one of them.
static constexpr uint32_t valueCount(const MtVectorKey&) { return 4; }
static constexpr uint32_t valueCount(const MtScalarKey&) { return 2; }
static constexpr uint32_t valueCount(const MtPatternKey&) { return 3; }

static void putValues(ByteWriter& writer, const std::string& name, const MtVectorKey& key) {
    writer.putI16(name + ".x", key.x);
    writer.putI16(name + ".y", key.y);
    writer.putI16(name + ".z", key.z);
}

static void putValues(ByteWriter& writer, const std::string& name, const MtScalarKey& key) {
    writer.putI16(name + ".value", key.value);
}

static void putValues(ByteWriter& writer, const std::string& name, const MtPatternKey& key) {
    writer.putU16(name + ".low", key.mask & 0xFFFF);
    writer.putU16(name + ".high", key.mask >> 16);
}

namespace {

// Writes the tracks of one action and counts what goes into the header.
struct TrackWriter {
    const MtTable& table;
    const MtAction& action;
    ByteWriter& writer;
    uint32_t& keyValueCount;

    template <typename Key>
    void putKeys(const std::string& name, const std::vector<Key>& keys) {
        if (!table.allowInvalidKeys) checkKeys(name, keys);
        writer.putU16(name + ".count", keys.size());
        for (size_t k = 0; k < keys.size(); ++k) {
            const std::string keyName = indexed(name, k);
            writer.putU16(keyName + ".frame", keys[k].frame);
            putValues(writer, keyName, keys[k]);
            keyValueCount += valueCount(keys[k]);
        }
    }

    template <typename Key>
    void checkKeys(const std::string& name, const std::vector<Key>& keys) {
        if (keys.empty()) throw std::invalid_argument(name + " has no keys");
        if (keys.front().frame != 0) throw std::invalid_argument(name + " does not start at frame 0");
        for (size_t k = 1; k < keys.size(); ++k)
            if (keys[k].frame <= keys[k - 1].frame) throw std::invalid_argument(indexed(name, k) + " is not later");
        if (keys.back().frame > action.frameCount) throw std::invalid_argument(name + " ends after the action");
    }

    void putTrack(const std::string& name, const MtConstantMatrix& track) {
        for (size_t e = 0; e < track.matrix.size(); ++e) writer.putI16(indexed(name + ".m", e), track.matrix[e]);
    }
    void putTrack(const std::string&, const MtUnchanged&) {}
    void putTrack(const std::string& name, const MtTranslateScaleDirectionRoll& track) {
        putKeys(name + ".translation", track.translation);
        putKeys(name + ".scale", track.scale);
        putKeys(name + ".direction", track.direction);
        putKeys(name + ".roll", track.roll);
    }
    void putTrack(const std::string& name, const MtDirectionFixedTranslateRoll& track) {
        writer.putI16(name + ".x", track.translation[0]);
        writer.putI16(name + ".y", track.translation[1]);
        writer.putI16(name + ".z", track.translation[2]);
        putKeys(name + ".direction", track.direction);
        writer.putI16(name + ".roll", track.roll);
    }
    void putTrack(const std::string& name, const MtDirectionRoll& track) {
        putKeys(name + ".direction", track.direction);
        putKeys(name + ".roll", track.roll);
    }
    void putTrack(const std::string& name, const MtDirection& track) { putKeys(name + ".direction", track.direction); }
    void putTrack(const std::string& name, const MtTranslateDirectionRoll& track) {
        putKeys(name + ".translation", track.translation);
        putKeys(name + ".direction", track.direction);
        putKeys(name + ".roll", track.roll);
    }
};

}  // namespace

static void checkTable(const MtTable& table) {
    if (table.version < 2 || table.version > 5)
        throw std::invalid_argument("mt: there is no version " + std::to_string(table.version));
    for (size_t a = 0; a < table.actions.size(); ++a) {
        const MtAction& action = table.actions[a];
        const std::string name = indexed("action", a) + " (" + action.name + ")";
        if (action.tracks.size() != table.boneCount)
            throw std::invalid_argument(name + " has " + std::to_string(action.tracks.size()) + " tracks for " +
                                        std::to_string(table.boneCount) + " bones");
        if (action.frameCount < 0) throw std::invalid_argument(name + " has a negative frame count");
        if (!action.patterns.empty() && table.version < 5)
            throw std::invalid_argument(name + " has patterns, which came with version 5");
    }
}

static void putAction(TrackWriter tracks, const std::string& name, std::array<uint32_t, kKindCount>& kindCounts) {
    tracks.writer.putI16(name + ".frameCount", tracks.action.frameCount);
    for (size_t b = 0; b < tracks.action.tracks.size(); ++b) {
        const MtTrack& track = tracks.action.tracks[b];
        const std::string trackName = indexed(name + ".track", b);
        tracks.writer.putU8(trackName + ".kind", track.index());
        ++kindCounts[track.index()];
        std::visit([&](const auto& each) { tracks.putTrack(trackName, each); }, track);
    }
    if (tracks.table.version < 5) return;
    const bool hasPatterns = !tracks.action.patterns.empty() || tracks.table.allowInvalidKeys;
    tracks.putKeys(name + ".pattern", hasPatterns ? tracks.action.patterns : MtPatternKeys{{0, 0}});
}

EncodedFile encodeMt(const MtTable& table) {
    checkTable(table);
    ByteWriter writer;
    writer.putU16("magic", 0x544D);
    writer.putU16("version", uint64_t(table.version));
    writer.putU16("actionCount", table.actions.size());
    writer.putU16("boneCount", table.boneCount);
    // The counts are known when everything is written.
    for (uint32_t kind = 0; kind < kKindCount; ++kind) writer.putU16(indexed("kindCount", kind), 0);
    writer.putU32("keyValueCount", 0);

    std::array<uint32_t, kKindCount> kindCounts{};
    uint32_t keyValueCount = 0;
    for (size_t a = 0; a < table.actions.size(); ++a)
        putAction({table, table.actions[a], writer, keyValueCount}, indexed("action", a), kindCounts);
    if (table.version >= 4) writer.putBytes(table.trailer);

    EncodedFile file = writer.take();
    for (uint32_t kind = 0; kind < kKindCount; ++kind) {
        if (kindCounts[kind] > UINT16_MAX)
            throw std::invalid_argument("mt: more than 65535 tracks of kind " + std::to_string(kind));
        file.set(indexed("kindCount", kind), kindCounts[kind]);
    }
    file.set("keyValueCount", keyValueCount);
    return file;
}

}  // namespace encode
