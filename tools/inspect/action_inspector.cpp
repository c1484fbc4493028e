#include "tools/inspect/action_inspector.h"

#include <string>

#include "tools/inspect/content_reader.h"

namespace inspect {

namespace {

struct ActionReader {
    ContentReader in;
    uint64_t keyValues = 0;
};

// A count, which is returned, then keys of a frame and `values` 16-bit words.
uint32_t readKeys(ActionReader& r, const char* what, uint32_t values, int32_t frameCount) {
    ContentReader& in = r.in;
    const std::string name = what;
    const uint32_t count = in.u16("the count of " + name);
    in.expect(count > 0, "the count of " + name, count, "at least one key");
    int32_t previous = -1;
    for (uint32_t i = 0; i < count; ++i) {
        const auto frame = int32_t(in.u16("a frame of " + name));
        in.expect(i > 0 || frame == 0, "the first frame of " + name, frame, "0");
        in.expect(frame > previous, "a frame of " + name, frame,
                  "more than the frame before, " + std::to_string(previous));
        in.expect(frame <= frameCount, "a frame of " + name, frame,
                  "at most the action's frame count, " + std::to_string(frameCount));
        previous = frame;
        in.skip("a value of " + name, 2 * values);
    }
    r.keyValues += uint64_t(count) * (1 + values);
    return count;
}

void readTrack(ActionReader& r, uint32_t kind, int32_t frames) {
    const auto translation = [&] { readKeys(r, "translation keys", 3, frames); };
    const auto scale = [&] { readKeys(r, "scale keys", 3, frames); };
    const auto direction = [&] { readKeys(r, "direction keys", 3, frames); };
    const auto roll = [&] { readKeys(r, "roll keys", 1, frames); };
    switch (kind) {
        case 0: r.in.skip("a constant matrix", 24); break;
        case 2: translation(), scale(), direction(), roll(); break;
        case 3:
            r.in.skip("a fixed translation", 6);
            direction();
            r.in.skip("a fixed roll", 2);
            break;
        case 4: direction(), roll(); break;
        case 5: direction(); break;
        case 6: translation(), direction(), roll(); break;
        default: break;
    }
}

}  // namespace

ActionTableSummary inspectActions(std::span<const uint8_t> bytes) {
    ActionReader r{ContentReader(bytes)};
    ContentReader& in = r.in;
    ActionTableSummary out;
    in.expect(in.u16("the magic") == 0x544D, "the magic", in.offset(), "the bytes \"MT\"");
    out.version = in.signed16("version");
    in.expect(out.version >= 2 && out.version <= 5, "version", out.version, "2 to 5");
    const uint32_t actionCount = in.u16("the action count");
    out.boneCount = in.u16("the bone count");
    std::array<uint32_t, 8> announced{}, found{};
    for (uint32_t& count : announced) count = in.u16("a track count");
    in.expect(announced[7] == 0, "the track count of kind 7", announced[7], "0");
    const uint32_t announcedValues = in.u32("the key value count");

    for (uint32_t a = 0; a < actionCount; ++a) {
        ActionSummary action{.frameCount = in.signed16("an action's frame count")};
        in.expect(action.frameCount >= 0, "an action's frame count", action.frameCount, "0 or more");
        for (uint32_t bone = 0; bone < out.boneCount; ++bone) {
            const uint32_t kind = in.u8("a track kind");
            in.expect(kind <= 6, "a track kind", kind, "0 to 6");
            ++found[kind];
            ++action.trackKinds[kind];
            readTrack(r, kind, action.frameCount);
        }
        if (out.version == 5) action.patternKeys = readKeys(r, "pattern keys", 2, action.frameCount);
        out.actions.push_back(action);
    }
    for (uint32_t kind = 0; kind < 7; ++kind)
        if (found[kind] != announced[kind])
            throw ContentProblem(8 + 2 * kind, "the header announces " + std::to_string(announced[kind]) +
                                                   " tracks of kind " + std::to_string(kind) + ", the actions hold " +
                                                   std::to_string(found[kind]));
    if (r.keyValues != announcedValues)
        throw ContentProblem(24, "the header announces " + std::to_string(announcedValues) +
                                     " key values, the actions hold " + std::to_string(r.keyValues));
    if (out.version >= 4) in.skip("the trailer", 20);
    return out;
}

}  // namespace inspect
