#include <toolkit/deformation/KrSurfaceStroke.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

// Strokes are drawn in single precision. Written, as below, so that NaN fails too.
bool isDrawn(double value)
{
    return std::abs(value) <= std::numeric_limits<float>::max();
}

bool isShare(double value)
{
    return value >= 0.0 && value <= 1.0;
}

} // namespace

KrSurfaceStroke::KrSurfaceStroke(const std::vector<KrPlanarVector>& points, const KrColor& color, double radius,
                                 double hardness)
    : m_points(points)
    , m_color(color)
    , m_radius(radius)
    , m_hardness(hardness)
{
}

// Asked when a stroke is added and when one is read, in the same words.
std::string KrSurfaceStroke::problem() const
{
    const bool areFinite = std::all_of(m_points.begin(), m_points.end(), [](const KrPlanarVector& point) {
        return isDrawn(point.u()) && isDrawn(point.v());
    });
    if (m_points.empty() || !areFinite) {
        return "a stroke has points, all of them finite in single precision";
    }
    // Smaller radii are denormal numbers, by which a brush cannot be divided.
    if (!(m_radius >= std::numeric_limits<float>::min()) || !isDrawn(m_radius) ||
        !(m_hardness >= 0.0 && m_hardness <= 1.0)) {
        return "a stroke has a radius above 0, in single precision, and a hardness from 0 to 1";
    }
    if (!isShare(m_color.red()) || !isShare(m_color.green()) || !isShare(m_color.blue()) || !isShare(m_color.alpha())) {
        return "a stroke has a colour of numbers from 0 to 1";
    }
    return std::string();
}

KrXmlToken KrSurfaceStroke::token() const
{
    return {KrXmlNamespace::core(), "stroke"};
}

void KrSurfaceStroke::registerComponents()
{
    // What a document leaves out is a brush as a new stroke has it.
    registerComponent({KrXmlNamespace::core(), "color"}, m_color, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "radius"}, m_radius, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "hardness"}, m_hardness, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "points"}, m_points);
}
