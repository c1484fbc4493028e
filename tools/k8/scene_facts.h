// What the objects of a scene say, as named facts from which text and JSON are made alike.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "tools/inspect/scene_inspector.h"

struct ObjectRef {
    uint32_t number;  // 0: none
};
struct SceneColor {
    uint32_t argb;
    bool hasAlpha;
};

struct Fact;
using Facts = std::vector<Fact>;
using FactValue = std::variant<bool, int64_t, float, std::string, SceneColor, ObjectRef, std::vector<ObjectRef>,
                               std::vector<float>, std::vector<Facts>>;

struct Fact {
    const char* key;  // of a JSON object; "fieldOfView" becomes "field of view" in text
    FactValue value;
    bool isUsual = false;  // text leaves it out
};

Facts factsOf(const inspect::SceneObject& object);

const char* interpolationName(uint32_t interpolation);
