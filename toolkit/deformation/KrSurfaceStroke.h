#pragma once

#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrPlanarVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>
#include <toolkit/xml/KrXmlVectorType.h>

#include <string>
#include <vector>

/// Paint on a surface: a round brush drawn along a polyline of texture coordinates. One point makes a dot.
class KrSurfaceStroke : public KrXmlObjectOf<KrSurfaceStroke, KrXmlCompoundType>
{
public:
    KrSurfaceStroke() = default;
    /// Nothing is checked here: see `problem`. Points are texture coordinates, in the order in which they were drawn;
    /// hardness is the share of the radius that is painted in full, from 0 to 1.
    KrSurfaceStroke(const std::vector<KrPlanarVector>& points, const KrColor& color, double radius,
                    double hardness = 0.5);

    /// Texture coordinates, in the order in which they were drawn.
    const std::vector<KrPlanarVector>& points() const { return m_points.values(); }
    const KrColor& color() const { return m_color; } ///< its alpha is the opacity
    double radius() const { return m_radius; }       ///< texture units, > 0: the whole texture is 1 wide
    /// The part of the radius, in [0, 1], within which the colour does not fade.
    double hardness() const { return m_hardness; }

    /// Why nothing could be drawn; empty when something can.
    std::string problem() const;

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrXmlVectorType<KrPlanarVector> m_points;
    KrColor m_color;
    KrXmlBasicType<double> m_radius = 0.02;
    KrXmlBasicType<double> m_hardness = 0.5;
};
