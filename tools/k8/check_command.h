// k8 check: says whether content files are good, and what is wrong with those that are not.
#pragma once

#include <string>
#include <vector>

struct Verdict {
    bool isGood;
    std::string line;  // begins with the path
};

// Looks into a file and has the library load it. A file is good when both take it and its checksums match; where they
// disagree the line says so.
Verdict checkFile(const std::string& path);

struct CheckOptions {
    std::vector<std::string> files;
    bool quiet = false;  // no lines for good files
};

int runCheck(const CheckOptions& options);
