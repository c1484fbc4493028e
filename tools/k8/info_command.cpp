#include "tools/k8/info_command.h"

#include <cstdio>

#include "tools/k8/info.h"

int runInfo(const InfoOptions& options) {
    const ContentInfo info = inspectFile(options.file);
    const std::string text = options.json ? jsonOf(info) : textOf(info);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}
