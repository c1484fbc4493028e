#include "tools/k8/scene_facts.h"

#include <initializer_list>

using namespace inspect;

// Numbers that the inspector has let through.
static std::string nameOf(uint32_t mode, uint32_t first, std::initializer_list<const char*> names) {
    return names.begin()[mode - first];
}

static int64_t whole(uint32_t value) { return value; }

template <size_t n>
static std::vector<float> listOf(const std::array<float, n>& values) {
    return {values.begin(), values.end()};
}

static std::vector<float> listOf(const std::array<int32_t, 4>& crop) {
    return {float(crop[0]), float(crop[1]), float(crop[2]), float(crop[3])};
}

static std::vector<ObjectRef> refsOf(const std::vector<uint32_t>& numbers) {
    std::vector<ObjectRef> refs;
    for (const uint32_t number : numbers) refs.push_back({number});
    return refs;
}

const char* interpolationName(uint32_t interpolation) {
    static constexpr const char* kNames[] = {"linear", "slerp", "spline", "squad", "step"};
    return kNames[interpolation - 176];
}

// --- Classes ---

static Facts describe(const SceneAnimationController& controller) {
    return {{"speed", controller.speed},
            {"weight", controller.weight},
            {"activeStart", int64_t(controller.activeStart)},
            {"activeEnd", int64_t(controller.activeEnd)},
            {"referenceSequenceTime", controller.referenceSequenceTime},
            {"referenceWorldTime", int64_t(controller.referenceWorldTime)}};
}

static Facts describe(const SceneAnimationTrack& track) {
    return {{"property", nameOf(track.property)},
            {"sequence", ObjectRef{track.sequence}},
            {"controller", ObjectRef{track.controller}}};
}

static Facts describe(const SceneAppearance& appearance) {
    return {{"layer", int64_t(appearance.layer), appearance.layer == 0},
            {"compositingMode", ObjectRef{appearance.compositingMode}, appearance.compositingMode == 0},
            {"fog", ObjectRef{appearance.fog}, appearance.fog == 0},
            {"polygonMode", ObjectRef{appearance.polygonMode}, appearance.polygonMode == 0},
            {"material", ObjectRef{appearance.material}, appearance.material == 0},
            {"textures", refsOf(appearance.textures), appearance.textures.empty()}};
}

static Facts describe(const SceneBackground& background) {
    const auto modeName = [](uint32_t mode) { return nameOf(mode, 32, {"border", "repeat"}); };
    const bool hasImage = background.image != 0;
    return {{"color", SceneColor{background.color, true}},
            {"image", ObjectRef{background.image}, !hasImage},
            {"modeX", modeName(background.modeX), !hasImage},
            {"modeY", modeName(background.modeY), !hasImage},
            {"crop", listOf(background.crop), !hasImage},
            {"clearsDepth", background.clearsDepth, background.clearsDepth},
            {"clearsColor", background.clearsColor, background.clearsColor}};
}

static Facts describe(const SceneCamera& camera) {
    Facts facts = {{"projection", nameOf(camera.projection, 48, {"generic", "parallel", "perspective"})}};
    if (camera.projection == 48) {
        facts.push_back({"projectionMatrix", listOf(camera.matrix)});
        return facts;
    }
    facts.push_back({camera.projection == 50 ? "fieldOfView" : "height", camera.fieldOfView});
    facts.insert(facts.end(), {{"aspectRatio", camera.aspectRatio}, {"near", camera.near}, {"far", camera.far}});
    return facts;
}

static Facts describe(const SceneCompositingMode& mode) {
    const std::string blending =
        nameOf(mode.blending, 64,
               {"alpha", "add alpha", "modulate", "modulate twice", "replace", "", "engine mode 70", "engine mode 71"});
    return {{"blending", blending},
            {"testsDepth", mode.testsDepth, mode.testsDepth},
            {"writesDepth", mode.writesDepth, mode.writesDepth},
            {"writesColor", mode.writesColor, mode.writesColor},
            {"writesAlpha", mode.writesAlpha, mode.writesAlpha},
            {"alphaThreshold", float(mode.alphaThreshold) / 255, mode.alphaThreshold == 0},
            {"depthOffsetFactor", mode.depthOffsetFactor, mode.depthOffsetFactor == 0},
            {"depthOffsetUnits", mode.depthOffsetUnits, mode.depthOffsetUnits == 0}};
}

static Facts describe(const SceneFog& fog) {
    Facts facts = {{"mode", nameOf(fog.mode, 80, {"exponential", "linear"})}, {"color", SceneColor{fog.color, false}}};
    if (fog.mode == 80)
        facts.push_back({"density", fog.density});
    else
        facts.insert(facts.end(), {{"near", fog.near}, {"far", fog.far}});
    return facts;
}

static Facts describe(const ScenePolygonMode& mode) {
    return {{"culling", nameOf(mode.culling, 160, {"back", "front", "none"})},
            {"shading", nameOf(mode.shading, 164, {"flat", "smooth"})},
            {"winding", nameOf(mode.winding, 168, {"counterclockwise", "clockwise"})},
            {"twoSidedLighting", mode.twoSidedLighting, !mode.twoSidedLighting},
            {"localCameraLighting", mode.localCameraLighting, !mode.localCameraLighting},
            {"perspectiveCorrection", mode.perspectiveCorrection, !mode.perspectiveCorrection}};
}

static Facts describe(const SceneGroup& group) { return {{"children", refsOf(group.children)}}; }

static Facts describe(const SceneImage& image) {
    const std::string format = nameOf(image.format, 96, {"alpha", "luminance", "luminance and alpha", "RGB", "RGBA"});
    return {{"format", format},
            {"width", whole(image.width)},
            {"height", whole(image.height)},
            {"paletteEntries", whole(image.paletteEntries), image.paletteEntries == 0},
            {"isMutable", image.isMutable, !image.isMutable}};
}

static Facts describe(const SceneTriangleStrips& strips) {
    return {{"strips", whole(strips.stripCount)},
            {"triangles", whole(strips.triangleCount)},
            {"firstIndex", whole(strips.firstIndex)},
            {"lastIndex", whole(strips.lastIndex)},
            {"hasIndices", strips.hasIndices}};
}

static Facts describe(const SceneLight& light) {
    const bool isSpot = light.mode == 131, hasPosition = light.mode >= 130;
    return {{"mode", nameOf(light.mode, 128, {"ambient", "directional", "omni", "spot"})},
            {"color", SceneColor{light.color, false}},
            {"intensity", light.intensity},
            {"attenuation", listOf(light.attenuation), !hasPosition},
            {"spotAngle", light.spotAngle, !isSpot},
            {"spotExponent", light.spotExponent, !isSpot}};
}

static Facts describe(const SceneMaterial& material) {
    return {{"ambient", SceneColor{material.ambient, false}},
            {"diffuse", SceneColor{material.diffuse, true}},
            {"emissive", SceneColor{material.emissive, false}},
            {"specular", SceneColor{material.specular, false}},
            {"shininess", material.shininess},
            {"tracksVertexColors", material.tracksVertexColors, !material.tracksVertexColors}};
}

static Facts describe(const SceneMesh& mesh) {
    std::vector<Facts> submeshes;
    for (const SceneSubmesh& submesh : mesh.submeshes)
        submeshes.push_back({{"strips", ObjectRef{submesh.strips}},
                             {"appearance", ObjectRef{submesh.appearance}, submesh.appearance == 0}});
    return {{"vertices", ObjectRef{mesh.vertices}}, {"submeshes", submeshes}};
}

static Facts describe(const SceneMorphingMesh& mesh) {
    Facts facts = describe(static_cast<const SceneMesh&>(mesh));
    std::vector<Facts> targets;
    for (const SceneMorphTarget& target : mesh.targets)
        targets.push_back({{"vertices", ObjectRef{target.vertices}}, {"weight", target.weight}});
    facts.push_back({"targets", targets});
    return facts;
}

static Facts describe(const SceneSkinnedMesh& mesh) {
    Facts facts = describe(static_cast<const SceneMesh&>(mesh));
    std::vector<Facts> bindings;
    for (const SceneBoneBinding& binding : mesh.bindings)
        bindings.push_back({{"bone", ObjectRef{binding.bone}},
                            {"firstVertex", whole(binding.firstVertex)},
                            {"vertexCount", whole(binding.vertexCount)},
                            {"weight", int64_t(binding.weight)}});
    facts.insert(facts.end(), {{"skeleton", ObjectRef{mesh.skeleton}}, {"bindings", bindings}});
    return facts;
}

static Facts describe(const SceneTexture& texture) {
    const auto wrapName = [](uint32_t wrap) { return nameOf(wrap, 240, {"clamp", "repeat"}); };
    const auto filterName = [](uint32_t filter) { return nameOf(filter, 208, {"base level", "linear", "nearest"}); };
    return {{"image", ObjectRef{texture.image}},
            {"blending", nameOf(texture.blending, 224, {"add", "blend", "decal", "modulate", "replace"})},
            {"blendColor", SceneColor{texture.blendColor, false}, texture.blending != 225},
            {"wrapS", wrapName(texture.wrapS)},
            {"wrapT", wrapName(texture.wrapT)},
            {"levelFilter", filterName(texture.levelFilter)},
            {"imageFilter", filterName(texture.imageFilter)}};
}

static Facts describe(const SceneSprite& sprite) {
    return {{"image", ObjectRef{sprite.image}},
            {"appearance", ObjectRef{sprite.appearance}, sprite.appearance == 0},
            {"isScaled", sprite.isScaled},
            {"crop", listOf(sprite.crop)}};
}

static Facts describe(const SceneKeyframeSequence& sequence) {
    const auto keyframeCount = uint32_t(sequence.times.size());
    const bool isWhole = sequence.validFirst == 0 && sequence.validLast + 1 == keyframeCount;
    return {{"keyframes", whole(keyframeCount)},
            {"components", whole(sequence.componentCount)},
            {"interpolation", interpolationName(sequence.interpolation)},
            {"duration", whole(sequence.duration)},
            {"repeats", sequence.repeats},
            {"validFirst", whole(sequence.validFirst), isWhole},
            {"validLast", whole(sequence.validLast), isWhole},
            {"encoding", nameOf(sequence.encoding, 0, {"floats", "8 bits", "16 bits"}), sequence.encoding == 0}};
}

static Facts describe(const SceneVertexArray& array) {
    return {{"vertexCount", whole(array.vertexCount)},
            {"componentCount", whole(array.componentCount)},
            {"componentSize", whole(array.componentSize)},
            {"isDeltaEncoded", array.isDeltaEncoded, !array.isDeltaEncoded}};
}

static Facts describe(const SceneVertexBuffer& buffer) {
    return {{"vertexCount", whole(buffer.vertexCount)},
            {"positions", ObjectRef{buffer.positions}},
            {"positionScale", buffer.positionScale},
            {"positionBias", listOf(buffer.positionBias), buffer.positionBias == std::array<float, 3>{}},
            {"normals", ObjectRef{buffer.normals}, buffer.normals == 0},
            {"colors", ObjectRef{buffer.colors}, buffer.colors == 0},
            {"texCoords", refsOf(buffer.texCoords), buffer.texCoords.empty()},
            {"defaultColor", SceneColor{buffer.defaultColor, true}, buffer.colors != 0}};
}

static Facts describe(const SceneWorld& world) {
    Facts facts = describe(static_cast<const SceneGroup&>(world));
    facts.insert(facts.end(),
                 {{"activeCamera", ObjectRef{world.activeCamera}}, {"background", ObjectRef{world.background}}});
    return facts;
}

// --- What classes share ---

static void append(Facts& facts, const SceneTransform& transform) {
    const SceneTransform usual;
    facts.insert(facts.end(),
                 {{"translation", listOf(transform.translation), transform.translation == usual.translation},
                  {"scale", listOf(transform.scale), transform.scale == usual.scale},
                  {"angle", transform.angle, transform.angle == 0},
                  {"axis", listOf(transform.axis), transform.angle == 0}});
    if (transform.matrix) facts.push_back({"matrix", listOf(*transform.matrix)});
}

static void append(Facts& facts, const SceneNode& node) {
    facts.insert(facts.end(), {{"parent", ObjectRef{node.parent}, true},
                               {"isRendered", node.isRendered, node.isRendered},
                               {"isPickable", node.isPickable, node.isPickable},
                               {"alpha", node.alpha, node.alpha == 1},
                               {"scope", whole(node.scope), node.scope == UINT32_MAX}});
    if (!node.alignment) return;
    const auto targetName = [](uint32_t target) {
        return nameOf(target, 144, {"none", "origin", "x axis", "y axis", "z axis"});
    };
    facts.insert(facts.end(), {{"zTarget", targetName(node.alignment->zTarget)},
                               {"zReference", ObjectRef{node.alignment->zReference}},
                               {"yTarget", targetName(node.alignment->yTarget)},
                               {"yReference", ObjectRef{node.alignment->yReference}}});
}

Facts factsOf(const SceneObject& object) {
    Facts facts = {{"userId", whole(object.userId), object.userId == 0},
                   {"userParameters", whole(object.parameterCount), object.parameterCount == 0},
                   {"tracks", refsOf(object.tracks), object.tracks.empty()}};
    if (object.transform) append(facts, *object.transform);
    if (object.node) append(facts, *object.node);
    const Facts own = std::visit([](const auto& content) { return describe(content); }, object.content);
    facts.insert(facts.end(), own.begin(), own.end());
    return facts;
}
