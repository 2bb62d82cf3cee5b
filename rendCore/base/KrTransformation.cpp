#include <rendCore/base/KrTransformation.h>

#include <rendCore/base/KrMathRoutine.h>

#include <toolkit/math/KrVector.h>

#include <algorithm>
#include <cmath>

namespace
{

constexpr double kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

/// entry := entry * factor, in place.
void multiplyInPlace(double* entry, const double* factor)
{
    // Kept: no copy of the entries. `rotateX`, `rotateY` and `rotateZ` depend on it: turned about z, the identity
    // begins with (c, c s), not with (c, s).
    KrMathRoutine().matrixMultiply(entry, 4, 4, factor, 4, 4, entry);
}

} // namespace

// Kept: one turn only, -400 becomes -40; and in single precision. Nothing in the libraries calls it: clients' angles
// come out so.
float Clamp(double angle)
{
    if (angle < 0.0) {
        return static_cast<float>(angle + 360.0);
    }
    return static_cast<float>(angle >= 360.0 ? angle - 360.0 : angle);
}

// Exact: 0 and -0 are equal, NaN equals nothing.
bool KrTransformation::operator==(const KrTransformation& other) const
{
    return std::equal(m_entry, m_entry + 16, other.m_entry);
}

KrTransformation& KrTransformation::identity()
{
    std::copy_n(kIdentity, 16, m_entry);
    return *this;
}

void KrTransformation::assign(double* d)
{
    std::copy_n(d, 16, m_entry);
}

void KrTransformation::getTranslate(double* t) const
{
    // 12 to 14 are the translation in the storage of KrTransformation and of osg::Matrixd alike.
    std::copy_n(m_entry + 12, 3, t);
}

void KrTransformation::getTranslate(KrVector& t) const
{
    getTranslate(t.data());
}

void KrTransformation::setTranslate(const double* t)
{
    std::copy_n(t, 3, m_entry + 12);
}

void KrTransformation::setTranslate(const KrVector& t)
{
    setTranslate(t.data());
}

void KrTransformation::getRotation(double* R) const
{
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            // The storage is read by columns, what is handed out by rows.
            R[3 * r + c] = m_entry[4 * c + r];
        }
    }
}

void KrTransformation::setRotation(const double* R)
{
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            m_entry[4 * c + r] = R[3 * r + c];
        }
    }
}

void KrTransformation::setRotation(const KrVector& xAxis, const KrVector& yAxis, const KrVector& zAxis)
{
    // A column of the rotation is where an axis goes, and columns lie together.
    std::copy_n(xAxis.data(), 3, m_entry);
    std::copy_n(yAxis.data(), 3, m_entry + 4);
    std::copy_n(zAxis.data(), 3, m_entry + 8);
}

void KrTransformation::getRotation(float& roll, float& pitch, float& yaw) const
{
    double R[9];
    getRotation(R);
    // R = Rz Ry Rx gives R[0] = cos yaw cos pitch, R[3] = sin yaw cos pitch, R[6] = -sin
    // pitch, R[7] and R[8] the roll.
    const double cosPitch = std::hypot(R[0], R[3]);
    pitch = static_cast<float>(std::atan2(-R[6], cosPitch));
    // Within rounding of a quarter turn the elements that tell roll from yaw are noise.
    if (cosPitch > 1e-9) {
        roll = static_cast<float>(std::atan2(R[7], R[8]));
        yaw = static_cast<float>(std::atan2(R[3], R[0]));
    } else {
        // With yaw taken as 0 these two are the sine and cosine of the roll alone, whichever way the pitch points.
        roll = static_cast<float>(std::atan2(-R[5], R[4]));
        yaw = 0.0f;
    }
}

bool KrTransformation::orthoNormal()
{
    KrVector x(m_entry[0], m_entry[1], m_entry[2]);
    KrVector y(m_entry[4], m_entry[5], m_entry[6]);
    const double xLength = x.normalize();
    const double yLength = y.normalize();
    // The third column is not asked: it follows from the others, and a mirrored frame becomes a right-handed one.
    KrVector z = x.cross(y);
    const double sine = z.normalize();
    // Written so that NaN fails too.
    if (!(xLength > 0.0 && yLength > 0.0 && sine > 0.0) || !x.isFinite() || !y.isFinite()) {
        return false;
    }
    // z and x are unit vectors at right angles, and so is what comes out.
    setRotation(x, z.cross(x), z);
    return true;
}

void KrTransformation::translate(double x, double y, double z)
{
    double translation[16];
    std::copy_n(kIdentity, 16, translation);
    translation[12] = x;
    translation[13] = y;
    translation[14] = z;
    // In place and still exact: the first three rows of the translation are the identity's, the fourth comes last.
    KrMathRoutine().matrixMultiply(translation, 4, 4, m_entry, 4, 4, m_entry);
}

// The three matrices are stored as the entries are: by columns, for column vectors.
void KrTransformation::rotateX(double angle)
{
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double rotation[16] = {1, 0, 0, 0, 0, c, s, 0, 0, -s, c, 0, 0, 0, 0, 1};
    multiplyInPlace(m_entry, rotation);
}

void KrTransformation::rotateY(double angle)
{
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double rotation[16] = {c, 0, -s, 0, 0, 1, 0, 0, s, 0, c, 0, 0, 0, 0, 1};
    multiplyInPlace(m_entry, rotation);
}

void KrTransformation::rotateZ(double angle)
{
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double rotation[16] = {c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    multiplyInPlace(m_entry, rotation);
}

KrTransformation KrTransformation::operator*(const KrTransformation& b) const
{
    KrTransformation product;
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            double sum = 0.0;
            for (int k = 0; k < 4; ++k) {
                sum += m_entry[4 * k + i] * b.m_entry[4 * j + k];
            }
            // Kept: the result lies row by row, while the operands are read column by column. `inverse` finds a
            // product's translation there, and `getTranslate` does not.
            product.m_entry[4 * i + j] = sum;
        }
    }
    return product;
}

KrVector KrTransformation::operator*(const KrVector& p) const
{
    const double* e = m_entry;
    return {e[0] * p.x() + e[4] * p.y() + e[8] * p.z() + e[12], e[1] * p.x() + e[5] * p.y() + e[9] * p.z() + e[13],
            e[2] * p.x() + e[6] * p.y() + e[10] * p.z() + e[14]};
}

KrTransformation KrTransformation::multiply3x3(const KrTransformation& b) const
{
    KrTransformation product;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            double sum = 0.0;
            for (int k = 0; k < 3; ++k) {
                sum += m_entry[4 * k + i] * b.m_entry[4 * j + k];
            }
            // Kept: row by row as in the product above, and without the translations of both, so that `inverse` of the
            // result is a mere rotation.
            product.m_entry[4 * i + j] = sum;
        }
    }
    return product;
}

void KrTransformation::inverse(KrTransformation& out) const
{
    // Kept: row by row with the translation in the last column, where products leave it, and no test for a determinant
    // of zero. What `translate` and `setTranslate` have set is in no inverse: the self test sets it again.
    const double* e = m_entry;
    const double cofactor[9] = {e[5] * e[10] - e[6] * e[9], e[2] * e[9] - e[1] * e[10], e[1] * e[6] - e[2] * e[5],
                                e[6] * e[8] - e[4] * e[10], e[0] * e[10] - e[2] * e[8], e[2] * e[4] - e[0] * e[6],
                                e[4] * e[9] - e[5] * e[8],  e[1] * e[8] - e[0] * e[9],  e[0] * e[5] - e[1] * e[4]};
    // Infinite, or no number, for a singular block; the entries then are, too, and nothing is said.
    const double scale = 1.0 / (e[0] * cofactor[0] + e[1] * cofactor[3] + e[2] * cofactor[6]);
    // Zero in what `setTranslate` and `translate` have made: those keep theirs in 12 to 14.
    const double t[3] = {e[3], e[7], e[11]};
    KrTransformation result;
    for (int i = 0; i < 3; ++i) {
        double moved = 0.0;
        for (int j = 0; j < 3; ++j) {
            const double element = cofactor[3 * i + j] * scale;
            result.m_entry[4 * i + j] = element;
            moved += element * t[j];
        }
        result.m_entry[4 * i + 3] = -moved;
    }
    // Last of all: `out` may be this object.
    out = result;
}
