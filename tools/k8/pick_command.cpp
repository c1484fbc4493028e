#include "tools/k8/pick_command.h"

#include <algorithm>
#include <cstdio>

#include "tools/k8/facts.h"
#include "tools/k8/stage.h"
#include "tools/k8/usage_problem.h"

static void checkRay(const Ray& ray) {
    const auto& n = ray.numbers;
    if (float(n[3]) == 0 && float(n[4]) == 0 && float(n[5]) == 0)
        throw UsageProblem("the direction of --ray is 0,0,0, which is none");
}

// --- What was hit ---

static void print(const std::string& name, const PickHit& hit) {
    std::printf("%s, submesh %d: distance %g at (%g, %g, %g)", name.c_str(), int(hit.submesh), hit.distance,
                hit.point[0], hit.point[1], hit.point[2]);
    if (hit.normal) std::printf(", normal (%g, %g, %g)", (*hit.normal)[0], (*hit.normal)[1], (*hit.normal)[2]);
    for (size_t unit = 0; unit < hit.texel.size(); ++unit)
        if (const auto& texel = hit.texel[unit])
            std::printf(", texture unit %zu at (%g, %g)", unit, (*texel)[0], (*texel)[1]);
    std::printf("\n");
}

static std::vector<float> listOf(const std::array<double, 3>& vector) {
    return {float(vector[0]), float(vector[1]), float(vector[2])};
}

static Facts factsOf(const Placements& placements, const PickHit& hit) {
    const PlacedObject& object = placements.objects[hit.object];
    Facts facts = {{"object", int64_t(object.number)},
                   {"groups", groupsAbove(placements, object)},
                   {"submesh", int64_t(hit.submesh)},
                   {"distance", float(hit.distance)},
                   {"point", listOf(hit.point)}};
    if (hit.normal) facts.push_back({"normal", listOf(*hit.normal)});
    std::vector<Facts> texels;
    for (size_t unit = 0; unit < hit.texel.size(); ++unit)
        if (const auto& texel = hit.texel[unit])
            texels.push_back({{"unit", int64_t(unit)}, {"s", float((*texel)[0])}, {"t", float((*texel)[1])}});
    facts.push_back({"textureCoordinates", texels});
    return facts;
}

static int report(const PickOptions& options, const StageContent& content) {
    const Placements placements = placementsOf(content);
    const std::vector<PickHit> hits = pickFigures(placements, options.ray, options.all);
    if (options.json) {
        std::vector<Facts> list;
        for (const PickHit& hit : hits) list.push_back(factsOf(placements, hit));
        std::printf("%s", jsonOf(Facts{{"hits", list}}).c_str());
    } else if (hits.empty()) {
        std::printf("nothing is hit\n");
    } else {
        for (const PickHit& hit : hits) print(nameOf(content, placements, placements.objects[hit.object]), hit);
    }
    return hits.empty() ? 1 : 0;
}

// --- The command ---

static bool takesPosing(const StageContent& content, const std::optional<uint32_t>& patterns) {
    return std::ranges::any_of(content.figures, [&patterns](const K8Figure* figure) {
        return patterns || figure->info->loadedAction != nullptr;
    });
}

int runPick(const PickOptions& options) {
    checkRay(options.ray);
    StageContent content = loadStageContent(options.files);
    if (content.scene && options.frame)
        throw UsageProblem("a scene is picked as its file places it; there is no frame to choose");
    content.actionLength(options.action);  // is there such an action?
    const Pose pose = {.action = options.action,
                       .frame = options.frame.value_or(0),
                       .patterns = patternMask(options.patterns, content.patternCount())};
    if (!takesPosing(content, pose.patterns)) return report(options, content);
    StageOptions small;  // nobody sees the picture
    small.width = small.height = 16;
    Stage stage(small, std::move(content));
    stage.draw(pose);
    return report(options, stage.content());
}
