#pragma once

#include <toolkit/math/KrOrientation.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/xml/KrXmlObject.h>

/// A pose: maps coordinates of a child frame into its parent frame. Rotation and translation, nothing else.
///
/// Held as the rotation matrix R (column vectors: p_parent = R p_child + t) and the translation t, in metres.
class KrCoordinateSystemTransformation : public KrXmlObjectOf<KrCoordinateSystemTransformation, KrXmlObject>
{
public:
    /// The identity.
    KrCoordinateSystemTransformation() { setToIdentity(); }

    /// R = 1, t = 0: a new one is that, too.
    void setToIdentity();
    bool isIdentity() const;
    /// True when all twelve numbers are finite, be R a rotation or not.
    bool isFinite() const;
    /// False when a number is not finite or R is no rotation (within 1e-6): what arithmetic and setRotation may leave.
    bool isPose() const;
    /// The same, with one message when it is none: for setters. @param method  "Class::method"
    bool checkPose(const char* method) const;

    /// The origin of the child frame in the parent frame, m. Setters trust their caller: see isPose.
    const KrVector& translation() const { return m_translation; }
    void setTranslation(const KrVector& t) { m_translation = t; }
    /// Element of R, both indices 0 to 2.
    double rotation(unsigned int row, unsigned int column) const { return m_rotation[row][column]; }
    /// R from nine doubles, row by row. The caller vouches for a rotation matrix.
    void setRotation(const double (&rowByRow)[9]);
    KrOrientation orientation() const;
    /// Normalises first.
    void setOrientation(const KrOrientation& q);
    /// Fixed-axis roll (x), pitch (y), yaw (z), rad: R = Rz(yaw) Ry(pitch) Rx(roll).
    void setRollPitchYaw(double roll, double pitch, double yaw);
    /// Right-handed turn by `angle` rad about `axis` (any non-zero length), keeping the translation.
    void setAxisAngle(const KrVector& axis, double angle);

    /// Writes the 16 entries of the 4 x 4 matrix for row vectors (p' = p M): rotation transposed in the
    /// upper left block, translation in entries 12, 13, 14. The order of osg::Matrixd.
    void assign16(double* entries) const;
    /// The inverse of assign16; false, and no change, unless the upper left block is a rotation within 1e-6.
    bool setFrom16(const double* entries);

    /// p_parent = R p_child + t.
    KrVector transformPoint(const KrVector& p) const;
    /// R d, without the translation.
    KrVector transformDirection(const KrVector& d) const;
    KrCoordinateSystemTransformation inverse() const;
    /// `parentFromMiddle * middleFromChild` is parentFromChild.
    friend KrCoordinateSystemTransformation operator*(const KrCoordinateSystemTransformation& parentFromMiddle,
                                                      const KrCoordinateSystemTransformation& middleFromChild);

    bool xmlInit() override;
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    KrXmlToken token() const override;
    void writeSchemaContent(KrXmlSchema& schema) const override;

    friend bool operator==(const KrCoordinateSystemTransformation& a, const KrCoordinateSystemTransformation& b);
    friend bool operator!=(const KrCoordinateSystemTransformation& a, const KrCoordinateSystemTransformation& b)
    {
        return !(a == b);
    }

private:
    double m_rotation[3][3];
    KrVector m_translation;
};
