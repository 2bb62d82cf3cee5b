#pragma once

/// Angles are radians everywhere; degrees stand only in what people read and write.
namespace Kr::Angle
{

/// Half a turn, rad.
constexpr double kPi = 3.14159265358979323846;

/// The same angle in rad.
constexpr double radians(double degrees)
{
    return kPi / 180.0 * degrees;
}

/// The same angle in degrees.
constexpr double degrees(double radians)
{
    return 180.0 / kPi * radians;
}

} // namespace Kr::Angle
