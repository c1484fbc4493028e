#include "tools/k8/placements.h"

#include <algorithm>
#include <stdexcept>

#include "tools/inspect/scene_transform.h"

constexpr size_t kMaxChildVisits = 1048576;  // more are not drawn
constexpr float kFigureUnit = 1.0f / 64;
constexpr float kFNumber = 1.0f / 4096;  // collision counts the F numbers of primitives as whole units

static qelTransform product(const qelTransform& a, const qelTransform& b) {
    qelTransform out;
    qelTransform_postMultiply_copy(&a, &b, &out);
    return out;
}

static qelTransform transformOf(const float* elements) {
    qelTransform out;
    qelTransform_set_fl(&out, elements);
    return out;
}

static qelTransform identity() {
    qelTransform out;
    qelTransform_setIdentity(&out);
    return out;
}

// --- Figures and packages ---

static qelTransform scaled(qelTransform transform, float scale) {
    qelTransform_postScale(&transform, scale, scale, scale);
    return transform;
}

static void addObject(Placements& out, K8Handle* handle, uint32_t number, size_t group, const qelTransform& place) {
    if (handle->classId == K8_CLASS_FIGURE)
        out.objects.push_back({handle, number, group, true, place, scaled(place, kFigureUnit)});
    if (handle->classId == K8_CLASS_PRIMITIVE)
        out.objects.push_back({handle, number, group, false, scaled(place, kFNumber), place});
}

static void addGroup(Placements& out, const K8Handle* handle, uint32_t number, size_t above) {
    const K8Transform* own = reinterpret_cast<const K8Group*>(handle)->info->transform;
    const qelTransform outer = out.groups.empty() ? identity() : out.groups[above].placing;
    out.groups.push_back({number, above, own ? product(outer, transformOf(own->elements)) : outer});
}

// The handles hang together as the groups of the file do.
static void placePackage(Placements& out, const K8Handle* root, const inspect::PackageSummary& package) {
    std::vector<const K8Group*> handles = {reinterpret_cast<const K8Group*>(root)};
    addGroup(out, root, 0, 0);
    size_t childVisits = 0;
    for (size_t g = 0; g < out.groups.size(); ++g) {
        const K8GroupInfo& info = *handles[g]->info;
        const std::vector<inspect::PackageChild>& children = package.groups[out.groups[g].number].children;
        childVisits += children.size();
        if (childVisits > kMaxChildVisits)
            throw std::runtime_error("the groups place more than " + std::to_string(kMaxChildVisits) + " children");
        for (size_t c = 0; c < children.size(); ++c) {
            K8Handle* child = info.childHandles[c];
            if (children[c].isGroup) {
                handles.push_back(reinterpret_cast<const K8Group*>(child));
                addGroup(out, child, children[c].index, g);
            } else {
                addObject(out, child, children[c].index, g, out.groups[g].placing);
            }
        }
    }
}

// --- Scenes ---

// The figures of a scene in the order of its meshes: depth first.
static std::vector<K8Handle*> figuresOf(K8Handle* root) {
    std::vector<K8Handle*> figures;
    std::vector<K8Handle*> open = {root};
    while (!open.empty()) {
        K8Handle* handle = open.back();
        open.pop_back();
        if (handle->classId == K8_CLASS_FIGURE) figures.push_back(handle);
        if (handle->classId != K8_CLASS_SCENE_GROUP) continue;
        const K8GroupInfo& info = *reinterpret_cast<K8Group*>(handle)->info;
        for (size_t c = info.childHandleCount; c-- > 0;) open.push_back(info.childHandles[c]);
    }
    return figures;
}

namespace {
struct NodePlace {
    qelTransform placing;
    bool isPickable;
};
}  // namespace

// No function of the library tells where a node of a scene stands, but the file does.
static void placeScene(Placements& out, K8Handle* root, const inspect::SceneSummary& scene) {
    const std::vector<K8Handle*> figures = figuresOf(root);
    std::vector<NodePlace> above;     // by depth, down to the node
    size_t skeletonDepth = SIZE_MAX;  // of the mesh that the skeleton is in, which stands for all of it
    for (const inspect::SceneTreeNode& node : inspect::treeOf(scene)) {
        const inspect::SceneObject& object = scene.at(node.number);
        above.resize(node.depth);
        if (node.depth == 0) {  // what draws the World puts its transform in place of the World's own
            above.push_back({identity(), object.node->isPickable});
            continue;
        }
        const NodePlace outer = above.back();
        const qelTransform own = transformOf(inspect::compositeOf(*object.transform).data());
        above.push_back({product(outer.placing, own), outer.isPickable && object.node->isPickable});
        if (node.depth <= skeletonDepth) skeletonDepth = SIZE_MAX;
        if (!inspect::meshOf(object) || skeletonDepth != SIZE_MAX) continue;
        if (object.type() == inspect::SceneType::SkinnedMesh) skeletonDepth = node.depth;
        K8Handle* handle = figures.at(out.objects.size());
        out.objects.push_back({handle, node.number, 0, above.back().isPickable, outer.placing, above.back().placing});
    }
}

// --- Contents ---

Placements placementsOf(const StageContent& content) {
    Placements out;
    const auto* package = std::get_if<inspect::PackageSummary>(content.summary.get());
    if (const auto* scene = std::get_if<inspect::SceneSummary>(content.summary.get()))
        placeScene(out, content.root, *scene);
    else if (package && !package->groups.empty())
        placePackage(out, content.root, *package);
    else
        addObject(out, content.root, 0, 0, identity());
    return out;
}

std::vector<int64_t> groupsAbove(const Placements& placements, const PlacedObject& object) {
    const std::vector<PlacedGroup>& groups = placements.groups;
    std::vector<int64_t> numbers;
    if (groups.empty()) return numbers;
    size_t group = object.group;
    for (; groups[group].above != group; group = groups[group].above) numbers.push_back(groups[group].number);
    numbers.push_back(groups[group].number);
    std::ranges::reverse(numbers);
    return numbers;
}

std::string nameOf(const StageContent& content, const Placements& placements, const PlacedObject& object) {
    const std::string number = std::to_string(object.number);
    if (const auto* scene = std::get_if<inspect::SceneSummary>(content.summary.get()))
        return inspect::nameOf(scene->at(object.number).type()) + (" " + number);
    if (std::holds_alternative<inspect::FigureSummary>(*content.summary)) return "the figure";
    std::string path;
    for (const int64_t group : groupsAbove(placements, object))
        path += (path.empty() ? "" : "/") + std::to_string(group);
    if (path.empty()) return "object " + number;
    return "object " + number + (path.find('/') == path.npos ? " in group " : " in groups ") + path;
}
