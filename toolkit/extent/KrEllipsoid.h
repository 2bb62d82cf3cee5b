#pragma once

#include <toolkit/extent/KrEllipsoidPhysicalExtent.h>

/// An ellipsoid that may be empty: what mass properties look like.
class KrEllipsoid
{
public:
    KrEllipsoid() = default; ///< empty
    KrEllipsoid(const KrVector& semiAxes, const KrCoordinateSystemTransformation& placement);

    bool isEmpty() const { return m_empty; }
    /// The extent, borrowed from this object; null when empty.
    const KrBasePhysicalExtent* physicalExtent() const { return m_empty ? nullptr : &m_extent; }

private:
    bool m_empty = true;
    KrEllipsoidPhysicalExtent m_extent;
};
