#include <toolkit/extent/KrEllipsoid.h>

KrEllipsoid::KrEllipsoid(const KrVector& semiAxes, const KrCoordinateSystemTransformation& placement)
    : m_empty(false)
    , m_extent(semiAxes)
{
    m_extent.setPlacement(placement);
    m_extent.setChanged(false);
}
