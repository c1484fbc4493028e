#include "tools/encode/k8_encoder.h"

#include <algorithm>
#include <span>
#include <stdexcept>

namespace encode {

static constexpr size_t kCountLimit = 1024;  // of objects, of groups, of children of a group
static constexpr size_t kTextureLimit = 16;
static constexpr uint32_t kSizeLimit = 0x80000;
static constexpr uint32_t kFirstType = 0xFA;

static void check(bool condition, const std::string& text) {
    if (!condition) throw std::invalid_argument("k8: " + text);
}

// --- Checks ---

static bool namesOne(const K8Package& package, uint16_t index, size_t variant) {
    return index == 0 || (index < package.objects.size() && package.objects[index].index() == variant);
}

static bool takesParams(uint32_t type, uint32_t params) {
    const uint32_t normal = params & 0x300, color = params & 0xC00, texture = params & 0x3000;
    switch (type) {
        case 1:
        case 2: return params == 0x400 || params == 0x800;
        case 3:
        case 4: return normal != 0x100 && color != 0xC00 && (texture == 0 || (texture == 0x3000 && color == 0));
        case 5: return (texture == 0x1000 || texture == 0x3000) && (params & ~0x3013u) == 0;
        default: return false;
    }
}

static void checkRecord(const K8Package&, const std::string& name, const K8PrimitiveRecord& record) {
    const uint32_t type = record.type & 0xFFFFFF ? record.type : record.type >> 24;
    check(takesParams(type, record.params), name + ": no such primitive");
    check(record.count > 0, name + " has no primitives");
    check(!record.values[0].empty(), name + " has no positions");
}

static void checkRecord(const K8Package&, const std::string& name, const K8LightRecord& record) {
    check(record.mode >= 128 && record.mode <= 131, name + ": no such light mode");
}

static void checkRecord(const K8Package&, const std::string& name, const K8FogRecord& record) {
    check(record.mode == 80 || record.mode == 81, name + ": no such fog mode");
}

static void checkRecord(const K8Package&, const std::string&, const K8TextureRecord&) {}
static void checkRecord(const K8Package&, const std::string&, const K8ActionTableRecord&) {}

static void checkRecord(const K8Package& package, const std::string& name, const K8FigureRecord& record) {
    static const size_t kTexture = K8Record(K8TextureRecord{}).index(),
                        kTable = K8Record(K8ActionTableRecord{}).index();
    check(namesOne(package, record.actionTable, kTable), name + ": actionTable names no action table");
    check(record.textures.size() <= kTextureLimit, name + " has more than 16 textures");
    for (size_t k = 0; k < record.textures.size(); ++k)
        check(namesOne(package, record.textures[k], kTexture),
              name + ": " + indexed("texture", k) + " names no texture");
}

static void checkChildren(const K8Package& package, const std::string& name, const std::vector<K8Child>& children) {
    check(children.size() <= kCountLimit, name + " has more than 1024 children");
    for (const K8Child& child : children) {
        const size_t count = child.isGroup ? package.groups.size() : package.objects.size();
        check(child.index < count, name + " has a child that does not exist");
        check(child.isGroup || !child.transform, name + ": an object has no transform of its own");
    }
}

enum class Visit : uint8_t { None, Open, Done };

static void checkAncestors(const K8Package& package, size_t g, std::vector<Visit>& visits) {
    check(visits[g] != Visit::Open, indexed("group", g) + " is its own ancestor");
    if (visits[g] == Visit::Done) return;
    visits[g] = Visit::Open;
    for (const K8Child& child : package.groups[g].children)
        if (child.isGroup) checkAncestors(package, child.index, visits);
    visits[g] = Visit::Done;
}

static void checkGroups(const K8Package& package) {
    const size_t count = package.groups.size();
    check(count <= kCountLimit, "there are more than 1024 groups");
    for (size_t g = 0; g < count; ++g) checkChildren(package, indexed("group", g), package.groups[g].children);
    std::vector<Visit> visits(count);
    for (size_t g = 0; g < count; ++g) checkAncestors(package, g, visits);
}

static void checkPackage(const K8Package& package) {
    check(package.version == 0, "packages of objects have version 0");
    check(package.objectSizeLimit <= kSizeLimit, "the object size limit is above 0x80000");
    check(package.objects.size() <= kCountLimit, "there are more than 1024 objects");
    check(!package.objects.empty() || !package.groups.empty(), "there is nothing in the package");
    checkGroups(package);
    for (size_t i = 0; i < package.objects.size(); ++i)
        std::visit([&](const auto& each) { checkRecord(package, indexed("object", i), each); }, package.objects[i]);
}

// --- Records ---

static void putFloats(ByteWriter& writer, const std::string& name, std::span<const float> values) {
    for (size_t e = 0; e < values.size(); ++e) writer.putF32(indexed(name, e), values[e]);
}

// The mode and, below it, the colour.
static void putMode(ByteWriter& writer, uint8_t mode, uint32_t color) {
    if (color > 0xFFFFFF) throw std::invalid_argument("a colour has more than 24 bits");
    writer.putU32("mode", uint32_t(mode) << 24 | color);
}

static void putBody(ByteWriter& writer, const K8PrimitiveRecord& record) {
    writer.putU32("type", record.type);
    writer.putU32("params", record.params);
    writer.putU16("count", record.count);
    for (size_t i = 0; i < record.values.size(); ++i) writer.putU16(indexed("valueCount", i), record.values[i].size());
    for (size_t i = 0; i < record.values.size(); ++i)
        for (size_t k = 0; k < record.values[i].size(); ++k)
            writer.putI32(indexed(indexed("value", i), k), record.values[i][k]);
}

static void putBody(ByteWriter& writer, const K8LightRecord& record) {
    putFloats(writer, "position", record.position);
    putFloats(writer, "direction", record.direction);
    putFloats(writer, "attenuation", record.attenuation);
    putMode(writer, record.mode, record.color);
    writer.putF32("intensity", record.intensity);
    writer.putF32("spotAngle", record.spotAngle);
    writer.putF32("spotExponent", record.spotExponent);
}

static void putBody(ByteWriter& writer, const K8FogRecord& record) {
    putMode(writer, record.mode, record.color);
    const bool isExponential = record.mode == 80;
    writer.putF32("first", isExponential ? record.density : record.near);
    writer.putF32("second", isExponential ? 0 : record.far);
}

static void putBody(ByteWriter& writer, const K8TextureRecord& record) { writer.putFile("", record.image); }
static void putBody(ByteWriter& writer, const K8ActionTableRecord& record) { writer.putFile("", record.table); }

static void putBody(ByteWriter& writer, const K8FigureRecord& record) {
    writer.putU16("actionTable", record.actionTable);
    writer.putU16("textureCount", record.textures.size());
    for (size_t k = 0; k < record.textures.size(); ++k) writer.putU16(indexed("texture", k), record.textures[k]);
    writer.putFile("", record.model);
}

static void putRecord(ByteWriter& writer, const std::string& name, const K8Record& record, const K8Package& package) {
    ByteWriter body;
    try {
        std::visit([&](const auto& each) { putBody(body, each); }, record);
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(name + ": " + error.what());
    }
    const size_t size = body.byteCount();
    check(package.allowInvalid || (size > 0 && size < package.objectSizeLimit),
          name + ": " + std::to_string(size) + " bytes are not below the object size limit");
    check(size <= 0xFFFFFF, name + " is longer than a record can say");
    writer.putU32(name + ".header", uint32_t(kFirstType + record.index()) << 24 | uint32_t(size));
    writer.putFile(name + ".", body.take());
}

static void putGroup(ByteWriter& writer, const std::string& name, const K8GroupRecord& group) {
    writer.putU16(name + ".childCount", group.children.size());
    for (size_t c = 0; c < group.children.size(); ++c) {
        const K8Child& child = group.children[c];
        check(child.index < 0x4000, name + ": an index has 14 bits");
        const std::string childName = indexed(name + ".child", c);
        const uint32_t kind = child.transform ? 3 : child.isGroup;
        writer.putU16(childName, kind << 14 | child.index);
        if (child.transform) putFloats(writer, childName + ".m", *child.transform);
    }
}

EncodedFile encodeK8(const K8Package& package) {
    if (!package.allowInvalid) checkPackage(package);
    ByteWriter writer;
    writer.putU16("magic", 0x384B);
    writer.putU16("version", package.version);
    writer.putU32("objectSizeLimit", package.objectSizeLimit);
    writer.putU16("objectCount", package.objects.size());
    writer.putU16("groupCount", package.groups.size());
    for (size_t g = 0; g < package.groups.size(); ++g) putGroup(writer, indexed("group", g), package.groups[g]);
    for (size_t i = 0; i < package.objects.size(); ++i)
        putRecord(writer, indexed("object", i), package.objects[i], package);
    writer.putBytes(package.trailer);
    return writer.take();
}

}  // namespace encode
