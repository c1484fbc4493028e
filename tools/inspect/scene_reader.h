// Reading the objects of a scene one after the other: what scene_inspector is made of.
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "tools/inspect/content_reader.h"
#include "tools/inspect/scene_inspector.h"

namespace inspect {

// What an object says that others are checked or measured by, but that no summary repeats.
struct SceneValues {
    bool isUsed = false;              // another object refers to it
    std::vector<int32_t> components;  // of vertex arrays, vertex by vertex
};

struct SceneReader {
    SceneSummary out;
    std::vector<SceneValues> values;  // of the objects, by their place
    uint64_t objectBytes = 0;         // of all sections so far
    // See ObjectReader::deriveBytes and what follows it.
    uint64_t derivedBytes = 0, textureBytes = 0, derivedWork = 0;

    const SceneObject& at(uint32_t number) const { return out.at(number); }
    SceneNode& nodeOf(uint32_t number) { return *out.objects[number - kFirstSceneNumber].node; }
    SceneValues& valuesOf(uint32_t number) { return values[number - kFirstSceneNumber]; }
    template <typename Content>
    const Content& contentOf(uint32_t number) const {
        return std::get<Content>(at(number).content);
    }
};

// A set of classes.
struct SceneTypes {
    constexpr SceneTypes(SceneType type) : SceneTypes({type}) {}
    constexpr SceneTypes(std::initializer_list<SceneType> types) {
        for (const SceneType type : types) bits |= 1u << uint32_t(type);
    }
    constexpr bool contain(SceneType type) const { return bits >> uint32_t(type) & 1; }

    uint32_t bits = 0;
};

constexpr SceneTypes kSceneNodes = {SceneType::Camera,   SceneType::Group,        SceneType::Light,
                                    SceneType::Mesh,     SceneType::MorphingMesh, SceneType::SkinnedMesh,
                                    SceneType::Sprite3D, SceneType::World};

// The object that is being read, and the ways to read its fields. What the library would not take is a ContentProblem.
struct ObjectReader {
    SceneReader& scene;
    ContentReader& in;
    SceneObject object{};
    SceneValues values{};

    uint32_t number() const { return uint32_t(scene.out.objects.size()) + kFirstSceneNumber; }

    bool flag(const char* field) { return oneOf(field, 0, 1) == 1; }
    uint32_t oneOf(const char* field, uint32_t first, uint32_t last);  // a byte
    float real(const char* field);                                     // 0, or finite and normalised
    template <typename Reals>
    void reals(const char* field, Reals& out) {
        for (float& value : out) value = real(field);
    }
    uint32_t rgb(const char* field);   // 0xRRGGBB
    uint32_t argb(const char* field);  // 0xAARRGGBB, the alpha last in the file
    int32_t i32(const char* field) { return int32_t(in.u32(field)); }
    uint32_t count(const char* field, uint32_t bytesPerElement);  // of elements that take at least so many bytes

    // The number of an earlier object of these classes; an optional one may be 0.
    uint32_t required(const char* field, SceneTypes types) { return reference(field, types, false); }
    uint32_t optional(const char* field, SceneTypes types) { return reference(field, types, true); }
    uint32_t reference(const char* field, SceneTypes types, bool mayBeNone);

    // Account for what an object takes beyond its bytes, such as vertices made by skinning, and reject what is out of
    // proportion to the file.
    void deriveBytes(const char* what, uint64_t count);
    void deriveTexture(const char* what, uint64_t texels);
    void deriveWork(const char* what, uint64_t count);  // vertices drawn and bytes morphed in a frame

    std::string describe(uint32_t number) const;  // "object 5 (Mesh)"
};

// The fields of a class, behind those of all objects. Nodes and textures come with their transform.
SceneContent readAnimationClass(ObjectReader& o, SceneType type);
SceneContent readAppearanceClass(ObjectReader& o, SceneType type);
SceneContent readNodeClass(ObjectReader& o, SceneType type);
SceneContent readVertexClass(ObjectReader& o, SceneType type);

void readTransform(ObjectReader& o);

// Reads an object behind its type and length, and appends it.
void readSceneObject(SceneReader& scene, ContentReader& in, SceneType type, SceneObject begun);

}  // namespace inspect
