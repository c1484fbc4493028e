#include "samples/floe/shapes.h"

#include <cmath>
#include <numbers>

int32_t fixedPoint(double value) { return int32_t(std::lround(value * 4096)); }

void appendPoint(std::vector<int32_t>& values, const Point& point) {
    for (const double coordinate : point) values.push_back(fixedPoint(coordinate));
}

static Point between(const Point& from, const Point& to) { return {to[0] - from[0], to[1] - from[1], to[2] - from[2]}; }

static Point normalOf(const Point& a, const Point& b, const Point& c) {
    const Point u = between(a, b), v = between(a, c);
    const Point n = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
    const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    return {n[0] / length, n[1] / length, n[2] / length};
}

void Faces::add(const std::vector<Point>& corners, uint32_t color) {
    for (const Point& corner : corners) appendPoint(record_.values[0], corner);
    appendPoint(record_.values[1], normalOf(corners[0], corners[1], corners[2]));
    record_.values[2].push_back(int32_t(color));
    ++record_.count;
}

encode::K8PrimitiveRecord Faces::record() const {
    constexpr uint32_t kNormalPerPrimitive = 0x200, kColorPerPrimitive = 0x800;
    encode::K8PrimitiveRecord record = record_;
    record.type = cornerCount_;  // types 3 and 4 are named after their corners
    record.params = kNormalPerPrimitive | kColorPerPrimitive;
    return record;
}

double Random::between(double least, double greatest) {
    state_ = uint32_t(uint64_t(state_) * 48271 % 2147483647);  // Lehmer's generator
    return least + (greatest - least) * double(state_) / 2147483647;
}

std::array<float, 16> placedAt(const Point& place, double yawDegrees, double scale) {
    const double yaw = yawDegrees * std::numbers::pi / 180;
    const auto c = float(std::cos(yaw) * scale), s = float(std::sin(yaw) * scale), one = float(scale);
    return {c, 0, s, float(place[0]), 0, one, 0, float(place[1]), -s, 0, c, float(place[2]), 0, 0, 0, 1};
}
