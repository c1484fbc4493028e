#include "samples/penguin/figure_maker.h"

#include <algorithm>
#include <cmath>
#include <numbers>

using encode::MbCorner;

Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 operator*(double s, Vec3 v) { return {s * v.x, s * v.y, s * v.z}; }
Vec3 cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
Vec3 normalized(Vec3 v) {
    const double length = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    return length > 0 ? (1 / length) * v : Vec3{0, 1, 0};
}

Placement placed(Vec3 origin, double forwardDegrees, double sidewaysDegrees) {
    const double f = forwardDegrees * std::numbers::pi / 180, s = sidewaysDegrees * std::numbers::pi / 180;
    const auto turnZ = [s](Vec3 v) {
        return Vec3{v.x * std::cos(s) - v.y * std::sin(s), v.x * std::sin(s) + v.y * std::cos(s), v.z};
    };
    return {origin, turnZ({1, 0, 0}), turnZ({0, std::cos(f), std::sin(f)}), turnZ({0, -std::sin(f), std::cos(f)})};
}

int FigureMaker::addBone(const char* name, int parent, Vec3 origin) {
    const Vec3 local = parent < 0 ? origin : origin - boneOrigins_[size_t(parent)];
    figure_.bones.push_back({.name = name,
                             .parent = parent,
                             .rest = encode::translationBone(int16_t(local.x), int16_t(local.y), int16_t(local.z))});
    boneOrigins_.push_back(origin);
    return int(boneOrigins_.size()) - 1;
}

uint32_t FigureMaker::addVertex(int bone, Vec3 position, Vec3 normal) {
    const Vec3 local = position - boneOrigins_[size_t(bone)];
    const auto whole = [](double value) { return int16_t(std::lround(value)); };
    figure_.vertices.push_back({.position = {whole(local.x), whole(local.y), whole(local.z)},
                                .normal = {float(normal.x), float(normal.y), float(normal.z)},
                                .bone = bone});
    return uint32_t(figure_.vertices.size()) - 1;
}

void FigureMaker::addPolygon(const Paint& paint, std::vector<MbCorner> corners) {
    figure_.polygons.push_back({.corners = std::move(corners),
                                .style = paint.style,
                                .pattern = paint.pattern,
                                .texture = paint.texture,
                                .color = paint.color});
}

static MbCorner corner(uint32_t vertex, const Paint& paint, double right, double down) {
    return {vertex, uint8_t(std::lround(std::lerp(paint.u0, paint.u1, right))),
            uint8_t(std::lround(std::lerp(paint.v0, paint.v1, down)))};
}

void FigureMaker::addRound(const Placement& place, const std::vector<Ring>& rings, int sides, const Paint& paint) {
    const auto point = [&](const Ring& ring, double angle) {
        const double x = ring.offsetX + ring.radiusX * std::sin(angle),
                     z = ring.offsetZ + ring.radiusZ * std::cos(angle);
        return place.origin + x * place.x + ring.along * place.y + z * place.z;
    };
    const auto angleOf = [sides](int side) { return std::numbers::pi * (2.0 * side / sides - 1); };
    const auto isPole = [](const Ring& ring) { return ring.radiusX == 0 || ring.radiusZ == 0; };
    const int last = int(rings.size()) - 1;

    std::vector<std::vector<uint32_t>> vertices(rings.size());
    for (int r = 0; r <= last; ++r) {
        const Ring& below = rings[size_t(std::max(r - 1, 0))];
        const Ring& above = rings[size_t(std::min(r + 1, last))];
        for (int s = 0; s < (isPole(rings[size_t(r)]) ? 1 : sides); ++s) {
            const double angle = angleOf(s);
            const Ring& widest = below.radiusX > above.radiusX ? below : above;
            const Vec3 around = point(isPole(rings[size_t(r)]) ? widest : rings[size_t(r)], angle + 0.01) -
                                point(isPole(rings[size_t(r)]) ? widest : rings[size_t(r)], angle - 0.01);
            Vec3 normal = normalized(cross(around, point(above, angle) - point(below, angle)));
            if (isPole(rings[size_t(r)])) normal = r == 0 ? -1.0 * place.y : place.y;
            vertices[size_t(r)].push_back(addVertex(rings[size_t(r)].bone, point(rings[size_t(r)], angle), normal));
        }
    }

    const double bottom = rings.front().along, height = rings.back().along - rings.front().along;
    const auto at = [&](int r, int s) {
        const auto& ring = vertices[size_t(r)];
        const double right = ring.size() == 1 ? (s + 0.5) / sides : double(s) / sides;
        return corner(ring[size_t(s) % ring.size()], paint, right, 1 - (rings[size_t(r)].along - bottom) / height);
    };
    for (int r = 0; r < last; ++r) {
        for (int s = 0; s < sides; ++s) {
            if (isPole(rings[size_t(r)]))
                addPolygon(paint, {at(r, s), at(r + 1, s), at(r + 1, s + 1)});
            else if (isPole(rings[size_t(r) + 1]))
                addPolygon(paint, {at(r, s), at(r + 1, s), at(r, s + 1)});
            else
                addPolygon(paint, {at(r, s), at(r + 1, s), at(r, s + 1), at(r + 1, s + 1)});
        }
    }
}

void FigureMaker::addQuad(int bone, const std::array<Vec3, 4>& corners, const Paint& paint) {
    const Vec3 normal = normalized(cross(corners[2] - corners[0], corners[1] - corners[0]));
    std::array<uint32_t, 4> v{};
    for (size_t i = 0; i < 4; ++i) v[i] = addVertex(bone, corners[i], normal);
    addPolygon(paint, {corner(v[0], paint, 0, 1), corner(v[1], paint, 0, 0), corner(v[2], paint, 1, 1),
                       corner(v[3], paint, 1, 0)});
}

void FigureMaker::addDisc(int bone, Vec3 center, double radius, int sides, const Paint& paint) {
    const Vec3 up{0, 1, 0};
    const uint32_t middle = addVertex(bone, center, up);
    std::vector<uint32_t> rim;
    for (int s = 0; s < sides; ++s) {
        const double angle = 2 * std::numbers::pi * s / sides;
        rim.push_back(addVertex(bone, center + Vec3{radius * std::sin(angle), 0, radius * std::cos(angle)}, up));
    }
    // Seen from above, with z towards the bottom of the picture, rising angles run against the clock.
    for (int s = 0; s < sides; ++s)
        addPolygon(paint, {corner(middle, paint, 0.5, 0.5), corner(rim[size_t(s + 1) % rim.size()], paint, 1, 1),
                           corner(rim[size_t(s)], paint, 0, 1)});
}
