#include "tools/k8/content.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "tools/k8/content_file.h"

namespace {

template <typename Handle>
Handle* as(K8Handle* handle) {
    return reinterpret_cast<Handle*>(handle);
}

template <typename Handle>
K8Handle* headerOf(Handle* handle) {
    return reinterpret_cast<K8Handle*>(handle);
}

bool isGroup(const K8Handle* handle) {
    return handle->classId == K8_CLASS_GROUP || handle->classId == K8_CLASS_SCENE_GROUP;
}

// The handles that a root brings along, each once. A group lists them all; a figure names what it uses.
std::set<K8Handle*> companionsOf(K8Handle* root) {
    std::set<K8Handle*> companions;
    if (isGroup(root)) {
        for (K8Handle** other = as<K8Group>(root)->info->childData; *other; ++other) companions.insert(*other);
    } else if (root->classId == K8_CLASS_FIGURE) {
        const K8FigureInfo& info = *as<K8Figure>(root)->info;
        companions.insert(headerOf(info.loadedAction));
        for (size_t i = 0; i < info.loadedTextureCount; ++i) companions.insert(headerOf(info.loadedTextures[i]));
        companions.erase(nullptr);
    }
    return companions;
}

// What the inspector makes of a file. It comes before the library, which only says that something is wrong.
inspect::ContentSummary inspected(const std::string& path, const std::vector<uint8_t>& bytes) {
    try {
        return inspect::inspectContent(bytes);
    } catch (const inspect::ContentProblem& problem) {
        throw std::runtime_error(sentenceOf(path, problem));
    }
}

std::vector<HandleOwner> load(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::vector<HandleOwner> handles = loadHandles(bytes);
    if (!handles.empty()) return handles;
    const bool exhausted = K8ErrStorage_getErrorStatus() == K8_ERR_OUT_OF_MEMORY;
    throw std::runtime_error(path + (exhausted ? ": memory ran out" : ": the library does not accept this content"));
}

// What single files of a figure become.
struct LooseFiles {
    HandleOwner figure, actions;
    std::vector<HandleOwner> textures;
    inspect::FigureSummary summary;
};

void take(LooseFiles& files, const std::string& path, const std::vector<uint8_t>& bytes,
          const inspect::ContentSummary& summary) {
    HandleOwner handle = std::move(load(path, bytes).front());
    if (const auto* figure = std::get_if<inspect::FigureSummary>(&summary)) {
        if (files.figure) throw std::runtime_error(path + ": is a second figure; give one");
        files.summary = *figure;
        files.figure = std::move(handle);
    } else if (std::holds_alternative<inspect::ActionTableSummary>(summary)) {
        if (files.actions) throw std::runtime_error(path + ": is a second action table; give one");
        files.actions = std::move(handle);
    } else {
        files.textures.push_back(std::move(handle));
    }
}

// Gives the figure its textures and action table, with an array from the allocator that owns the figure.
void dress(K8Figure* figure, const LooseFiles& files) {
    K8FigureInfo info = *figure->info;
    if (!files.textures.empty()) {
        const size_t bytes = files.textures.size() * sizeof(K8Texture*);
        info.loadedTextures = static_cast<K8Texture**>(MALK8_malc.functions->alloc(&MALK8_malc, int32_t(bytes)));
        if (!info.loadedTextures) throw std::runtime_error("memory ran out");
        std::ranges::transform(files.textures, info.loadedTextures,
                               [](const HandleOwner& texture) { return as<K8Texture>(texture.get()); });
        info.loadedTextureCount = uint16_t(files.textures.size());
    }
    info.loadedAction = as<K8ActionTable>(files.actions.get());
    K8Figure_setTmpData(figure, &info);
}

StageContent joinFiles(LooseFiles files) {
    if (!files.figure) throw std::runtime_error("no figure model (\"MB\") among the files given");
    StageContent content;
    content.root = files.figure.get();
    content.figures = {as<K8Figure>(content.root)};
    content.extent = extentOf(files.summary);
    dress(content.figures[0], files);
    content.summary = std::make_shared<inspect::ContentSummary>(std::move(files.summary));
    content.handles.push_back(std::move(files.figure));
    if (files.actions) content.handles.push_back(std::move(files.actions));
    for (HandleOwner& texture : files.textures) content.handles.push_back(std::move(texture));
    return content;
}

template <typename Summary>
StageContent loadPackage(const std::string& path, const std::vector<uint8_t>& bytes, const Summary& summary) {
    StageContent content;
    content.handles = load(path, bytes);
    content.root = content.handles.front().get();
    for (const HandleOwner& handle : content.handles) {
        if (handle->classId == K8_CLASS_FIGURE) content.figures.push_back(as<K8Figure>(handle.get()));
        if (isGroup(handle.get())) content.groups.push_back(as<K8Group>(handle.get()));
    }
    try {
        content.extent = extentOf(summary);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
    if (content.extent.isEmpty) throw std::runtime_error(path + ": the package holds nothing that can be drawn");
    return content;
}

// When the last of its animations is over, or begins anew.
double lengthOf(const inspect::SceneSummary& scene) {
    uint32_t longest = 0;
    for (const inspect::SceneObject& object : scene.objects)
        if (const auto* sequence = std::get_if<inspect::SceneKeyframeSequence>(&object.content))
            longest = std::max(longest, sequence->duration);
    return longest;
}

// The scene moves as a whole: its figures have no actions of their own.
StageContent loadScene(const std::string& path, const std::vector<uint8_t>& bytes,
                       const inspect::SceneSummary& summary) {
    StageContent content = loadPackage(path, bytes, summary);
    content.figures.clear();
    content.scene = content.groups.front();
    content.sceneMilliseconds = lengthOf(summary);
    return content;
}

}  // namespace

std::vector<HandleOwner> loadHandles(const std::vector<uint8_t>& bytes) {
    std::vector<HandleOwner> handles;
    MALK8_touchMA();
    K8Handle* root = K8Loader_loadObject(int32_t(bytes.size()), bytes.data(), &MALK8_malc);
    if (!root) return handles;
    const std::set<K8Handle*> companions = companionsOf(root);
    handles.emplace_back(root);
    for (K8Handle* companion : companions) handles.emplace_back(companion);
    return handles;
}

uint32_t StageContent::patternCount() const {
    int32_t most = 0;
    for (const K8Figure* figure : figures) most = std::max(most, K8Figure_getNumPatterns(figure));
    return uint32_t(most);
}

double StageContent::actionLength(uint32_t action) const {
    constexpr double kFrame = 65536;
    int32_t mostActions = 0, longest = 0;
    for (const K8Figure* figure : figures) {
        const K8ActionTable* table = figure->info->loadedAction;
        if (!table) continue;
        mostActions = std::max(mostActions, K8ActionTable_getNumActions(table));
        longest = std::max(longest, K8ActionTable_getMaxFrame(table, int32_t(action)));
    }
    if (mostActions == 0 && action > 0)
        throw std::runtime_error("there is no action " + std::to_string(action) + ", nor any other");
    if (mostActions > 0 && action >= uint32_t(mostActions))
        throw std::runtime_error("there is no action " + std::to_string(action) + "; " +
                                 (figures.size() > 1 ? "the longest table" : "the table") + " has " +
                                 std::to_string(mostActions));
    return longest / kFrame;
}

void StageContent::removeLights() {
    for (K8Group* group : groups) {
        K8GroupInfo info = *group->info;
        K8Handle** end = std::remove_if(info.childHandles, info.childHandles + info.childHandleCount,
                                        [](const K8Handle* child) { return child->classId == K8_CLASS_LIGHT; });
        info.childHandleCount = uint16_t(end - info.childHandles);
        K8Group_setTmpData(group, &info);
    }
}

StageContent loadStageContent(const std::vector<std::string>& paths) {
    LooseFiles files;
    for (const std::string& path : paths) {
        const std::vector<uint8_t> bytes = readContentFile(path);
        const auto summary = std::make_shared<inspect::ContentSummary>(inspected(path, bytes));
        const auto* package = std::get_if<inspect::PackageSummary>(summary.get());
        const auto* scene = std::get_if<inspect::SceneSummary>(summary.get());
        if (!package && !scene) {
            take(files, path, bytes, *summary);
            continue;
        }
        if (paths.size() > 1) throw std::runtime_error(path + ": is a package; it is drawn alone, without other files");
        StageContent content = package ? loadPackage(path, bytes, *package) : loadScene(path, bytes, *scene);
        content.summary = summary;
        return content;
    }
    return joinFiles(std::move(files));
}
