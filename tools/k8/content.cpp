#include "tools/k8/content.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>

#include "tools/inspect/content_reader.h"
#include "tools/inspect/image_inspector.h"

namespace {

std::vector<uint8_t> readFile(const std::string& path) {
    if (std::filesystem::is_directory(path)) throw std::runtime_error(path + ": is a folder");
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    if (!in) throw std::runtime_error(path + ": cannot be read");
    if (bytes.size() > INT32_MAX) throw std::runtime_error(path + ": is larger than 2 GiB");
    return bytes;
}

bool startsWith(const std::vector<uint8_t>& bytes, const char* magic) {
    return bytes.size() >= 2 && std::memcmp(bytes.data(), magic, 2) == 0;
}

// Looks into the file first, since the library only says that something is wrong.
template <typename Inspector>
auto inspected(const std::string& path, const std::vector<uint8_t>& bytes, const char* kind, Inspector inspector) {
    try {
        return inspector(std::span<const uint8_t>(bytes));
    } catch (const inspect::ContentProblem& problem) {
        throw std::runtime_error(path + ": not a usable " + kind + ": at offset " + std::to_string(problem.offset) +
                                 ": " + problem.what());
    }
}

HandleOwner load(const std::string& path, const std::vector<uint8_t>& bytes) {
    K8Handle* handle = K8Loader_loadObject(int32_t(bytes.size()), bytes.data(), &MALK8_malc);
    if (handle) return HandleOwner(handle);
    const bool exhausted = K8ErrStorage_getErrorStatus() == K8_ERR_OUT_OF_MEMORY;
    throw std::runtime_error(path + (exhausted ? ": memory ran out" : ": the library does not accept this content"));
}

void loadFile(const std::string& path, FigureContent& content) {
    const std::vector<uint8_t> bytes = readFile(path);
    if (startsWith(bytes, "MB")) {
        if (content.figure) throw std::runtime_error(path + ": is a second figure; give one");
        content.figureSummary = inspected(path, bytes, "figure model", inspect::inspectFigure);
        content.figure = load(path, bytes);
    } else if (startsWith(bytes, "MT")) {
        if (content.actions) throw std::runtime_error(path + ": is a second action table; give one");
        content.actionSummary = inspected(path, bytes, "action table", inspect::inspectActions);
        content.actions = load(path, bytes);
    } else if (startsWith(bytes, "BM")) {
        inspected(path, bytes, "texture", inspect::inspectImage);
        content.textures.push_back(load(path, bytes));
    } else {
        throw std::runtime_error(
            path + ": at offset 0: expected the bytes \"MB\" (figure model), \"MT\" (action table) or \"BM\" " +
            "(BMP image)");
    }
}

}  // namespace

FigureContent loadFigureContent(const std::vector<std::string>& paths) {
    FigureContent content;
    for (const std::string& path : paths) loadFile(path, content);
    if (!content.figure) throw std::runtime_error("no figure model (\"MB\") among the files given");
    return content;
}
