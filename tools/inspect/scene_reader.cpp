#include "tools/inspect/scene_reader.h"

#include <algorithm>
#include <cmath>

namespace inspect {

const char* nameOf(SceneType type) {
    static constexpr const char* kNames[] = {"AnimationController",
                                             "AnimationTrack",
                                             "Appearance",
                                             "Background",
                                             "Camera",
                                             "CompositingMode",
                                             "Fog",
                                             "PolygonMode",
                                             "Group",
                                             "Image2D",
                                             "TriangleStripArray",
                                             "Light",
                                             "Material",
                                             "Mesh",
                                             "MorphingMesh",
                                             "SkinnedMesh",
                                             "Texture2D",
                                             "Sprite3D",
                                             "KeyframeSequence",
                                             "VertexArray",
                                             "VertexBuffer",
                                             "World"};
    static_assert(std::size(kNames) == std::variant_size_v<SceneContent>);
    return kNames[size_t(type) - 1];
}

const char* nameOf(SceneProperty property) {
    static constexpr const char* kNames[] = {
        "Alpha",       "AmbientColor", "Color",         "Crop",         "Density",      "DiffuseColor", "EmissiveColor",
        "FarDistance", "FieldOfView",  "Intensity",     "MorphWeights", "NearDistance", "Orientation",  "Pickability",
        "Scale",       "Shininess",    "SpecularColor", "SpotAngle",    "SpotExponent", "Translation",  "Visibility"};
    return kNames[size_t(property) - size_t(SceneProperty::Alpha)];
}

// --- Values ---

uint32_t ObjectReader::oneOf(const char* field, uint32_t first, uint32_t last) {
    const uint32_t value = in.u8(field);
    if (value < first || value > last)
        in.expect(false, field, value, std::to_string(first) + " to " + std::to_string(last));
    return value;
}

float ObjectReader::real(const char* field) {
    const float value = in.f32(field);
    if (!std::isnormal(value) && (value != 0 || std::signbit(value)))
        in.reject(std::string(field) + " is " + std::to_string(value) + ", expected 0 or a finite, normalised number");
    return value;
}

uint32_t ObjectReader::rgb(const char* field) {
    const uint32_t red = in.u8(field), green = in.u8(field), blue = in.u8(field);
    return red << 16 | green << 8 | blue;
}

uint32_t ObjectReader::argb(const char* field) {
    const uint32_t color = rgb(field);
    return in.u8(field) << 24 | color;
}

uint32_t ObjectReader::count(const char* field, uint32_t bytesPerElement) {
    const uint32_t count = in.u32(field);
    const size_t fitting = (in.size() - in.offset()) / bytesPerElement;
    if (count > fitting) in.expect(false, field, count, "at most the " + std::to_string(fitting) + " that have room");
    return count;
}

// --- References ---

std::string ObjectReader::describe(uint32_t number) const {
    return "object " + std::to_string(number) + " (" + nameOf(scene.at(number).type()) + ")";
}

uint32_t ObjectReader::reference(const char* field, SceneTypes types, bool mayBeNone) {
    const uint32_t referred = in.u32(field);
    if (referred == 0 && mayBeNone) return 0;
    if (referred < kFirstSceneNumber || referred >= number())
        in.expect(false, field, referred, std::string(mayBeNone ? "0 or " : "") + "the number of an earlier object");
    if (!types.contain(scene.at(referred).type()))
        in.reject(std::string(field) + " is " + describe(referred) + ", which is of another class");
    scene.valuesOf(referred).isUsed = true;
    return referred;
}

// --- Budgets ---

namespace {

struct Budget {
    const char* unit;
    uint64_t floor, perByte;  // what any file may take, and what each of its bytes adds
};

}  // namespace

constexpr Budget kMemoryBudget = {"bytes", 16 << 20, 16};
constexpr Budget kTextureBudget = {"bytes of textures", 64 << 20, 16};
constexpr Budget kWorkBudget = {"steps of a frame", 64 << 20, 64};

static void spend(const ObjectReader& o, const Budget& budget, uint64_t& spent, const char* what, uint64_t count) {
    const uint64_t left = budget.floor + budget.perByte * o.scene.objectBytes - spent;
    if (count > left)
        o.in.reject(std::string(what) + " takes " + std::to_string(count) + " " + budget.unit +
                    ", expected at most the " + std::to_string(left) + " that are left for a file of this size");
    spent += count;
}

void ObjectReader::deriveBytes(const char* what, uint64_t count) {
    spend(*this, kMemoryBudget, scene.derivedBytes, what, count);
}

void ObjectReader::deriveTexture(const char* what, uint64_t texels) {
    constexpr uint64_t kBytesPerTexel = 4;
    spend(*this, kTextureBudget, scene.textureBytes, what, texels * kBytesPerTexel);
}

void ObjectReader::deriveWork(const char* what, uint64_t count) {
    spend(*this, kWorkBudget, scene.derivedWork, what, count);
}

// --- What all objects have ---

static void readCommonFields(ObjectReader& o) {
    o.object.userId = o.in.u32("the user id");
    const uint32_t trackCount = o.count("the track count", 4);
    for (uint32_t i = 0; i < trackCount; ++i) {
        const uint32_t track = o.in.u32("a track");
        if (track < kFirstSceneNumber || track >= o.number())
            o.in.expect(false, "a track", track, "the number of an earlier object");
        // Other objects in the list are passed over.
        if (o.scene.at(track).type() == SceneType::AnimationTrack) o.object.tracks.push_back(track);
    }
    o.object.parameterCount = o.count("the user parameter count", 8);
    for (uint32_t i = 0; i < o.object.parameterCount; ++i) {
        o.in.skip("a user parameter's id", 4);
        o.in.skip("a user parameter", o.in.u32("a user parameter's length"));
    }
}

void readTransform(ObjectReader& o) {
    SceneTransform& transform = o.object.transform.emplace();
    if (o.flag("the component transform flag")) {
        o.reals("the translation", transform.translation);
        o.reals("the scale", transform.scale);
        transform.angle = o.real("the orientation angle");
        o.reals("the orientation axis", transform.axis);
        if (transform.angle != 0 && transform.axis == std::array<float, 3>{})
            o.in.reject("the orientation has an angle, but no axis");
    }
    if (o.flag("the general transform flag")) o.reals("the general transform", transform.matrix.emplace());
}

// --- Animation tracks ---

static bool canBeAnimated(SceneType type, SceneProperty wanted) {
    using enum SceneProperty;
    const auto isAmong = [wanted](std::initializer_list<SceneProperty> properties) {
        return std::ranges::find(properties, wanted) != properties.end();
    };
    if (kSceneNodes.contain(type) && isAmong({Orientation, Scale, Translation, Alpha, Pickability, Visibility}))
        return true;
    switch (type) {
        case SceneType::Background: return isAmong({Alpha, Color, Crop});
        case SceneType::Camera: return isAmong({FarDistance, FieldOfView, NearDistance});
        case SceneType::Fog: return isAmong({Color, Density, FarDistance, NearDistance});
        case SceneType::Light: return isAmong({Color, SpotAngle, SpotExponent, Intensity});
        case SceneType::Material:
            return isAmong({Alpha, AmbientColor, EmissiveColor, DiffuseColor, SpecularColor, Shininess});
        case SceneType::MorphingMesh: return isAmong({MorphWeights});
        case SceneType::Sprite3D: return isAmong({Crop});
        case SceneType::Texture2D: return isAmong({Orientation, Scale, Translation, Color});
        case SceneType::VertexBuffer: return isAmong({Alpha, Color});
        default: return false;
    }
}

// Samples of one property are summed, so its sequences have as many components. No track is attached twice.
static void checkTracks(const ObjectReader& o, SceneType type) {
    const std::vector<uint32_t>& tracks = o.object.tracks;
    const auto componentsOf = [&o](const SceneAnimationTrack& track) {
        return o.scene.contentOf<SceneKeyframeSequence>(track.sequence).componentCount;
    };
    for (size_t i = 0; i < tracks.size(); ++i) {
        const auto& added = o.scene.contentOf<SceneAnimationTrack>(tracks[i]);
        if (!canBeAnimated(type, added.property))
            o.in.reject(o.describe(tracks[i]) + " animates " + nameOf(added.property) +
                        ", which the object does not have");
        for (size_t before = 0; before < i; ++before) {
            const auto& present = o.scene.contentOf<SceneAnimationTrack>(tracks[before]);
            if (tracks[before] == tracks[i]) o.in.reject(o.describe(tracks[i]) + " is attached twice");
            if (present.property == added.property && componentsOf(present) != componentsOf(added))
                o.in.reject(o.describe(tracks[before]) + " and " + o.describe(tracks[i]) +
                            " are of one property, but of different component counts");
        }
    }
    for (const uint32_t track : tracks) o.scene.valuesOf(track).isUsed = true;
}

// --- Objects ---

static SceneContent readContent(ObjectReader& o, SceneType type) {
    using enum SceneType;
    switch (type) {
        case AnimationController:
        case AnimationTrack:
        case KeyframeSequence: return readAnimationClass(o, type);
        case Appearance:
        case CompositingMode:
        case Fog:
        case PolygonMode:
        case Material:
        case Image2D:
        case Texture2D: return readAppearanceClass(o, type);
        case TriangleStripArray:
        case VertexArray:
        case VertexBuffer: return readVertexClass(o, type);
        case Background:
        case Camera:
        case Group:
        case Light:
        case Mesh:
        case MorphingMesh:
        case SkinnedMesh:
        case Sprite3D:
        case World: break;
    }
    return readNodeClass(o, type);
}

void readSceneObject(SceneReader& scene, ContentReader& in, SceneType type, SceneObject begun) {
    ObjectReader o{scene, in, std::move(begun)};
    try {
        readCommonFields(o);
        o.object.content = readContent(o, type);
        checkTracks(o, type);
    } catch (const ContentProblem& problem) {
        throw ContentProblem(problem.offset,
                             "object " + std::to_string(o.number()) + " (" + nameOf(type) + "): " + problem.what());
    }
    scene.out.objects.push_back(std::move(o.object));
    scene.values.push_back(std::move(o.values));
}

}  // namespace inspect
