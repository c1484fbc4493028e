// Scene packages, told to people and to programs.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tools/inspect/scene_inspector.h"

// Lines: the scene as a whole, its tree, its animations, and object by object all they say.
std::string sceneText(const inspect::SceneSummary& scene);
nlohmann::ordered_json sceneJson(const inspect::SceneSummary& scene);
