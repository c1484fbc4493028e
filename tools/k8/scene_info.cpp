#include "tools/k8/scene_info.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>

#include "tools/inspect/scene_transform.h"
#include "tools/k8/scene_facts.h"
#include "tools/k8/text_tree.h"

using namespace inspect;

static std::string numberText(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

static std::string colorText(const SceneColor& color) {
    char text[16];
    std::snprintf(text, sizeof text, color.hasAlpha ? "%08x" : "%06x", color.argb);
    return text;
}

static std::string counted(size_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// --- Text ---

// Content can say anything; what is no printable ASCII does not reach the terminal.
static std::string printable(std::string text) {
    for (char& c : text)
        if (c < ' ' || c > '~') c = '?';
    return text;
}

static std::string textOf(const Facts& facts);

namespace {

struct TextValue {
    std::string operator()(bool value) const { return value ? "yes" : "no"; }
    std::string operator()(int64_t value) const { return std::to_string(value); }
    std::string operator()(float value) const { return numberText(double(value)); }
    std::string operator()(const std::string& value) const { return value; }
    std::string operator()(const SceneColor& value) const { return colorText(value); }
    std::string operator()(const ObjectRef& value) const {
        return value.number == 0 ? "none" : "object " + std::to_string(value.number);
    }
    std::string operator()(const std::vector<int64_t>& values) const { return listText(values, ", ", kShown); }
    std::string operator()(const std::vector<float>& values) const {
        return "(" + listText(values, ", ", SIZE_MAX) + ")";
    }
    std::string operator()(const std::vector<ObjectRef>& values) const { return listText(values, " + ", kShown); }
    std::string operator()(const std::vector<Facts>& values) const { return listText(values, " ", kShown); }
    std::string operator()(const Facts& value) const { return "[" + textOf(value) + "]"; }

    template <typename T>
    std::string listText(const std::vector<T>& values, const char* separator, size_t shown) const {
        std::string out;
        for (size_t i = 0; i < std::min(values.size(), shown); ++i)
            out += (i == 0 ? "" : separator) + (*this)(values[i]);
        if (values.size() > shown) out += separator + std::to_string(values.size() - shown) + " more";
        return values.empty() ? "none" : out;
    }

    static constexpr size_t kShown = 8;  // elements of a list
};

}  // namespace

// "fieldOfView" to "field of view", "isScaled" to "scaled", "vertexColors" to "vertex colours"
static std::string wordsOf(std::string_view key) {
    if (key.starts_with("is")) key.remove_prefix(2);
    if (key.starts_with("has")) key.remove_prefix(3);
    std::string words;
    for (const char c : key) {
        if (std::isupper(c) && !words.empty()) words += ' ';
        words += char(std::tolower(c));
    }
    if (const size_t color = words.find("color"); color != words.npos) words.replace(color, 5, "colour");
    return words;
}

static std::string textOf(const Facts& facts) {
    std::string out;
    for (const Fact& fact : facts) {
        if (fact.isUsual) continue;
        if (!out.empty()) out += ", ";
        out += wordsOf(fact.key) + " " + std::visit(TextValue(), fact.value);
    }
    return out;
}

// --- The tree ---

static std::string meshText(const SceneSummary& scene, const SceneMesh& mesh) {
    uint32_t triangles = 0;
    for (const SceneSubmesh& submesh : mesh.submeshes)
        triangles += std::get<SceneTriangleStrips>(scene.at(submesh.strips).content).triangleCount;
    const uint32_t vertices = std::get<SceneVertexBuffer>(scene.at(mesh.vertices).content).vertexCount;
    return (vertices == 1 ? "1 vertex" : std::to_string(vertices) + " vertices") + ", " +
           counted(triangles, "triangle") + " in " +
           (mesh.submeshes.size() == 1 ? "1 submesh" : std::to_string(mesh.submeshes.size()) + " submeshes");
}

// Empty for a node that stands where its parent does.
static std::string placeText(const SceneTransform& transform) {
    const SceneMatrix m = compositeOf(transform);
    SceneMatrix shift = kSceneIdentity;
    for (const size_t element : {3, 7, 11}) shift[element] = m[element];
    if (m == kSceneIdentity) return "";
    return "; at (" + numberText(double(m[3])) + ", " + numberText(double(m[7])) + ", " + numberText(double(m[11])) +
           ")" + (m == shift ? "" : ", turned or scaled");
}

static std::string nodeText(const SceneSummary& scene, uint32_t number) {
    const SceneObject& object = scene.at(number);
    std::string out = nameOf(object.type()) + (" " + std::to_string(number));
    if (object.userId != 0) out += ", user id " + std::to_string(object.userId);
    if (const SceneMesh* mesh = meshOf(object)) out += ": " + meshText(scene, *mesh);
    if (number == std::get<SceneWorld>(scene.at(scene.world).content).activeCamera) out += " (active)";
    out += placeText(*object.transform);
    if (!object.node->isRendered) out += "; not rendered";
    return out;
}

// --- The scene ---

static std::string line(const char* name, const std::string& value) {
    return "  " + std::string(name) + std::string(10 - std::string_view(name).size(), ' ') + value + "\n";
}

static std::string damageText(const SceneSummary& scene) {
    std::string out;
    for (size_t s = 0; s < scene.sections.size(); ++s)
        if (!scene.sections[s].isIntact) out += "; section " + std::to_string(s) + " does not match its checksum";
    return out;
}

static std::string boxText(const SceneSummary& scene) {
    std::string out;
    for (const auto* corner : {&scene.least, &scene.greatest}) {
        out += out.empty() ? "(" : " to (";
        for (size_t axis = 0; axis < 3; ++axis) out += (axis ? ", " : "") + numberText((*corner)[axis]);
        out += ")";
    }
    return out;
}

static std::string classesText(const SceneSummary& scene) {
    std::map<SceneType, size_t> counts;
    for (const SceneObject& object : scene.objects) ++counts[object.type()];
    std::string out;
    for (const auto& [type, count] : counts)
        out += (out.empty() ? "" : ", ") + std::to_string(count) + " " + nameOf(type);
    return out;
}

static std::string animationText(const SceneSummary& scene, uint32_t trackNumber) {
    const auto& track = std::get<SceneAnimationTrack>(scene.at(trackNumber).content);
    const auto& sequence = std::get<SceneKeyframeSequence>(scene.at(track.sequence).content);
    return std::string(nameOf(track.property)) + ", " + counted(sequence.times.size(), "keyframe") + " in " +
           std::to_string(sequence.duration) + " ms, " + interpolationName(sequence.interpolation) +
           (sequence.repeats ? ", repeated" : "") + (track.controller == 0 ? ", without controller: stands still" : "");
}

static std::vector<TreeLine> animationLines(const SceneSummary& scene) {
    std::vector<TreeLine> lines;
    for (uint32_t number = kFirstSceneNumber; number - kFirstSceneNumber < scene.objects.size(); ++number) {
        const SceneObject& object = scene.at(number);
        for (const uint32_t track : object.tracks)
            lines.push_back(
                {0, nameOf(object.type()) + (" " + std::to_string(number)) + ": " + animationText(scene, track)});
    }
    return lines;
}

// Facts run over several lines where one would be too long.
static std::string wrapped(const std::string& text) {
    constexpr size_t kWidth = 100;
    std::string out;
    for (size_t begin = 0; begin < text.size();) {
        size_t end = text.size();
        if (end - begin > kWidth) {
            const size_t space = text.rfind(' ', begin + kWidth);
            if (space != text.npos && space > begin) end = space;
        }
        out += "    " + text.substr(begin, end - begin) + "\n";
        begin = end + 1;
    }
    return out;
}

std::string sceneText(const SceneSummary& scene) {
    std::string out;
    if (scene.header && !scene.header->author.empty()) out += line("author", printable(scene.header->author));
    for (const std::string& name : scene.externalReferences)
        out += line("refers to", printable(name) + ", which is not read");
    if (scene.trailerBytes) out += line("unused", counted(scene.trailerBytes, "byte") + " at the end");
    out += line("sections", std::to_string(scene.sections.size()) + damageText(scene));
    out += line("box", boxText(scene) + ", as placed");
    std::vector<TreeLine> tree;
    for (const SceneTreeNode& node : treeOf(scene)) tree.push_back({node.depth, nodeText(scene, node.number)});
    out += line("nodes", std::to_string(tree.size())) + drawTree(tree, "    ");
    const std::vector<TreeLine> animations = animationLines(scene);
    out += line("animated", counted(animations.size(), "track")) + drawTree(animations, "    ");
    out += line("objects", std::to_string(scene.objects.size())) + wrapped(classesText(scene));
    for (uint32_t number = kFirstSceneNumber; number - kFirstSceneNumber < scene.objects.size(); ++number) {
        const SceneObject& object = scene.at(number);
        out += "  object " + std::to_string(number) + ": " + nameOf(object.type()) + ", " +
               counted(object.length, "byte") + " at offset " + std::to_string(object.offset) + "\n" +
               wrapped(textOf(factsOf(object)));
    }
    return out;
}
