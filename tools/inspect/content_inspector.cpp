#include "tools/inspect/content_inspector.h"

#include "tools/inspect/content_reader.h"

namespace inspect {

namespace {

// The high byte of a package's version tells packages of objects from scenes.
bool isScenePackage(std::span<const uint8_t> bytes) { return bytes.size() >= 4 && bytes[2] == 0 && bytes[3] == 1; }

}  // namespace

const char* kindOf(const ContentSummary& summary) {
    static constexpr const char* kKinds[] = {"figure model", "action table", "texture image", "package",
                                             "scene package"};
    static_assert(std::size(kKinds) == std::variant_size_v<ContentSummary>);
    return kKinds[summary.index()];
}

ContentSummary inspectContent(std::span<const uint8_t> bytes) {
    const auto startsWith = [bytes](const char* magic) {
        return bytes.size() >= 2 && bytes[0] == uint8_t(magic[0]) && bytes[1] == uint8_t(magic[1]);
    };
    if (startsWith("MB")) return inspectFigure(bytes);
    if (startsWith("MT")) return inspectActions(bytes);
    if (startsWith("BM")) return inspectImage(bytes);
    if (startsWith("K8") && isScenePackage(bytes)) return inspectScene(bytes);
    if (startsWith("K8")) return inspectPackage(bytes);
    throw ContentProblem(0,
                         "expected the bytes \"MB\" (figure model), \"MT\" (action table), \"BM\" (BMP image) or "
                         "\"K8\" (package)");
}

}  // namespace inspect
