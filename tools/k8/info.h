// What a content file holds, told to people and to programs.
#pragma once

#include <string>

#include "tools/inspect/content_inspector.h"

struct ContentInfo {
    std::string path;
    size_t byteCount = 0;
    inspect::ContentSummary summary;
};

// Throws std::runtime_error for what is no readable content, with the path, the offset and what is wrong there.
ContentInfo inspectFile(const std::string& path);

// Lines.
std::string textOf(const ContentInfo& info);  // bones and groups as trees
std::string jsonOf(const ContentInfo& info);
