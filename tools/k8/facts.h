// Named facts, from which text and JSON are made alike.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

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
                               std::vector<int64_t>, std::vector<float>, std::vector<Facts>>;

struct Fact {
    const char* key;  // of a JSON object; "fieldOfView" becomes "field of view" in text
    FactValue value;
    bool isUsual = false;  // text leaves it out
};

std::string jsonOf(const Facts& facts);  // lines
