// Builds a figure out of round shapes, given in the figure's own space (y up, facing z) at rest.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/encode/mb_encoder.h"

struct Vec3 {
    double x = 0, y = 0, z = 0;
};
Vec3 operator+(Vec3 a, Vec3 b);
Vec3 operator-(Vec3 a, Vec3 b);
Vec3 operator*(double s, Vec3 v);
Vec3 cross(Vec3 a, Vec3 b);
Vec3 normalized(Vec3 v);

// How a shape is painted: a part of a texture, or one colour.
struct Paint {
    std::optional<encode::Rgb> color{};
    uint32_t texture = 0;
    double u0 = 0, v0 = 0, u1 = 0, v1 = 0;  // texels: left and right edge, top and bottom edge
    encode::MbStyle style{.lit = true};
    uint32_t pattern = 0;
};

// A cross-section of a round shape: an ellipse around a point of the axis. Radius 0 closes the shape.
struct Ring {
    double along;                     // position on the axis
    double radiusX, radiusZ;          // half-axes
    int bone;                         // whom its vertices follow
    double offsetX = 0, offsetZ = 0;  // of the centre from the axis
};

// Where a shape stands: its axis is y, and its front, where the texture's middle goes, is z.
struct Placement {
    Vec3 origin{};
    Vec3 x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1};  // right-handed, unit length
};
// Turned about x (leaning forward), then about z (towards the left of the viewer), in degrees.
Placement placed(Vec3 origin, double forwardDegrees = 0, double sidewaysDegrees = 0);

class FigureMaker {
public:
    // A bone that stands at a point of the figure's space, unturned at rest.
    int addBone(const char* name, int parent, Vec3 origin);

    // A surface through the rings, bottom to top, with so many sides.
    void addRound(const Placement& place, const std::vector<Ring>& rings, int sides, const Paint& paint);
    // A flat four-sided piece: bottom left, top left, bottom right, top right as seen from its front.
    void addQuad(int bone, const std::array<Vec3, 4>& corners, const Paint& paint);
    // A flat disc facing up.
    void addDisc(int bone, Vec3 center, double radius, int sides, const Paint& paint);

    encode::MbFigure take() { return std::move(figure_); }

private:
    uint32_t addVertex(int bone, Vec3 position, Vec3 normal);
    void addPolygon(const Paint& paint, std::vector<encode::MbCorner> corners);

    encode::MbFigure figure_;
    std::vector<Vec3> boneOrigins_;
};
