// Pictures in memory, and as PNG files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> rgba;  // rows from top to bottom
};

// Throws std::runtime_error with the path when the file cannot be written.
void writePng(const std::string& path, const Picture& picture);

// All pictures, of one size, side by side in rows, on the background colour 0xRRGGBB; at most `columns` to a row.
Picture contactSheet(const std::vector<Picture>& pictures, int columns, uint32_t background);
