// Writes the package into a folder.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

#include "samples/floe/floe.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_floe FOLDER\n");
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1], path = folder / "floe.k8";
        const encode::EncodedFile file = encodeK8(floePackage());
        std::filesystem::create_directories(folder);
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(file.bytes.data()), std::streamsize(file.bytes.size()));
        out.close();
        if (!out) throw std::runtime_error("cannot write " + path.string());
        std::printf("%s: %zu bytes\n", path.c_str(), file.bytes.size());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_floe: %s\n", error.what());
        return 1;
    }
}
