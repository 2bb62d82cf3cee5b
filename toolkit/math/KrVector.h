#pragma once

#include <toolkit/xml/KrXmlText.h>

/// A point or direction: x, y, z, three contiguous doubles. Points are in metres; whoever takes one says in which
/// frame.
class KrVector
{
public:
    KrVector() = default; ///< zeros
    /// Any numbers; nothing is checked.
    KrVector(double x, double y, double z)
        : m_data{x, y, z}
    {
    }

    /// The three coordinates.
    double x() const { return m_data[0]; }
    double y() const { return m_data[1]; }
    double z() const { return m_data[2]; }
    void setX(double x) { m_data[0] = x; }
    void setY(double y) { m_data[1] = y; }
    void setZ(double z) { m_data[2] = z; }
    void set(double x, double y, double z)
    {
        m_data[0] = x;
        m_data[1] = y;
        m_data[2] = z;
    }

    /// Coordinate 0 (x), 1 (y) or 2 (z); not checked. `data` is the three of them, borrowed from this vector.
    double operator[](unsigned int i) const { return m_data[i]; }
    double& operator[](unsigned int i) { return m_data[i]; }
    const double* data() const { return m_data; }
    double* data() { return m_data; }

    /// Coordinate by coordinate.
    KrVector operator-() const { return {-m_data[0], -m_data[1], -m_data[2]}; }
    KrVector& operator+=(const KrVector& b)
    {
        set(x() + b.x(), y() + b.y(), z() + b.z());
        return *this;
    }
    KrVector& operator*=(double s)
    {
        set(x() * s, y() * s, z() * s);
        return *this;
    }

    /// Scalar and vector product.
    double dot(const KrVector& b) const { return x() * b.x() + y() * b.y() + z() * b.z(); }
    KrVector cross(const KrVector& b) const
    {
        return {y() * b.z() - z() * b.y(), z() * b.x() - x() * b.z(), x() * b.y() - y() * b.x()};
    }
    /// The Euclidean norm; neither overflows nor underflows on the way.
    double length() const;
    /// Scales to length 1 and returns the old length; a vector of length 0 stays as it is.
    double normalize();
    /// False when a coordinate is infinite or no number.
    bool isFinite() const;

    /// Coordinate by coordinate. Equal are vectors whose coordinates are: 0 and -0 are, NaN is not.
    friend KrVector operator+(const KrVector& a, const KrVector& b)
    {
        return {a.x() + b.x(), a.y() + b.y(), a.z() + b.z()};
    }
    friend KrVector operator-(const KrVector& a, const KrVector& b)
    {
        return {a.x() - b.x(), a.y() - b.y(), a.z() - b.z()};
    }
    friend KrVector operator*(const KrVector& a, double s) { return {a.x() * s, a.y() * s, a.z() * s}; }
    friend KrVector operator*(double s, const KrVector& a) { return a * s; }
    friend bool operator==(const KrVector& a, const KrVector& b)
    {
        return a.x() == b.x() && a.y() == b.y() && a.z() == b.z();
    }
    friend bool operator!=(const KrVector& a, const KrVector& b) { return !(a == b); }

private:
    double m_data[3] = {0.0, 0.0, 0.0};
};

/// "x y z".
template <>
struct KrXmlPlain<KrVector>
{
    static constexpr bool isPlain = true;
    /// As text "x y z". `take` takes it off the front, and is false for other text.
    static void append(std::string& out, const KrVector& value);
    static bool take(std::string_view& text, KrVector& value);
};
