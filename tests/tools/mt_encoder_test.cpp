#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "tests/loader/small_files.h"
#include "tests/tools/literal_bytes.h"

namespace encode {
namespace {

TEST(MtEncoder, WritesEveryKindOfTrack) {
    const ByteList header = hexBytes("4D54 0500 0100 0700  0100 0100 0100 0100 0100 0100 0100 0000  36000000");
    const ByteList body = hexBytes(
        "2C01"
        "00 0100 0200 0300 0400 0500 0600 0700 0800 0900 0A00 0B00 FFFF"
        "01"
        "02 0100 0000 0100 0200 0300"
        "   0100 0000 0400 0500 0600"
        "   0200 0000 0700 0800 0900  2C01 0100 0000 0080"
        "   0100 0000 FBFF"
        "03 0B00 0C00 F3FF 0100 0000 0E00 0F00 1000 EFFF"
        "04 0100 0000 1200 1300 1400  0200 0000 1500 0100 1600"
        "05 0100 0000 1700 1800 1900"
        "06 0100 0000 1A00 1B00 1C00  0100 0000 1D00 1E00 1F00  0300 0000 2000 0200 2100 0700 2200");
    const ByteList patterns = hexBytes("0200 0000 0100 0080  0900 0200 0000");
    const ByteList trailer(20, 0);
    MtTable table = tableOfEveryTrack();
    EXPECT_EQ(encodeMt(table).bytes, header + body + patterns + trailer);

    table.actions[0].patterns.clear();
    EXPECT_EQ(encodeMt(table).get("action[0].pattern[0].low"), 0u) << "no patterns: one key that shows none";
    for (const int32_t version : {2, 3, 4}) {
        table.version = version;
        ByteList expected = header;
        expected[2] = uint8_t(version);
        expected[24] = 0x30;  // 48 key values without the two pattern keys
        expected = expected + body;
        if (version == 4) expected = expected + trailer;
        EXPECT_EQ(encodeMt(table).bytes, expected) << "version " << version;
    }
}

TEST(MtEncoder, RefusesWhatTheFormatCannotSay) {
    struct Case {
        const char* what;
        std::function<void(MtTable&, MtVectorKeys&)> spoil;
    };
    const Case cases[] = {
        {"version 1", [](MtTable& t, MtVectorKeys&) { t.version = 1; }},
        {"version 6", [](MtTable& t, MtVectorKeys&) { t.version = 6; }},
        {"a track too few", [](MtTable& t, MtVectorKeys&) { t.boneCount = 2; }},
        {"a negative length", [](MtTable& t, MtVectorKeys&) { t.actions[0].frameCount = -1; }},
        {"a long action", [](MtTable& t, MtVectorKeys&) { t.actions[0].frameCount = 32768; }},
        {"patterns in version 4", [](MtTable& t, MtVectorKeys&) { t.version = 4; }},
        {"a late pattern", [](MtTable& t, MtVectorKeys&) { t.actions[0].patterns[0].frame = 1; }},
        {"no keys", [](MtTable&, MtVectorKeys& k) { k.clear(); }},
        {"a late start", [](MtTable&, MtVectorKeys& k) { k[0].frame = 1; }},
        {"the same frame twice", [](MtTable&, MtVectorKeys& k) { k[2].frame = 4; }},
        {"a key after the end", [](MtTable&, MtVectorKeys& k) { k[2].frame = 11; }},
    };
    for (const Case& c : cases) {
        MtTable table = {.boneCount = 1,
                         .actions = {{.frameCount = 10, .tracks = {MtDirection{}}, .patterns = {{0, 1}}}}};
        MtVectorKeys& keys = std::get<MtDirection>(table.actions[0].tracks[0]).direction;
        keys = {{0, 0, 0, 1}, {4, 0, 1, 0}, {10, 1, 0, 0}};
        ASSERT_NO_THROW(encodeMt(table));
        c.spoil(table, keys);
        EXPECT_THROW(encodeMt(table), std::invalid_argument) << c.what;
    }
}

}  // namespace
}  // namespace encode
