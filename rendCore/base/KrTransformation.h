#pragma once

class KrVector;

/// Wraps an angle in degrees once towards [0, 360): -30 becomes 330, 725 becomes 365.
float Clamp(double angle);

/// A 4 x 4 homogeneous transformation of 16 doubles e[0] to e[15].
///
/// Read column by column (e[4c + r] is row r, column c) it maps column vectors: p' = R p + t with the translation in
/// e[12], e[13], e[14]; these are also the slots and the order of osg::Matrixd, which reads row by row and maps row
/// vectors. `inverse` alone reads the storage another way.
class KrTransformation
{
public:
    /// The identity.
    KrTransformation() { identity(); }
    KrTransformation(const KrTransformation&) = default;
    virtual ~KrTransformation() = default;
    KrTransformation& operator=(const KrTransformation&) = default;
    /// Exact equality of the 16 entries.
    bool operator==(const KrTransformation& other) const;
    bool operator!=(const KrTransformation& other) const { return !(*this == other); }

    /// Makes this the identity, and returns it.
    KrTransformation& identity();
    /// Copies 16 doubles in storage order.
    virtual void assign(double* d);
    /// The 16 entries; borrowed from this object.
    double* getEntry() { return m_entry; }

    /// The three entries e[12], e[13], e[14].
    void getTranslate(double* t) const;
    void getTranslate(KrVector& t) const;
    /// Sets e[12], e[13], e[14] and nothing else.
    void setTranslate(const double* t);
    void setTranslate(const KrVector& t);
    /// The rotation as nine doubles, row by row: R[3r + c] is e[4c + r].
    void getRotation(double* R) const;
    void setRotation(const double* R);
    /// Sets the columns of R: where the x, y and z axes go.
    void setRotation(const KrVector& xAxis, const KrVector& yAxis, const KrVector& zAxis);
    /// Fixed-axis roll (about x), pitch (y), yaw (z), rad, with R = Rz(yaw) Ry(pitch) Rx(roll); pitch lies within
    /// a quarter turn of 0. At a quarter turn, where only yaw and roll together are defined, yaw is 0.
    void getRotation(float& roll, float& pitch, float& yaw) const;
    /// Makes the columns of R a right-handed orthonormal frame: x keeps its direction, y its half plane about x,
    /// z becomes their cross product (Gram-Schmidt). The translation stays.
    /// @return false, and no change, when x or y is zero, they are parallel, or one is not finite
    bool orthoNormal();

    /// e := T e, T being the translation; on a pure rotation R p + t becomes R (p + d) + t.
    void translate(double x, double y, double z);
    /// e := e R, computed in place row by row: elements of a row are made from results already stored in it, so this
    /// is not the exact product.
    void rotateX(double angle); ///< rad
    void rotateY(double angle); ///< rad
    void rotateZ(double angle); ///< rad

    /// r[4i + j] = sum over k of a[4k + i] b[4j + k]: the product read column by column, stored transposed.
    KrTransformation operator*(const KrTransformation& b) const;
    /// The point p' = R p + t.
    KrVector operator*(const KrVector& p) const;
    /// The same formula as operator* for i, j, k in 0 to 2; no translation.
    KrTransformation multiply3x3(const KrTransformation& b) const;
    /// The inverse of the storage read row by row, translation in e[3], e[7], e[11], so that one set with `translate`
    /// or `setTranslate` is ignored. `out` may be this object. A singular rotation block gives non-finite entries.
    void inverse(KrTransformation& out) const;

    /// Round trips of a turned and moved transformation. False, after one message, when something is wrong.
    bool selfTest() const;

private:
    double m_entry[16];
};
