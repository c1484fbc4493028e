#include "tools/k8/check_command.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "k8.h"
#include "tools/inspect/content_inspector.h"
#include "tools/k8/content.h"
#include "tools/k8/content_file.h"

namespace {

enum class Loading { Loads, Refuses, OutOfMemory };

Loading loadWithLibrary(const std::vector<uint8_t>& bytes) {
    K8ErrStorage_setErrorStatus(K8_ERR_FAILURE);
    const std::vector<HandleOwner> handles = loadHandles(bytes);
    if (!handles.empty()) return Loading::Loads;
    return K8ErrStorage_getErrorStatus() == K8_ERR_OUT_OF_MEMORY ? Loading::OutOfMemory : Loading::Refuses;
}

Verdict verdictOfLoaded(const std::string& path, const inspect::ContentSummary& summary) {
    const std::string kind = inspect::kindOf(summary);
    if (const auto* scene = std::get_if<inspect::SceneSummary>(&summary)) {
        const auto damaged = std::ranges::find(scene->sections, false, &inspect::SceneSection::isIntact);
        if (damaged != scene->sections.end())
            return {false, path + ": loads as a " + kind + ", but the checksum of section " +
                               std::to_string(damaged - scene->sections.begin()) + ", at offset " +
                               std::to_string(damaged->offset) + ", does not match its bytes"};
    }
    return {true, path + ": good " + kind};
}

}  // namespace

Verdict checkFile(const std::string& path) {
    std::vector<uint8_t> bytes;
    try {
        bytes = readContentFile(path);
    } catch (const std::runtime_error& error) {
        return {false, error.what()};
    }
    const Loading loading = loadWithLibrary(bytes);
    try {
        const inspect::ContentSummary summary = inspect::inspectContent(bytes);
        const std::string kind = inspect::kindOf(summary);
        switch (loading) {
            case Loading::Loads: return verdictOfLoaded(path, summary);
            case Loading::OutOfMemory: return {false, path + ": good " + kind + ", but memory ran out while it loaded"};
            case Loading::Refuses: break;
        }
        // Its limits on memory depend on what it makes of the content, and are no part of the formats.
        return {false, path + ": looks like a good " + kind +
                           ", but the library refuses it, as it does what takes far more memory than bytes of file"};
    } catch (const inspect::ContentProblem& problem) {
        const char* doubt = loading == Loading::Loads ? "; the library loads it, though: a defect of one of them" : "";
        return {false, sentenceOf(path, problem) + doubt};
    }
}

int runCheck(const CheckOptions& options) {
    bool allGood = true;
    for (const std::string& path : options.files) {
        const Verdict verdict = checkFile(path);
        allGood = allGood && verdict.isGood;
        if (!verdict.isGood || !options.quiet) std::printf("%s\n", verdict.line.c_str());
    }
    return allGood ? 0 : 1;
}
