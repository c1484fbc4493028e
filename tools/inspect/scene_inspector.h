// What a "K8" package that carries a JSR 184 scene holds.
#pragma once

#include <span>
#include <string>

#include "tools/inspect/scene_summary.h"

namespace inspect {

struct SceneSection {
    size_t offset = 0;
    uint32_t length = 0;       // with its frame of 13 bytes
    uint32_t objectCount = 0;  // of those that have numbers
    bool isIntact = true;      // its checksum, which the library does not look at, matches; 0 counts as none
};

struct SceneHeader {
    uint32_t versionMajor = 0, versionMinor = 0;
    bool hasExternalReferences = false;
    uint32_t totalFileSize = 0, approximateContentSize = 0;
    std::string author;
};

constexpr uint32_t kFirstSceneNumber = 2;  // 1 stands for the header

struct SceneSummary {
    uint32_t objectSizeLimit = 0;
    std::vector<SceneSection> sections;
    std::optional<SceneHeader> header;            // the last one, if there are several
    std::vector<std::string> externalReferences;  // names of files, which nothing reads
    std::vector<SceneObject> objects;             // the first has number kFirstSceneNumber
    uint32_t world = 0;                           // number of the root
    size_t trailerBytes = 0;                      // what nothing reads
    // The box of all vertices below the root, in its frame and as the file places them, and of the places of sprites.
    // Morphing and skinning move vertices when a scene is drawn. The origin when there is nothing to measure.
    bool isEmpty = true;
    std::array<double, 3> least{}, greatest{};

    const SceneObject& at(uint32_t number) const { return objects.at(number - kFirstSceneNumber); }
};

const char* nameOf(SceneType type);          // "Mesh", "Texture2D", ...
const char* nameOf(SceneProperty property);  // "Alpha", "AmbientColor", ...

const SceneMesh* meshOf(const SceneObject& object);  // of meshes of all classes; null for everything else

struct SceneTreeNode {
    uint32_t number;
    size_t depth;  // 0: the root
};
// The root and what is below it, parents before their children. Below a skinned mesh stands its skeleton.
std::vector<SceneTreeNode> treeOf(const SceneSummary& scene);

// Throws ContentProblem for what the library would not load.
SceneSummary inspectScene(std::span<const uint8_t> bytes);

}  // namespace inspect
