#include "tools/k8/content_file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

}  // namespace

// Far more than content takes; devices and pipes may never end.
constexpr size_t kMaxBytes = size_t(256) << 20;

std::vector<uint8_t> readContentFile(const std::string& path) {
    const std::unique_ptr<FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    std::vector<uint8_t> bytes;
    std::array<uint8_t, 65536> block;
    while (const size_t count = file ? std::fread(block.data(), 1, block.size(), file.get()) : 0) {
        if (count > kMaxBytes - bytes.size()) throw std::runtime_error(path + ": is larger than 256 MiB");
        bytes.insert(bytes.end(), block.data(), block.data() + count);
    }
    if (!file || std::ferror(file.get())) throw std::runtime_error(path + ": cannot be read: " + std::strerror(errno));
    if (bytes.empty()) throw std::runtime_error(path + ": is empty");
    return bytes;
}

std::string sentenceOf(const std::string& path, const inspect::ContentProblem& problem) {
    return path + ": at offset " + std::to_string(problem.offset) + ": " + problem.what();
}
