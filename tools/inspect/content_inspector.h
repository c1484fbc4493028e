// What a content file of any kind holds.
#pragma once

#include <span>
#include <variant>

#include "tools/inspect/action_inspector.h"
#include "tools/inspect/figure_inspector.h"
#include "tools/inspect/image_inspector.h"
#include "tools/inspect/package_inspector.h"
#include "tools/inspect/scene_inspector.h"

namespace inspect {

using ContentSummary = std::variant<FigureSummary, ActionTableSummary, ImageSummary, PackageSummary, SceneSummary>;

// "figure model", "package", ...
const char* kindOf(const ContentSummary& summary);

// Tells formats apart by their first bytes. Throws ContentProblem for what the library would not load.
ContentSummary inspectContent(std::span<const uint8_t> bytes);

}  // namespace inspect
