#include "tools/inspect/package_inspector.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "tools/inspect/content_reader.h"

namespace inspect {

namespace {

struct PackageReader {
    std::span<const uint8_t> bytes;
    ContentReader in;
    PackageSummary out;
    std::vector<size_t> groupOffsets;  // of the records
};

void readHeader(PackageReader& r) {
    ContentReader& in = r.in;
    in.expect(in.u16("the magic") == 0x384B, "the magic", in.offset(), "the bytes \"K8\"");
    const uint32_t version = in.u16("the version");
    in.expect(version == 0, "the version", version, "0 (a package of objects)");
    r.out.objectSizeLimit = in.u32("the object size limit");
    in.expect(r.out.objectSizeLimit <= 0x80000, "the object size limit", int32_t(r.out.objectSizeLimit), "0 to 524288");
    const uint32_t objectCount = in.u16("the object count");
    in.expect(objectCount <= 1024, "the object count", objectCount, "at most 1024");
    r.out.objects.resize(objectCount);
    const uint32_t groupCount = in.u16("the group count");
    in.expect(groupCount <= 1024, "the group count", groupCount, "at most 1024");
    if (objectCount + groupCount == 0) in.reject("the package has neither groups nor objects");
    r.out.groups.resize(groupCount);
}

void readChild(PackageReader& r, PackageGroup& group) {
    ContentReader& in = r.in;
    const uint32_t entry = in.u16("a child entry"), index = entry & 0x3FFF, kind = entry >> 14;
    if (kind == 2) in.reject("a child entry is of kind 2, expected 0, 1 or 3");
    const size_t count = kind == 0 ? r.out.objects.size() : r.out.groups.size();
    in.expect(index < count, kind == 0 ? "a child's object index" : "a child's group index", index,
              "less than " + std::to_string(count));
    group.children.push_back({kind != 0, index});
    if (kind != 3) return;
    auto& transform = r.out.groups[index].transform.emplace();
    for (float& element : transform) element = in.f32("a child's transform");
}

void readGroups(PackageReader& r) {
    for (PackageGroup& group : r.out.groups) {
        r.groupOffsets.push_back(r.in.offset());
        const uint32_t childCount = r.in.u16("a group's child count");
        r.in.expect(childCount <= 1024, "a group's child count", childCount, "at most 1024");
        for (uint32_t i = 0; i < childCount; ++i) readChild(r, group);
    }
}

// Walks down from every group; one that is met again on the way down from itself is its own ancestor.
void rejectLoops(const PackageReader& r) {
    enum class State : uint8_t { Unseen, OnTheWay, Done };
    struct Step {
        uint32_t group, nextChild;
    };
    std::vector<State> states(r.out.groups.size());
    for (uint32_t start = 0; start < states.size(); ++start) {
        if (states[start] == State::Done) continue;
        std::vector<Step> way = {{start, 0}};
        while (!way.empty()) {
            Step& step = way.back();
            states[step.group] = State::OnTheWay;
            const std::vector<PackageChild>& children = r.out.groups[step.group].children;
            if (step.nextChild == children.size()) {
                states[step.group] = State::Done;
                way.pop_back();
                continue;
            }
            const PackageChild child = children[step.nextChild++];
            if (!child.isGroup || states[child.index] == State::Done) continue;
            if (states[child.index] == State::OnTheWay)
                throw ContentProblem(r.groupOffsets[child.index],
                                     "group " + std::to_string(child.index) + " is its own ancestor");
            way.push_back({child.index, 0});
        }
    }
}

// A type may stand in the top byte.
uint32_t plainType(uint32_t type) { return type & 0xFFFFFF ? type : type >> 24; }

// Why no primitive can have these mode bits, or null.
const char* problemOfParams(uint32_t type, uint32_t params) {
    const uint32_t normals = params & 0x300, colors = params & 0xC00, texture = params & 0x3000;
    if (type <= 2) {
        if (params & ~0xC00u) return "points and lines have colours only";
        if (!colors) return "points and lines need colours";
    } else if (type <= 4) {
        if (colors && texture) return "triangles and quadrilaterals have colours or texture coordinates, not both";
    } else {
        if (params & ~0x3013u) return "sprites have texture bits, alpha test and flags only";
        if (!texture) return "sprites need sprite parameters";
    }
    if (normals == 0x100) return "0x100 is no mode of normals";
    if (colors == 0xC00) return "0xC00 is no mode of colours";
    if (texture == 0x2000) return "0x2000 is no mode of texture coordinates or sprite parameters";
    if (texture == 0x1000 && type != 5) return "0x1000 is no mode of texture coordinates";
    return nullptr;
}

constexpr uint32_t kSprites = 5;
constexpr size_t kSpriteValues = 8;  // width, height, angle, s0, t0, s1, t1, flags

// Half of the longest diagonal among sprites whose size is not in pixels.
double spriteReach(const std::vector<int32_t>& values) {
    double reach = 0;
    for (size_t i = 0; i + kSpriteValues <= values.size(); i += kSpriteValues)
        if (!(values[i + 7] & 1))
            reach = std::max(reach, std::hypot(double(values[i]), double(values[i + 1])) / 2 / 4096);
    return reach;
}

void measure(PackagePrimitive& primitive, const std::vector<int32_t>& positions, double reach) {
    for (size_t i = 0; i < positions.size(); ++i) {
        double &least = primitive.least[i % 3], &greatest = primitive.greatest[i % 3];
        const double value = positions[i] / 4096.0;
        least = i < 3 ? value - reach : std::min(least, value - reach);
        greatest = i < 3 ? value + reach : std::max(greatest, value + reach);
    }
}

PackagePrimitive readPrimitive(ContentReader& in) {
    PackagePrimitive out;
    const uint32_t type = in.u32("the type");
    out.type = plainType(type);
    in.expect(out.type >= 1 && out.type <= 5, "the type", type, "1 to 5");
    out.params = in.u32("the params");
    if (const char* problem = problemOfParams(out.type, out.params))
        in.reject("the params are " + std::to_string(out.params) + ": " + problem);
    out.count = in.u16("the count");
    in.expect(out.count > 0, "the count", out.count, "at least 1");
    for (uint32_t& count : out.valueCounts) {
        count = in.u16("a value count");
        in.expect(count > 0 || &count != &out.valueCounts[0], "the position count", count, "at least 1");
    }
    std::array<std::vector<int32_t>, 5> values;
    for (size_t kind = 0; kind < values.size(); ++kind)
        for (uint32_t i = 0; i < out.valueCounts[kind]; ++i) values[kind].push_back(int32_t(in.u32("a value")));
    measure(out, values[0], out.type == kSprites ? spriteReach(values[4]) : 0);
    return out;
}

void readVector(ContentReader& in, const char* name, std::array<float, 3>& vector) {
    for (float& component : vector) component = in.f32(name);
}

PackageLight readLight(ContentReader& in) {
    PackageLight out;
    readVector(in, "the position", out.position);
    readVector(in, "the direction", out.direction);
    readVector(in, "the attenuation", out.attenuation);
    const uint32_t word = in.u32("the mode and colour");
    out.mode = word >> 24;
    in.expect(out.mode >= 128 && out.mode <= 131, "the mode", out.mode, "128 to 131");
    out.color = word & 0xFFFFFF;
    out.intensity = in.f32("the intensity");
    out.spotAngle = in.f32("the spot angle");
    out.spotExponent = in.f32("the spot exponent");
    return out;
}

PackageFog readFog(ContentReader& in) {
    PackageFog out;
    const uint32_t word = in.u32("the mode and colour");
    out.mode = word >> 24;
    in.expect(out.mode == 80 || out.mode == 81, "the mode", out.mode, "80 or 81");
    out.color = word & 0xFFFFFF;
    out.density = out.near = in.f32("the density or near distance");
    out.far = in.f32("the far distance");
    return out;
}

// What another inspector makes of a file that lies in this one; the offsets of its problems become offsets in this one.
template <typename Inspector>
auto inspectEmbedded(const PackageReader& r, size_t begin, size_t end, Inspector inspector) {
    try {
        return inspector(r.bytes.subspan(begin, end - begin));
    } catch (const ContentProblem& problem) {
        throw ContentProblem(begin + problem.offset, problem.what());
    }
}

PackageFigure readFigure(const PackageReader& r, ContentReader& in) {
    const std::string limit = "less than the " + std::to_string(r.out.objects.size()) + " objects";
    PackageFigure out;
    out.actionTable = in.u16("the action table");
    in.expect(out.actionTable < r.out.objects.size(), "the action table", out.actionTable, limit);
    const uint32_t textureCount = in.u16("the texture count");
    in.expect(textureCount <= 16, "the texture count", textureCount, "at most 16");
    for (uint32_t i = 0; i < textureCount; ++i) {
        out.textures.push_back(in.u16("a texture"));
        in.expect(out.textures.back() < r.out.objects.size(), "a texture", out.textures.back(), limit);
    }
    out.model = inspectEmbedded(r, in.offset(), in.size(), inspectFigure);
    return out;
}

constexpr uint32_t kFirstType = 0xFA;
constexpr const char* kTypeNames[] = {"a primitive", "a light", "a fog", "a texture", "a figure", "an action table"};

void readContent(const PackageReader& r, PackageObject& object, uint32_t type) {
    const size_t end = object.offset + object.length;
    ContentReader in(r.bytes.first(end), object.offset, "the record");
    switch (type) {
        case 0xFA: object.content = readPrimitive(in); break;
        case 0xFB: object.content = readLight(in); break;
        case 0xFC: object.content = readFog(in); break;
        case 0xFD: object.content = inspectEmbedded(r, object.offset, end, inspectImage); break;
        case 0xFE: object.content = readFigure(r, in); break;
        default: object.content = inspectEmbedded(r, object.offset, end, inspectActions); break;
    }
}

std::string nameOf(const PackageReader& r, size_t index) {
    return "object " + std::to_string(index) + ", " + kTypeNames[r.out.objects[index].content.index()];
}

void readObjects(PackageReader& r) {
    ContentReader& in = r.in;
    for (size_t i = 0; i < r.out.objects.size(); ++i) {
        const std::string number = "object " + std::to_string(i);
        const uint32_t header = in.u32("the header of " + number), type = header >> 24;
        in.expect(type >= kFirstType, "the type of " + number, type, "250 to 255");
        PackageObject& object = r.out.objects[i];
        object.length = header & 0xFFFFFF;
        in.expect(object.length > 0 && object.length < r.out.objectSizeLimit, "the length of " + number, object.length,
                  "1 to less than the limit of " + std::to_string(r.out.objectSizeLimit));
        object.offset = in.offset();
        in.skip("the body of " + number, object.length);
        try {
            readContent(r, object, type);
        } catch (const ContentProblem& problem) {
            throw ContentProblem(problem.offset, number + ", " + kTypeNames[type - kFirstType] + ": " + problem.what());
        }
    }
}

// A figure's index of 0 stands for nothing, so object 0 serves no figure.
template <typename Wanted>
void checkReference(const PackageReader& r, size_t figure, size_t offset, const char* field, uint32_t index) {
    if (index == 0 || std::holds_alternative<Wanted>(r.out.objects[index].content)) return;
    throw ContentProblem(offset, nameOf(r, figure) + ": " + field + " is " + nameOf(r, index));
}

void checkReferences(const PackageReader& r) {
    for (size_t i = 0; i < r.out.objects.size(); ++i) {
        const auto* figure = std::get_if<PackageFigure>(&r.out.objects[i].content);
        if (!figure) continue;
        size_t offset = r.out.objects[i].offset;
        checkReference<ActionTableSummary>(r, i, offset, "the action table", figure->actionTable);
        offset += 4;  // the texture count follows
        for (const uint32_t texture : figure->textures) {
            checkReference<ImageSummary>(r, i, offset, "a texture", texture);
            offset += 2;
        }
    }
}

}  // namespace

PackageSummary inspectPackage(std::span<const uint8_t> bytes) {
    PackageReader r{bytes, ContentReader(bytes), {}, {}};
    readHeader(r);
    readGroups(r);
    rejectLoops(r);
    readObjects(r);
    checkReferences(r);
    r.out.trailerBytes = bytes.size() - r.in.offset();
    return r.out;
}

}  // namespace inspect
