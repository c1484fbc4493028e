// k8 check: says whether content files are good, and what is wrong with those that are not.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

struct Verdict {
    bool isGood;
    std::string line;  // begins with the path
};

// Looks into a file and has the library load it. A file is good when both take it; where they disagree the line says so.
Verdict checkFile(const std::string& path);

void addCheckCommand(CLI::App& app);
