#pragma once

#include <functional>

class KrReArray;

/// Vector and matrix arithmetic on raw arrays, offset-indexed storage and a one-dimensional search.
///
/// Vectors have three components; matrices are stored row by row. No state; the operations are virtual so that a
/// caller can replace one of them, `nrerror` above all.
class KrMathRoutine
{
public:
    virtual ~KrMathRoutine() = default;

    /// Copies three numbers.
    virtual void assignVector3(double* to, const double* from) const;
    virtual void assignVector3F(float* to, const float* from) const;
    /// out = a + b; `out` may be one of the operands, here and in the next two.
    virtual void vectorAdd(const double* a, const double* b, double* out) const;
    virtual void vectorSub(const double* a, const double* b, double* out) const;
    virtual void vectorMultiply(const double* a, double s, double* out) const;
    virtual double vectorDot(const double* a, const double* b) const;
    /// out = a x b; `out` is neither operand.
    virtual void vectorCross(const double* a, const double* b, double* out) const;
    virtual double vectorNorm(const double* a) const;
    /// Scales to length 1, the length being `vectorNorm(in)`; (0, 0, 0) where that is exactly 0.
    virtual void vectorNormalization(const double* in, double* out) const;

    /// out (cols x rows) is the transpose of in (rows x cols); separate arrays.
    virtual void matrixTranspose(const double* in, int rows, int cols, double* out) const;
    /// P (rowsA x colsB) = A B. Elements are written one after the other, row by row, as they are computed: where P is
    /// also A or B, later elements are made from earlier results.
    /// @return false, and nothing is written, unless colsA equals rowsB
    virtual bool matrixMultiply(const double* A, int rowsA, int colsA, const double* B, int rowsB, int colsB,
                                double* P) const;
    /// Inverse of a 3 x 3 matrix by cofactors; `out` may be `in`.
    /// @return false, and `out` as it was, when the determinant is exactly 0
    virtual bool matrixInv3(const double* in, double* out) const;

    /// A matrix indexed [rl..rh][cl..ch], not initialised; no rows when rh < rl. Made with malloc: the caller frees row
    /// r with `std::free(m[r] + cl)`, then the whole with `std::free(m + rl)`.
    /// @return null after `nrerror` when there is no memory for the row pointers; a row without memory is null
    virtual double** mallocMatrix(int rl, int rh, int cl, int ch) const;
    /// A vector indexed [l..h], not initialised; the caller frees it with `std::free(v + l)`.
    /// @return null after `nrerror` when there is no memory
    virtual double* mallocVector(int l, int h) const;
    /// Reports `msg` on the standard error stream and returns.
    virtual void nrerror(const char* msg) const;

    /// Searches a minimum of `function` by successive parabolic interpolation.
    ///
    /// The vertex of the parabola through (a, fa), (x, fx), (c, fc) becomes the middle point when its value is lower
    /// than `fx`, else an end of the bracket. The search ends after `maxIterations` evaluations, when the middle
    /// coincides with an end, or when the bracket is no wider than `tolerance`.
    ///
    /// @param a,x,c    ends and middle of the starting bracket, a < x < c (a and c may be exchanged)
    /// @param fa,fx,fc their function values
    /// @param lower,upper  what the abscissa may be, both included
    /// @param best     receives the abscissa of the value returned; left as it was on failure; may be null
    /// @return the lowest value found, or -1 when the three points have no parabola (its denominator is within 1e-10
    ///         of 0), its vertex lies out of bounds or `function` is empty
    virtual float parabolicSearch(float a, float x, float c, float fa, float fx, float fc,
                                  const std::function<float(float)>& function, float tolerance, float lower,
                                  float upper, int maxIterations, float* best) const;

    /// out[4c + r] = m[r][c].
    virtual void reArray2Trans(const KrReArray& m, double (&out)[16]) const;

    /// The nearest whole number, halves away from zero; the nearest limit of `long` beyond it, 0 for NaN.
    virtual long rndToLong(double value) const;
    virtual bool ifOdd(unsigned int value) const;

    /// Checks the operations, replaced ones too. False, after one message, when one is wrong.
    bool selfTest() const;
};
