#include <toolkit/math/KrOrientation.h>

#include <cmath>

// A quaternion turns without scaling only when its length is 1.
void KrOrientation::normalize()
{
    // std::hypot neither overflows nor loses small components. Written so that NaN gives the identity too.
    const double length = std::hypot(std::hypot(m_data[0], m_data[1]), std::hypot(m_data[2], m_data[3]));
    if (!(length > 0.0)) {
        *this = KrOrientation();
        return;
    }
    for (double& component : m_data) {
        component /= length;
    }
}
