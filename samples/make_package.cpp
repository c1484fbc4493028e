#include "samples/make_package.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

int makePackage(int argc, char** argv, const char* fileName, encode::EncodedFile (*encodePackage)()) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1], path = folder / fileName;
        const encode::EncodedFile file = encodePackage();
        std::filesystem::create_directories(folder);
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(file.bytes.data()), std::streamsize(file.bytes.size()));
        out.close();
        if (!out) throw std::runtime_error("cannot write " + path.string());
        std::printf("%s: %zu bytes\n", path.c_str(), file.bytes.size());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
}
