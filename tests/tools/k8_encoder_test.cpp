#include "tools/encode/k8_encoder.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "tests/tools/literal_bytes.h"

namespace encode {
namespace {

// A file as a record holds it: what it says does not matter to the package.
EncodedFile madeUpFile(uint8_t first) {
    ByteWriter writer;
    writer.putU8("first", first);
    writer.putU16("second", 0xBBAA);
    return writer.take();
}

K8Package everyRecord() {
    K8Package package;
    package.objects = {
        K8FigureRecord{.model = madeUpFile(0x4D), .actionTable = 2, .textures = {1, 0}},
        K8TextureRecord{madeUpFile(0x42)},
        K8ActionTableRecord{madeUpFile(0x54)},
        K8LightRecord{.mode = 130, .color = 0x123456, .position = {1, 2, 4}, .attenuation = {1, 0.5f, 0}},
        K8FogRecord{.mode = 80, .color = 0xABCDEF, .density = 0.5f},
        K8FogRecord{.mode = 81, .color = 1, .near = 1, .far = 2},
        K8PrimitiveRecord{.type = 1, .params = 0x400, .count = 1, .values = {{{4096, -1, 0}, {}, {0xFF8000}, {}, {}}}}};
    const std::array<float, 16> shift = {1, 0, 0, 2, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    package.groups = {{{{.isGroup = true, .index = 1, .transform = shift}, {.index = 3}}},
                      {{{.isGroup = true, .index = 2}, {.index = 6}}},
                      {}};
    package.trailer = {0xEE};
    return package;
}

TEST(K8Encoder, WritesEveryRecord) {
    const EncodedFile file = encodeK8(everyRecord());
    EXPECT_EQ(file.bytes, hexBytes("4B38 0000 00000800 0700 0300"
                                   "0200 01C0 0000803F 00000000 00000000 00000040  00000000 0000803F 00000000 00000000"
                                   "          00000000 00000000 0000803F 00000000  00000000 00000000 00000000 0000803F"
                                   "     0300"
                                   "0200 0240 0600"
                                   "0000"
                                   "0B0000FE 0200 0200 0100 0000 4DAABB"
                                   "030000FD 42AABB"
                                   "030000FF 54AABB"
                                   "340000FB 0000803F 00000040 00008040  00000000 00000000 000080BF"
                                   "         0000803F 0000003F 00000000  56341282 0000803F 00003442 00000000"
                                   "0C0000FC EFCDAB50 0000003F 00000000"
                                   "0C0000FC 01000051 0000803F 00000040"
                                   "240000FA 01000000 00040000 0100 0300 0000 0100 0000 0000"
                                   "         00100000 FFFFFFFF 00000000 0080FF00"
                                   "EE"));
    EXPECT_EQ(file.get("object[1].second"), 0xBBAAu) << "the fields of a file keep their names";
    EXPECT_EQ(file.get("object[6].value[2][0]"), 0xFF8000u);
    EXPECT_EQ(file.get("group[0].child[0].m[3]"), 0x40000000u);
}

TEST(K8Encoder, RefusesWhatAReaderWould) {
    struct Case {
        const char* what;
        std::function<void(K8Package&)> spoil;
    };
    const auto add = [](const K8Record& record) {
        return [=](K8Package& package) { package.objects.push_back(record); };
    };
    const auto place = [](size_t group, const K8Child& child) {
        return [=](K8Package& package) { package.groups[group].children.push_back(child); };
    };
    const auto primitive = [](uint32_t type, uint32_t params) {
        return K8PrimitiveRecord{.type = type, .params = params, .count = 1, .values = {{{1}, {}, {}, {}, {}}}};
    };
    const Case cases[] = {
        {"a version of scenes", [](K8Package& p) { p.version = 0x100; }},
        {"a large limit", [](K8Package& p) { p.objectSizeLimit = 0x80001; }},
        {"a record as long as the limit", [](K8Package& p) { p.objectSizeLimit = 0x34; }},
        {"nothing", [](K8Package& p) { p = {}; }},
        {"1025 objects", [](K8Package& p) { p.objects.resize(1025, K8FogRecord{}); }},
        {"1025 groups", [](K8Package& p) { p.groups.resize(1025); }},
        {"1025 children", [](K8Package& p) { p.groups[2].children.resize(1025); }},
        {"a child beyond the objects", place(2, {.index = 7})},
        {"a child beyond the groups", place(2, {.isGroup = true, .index = 3})},
        {"a placed object", place(2, {.index = 3, .transform = std::array<float, 16>{}})},
        {"its own child", place(2, {.isGroup = true, .index = 2})},
        {"its own ancestor", place(2, {.isGroup = true, .index = 0})},
        {"a figure with a light as texture", add(K8FigureRecord{.textures = {3}})},
        {"a figure with 17 textures", add(K8FigureRecord{.textures = std::vector<uint16_t>(17)})},
        {"a figure with a texture as table", add(K8FigureRecord{.actionTable = 1})},
        {"an empty texture", add(K8TextureRecord{})},
        {"a light of mode 127", add(K8LightRecord{.mode = 127})},
        {"a colour with alpha", add(K8LightRecord{.color = 0x1000000})},
        {"a fog of mode 82", add(K8FogRecord{.mode = 82})},
        {"a type unknown", add(primitive(6, 0))},
        {"points without colour", add(primitive(1, 0))},
        {"normals 0x100", add(primitive(3, 0x100))},
        {"colour and texture", add(primitive(0x3000000, 0x3400))},
        {"sprites without parameters", add(primitive(5, 0))},
        {"no primitives", add(K8PrimitiveRecord{.type = 3, .values = {{{1}, {}, {}, {}, {}}}})},
        {"no positions", add(K8PrimitiveRecord{.type = 3, .count = 1})},
        {"65536 values",
         add(K8PrimitiveRecord{.type = 3, .count = 1, .values = {{std::vector<int32_t>(65536), {}, {}, {}, {}}}})}};
    for (const Case& c : cases) {
        K8Package package = everyRecord();
        ASSERT_NO_THROW(encodeK8(package));
        c.spoil(package);
        EXPECT_THROW(encodeK8(package), std::invalid_argument) << c.what;
    }
}

}  // namespace
}  // namespace encode
