#include "tools/k8/content_file.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

std::vector<uint8_t> readContentFile(const std::string& path) {
    if (std::filesystem::is_directory(path)) throw std::runtime_error(path + ": is a folder");
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    if (!in) throw std::runtime_error(path + ": cannot be read");
    if (bytes.size() > INT32_MAX) throw std::runtime_error(path + ": is larger than 2 GiB");
    return bytes;
}

std::string sentenceOf(const std::string& path, const inspect::ContentProblem& problem) {
    return path + ": at offset " + std::to_string(problem.offset) + ": " + problem.what();
}
