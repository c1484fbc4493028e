// All JSON is made here: the headers of the JSON library take long to compile.
#include <cstdio>
#include <nlohmann/json.hpp>

#include "k8.h"
#include "tools/k8/info.h"
#include "tools/k8/info_names.h"
#include "tools/k8/scene_facts.h"

namespace {

using namespace inspect;
using Json = nlohmann::ordered_json;

std::string colorText(const SceneColor& color) {
    char text[16];
    std::snprintf(text, sizeof text, color.hasAlpha ? "%08x" : "%06x", color.argb);
    return text;
}
std::string colorText(uint32_t rgb) { return colorText({rgb & 0xFFFFFF, false}); }

Json boxOf(const std::array<double, 3>& least, const std::array<double, 3>& greatest, double unit) {
    Json out = {{"least", Json::array()}, {"greatest", Json::array()}};
    for (size_t i = 0; i < 3; ++i) {
        out["least"].push_back(least[i] / unit);
        out["greatest"].push_back(greatest[i] / unit);
    }
    return out;
}

Json polygonsOf(const FigurePolygons& polygons) {
    return {{"texturedTriangles", polygons.texturedTriangles},
            {"texturedQuads", polygons.texturedQuads},
            {"colorTriangles", polygons.colorTriangles},
            {"colorQuads", polygons.colorQuads}};
}

Json describe(const FigureSummary& figure) {
    Json out = {
        {"version", figure.version},
        {"formats",
         {{"vertex", figure.vertexFormat},
          {"normal", figure.normalFormat},
          {"polygon", figure.polygonFormat},
          {"bone", figure.boneFormat}}},
        {"vertexCount", figure.vertexCount},
        {"polygons", polygonsOf(figure.polygons)},
        {"box", boxOf(figure.least, figure.greatest, 64)},
        {"textureCount", figure.textureCount},
        {"colorCount", figure.colorCount},
        {"patterns", Json::array()},
        {"bones", Json::array()},
    };
    for (const FigurePolygons& pattern : figure.patterns) out["patterns"].push_back(polygonsOf(pattern));
    for (const FigureBone& bone : figure.bones)
        out["bones"].push_back({{"parent", bone.parent}, {"vertexCount", bone.vertexCount}});
    return out;
}

Json describe(const ActionTableSummary& table) {
    Json out = {{"version", table.version}, {"boneCount", table.boneCount}, {"actions", Json::array()}};
    for (const ActionSummary& action : table.actions) {
        Json tracks = Json::object();
        for (size_t kind = 0; kind < action.trackKinds.size(); ++kind)
            if (action.trackKinds[kind]) tracks[kTrackKindNames[kind].key] = action.trackKinds[kind];
        out["actions"].push_back(
            {{"frameCount", action.frameCount}, {"tracks", tracks}, {"patternKeys", action.patternKeys}});
    }
    return out;
}

Json describe(const ImageSummary& image) {
    return {{"width", image.width},
            {"height", image.height},
            {"bitsPerPixel", image.bitsPerPixel},
            {"paddedSide", image.textureSide ? Json(image.textureSide) : Json()}};
}

Json describe(const PackagePrimitive& primitive) {
    Json out = {{"type", primitiveTypeName(primitive.type)},
                {"params", primitive.params},
                {"count", primitive.count},
                {"valueCounts", Json::object()},
                {"box", boxOf(primitive.least, primitive.greatest, 1)}};
    for (size_t kind = 0; kind < primitive.valueCounts.size(); ++kind)
        out["valueCounts"][kPrimitiveValueNames[kind].key] = primitive.valueCounts[kind];
    return out;
}

Json describe(const PackageLight& light) {
    return {{"mode", lightModeName(light.mode)}, {"color", colorText(light.color)},
            {"intensity", light.intensity},      {"position", light.position},
            {"direction", light.direction},      {"attenuation", light.attenuation},
            {"spotAngle", light.spotAngle},      {"spotExponent", light.spotExponent}};
}

Json describe(const PackageFog& fog) {
    if (fog.mode == K8_FOG_LINEAR)
        return {{"mode", "linear"}, {"color", colorText(fog.color)}, {"near", fog.near}, {"far", fog.far}};
    return {{"mode", "exponential"}, {"color", colorText(fog.color)}, {"density", fog.density}};
}

Json reference(uint32_t object) { return object ? Json(object) : Json(); }

Json describe(const PackageFigure& figure) {
    Json out = {{"actionTable", reference(figure.actionTable)}, {"textures", Json::array()}};
    for (const uint32_t texture : figure.textures) out["textures"].push_back(reference(texture));
    out.update(describe(figure.model));
    return out;
}

Json describe(const PackageGroup& group) {
    Json out = {{"transform", group.transform ? Json(*group.transform) : Json()}, {"children", Json::array()}};
    for (const PackageChild& child : group.children)
        out["children"].push_back({{child.isGroup ? "group" : "object", child.index}});
    return out;
}

Json describe(const PackageSummary& package) {
    Json out = {{"version", 0},
                {"objectSizeLimit", package.objectSizeLimit},
                {"unusedBytes", package.trailerBytes},
                {"groups", Json::array()},
                {"objects", Json::array()}};
    for (const PackageGroup& group : package.groups) out["groups"].push_back(describe(group));
    for (const PackageObject& object : package.objects) {
        Json entry = {{"kind", objectKind(object)}, {"offset", object.offset}, {"bytes", object.length}};
        entry.update(std::visit([](const auto& content) { return describe(content); }, object.content));
        out["objects"].push_back(std::move(entry));
    }
    return out;
}

// --- Facts ---

Json objectOf(const Facts& facts);

struct FactJson {
    Json operator()(bool value) const { return value; }
    Json operator()(int64_t value) const { return value; }
    Json operator()(float value) const { return value; }
    Json operator()(const std::string& value) const { return value; }
    Json operator()(const SceneColor& value) const { return colorText(value); }
    Json operator()(const ObjectRef& value) const { return value.number == 0 ? Json() : Json(value.number); }
    template <typename T>
    Json operator()(const std::vector<T>& values) const {
        Json out = Json::array();
        for (const T& value : values) out.push_back((*this)(value));
        return out;
    }
    Json operator()(const Facts& value) const { return objectOf(value); }
};

Json objectOf(const Facts& facts) {
    Json out = Json::object();
    for (const Fact& fact : facts) out[fact.key] = std::visit(FactJson(), fact.value);
    return out;
}

// --- Scenes ---

Json describe(const SceneSummary& scene) {
    Json out = {{"version", 1},
                {"objectSizeLimit", scene.objectSizeLimit},
                {"unusedBytes", scene.trailerBytes},
                {"box", {{"least", scene.least}, {"greatest", scene.greatest}}},
                {"author", scene.header ? Json(scene.header->author) : Json()},
                {"externalReferences", scene.externalReferences},
                {"sections", Json::array()},
                {"world", scene.world},
                {"objects", Json::array()}};
    for (const SceneSection& section : scene.sections)
        out["sections"].push_back({{"offset", section.offset},
                                   {"bytes", section.length},
                                   {"objectCount", section.objectCount},
                                   {"isIntact", section.isIntact}});
    for (uint32_t number = kFirstSceneNumber; number - kFirstSceneNumber < scene.objects.size(); ++number) {
        const SceneObject& object = scene.at(number);
        Json entry = {
            {"number", number}, {"class", nameOf(object.type())}, {"offset", object.offset}, {"bytes", object.length}};
        entry.update(objectOf(factsOf(object)));
        out["objects"].push_back(std::move(entry));
    }
    return out;
}

// Names of files and of authors may be no UTF-8, which JSON cannot say: what is not is replaced.
std::string linesOf(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

}  // namespace

std::string jsonOf(const ContentInfo& info) {
    Json out = {{"file", info.path}, {"bytes", info.byteCount}, {"kind", kindOf(info.summary)}};
    out.update(std::visit([](const auto& summary) { return describe(summary); }, info.summary));
    return linesOf(out);
}

std::string jsonOf(const Facts& facts) { return linesOf(objectOf(facts)); }
