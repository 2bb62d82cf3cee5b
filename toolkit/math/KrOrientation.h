#pragma once

/// A rotation as a unit quaternion: x, y, z, w, four contiguous doubles.
class KrOrientation
{
public:
    KrOrientation() = default; ///< no rotation
    /// As given: call `normalize` for numbers that may be no unit quaternion.
    KrOrientation(double x, double y, double z, double w)
        : m_data{x, y, z, w}
    {
    }
    /// Component 0 (x), 1 (y), 2 (z) or 3 (w); not checked.
    double operator[](unsigned int i) const { return m_data[i]; }
    double& operator[](unsigned int i) { return m_data[i]; }
    /// Scales to length 1; the zero quaternion becomes no rotation.
    void normalize();

private:
    double m_data[4] = {0.0, 0.0, 0.0, 1.0};
};
