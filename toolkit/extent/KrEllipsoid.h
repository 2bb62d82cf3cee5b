#pragma once

#include <toolkit/extent/KrEllipsoidPhysicalExtent.h>

/// An ellipsoid that may be empty: what mass properties look like.
class KrEllipsoid
{
public:
    KrEllipsoid() = default; ///< empty
    /// @param semiAxes   along x, y and z of its own frame, m
    /// @param placement  its own frame to the owner's
    KrEllipsoid(const KrVector& semiAxes, const KrCoordinateSystemTransformation& placement);

    /// True when there is nothing to draw.
    bool isEmpty() const { return m_empty; }
    /// The extent, borrowed from this object; null when empty.
    const KrBasePhysicalExtent* physicalExtent() const { return m_empty ? nullptr : &m_extent; }

private:
    bool m_empty = true;
    KrEllipsoidPhysicalExtent m_extent;
};
