// Unit quaternions as rotations: interpolation along great arcs and what curves through them need.
#pragma once

struct Quaternion {
    double x, y, z, w;
};

Quaternion Quaternion_load(const float q[4]);
// To length 1; (0, 0, 0, 1) when there is no finite length to divide by.
void Quaternion_normalize(float q[4]);

Quaternion Quaternion_conjugate(const Quaternion& q);
Quaternion Quaternion_multiply(const Quaternion& a, const Quaternion& b);  // Hamilton product
Quaternion Quaternion_add(const Quaternion& a, const Quaternion& b);
Quaternion Quaternion_scale(double factor, const Quaternion& q);
Quaternion Quaternion_log(const Quaternion& q);  // of a unit quaternion; w is 0
Quaternion Quaternion_exp(const Quaternion& q);  // w is ignored

enum class SlerpPath { Shortest, AsGiven };  // q and -q are the same rotation; Shortest goes to the nearer one
// From a at 0 to b at 1, with constant speed. Not renormalised.
Quaternion Quaternion_slerp(double s, const Quaternion& a, const Quaternion& b, SlerpPath path);
