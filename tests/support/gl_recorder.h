// An OpenGL ES 1.1 that draws nothing and records what it is told: every call as a line of text, the arrays of every
// draw resolved through the client state, and the pixels of every upload. It defines exactly the functions that the
// library may call.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

using GlLines = std::vector<std::string>;

// The vertices of one draw in the order in which they are used, each with the values of its array. Disabled arrays are
// empty.
struct GlDraw {
    using Vectors = std::vector<std::vector<float>>;
    std::string call;
    Vectors positions, normals, colors;  // colours in 0..255
    std::array<Vectors, 2> texCoords;
    // The same after the matrices: clip coordinates divided by w, and places in the texture, 1 being its side.
    Vectors corners;
    std::array<Vectors, 2> lookups;
};

struct GlUpload {
    std::string call;
    uint32_t texture;  // name bound to the active unit
    int32_t level;
    std::vector<uint8_t> bytes;  // all that OpenGL ES would read, row padding included
};

// One draw of several, with everything that was sent before it. Calls come and are asked for in brief.
struct GlDrawn {
    GlLines lines;
    GlDraw draw;

    // Of each beginning the last call that begins so; empty when there is none.
    template <typename... Beginning>
    std::string last(const Beginning&... beginnings) const {
        return lastOf({std::string(beginnings)...});
    }
    std::string lastOf(const std::vector<std::string>& beginnings) const;
    bool has(const std::string& capability) const;  // enabled, and not disabled afterwards
    // What the texture unit was bound to and set to; empty while it is off.
    std::string unit(int index) const;
};

class GlRecorder {
public:
    GlLines take();                    // the lines since the last take
    std::vector<GlDrawn> takeDraws();  // the same by draws, which must be all that are in `draws`
    // Everything back to a fresh context, with no calls.
    void reset() { *this = GlRecorder(); }

    std::vector<GlDraw> draws;
    std::vector<GlUpload> uploads;
    std::vector<uint32_t> liveTextures;  // generated and not deleted, in the order of generation

    // What the context answers.
    std::vector<uint8_t> frame;  // r, g, b, a from the bottom row up, without row padding, whatever size is asked for
    int32_t unpackAlignment = 4, packAlignment = 4;
    int32_t uploadsUntilOutOfMemory = -1;  // 0: the next one

    // For the functions of the context.
    using Matrix = std::array<float, 16>;  // by columns
    struct MatrixStack {
        std::vector<Matrix> saved;
        Matrix top = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    };
    struct Array {
        bool enabled = false;
        int32_t size = 0;
        uint32_t type = 0;
        const void* data = nullptr;
    };
    Array positions, normals, colors;
    std::array<Array, 2> texCoords;
    uint32_t clientUnit = 0, activeUnit = 0;
    std::array<uint32_t, 2> boundTextures{};
    MatrixStack modelView, projection;
    std::array<MatrixStack, 2> textureMatrix;
    MatrixStack& currentMatrix();
    uint32_t matrixMode = 0;
    uint32_t lastTexture = 0;
    uint32_t error = 0;
    GlLines lines;
};

extern GlRecorder glRecorder;

// The lines of `all` that are left when `always`, which must be a part of it in the same order, is taken away. One line
// that says so when it is not.
GlLines linesBeyond(const GlLines& always, const GlLines& all);

// The lines that contain a part.
GlLines only(const GlLines& lines, const std::string& part);

// All lines as one text, "; " between them, without what every name of OpenGL ES begins with, without targets and faces
// that are always the same, and with a matrix that only moves written as "at x, y, z".
std::string brief(const GlLines& lines);
