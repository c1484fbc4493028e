// Places of nodes, computed as the library computes them where a bone's place decides whether it can be one.
#pragma once

#include <array>

#include "tools/inspect/scene_summary.h"

namespace inspect {

using SceneMatrix = std::array<float, 16>;  // row-major

constexpr SceneMatrix kSceneIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// Translation x rotation x scale x matrix.
SceneMatrix compositeOf(const SceneTransform& transform);
SceneMatrix product(const SceneMatrix& a, const SceneMatrix& b);
bool isSingular(const SceneMatrix& matrix);

}  // namespace inspect
