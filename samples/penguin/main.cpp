// Writes the penguin's files into a folder.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

#include "samples/penguin/penguin.h"

static void write(const std::filesystem::path& path, const encode::EncodedFile& file) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(file.bytes.data()), std::streamsize(file.bytes.size()));
    out.close();
    if (!out) throw std::runtime_error("cannot write " + path.string());
    std::printf("%s: %zu bytes\n", path.c_str(), file.bytes.size());
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_penguin FOLDER\n");
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        std::filesystem::create_directories(folder);
        write(folder / "penguin.mb", encodeMb(penguinFigure()));
        write(folder / "penguin.mt", encodeMt(penguinActions()));
        write(folder / "penguin-body.bmp", encodeBmp(penguinBodyTexture()));
        write(folder / "penguin-gear.bmp", encodeBmp(penguinGearTexture()));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_penguin: %s\n", error.what());
        return 1;
    }
}
