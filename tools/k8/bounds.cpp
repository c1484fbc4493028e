#include "tools/k8/bounds.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

using Matrix = std::array<double, 16>;
constexpr Matrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
constexpr size_t kMaxGroupVisits = 65535;  // more are not drawn

Matrix product(const Matrix& a, const std::array<float, 16>& b) {
    Matrix out{};
    for (size_t row = 0; row < 4; ++row)
        for (size_t column = 0; column < 4; ++column)
            for (size_t k = 0; k < 4; ++k) {
                const float element = b[4 * k + column];
                out[4 * row + column] += a[4 * row + k] * (std::isfinite(element) ? double(element) : 0.0);
            }
    return out;
}

// Takes the box's eight corners in, where the matrix puts them.
void add(Extent& extent, const Box& box, const Matrix& m) {
    for (unsigned corner = 0; corner < 8; ++corner) {
        std::array<double, 3> p;
        for (size_t axis = 0; axis < 3; ++axis) p[axis] = corner >> axis & 1 ? box.greatest[axis] : box.least[axis];
        for (size_t axis = 0; axis < 3; ++axis) {
            const double* row = &m[4 * axis];
            const double value = row[0] * p[0] + row[1] * p[1] + row[2] * p[2] + row[3];
            double &least = extent.box.least[axis], &greatest = extent.box.greatest[axis];
            least = extent.isEmpty ? value : std::min(least, value);
            greatest = extent.isEmpty ? value : std::max(greatest, value);
        }
        extent.isEmpty = false;
    }
}

Box boxOf(const inspect::FigureSummary& figure) {
    Box box{figure.least, figure.greatest};
    for (size_t axis = 0; axis < 3; ++axis) box.least[axis] /= 64, box.greatest[axis] /= 64;
    return box;
}

void add(Extent& extent, const inspect::PackageObject& object, const Matrix& placed) {
    if (const auto* figure = std::get_if<inspect::PackageFigure>(&object.content))
        add(extent, boxOf(figure->model), placed);
    else if (const auto* primitive = std::get_if<inspect::PackagePrimitive>(&object.content))
        add(extent, {primitive->least, primitive->greatest}, placed);
    else if (std::holds_alternative<inspect::PackageLight>(object.content))
        extent.hasLights = true;
}

}  // namespace

Extent extentOf(const inspect::FigureSummary& figure) {
    Extent extent;
    add(extent, boxOf(figure), kIdentity);
    return extent;
}

Extent extentOf(const inspect::SceneSummary& scene) {
    Extent extent{.isEmpty = scene.isEmpty, .box = {scene.least, scene.greatest}};
    size_t skeletonDepth = SIZE_MAX;  // lights in skeletons light nothing
    for (const inspect::SceneTreeNode& node : treeOf(scene)) {
        if (node.depth <= skeletonDepth) skeletonDepth = SIZE_MAX;
        const inspect::SceneType type = scene.at(node.number).type();
        if (type == inspect::SceneType::SkinnedMesh) skeletonDepth = std::min(skeletonDepth, node.depth);
        if (type == inspect::SceneType::Light && skeletonDepth == SIZE_MAX) extent.hasLights = true;
    }
    return extent;
}

Extent extentOf(const inspect::PackageSummary& package) {
    struct Step {
        uint32_t group;
        Matrix placed;  // its parent
    };
    Extent extent;
    if (package.groups.empty()) {
        add(extent, package.objects[0], kIdentity);
        return extent;
    }
    std::vector<Step> steps = {{0, kIdentity}};
    for (size_t visits = 0; !steps.empty(); ++visits) {
        if (visits == kMaxGroupVisits)
            throw std::runtime_error("the groups hold each other more than " + std::to_string(kMaxGroupVisits) +
                                     " times");
        const Step step = steps.back();
        steps.pop_back();
        const inspect::PackageGroup& group = package.groups[step.group];
        const Matrix placed = group.transform ? product(step.placed, *group.transform) : step.placed;
        for (const inspect::PackageChild& child : group.children) {
            if (child.isGroup)
                steps.push_back({child.index, placed});
            else
                add(extent, package.objects[child.index], placed);
        }
    }
    return extent;
}
