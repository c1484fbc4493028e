// An OpenGL ES 1.1 context that needs no display, over an off-screen surface of a given size.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

class GlSurface {
public:
    // A surface of 8-8-8-8 colour with a depth buffer, its context current on the calling thread until the object goes.
    // Throws std::runtime_error, whose text is one line, where no such context can be had.
    static std::unique_ptr<GlSurface> create(int width, int height);
    ~GlSurface();
    GlSurface(const GlSurface&) = delete;
    GlSurface& operator=(const GlSurface&) = delete;

    int width() const { return width_; }
    int height() const { return height_; }
    std::vector<uint8_t> readPixels() const;  // r, g, b, a bytes, rows from top to bottom

private:
    GlSurface(int width, int height) : width_(width), height_(height) {}
    void open();

    int width_, height_;
    void* display_ = nullptr;  // EGL handles
    void* surface_ = nullptr;
    void* context_ = nullptr;
};
