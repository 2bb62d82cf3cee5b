#pragma once

#include <array>
#include <cmath>

/// Three floats, as vertices have them: for passes over whole meshes, where KrVector's doubles would only be converted.
using KrFloat3 = std::array<float, 3>;

inline KrFloat3 difference(const float* a, const float* b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

inline float dot(const float* a, const float* b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

inline KrFloat3 cross(const KrFloat3& a, const KrFloat3& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// @return the length before; a vector without a length stays as it is
inline float normalize(KrFloat3& v)
{
    const float length = std::sqrt(dot(v.data(), v.data()));
    if (length > 0.0f) {
        for (float& number : v) {
            number /= length;
        }
    }
    return length;
}

/// Across a triangle, to the side from which its corners run counter-clockwise; as long as twice its area.
inline KrFloat3 faceNormal(const float* a, const float* b, const float* c)
{
    return cross(difference(b, a), difference(c, a));
}
