// What the objects of a scene say.
#pragma once

#include "tools/inspect/scene_inspector.h"
#include "tools/k8/facts.h"

Facts factsOf(const inspect::SceneObject& object);

const char* interpolationName(uint32_t interpolation);
