// Coefficients of frame/trigonometry.cpp.
#pragma once

#include <array>

struct SplitDouble {
    double head, tail;  // the number is their sum; the head is that sum rounded
};

// Entry i is the arctangent of i / 16.
extern const std::array<SplitDouble, 17> kArctangentOfSixteenths;

// asin(s) = s + s * z * p(z) for z = s * s up to 1/4; p's coefficients, constant first.
extern const std::array<double, 13> kArcsinePolynomial;
