// What things in content are called, in text and in JSON.
#pragma once

#include <array>
#include <cstdint>

#include "tools/inspect/package_inspector.h"

struct ContentName {
    const char* words;
    const char* key;  // of a JSON object
};

inline constexpr std::array<ContentName, 7> kTrackKindNames = {{
    {"constant", "constantMatrix"},
    {"unchanged", "unchanged"},
    {"translation+scale+direction+roll", "translateScaleDirectionRoll"},
    {"direction with fixed translation+roll", "directionFixedTranslateRoll"},
    {"direction+roll", "directionRoll"},
    {"direction", "direction"},
    {"translation+direction+roll", "translateDirectionRoll"},
}};

inline constexpr std::array<ContentName, 5> kPrimitiveValueNames = {{
    {"positions", "positions"},
    {"normals", "normals"},
    {"colours", "colors"},
    {"texture coordinates", "textureCoordinates"},
    {"sprite parameters", "spriteParameters"},
}};

// Numbers that the inspectors have let through.
inline const char* primitiveTypeName(uint32_t type) {
    static constexpr const char* kNames[] = {"point", "line", "triangle", "quadrilateral", "sprite"};
    return kNames[type - 1];
}
inline const char* lightModeName(uint32_t mode) {
    static constexpr const char* kNames[] = {"ambient", "directional", "omni", "spot"};
    return kNames[mode - 128];
}

inline const char* objectKind(const inspect::PackageObject& object) {
    static constexpr const char* kNames[] = {"primitive", "light", "fog", "texture", "figure", "action table"};
    return kNames[object.content.index()];
}
