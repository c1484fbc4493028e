#include "tools/k8/info.h"

#include <stdexcept>

#include "tools/k8/content_file.h"

ContentInfo inspectFile(const std::string& path) {
    const std::vector<uint8_t> bytes = readContentFile(path);
    try {
        return {path, bytes.size(), inspect::inspectContent(bytes)};
    } catch (const inspect::ContentProblem& problem) {
        throw std::runtime_error(sentenceOf(path, problem));
    }
}
