#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "tests/loader/small_files.h"
#include "tests/tools/literal_bytes.h"

namespace encode {
namespace {

TEST(K8Encoder, WritesEveryRecord) {
    K8Package package = everyRecord();
    package.trailer = {0xEE};
    const EncodedFile file = encodeK8(package);
    const std::string turned =
        "01C0 00000000 00000000 00000040 0000C842  00000000 00000040 00000000 00000000"
        "     000000C0 00000000 00000000 00000000  00000000 00000000 00000000 0000803F";
    const std::string moved =
        "03C0 0000803F 00000000 00000000 00000000  00000000 0000803F 00000000 000048C2"
        "     00000000 00000000 0000803F 00000000  00000000 00000000 00000000 0000803F";
    const ByteList groups = hexBytes("4B38 0000 00000800 0800 0400" + std::string("0300") + turned +
                                     "0240 0500  0200 0000 0300  0200" + moved + "0700  0100" + turned);
    EXPECT_EQ(file.bytes,
              groups + hexBytes("810000FE 0200 0300 0100 0000 0100") + smallFigure().bytes +  //
                  hexBytes("460000FD") + smallTexture().bytes + hexBytes("3B0000FF") + smallTable().bytes +
                  hexBytes("340000FB 0000803F 000000C0 0000003F  00000000 ABAAAA3E 000080BF"
                           "         0000003F 0000803E 00000040  56341283 0000C03F 0000F041 00000041"
                           "0C0000FC EFCDAB50 0000403F 00000000"
                           "0C0000FC 03020151 00000040 0000F041"
                           "300000FA 00000004 11030000 0100 0200 0100 0000 0100 0300"
                           "         01000000 FEFFFFFF  03000000  04000000  05000000 06000000 07000000"
                           "400000FA 05000000 00100000 0100 0300 0000 0000 0000 0800"
                           "         00000000 00700000 00000000  00600000 00800000") +
                  ByteList(24) + ByteList{0xEE});
    EXPECT_EQ(file.get("object[1].height"), 2u) << "the fields of a file keep their names";
    EXPECT_EQ(file.get("object[7].value[0][1]"), 7u * 4096);
    EXPECT_EQ(file.get("group[0].child[0].m[3]"), 0x42C80000u);
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
        {"a child beyond the objects", place(2, {.index = 8})},
        {"a child beyond the groups", place(2, {.isGroup = true, .index = 4})},
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
    for (const uint32_t params : {0x400, 0x800})
        EXPECT_NO_THROW(encodeK8({.objects = {primitive(1, params), primitive(2, params)}}));
    for (const Case& c : cases) {
        K8Package package = everyRecord();
        ASSERT_NO_THROW(encodeK8(package));
        c.spoil(package);
        EXPECT_THROW(encodeK8(package), std::invalid_argument) << c.what;
    }
}

}  // namespace
}  // namespace encode
