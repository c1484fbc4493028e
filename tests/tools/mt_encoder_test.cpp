#include "tools/encode/mt_encoder.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "tests/tools/literal_bytes.h"

namespace encode {
namespace {

TEST(MtEncoder, WritesTheSmallestTable) {
    const MtTable table = {.version = 2, .boneCount = 1, .actions = {{.name = "rest", .tracks = {MtUnchanged{}}}}};
    EXPECT_EQ(encodeMt(table).bytes, hexBytes("4D54 0200 0100 0100"
                                              "0000 0100 0000 0000 0000 0000 0000 0000  00000000"
                                              "0000 01"));
}

TEST(MtEncoder, WritesEveryKindOfTrack) {
    const MtAction action = {.name = "all kinds",
                             .frameCount = 300,
                             .tracks = {MtConstantMatrix{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, -1}}, MtUnchanged{},
                                        MtTranslateScaleDirectionRoll{
                                            {{0, 1, 2, 3}}, {{0, 4, 5, 6}}, {{0, 7, 8, 9}, {300, 1, 0, 0}}, {{0, -5}}},
                                        MtDirectionFixedTranslateRoll{{11, 12, 13}, {{0, 14, 15, 16}}, 17},
                                        MtDirectionRoll{{{0, 1, 1, 1}}, {{0, 2}}}, MtDirection{{{0, 3, 3, 3}}},
                                        MtTranslateDirectionRoll{{{0, 4, 4, 4}}, {{0, 5, 5, 5}}, {{0, 6}, {2, 7}}}},
                             .patterns = {{0, 0x80000001}, {9, 2}}};
    const ByteList header = hexBytes("4D54 0500 0100 0700  0100 0100 0100 0100 0100 0100 0100 0000  32000000");
    const ByteList body = hexBytes(
        "2C01"
        "00 0100 0200 0300 0400 0500 0600 0700 0800 0900 0A00 0B00 FFFF"
        "01"
        "02 0100 0000 0100 0200 0300"
        "   0100 0000 0400 0500 0600"
        "   0200 0000 0700 0800 0900  2C01 0100 0000 0000"
        "   0100 0000 FBFF"
        "03 0B00 0C00 0D00 0100 0000 0E00 0F00 1000 1100"
        "04 0100 0000 0100 0100 0100  0100 0000 0200"
        "05 0100 0000 0300 0300 0300"
        "06 0100 0000 0400 0400 0400  0100 0000 0500 0500 0500  0200 0000 0600 0200 0700");
    const ByteList patterns = hexBytes("0200 0000 0100 0080  0900 0200 0000");
    const ByteList trailer(20, 0);

    MtTable table = {.version = 5, .boneCount = 7, .actions = {action}};
    EXPECT_EQ(encodeMt(table).bytes, header + body + patterns + trailer);

    table.actions[0].patterns.clear();
    EXPECT_EQ(encodeMt(table).get("action[0].pattern[0].low"), 0u) << "no patterns: one key that shows none";
    for (const int32_t version : {2, 3, 4}) {
        table.version = version;
        ByteList expected = header;
        expected[2] = uint8_t(version);
        expected[24] = 0x2C;  // 44 key values without the two pattern keys
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

TEST(MtEncoder, WritesInvalidKeysOnDemand) {
    const MtTable table = {
        .boneCount = 1,
        .actions = {{.frameCount = 5, .tracks = {MtDirectionRoll{{}, {{7, 0}, {7, 1}}}}, .patterns = {}}},
        .allowInvalidKeys = true};
    const EncodedFile file = encodeMt(table);
    EXPECT_EQ(file.get("action[0].track[0].direction.count"), 0u);
    EXPECT_EQ(file.get("action[0].track[0].roll[1].frame"), 7u);
    EXPECT_EQ(file.get("action[0].pattern.count"), 0u);
    EXPECT_EQ(file.get("keyValueCount"), 4u);
}

}  // namespace
}  // namespace encode
