// Building a scene's meshes and animations out of points and angles.
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "tools/encode/m3g_encoder.h"

using Point = std::array<double, 3>;

struct Vertex {
    Point position{}, normal{0, 1, 0};
    std::array<double, 2> texel{};  // 0..1 over the image
    uint32_t color = 0xFFFFFFFF;    // 0xAARRGGBB
};

struct Shape {
    std::vector<Vertex> vertices;
    std::vector<std::vector<uint32_t>> strips;  // indices

    // The corners go round counterclockwise, seen from where the face is lit. Gets a flat normal.
    void addQuad(const std::array<Point, 4>& corners, double texelsAcross = 1);
    // Turns a profile of (radius, height) about the y axis.
    void addLathe(const std::vector<std::array<double, 2>>& profile, uint32_t sides,
                  const std::function<uint32_t(uint32_t ring)>& colorOf = {});
    // (columns + 1) x (rows + 1) vertices made by the function from coordinates in 0..1, column by column. With columns
    // to the right and rows towards the viewer the face is up.
    void addGrid(uint32_t columns, uint32_t rows, const std::function<Vertex(double u, double v)>& vertexAt);
};

struct Attributes {
    bool normals = true, colors = false, texels = false;
};

struct Look {
    encode::M3gRef material{}, compositingMode{}, polygonMode{}, fog{}, texture{};
    int8_t layer = 0;
};

class SceneBuilder {
public:
    encode::M3gScene scene;

    encode::M3gRef add(encode::M3gRecord record) { return scene.add(std::move(record)); }
    encode::M3gRef addVertices(const Shape& shape, const Attributes& attributes);
    encode::M3gRef addStrips(const Shape& shape);
    encode::M3gRef addAppearance(const Look& look);
    encode::M3gRef addMesh(const Shape& shape, const Attributes& attributes, const Look& look);
    // A texture that repeats and has smaller levels for the distance. colorAt gets coordinates in 0..1.
    encode::M3gRef addTexture(uint32_t side, const std::function<uint32_t(double u, double v)>& colorAt);
    // A looping track.
    encode::M3gRef addTrack(encode::M3gProperty property, encode::M3gInterpolation interpolation,
                            std::vector<encode::M3gKeyframe> keyframes, uint32_t duration, encode::M3gRef controller);
};

encode::M3gNode placedAt(const Point& place, double angleDegrees = 0, const Point& axis = {0, 1, 0}, double scale = 1);
// A rotation as a keyframe's four values.
std::vector<float> quaternion(double degrees, const Point& axis);
std::vector<float> product(const std::vector<float>& a, const std::vector<float>& b);

// A smooth value in -1..1 that repeats after 1 in both directions; cells: how many bumps across.
double noise(double u, double v, int cells);
uint32_t mix(uint32_t a, uint32_t b, double share);  // of two colours, channel by channel
