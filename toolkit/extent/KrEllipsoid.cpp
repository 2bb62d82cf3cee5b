#include <toolkit/extent/KrEllipsoid.h>

KrEllipsoid::KrEllipsoid(const KrVector& semiAxes, const KrCoordinateSystemTransformation& placement)
    : m_empty(false)
    , m_extent(semiAxes)
{
    m_extent.setPlacement(placement);
    // Being placed is part of being made, not a change.
    m_extent.setChanged(false);
}
