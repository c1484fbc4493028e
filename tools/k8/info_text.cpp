#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include "k8.h"
#include "tools/k8/info.h"
#include "tools/k8/info_names.h"
#include "tools/k8/scene_info.h"
#include "tools/k8/text_tree.h"

namespace {

using namespace inspect;

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* pattern, ...) {
    char buffer[256];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(buffer, sizeof buffer, pattern, arguments);
    va_end(arguments);
    return buffer;
}

// "1 bone", "2 bones"
std::string counted(size_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string vectorText(const std::array<float, 3>& v) {
    return format("(%g, %g, %g)", double(v[0]), double(v[1]), double(v[2]));
}

// Parts that say something, with commas.
std::string joined(const std::vector<std::string>& parts, const char* ifNone) {
    std::string out;
    for (const std::string& part : parts) out += (out.empty() ? "" : ", ") + part;
    return out.empty() ? ifNone : out;
}

// Lines of a name and a value, all indented alike.
class TextBlock {
public:
    explicit TextBlock(size_t indentation) : indentation_(indentation, ' ') {}
    void add(const char* name, const std::string& value) {
        text_ += indentation_ + name + std::string(10 - std::min<size_t>(std::string_view(name).size(), 9), ' ') +
                 value + "\n";
    }
    void addLines(const std::string& lines) { text_ += lines; }
    void addTree(const std::vector<TreeLine>& lines) { text_ += drawTree(lines, indentation_ + "  "); }
    std::string take() { return std::move(text_); }

private:
    std::string indentation_, text_;
};

std::string boxText(const std::array<double, 3>& least, const std::array<double, 3>& greatest, double unit) {
    return format("(%g, %g, %g) to (%g, %g, %g)", least[0] / unit, least[1] / unit, least[2] / unit, greatest[0] / unit,
                  greatest[1] / unit, greatest[2] / unit);
}

std::string polygonsText(const FigurePolygons& p) {
    std::vector<std::string> parts;
    if (p.texturedTriangles) parts.push_back(counted(p.texturedTriangles, "textured triangle"));
    if (p.texturedQuads) parts.push_back(counted(p.texturedQuads, "textured quad"));
    if (p.colorTriangles) parts.push_back(counted(p.colorTriangles, "coloured triangle"));
    if (p.colorQuads) parts.push_back(counted(p.colorQuads, "coloured quad"));
    return joined(parts, "none");
}

// Children by parent; the roots stand behind the last bone.
std::vector<std::vector<uint32_t>> childrenOf(const std::vector<FigureBone>& bones) {
    std::vector<std::vector<uint32_t>> children(bones.size() + 1);
    for (uint32_t b = 0; b < bones.size(); ++b)
        children[bones[b].parent < 0 ? bones.size() : size_t(bones[b].parent)].push_back(b);
    return children;
}

std::vector<TreeLine> boneTree(const std::vector<FigureBone>& bones) {
    struct Step {
        uint32_t bone;
        size_t depth;
    };
    const auto children = childrenOf(bones);
    std::vector<TreeLine> lines;
    std::vector<Step> steps;
    const auto enter = [&](size_t parent, size_t depth) {
        for (auto child = children[parent].rbegin(); child != children[parent].rend(); ++child)
            steps.push_back({*child, depth});
    };
    enter(bones.size(), 0);
    while (!steps.empty()) {
        const auto [bone, depth] = steps.back();
        steps.pop_back();
        lines.push_back(
            {depth,
             "bone " + std::to_string(bone) + ": " +
                 (bones[bone].vertexCount == 1 ? "1 vertex" : std::to_string(bones[bone].vertexCount) + " vertices")});
        enter(bone, depth + 1);
    }
    return lines;
}

void describe(TextBlock& out, const FigureSummary& figure) {
    out.add("format", format("version %d; vertices in format %u, normals %u, polygons %u, bones %u", figure.version,
                             figure.vertexFormat, figure.normalFormat, figure.polygonFormat, figure.boneFormat));
    out.add("vertices", std::to_string(figure.vertexCount));
    out.add("polygons", polygonsText(figure.polygons));
    out.add("box", boxText(figure.least, figure.greatest, 64) + ", at rest");
    out.add("textures", std::to_string(figure.textureCount));
    out.add("colours", std::to_string(figure.colorCount));
    out.add("patterns", std::to_string(figure.patternCount));
    std::vector<TreeLine> patterns;
    for (const FigurePolygons& pattern : figure.patterns)
        patterns.push_back({0, "pattern " + std::to_string(patterns.size()) +
                                   (patterns.empty() ? " (always drawn): " : ": ") + polygonsText(pattern)});
    if (patterns.size() > 1) out.addTree(patterns);
    out.add("bones", std::to_string(figure.bones.size()));
    out.addTree(boneTree(figure.bones));
}

std::string tracksText(const ActionSummary& action) {
    std::vector<std::string> parts;
    for (size_t kind = 0; kind < action.trackKinds.size(); ++kind)
        if (action.trackKinds[kind])
            parts.push_back(std::to_string(action.trackKinds[kind]) + " " + kTrackKindNames[kind].words);
    return joined(parts, "no tracks");
}

void describe(TextBlock& out, const ActionTableSummary& table) {
    out.add("format", format("version %d", table.version));
    out.add("bones", std::to_string(table.boneCount));
    out.add("actions", std::to_string(table.actions.size()));
    std::vector<TreeLine> actions;
    for (const ActionSummary& action : table.actions) {
        actions.push_back({0, "action " + std::to_string(actions.size()) + ": " +
                                  counted(uint32_t(action.frameCount), "frame") + "; tracks: " + tracksText(action) +
                                  (action.patternKeys ? "; " + counted(action.patternKeys, "pattern key") : "")});
    }
    out.addTree(actions);
}

void describe(TextBlock& out, const ImageSummary& image) {
    out.add("size", format("%u x %u, %u bits per pixel", image.width, image.height, image.bitsPerPixel));
    if (image.textureSide) out.add("padded", format("to %u x %u", image.textureSide, image.textureSide));
}

void describe(TextBlock& out, const PackagePrimitive& primitive) {
    out.add("count", counted(primitive.count, primitiveTypeName(primitive.type)));
    out.add("params", format("0x%X", primitive.params));
    std::vector<std::string> values;
    for (size_t kind = 0; kind < primitive.valueCounts.size(); ++kind)
        if (primitive.valueCounts[kind])
            values.push_back(kPrimitiveValueNames[kind].words + (" " + std::to_string(primitive.valueCounts[kind])));
    out.add("values", joined(values, "none"));
    out.add("box", boxText(primitive.least, primitive.greatest, 1));
}

void describe(TextBlock& out, const PackageLight& light) {
    const bool hasPosition = light.mode == K8_LIGHT_OMNI || light.mode == K8_LIGHT_SPOT;
    const bool hasDirection = light.mode == K8_LIGHT_DIRECTIONAL || light.mode == K8_LIGHT_SPOT;
    const std::array<float, 3>& a = light.attenuation;
    out.add("mode", lightModeName(light.mode));
    out.add("colour", format("%06x, intensity %g", light.color, double(light.intensity)));
    if (hasPosition) out.add("position", vectorText(light.position));
    if (hasDirection) out.add("direction", vectorText(light.direction));
    if (hasPosition)
        out.add("fading", format("constant %g, linear %g, quadratic %g", double(a[0]), double(a[1]), double(a[2])));
    if (light.mode == K8_LIGHT_SPOT)
        out.add("cone", format("%g degrees, exponent %g", double(light.spotAngle), double(light.spotExponent)));
}

void describe(TextBlock& out, const PackageFog& fog) {
    out.add("colour", format("%06x", fog.color));
    out.add("mode", fog.mode == K8_FOG_LINEAR ? format("linear, from %g to %g", double(fog.near), double(fog.far))
                                              : format("exponential, density %g", double(fog.density)));
}

std::string objectReference(uint32_t index) { return index ? "object " + std::to_string(index) : "none"; }

void describe(TextBlock& out, const PackageFigure& figure) {
    out.add("actions", objectReference(figure.actionTable));
    std::vector<std::string> textures;
    for (const uint32_t texture : figure.textures) textures.push_back(objectReference(texture));
    out.add("slots", joined(textures, "none"));
    describe(out, figure.model);
}

std::string childText(const PackageSummary& package, const PackageChild& child) {
    const std::string number = std::to_string(child.index);
    if (!child.isGroup) return "object " + number + ": " + objectKind(package.objects[child.index]);
    const auto& transform = package.groups[child.index].transform;
    if (!transform) return "group " + number;
    const auto& m = *transform;
    std::array<float, 16> moved = {1, 0, 0, m[3], 0, 1, 0, m[7], 0, 0, 1, m[11], 0, 0, 0, 1};
    return "group " + number + " at " + vectorText({m[3], m[7], m[11]}) + (m == moved ? "" : ", turned or scaled");
}

// Each group with its children; below groups that stand in several places only the first time.
std::vector<TreeLine> groupTree(const PackageSummary& package) {
    struct Step {
        PackageChild child;
        size_t depth;
    };
    std::vector<bool> isChild(package.groups.size()), isShown(package.groups.size());
    for (const PackageGroup& group : package.groups)
        for (const PackageChild& child : group.children)
            if (child.isGroup) isChild[child.index] = true;
    std::vector<Step> steps;
    for (auto g = uint32_t(package.groups.size()); g-- > 0;)
        if (!isChild[g] || g == 0) steps.push_back({{true, g}, 0});
    std::vector<TreeLine> lines;
    while (!steps.empty()) {
        const auto [child, depth] = steps.back();
        steps.pop_back();
        std::string text = childText(package, child);
        if (child.isGroup && child.index == 0) text += " (root)";
        const std::vector<PackageChild>* children = child.isGroup ? &package.groups[child.index].children : nullptr;
        if (children && !children->empty() && isShown[child.index]) text += ", as above";
        lines.push_back({depth, text});
        if (!children || isShown[child.index]) continue;
        isShown[child.index] = true;
        for (auto c = children->rbegin(); c != children->rend(); ++c) steps.push_back({*c, depth + 1});
    }
    return lines;
}

std::string describeObjects(const PackageSummary& package) {
    std::string out;
    for (size_t i = 0; i < package.objects.size(); ++i) {
        const PackageObject& object = package.objects[i];
        out +=
            format("  object %zu: %s, %u bytes at offset %zu\n", i, objectKind(object), object.length, object.offset);
        TextBlock block(4);
        std::visit([&](const auto& content) { describe(block, content); }, object.content);
        out += block.take();
    }
    return out;
}

void describe(TextBlock& out, const PackageSummary& package) {
    out.add("format",
            format("version 0; by its header, every object takes less than %u bytes", package.objectSizeLimit));
    if (package.trailerBytes) out.add("unused", counted(package.trailerBytes, "byte") + " at the end");
    out.add("groups", std::to_string(package.groups.size()));
    out.addTree(groupTree(package));
    out.add("objects", std::to_string(package.objects.size()));
}

void describe(TextBlock& out, const SceneSummary& scene) { out.addLines(sceneText(scene)); }

}  // namespace

std::string textOf(const ContentInfo& info) {
    TextBlock block(2);
    std::visit([&](const auto& summary) { describe(block, summary); }, info.summary);
    std::string out =
        info.path + ": " + kindOf(info.summary) + ", " + counted(info.byteCount, "byte") + "\n" + block.take();
    if (const auto* package = std::get_if<PackageSummary>(&info.summary)) out += describeObjects(*package);
    return out;
}
