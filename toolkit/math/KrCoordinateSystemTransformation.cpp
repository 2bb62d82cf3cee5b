#include <toolkit/math/KrCoordinateSystemTransformation.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlText.h>
#include <toolkit/xml/KrXmlVectorType.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>
#include <vector>

namespace
{

// How a pose keeps its rotation; Eigen's own default is column by column.
using RowMajorMatrix = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;

// Of dot products. Numbers of single precision pass; a matrix that is scaled or has a wrong element does not.
constexpr double kRotationTolerance = 1e-6;

// The names of the parts, made once: poses are read by the thousand.
const KrXmlToken& translationToken()
{
    static const KrXmlToken s_token{KrXmlNamespace::core(), "translation"};
    return s_token;
}

const KrXmlToken& rotationToken()
{
    static const KrXmlToken s_token{KrXmlNamespace::core(), "rotation"};
    return s_token;
}

const KrXmlToken& rollPitchYawToken()
{
    static const KrXmlToken s_token{KrXmlNamespace::core(), "rollPitchYaw"};
    return s_token;
}

/// Orthonormal and right-handed. Written so that NaN fails too.
bool isRotation(const double (&r)[3][3])
{
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            const double dot = r[i][0] * r[j][0] + r[i][1] * r[j][1] + r[i][2] * r[j][2];
            if (!(std::abs(dot - (i == j ? 1.0 : 0.0)) <= kRotationTolerance)) {
                return false;
            }
        }
    }
    // Rows at right angles of length 1 make it +1 or -1; -1 is a mirror image.
    const double determinant = r[0][0] * (r[1][1] * r[2][2] - r[1][2] * r[2][1]) -
                               r[0][1] * (r[1][0] * r[2][2] - r[1][2] * r[2][0]) +
                               r[0][2] * (r[1][0] * r[2][1] - r[1][1] * r[2][0]);
    return determinant > 0.0;
}

/// Reads exactly `numbers.size()` finite numbers.
/// Infinity and NaN pass KrXmlText, since other values have a use for them; poses have none.
bool readNumbers(KrXmlReader& reader, std::vector<double>& numbers)
{
    std::string content;
    if (!reader.text(content)) {
        return false;
    }
    std::string_view rest = content;
    for (double& number : numbers) {
        if (!KrXmlText::take(rest, number) || !std::isfinite(number)) {
            return reader.fail("\"%.80s\" are not %zu finite numbers", content.c_str(), numbers.size());
        }
    }
    return KrXmlText::atEnd(rest) ||
           reader.fail("\"%.80s\" are more than %zu numbers", content.c_str(), numbers.size());
}

// Writes an element of numbers, each with as few digits as are read back as the same value.
bool writeNumbers(KrXmlWriter& writer, const KrXmlToken& token, const double* numbers, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += i == 0 ? "" : " ";
        KrXmlText::append(text, numbers[i]);
    }
    return writer.beginElement(token) && writer.text(text) && writer.endElement();
}

// In metres, as every length in a document.
bool readTranslation(KrXmlReader& reader, KrCoordinateSystemTransformation& pose)
{
    std::vector<double> numbers(3);
    if (!readNumbers(reader, numbers)) {
        return false;
    }
    pose.setTranslation({numbers[0], numbers[1], numbers[2]});
    return true;
}

// Either three angles in rad (roll, pitch, yaw about fixed axes) or nine numbers row by row.
bool readRotation(KrXmlReader& reader, bool isAngles, KrCoordinateSystemTransformation& pose)
{
    std::vector<double> n(isAngles ? 3 : 9);
    if (!readNumbers(reader, n)) {
        return false;
    }
    if (isAngles) {
        pose.setRollPitchYaw(n[0], n[1], n[2]);
        return true;
    }
    const double rows[3][3] = {{n[0], n[1], n[2]}, {n[3], n[4], n[5]}, {n[6], n[7], n[8]}};
    if (!isRotation(rows)) {
        return reader.fail("the nine numbers are no rotation matrix (rows of length 1 at right angles, right-handed)");
    }
    pose.setRotation({n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], n[8]});
    return true;
}

} // namespace

void KrCoordinateSystemTransformation::setToIdentity()
{
    m_translation = KrVector();
    setRotation({1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0});
}

// Bit for bit: a pose that is nearly the identity is applied like any other.
bool KrCoordinateSystemTransformation::isIdentity() const
{
    return *this == KrCoordinateSystemTransformation();
}

bool KrCoordinateSystemTransformation::isFinite() const
{
    return m_translation.isFinite() &&
           // All nine elements follow one another in memory.
           std::all_of(&m_rotation[0][0], &m_rotation[0][0] + 9, [](double element) { return std::isfinite(element); });
}

// Whether the setters of other classes take it, see checkPose.
bool KrCoordinateSystemTransformation::isPose() const
{
    return isRotation(m_rotation) && m_translation.isFinite();
}

// Once for the setters of all classes that take a pose, so that they refuse alike; `method` is the caller's name.
bool KrCoordinateSystemTransformation::checkPose(const char* method) const
{
    const bool isGood = isPose();
    if (!isGood) {
        Kr::Print::instance()->write(
            Kr::Print::Warning,
            "%s - a pose at (%g, %g, %g) that is not finite or whose rotation is none; nothing is changed.\n", method,
            m_translation.x(), m_translation.y(), m_translation.z());
    }
    return isGood;
}

// Unchecked: those who take numbers from outside ask isRotation() before.
void KrCoordinateSystemTransformation::setRotation(const double (&rowByRow)[9])
{
    std::copy(rowByRow, rowByRow + 9, &m_rotation[0][0]);
}

// A rotation has two quaternions, q and -q; which of them comes is Eigen's choice.
KrOrientation KrCoordinateSystemTransformation::orientation() const
{
    const Eigen::Matrix3d matrix = Eigen::Map<const RowMajorMatrix>(&m_rotation[0][0]);
    const Eigen::Quaterniond q(matrix);
    KrOrientation orientation(q.x(), q.y(), q.z(), q.w());
    // A matrix is a rotation within a tolerance only, and so is the quaternion's length 1.
    orientation.normalize();
    return orientation;
}

// Of any length, since it is normalised here.
void KrCoordinateSystemTransformation::setOrientation(const KrOrientation& q)
{
    // A quaternion of length 0 becomes the identity, so that the result is always a rotation.
    KrOrientation unit = q;
    unit.normalize();
    Eigen::Map<RowMajorMatrix> matrix(&m_rotation[0][0]);
    // Eigen's constructor takes the real part first; ours is the last one.
    matrix = Eigen::Quaterniond(unit[3], unit[0], unit[1], unit[2]).toRotationMatrix();
}

// Written out, which costs less than two products of matrices.
void KrCoordinateSystemTransformation::setRollPitchYaw(double roll, double pitch, double yaw)
{
    const double cr = std::cos(roll);
    const double sr = std::sin(roll);
    const double cp = std::cos(pitch);
    const double sp = std::sin(pitch);
    const double cy = std::cos(yaw);
    const double sy = std::sin(yaw);
    // Rz(yaw) * Ry(pitch) * Rx(roll): turns about the fixed axes x, y and z, in this order.
    setRotation({cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr, //
                 sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr, //
                 -sp, cp * sr, cp * cr});
}

// The axis may have any length; by the right hand, in rad.
void KrCoordinateSystemTransformation::setAxisAngle(const KrVector& axis, double angle)
{
    KrVector unit = axis;
    // An axis without direction turns nothing. Written so that NaN fails too.
    if (!(unit.normalize() > 0.0)) {
        setRotation({1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0});
        return;
    }
    Eigen::Map<RowMajorMatrix> matrix(&m_rotation[0][0]);
    matrix = Eigen::AngleAxisd(angle, Eigen::Vector3d(unit.x(), unit.y(), unit.z())).toRotationMatrix();
}

// For OpenGL and OSG, whose matrices have 16 numbers.
void KrCoordinateSystemTransformation::assign16(double* entries) const
{
    // Column by column, as OpenGL and OSG expect it; the translation is the last column.
    for (int column = 0; column < 3; ++column) {
        for (int row = 0; row < 3; ++row) {
            entries[4 * column + row] = m_rotation[row][column];
        }
        entries[4 * column + 3] = 0.0;
        entries[12 + column] = m_translation[static_cast<unsigned int>(column)];
    }
    entries[15] = 1.0;
}

// Refused without a message: the caller knows where the numbers come from.
bool KrCoordinateSystemTransformation::setFrom16(const double* entries)
{
    // Taken out first and assigned last: refused numbers leave the pose as it was. The bottom row is not looked at.
    double rotation[3][3];
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            rotation[row][column] = entries[4 * column + row];
        }
    }
    const KrVector translation(entries[12], entries[13], entries[14]);
    if (!isRotation(rotation) || !translation.isFinite()) {
        return false;
    }
    std::copy(&rotation[0][0], &rotation[0][0] + 9, &m_rotation[0][0]);
    m_translation = translation;
    return true;
}

// p' = R p + t, with p as a column.
KrVector KrCoordinateSystemTransformation::transformPoint(const KrVector& p) const
{
    return transformDirection(p) + m_translation;
}

KrVector KrCoordinateSystemTransformation::transformDirection(const KrVector& d) const
{
    KrVector result;
    for (unsigned int row = 0; row < 3; ++row) {
        result[row] = m_rotation[row][0] * d.x() + m_rotation[row][1] * d.y() + m_rotation[row][2] * d.z();
    }
    return result;
}

// Exact for rotations; isRotation() has kept everything else out.
KrCoordinateSystemTransformation KrCoordinateSystemTransformation::inverse() const
{
    KrCoordinateSystemTransformation result;
    // The inverse of a rotation is its transpose; no division, so no loss.
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            result.m_rotation[row][column] = m_rotation[column][row];
        }
    }
    result.m_translation = -result.transformDirection(m_translation);
    return result;
}

// Frames that meet stand side by side: parent from middle, middle from child.
KrCoordinateSystemTransformation operator*(const KrCoordinateSystemTransformation& parentFromMiddle,
                                           const KrCoordinateSystemTransformation& middleFromChild)
{
    KrCoordinateSystemTransformation result;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            result.m_rotation[row][column] =
                parentFromMiddle.m_rotation[row][0] * middleFromChild.m_rotation[0][column] +
                parentFromMiddle.m_rotation[row][1] * middleFromChild.m_rotation[1][column] +
                parentFromMiddle.m_rotation[row][2] * middleFromChild.m_rotation[2][column];
        }
    }
    // p' = R1 (R2 p + t2) + t1.
    result.m_translation = parentFromMiddle.transformPoint(middleFromChild.m_translation);
    return result;
}

// Bit for bit, without a tolerance: equal poses are those that give the same picture.
bool operator==(const KrCoordinateSystemTransformation& a, const KrCoordinateSystemTransformation& b)
{
    return a.m_translation == b.m_translation &&
           std::equal(&a.m_rotation[0][0], &a.m_rotation[0][0] + 9, &b.m_rotation[0][0]);
}

bool KrCoordinateSystemTransformation::xmlInit()
{
    setToIdentity();
    return true;
}

// Each part at most once and in any order; what is left out is the identity's.
bool KrCoordinateSystemTransformation::read(KrXmlReader& reader)
{
    // A pose of its own: one that is read by half must not remain.
    KrCoordinateSystemTransformation pose;
    bool hasTranslation = false;
    bool hasRotation = false;
    reader.enter();
    while (reader.nextChild()) {
        const bool isTranslation = reader.element() == translationToken();
        const bool isAngles = reader.element() == rollPitchYawToken();
        if (!isTranslation && !isAngles && reader.element() != rotationToken()) {
            return reader.fail("a pose has \"translation\" and \"rotation\" or \"rollPitchYaw\"");
        }
        // "rotation" and "rollPitchYaw" say the same thing, so they count as one.
        bool& isSeen = isTranslation ? hasTranslation : hasRotation;
        if (isSeen) {
            return reader.fail("the %s is given twice", isTranslation ? "translation" : "rotation");
        }
        isSeen = true;
        if (isTranslation ? !readTranslation(reader, pose) : !readRotation(reader, isAngles, pose)) {
            return false;
        }
    }
    if (reader.failed()) {
        return false;
    }
    *this = pose;
    return true;
}

// A pose that is the identity is an empty element.
bool KrCoordinateSystemTransformation::write(KrXmlWriter& writer) const
{
    // What `read` would refuse is not written.
    if (!isPose()) {
        return writer.fail("a pose that is not finite or whose rotation is none");
    }
    const KrCoordinateSystemTransformation identity;
    // Bit for bit, so that what is left out is read back as exactly the same pose.
    const bool isTurned = !std::equal(&m_rotation[0][0], &m_rotation[0][0] + 9, &identity.m_rotation[0][0]);
    return (m_translation == KrVector() || writeNumbers(writer, translationToken(), m_translation.data(), 3)) &&
           (!isTurned || writeNumbers(writer, rotationToken(), &m_rotation[0][0], 9));
}

KrXmlToken KrCoordinateSystemTransformation::token() const
{
    return {KrXmlNamespace::core(), "coordinateSystemTransformation"};
}

void KrCoordinateSystemTransformation::writeSchemaContent(KrXmlSchema& schema) const
{
    // Both ways of telling a rotation are allowed by the schema; that only one of them is used is checked by `read`.
    const KrXmlVectorType<double> numbers;
    schema.childrenInAnyOrder({{translationToken(), &numbers, false},
                               {rotationToken(), &numbers, false},
                               {rollPitchYawToken(), &numbers, false}});
}
