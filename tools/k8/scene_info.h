// Scene packages, told to people.
#pragma once

#include <string>

#include "tools/inspect/scene_inspector.h"

// Lines: the scene as a whole, its tree, its animations, and object by object all they say.
std::string sceneText(const inspect::SceneSummary& scene);
