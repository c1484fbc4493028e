// Building primitives out of points in units.
#pragma once

#include <array>
#include <vector>

#include "tools/encode/k8_encoder.h"

using Point = std::array<double, 3>;

// Faces with three or four corners each, a normal and a colour per face.
class Faces {
public:
    explicit Faces(uint32_t cornerCount) : cornerCount_(cornerCount) {}
    // The corners go round; the face is lit on the side from which they go round counterclockwise.
    void add(const std::vector<Point>& corners, uint32_t color);
    encode::K8PrimitiveRecord record() const;

private:
    uint32_t cornerCount_;
    encode::K8PrimitiveRecord record_;
};

// Appends coordinates to an array of values.
void appendPoint(std::vector<int32_t>& values, const Point& point);
int32_t fixedPoint(double value);  // 20.12

// The same numbers on every machine.
class Random {
public:
    double between(double least, double greatest);

private:
    uint32_t state_ = 1;
};

// Row-major matrices of groups.
std::array<float, 16> placedAt(const Point& place, double yawDegrees = 0, double scale = 1);
