#include <rendCore/base/KrMathRoutine.h>

#include <toolkit/foundation/KrReArray.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace
{

// Kept: callers of `parabolicSearch` take -1 for a search that failed, though it may also be a function's true minimum;
// the other number decides which parabolas fail.
constexpr double kFlatParabola = 1e-10;
constexpr float kSearchFailed = -1.0f;

/// Memory for `count` elements (none below 1 is asked for); null when there is none.
template <typename T>
T* allocate(std::int64_t count)
{
    // In 64 bits, where all ints times eight bytes have room: cut to 32, malloc would be asked for less.
    const std::uint64_t bytes = static_cast<std::uint64_t>(std::max<std::int64_t>(count, 1)) * sizeof(T);
    if (bytes > std::numeric_limits<std::size_t>::max()) {
        return nullptr;
    }
    return static_cast<T*>(std::malloc(static_cast<std::size_t>(bytes)));
}

// In 64 bits: from the lowest int to the highest there are more than an int can count. Below 1 where high < low.
std::int64_t indexCount(int low, int high)
{
    return std::int64_t(high) - low + 1;
}

/// Three points of a function, the middle one being the best so far.
struct Bracket
{
    float a, x, c;
    float fa, fx, fc;

    /// The abscissa of the vertex of the parabola through the points; false when it has none.
    bool vertex(double& u) const
    {
        // In double precision: differences of near floats are what the denominator is made of.
        const double xa = double(x) - a;
        const double xc = double(x) - c;
        const double fxc = double(fx) - fc;
        const double fxa = double(fx) - fa;
        const double denominator = xa * fxc - xc * fxa;
        // May divide by zero; what comes of it is not used, because the next line refuses.
        u = x - 0.5 * (xa * xa * fxc - xc * xc * fxa) / denominator;
        // Kept: NaN passes here and fails at the bounds, so that the caller gets the same -1.
        return !(std::fabs(denominator) <= kFlatParabola);
    }

    /// A lower point becomes the middle, and the old middle the end on the other side; any other point becomes the end
    /// on its side.
    void take(float u, float fu)
    {
        const bool aboveMiddle = u > x;
        if (fu < fx) {
            (aboveMiddle ? a : c) = x;
            (aboveMiddle ? fa : fc) = fx;
            x = u;
            fx = fu;
        } else {
            (aboveMiddle ? c : a) = u;
            (aboveMiddle ? fc : fa) = fu;
        }
    }
};

} // namespace

void KrMathRoutine::assignVector3(double* to, const double* from) const
{
    std::copy_n(from, 3, to);
}

void KrMathRoutine::assignVector3F(float* to, const float* from) const
{
    std::copy_n(from, 3, to);
}

void KrMathRoutine::vectorAdd(const double* a, const double* b, double* out) const
{
    for (int i = 0; i < 3; ++i) {
        out[i] = a[i] + b[i];
    }
}

void KrMathRoutine::vectorSub(const double* a, const double* b, double* out) const
{
    for (int i = 0; i < 3; ++i) {
        out[i] = a[i] - b[i];
    }
}

void KrMathRoutine::vectorMultiply(const double* a, double s, double* out) const
{
    for (int i = 0; i < 3; ++i) {
        out[i] = a[i] * s;
    }
}

double KrMathRoutine::vectorDot(const double* a, const double* b) const
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

void KrMathRoutine::vectorCross(const double* a, const double* b, double* out) const
{
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}

double KrMathRoutine::vectorNorm(const double* a) const
{
    return std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]);
}

void KrMathRoutine::vectorNormalization(const double* in, double* out) const
{
    const double norm = vectorNorm(in);
    if (norm == 0.0) {
        // Kept: only an exact zero. Vectors shorter than any threshold keep their direction, and a derived class's
        // `vectorNorm` decides.
        std::fill_n(out, 3, 0.0);
        return;
    }
    // Kept: times the reciprocal. A division of each component rounds otherwise, and clients' results would differ in
    // their last digit.
    vectorMultiply(in, 1.0 / norm, out);
}

void KrMathRoutine::matrixTranspose(const double* in, int rows, int cols, double* out) const
{
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < cols; ++c) {
            // Products of two ints may exceed an int.
            out[std::ptrdiff_t(c) * rows + r] = in[std::ptrdiff_t(r) * cols + c];
        }
    }
}

bool KrMathRoutine::matrixMultiply(const double* A, int rowsA, int colsA, const double* B, int rowsB, int colsB,
                                   double* P) const
{
    if (colsA != rowsB) {
        return false;
    }
    // Kept: no temporary for P. The sum is made in a variable of its own and stored once, so that a product computed in
    // place reads the elements of its row that are there already: KrTransformation's rotations are made so.
    for (int i = 0; i < rowsA; ++i) {
        for (int j = 0; j < colsB; ++j) {
            double sum = 0.0;
            for (int k = 0; k < colsA; ++k) {
                sum += A[std::ptrdiff_t(i) * colsA + k] * B[std::ptrdiff_t(k) * colsB + j];
            }
            P[std::ptrdiff_t(i) * colsB + j] = sum;
        }
    }
    return true;
}

bool KrMathRoutine::matrixInv3(const double* in, double* out) const
{
    const double* m = in;
    // All nine are made before the first is stored: `out` may be `in`.
    const double adjugate[9] = {m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
                                m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
                                m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
    const double determinant = m[0] * adjugate[0] + m[1] * adjugate[3] + m[2] * adjugate[6];
    // Kept: exactly zero. A nearly singular matrix has a large inverse, and so has a sound one of small numbers, which
    // a threshold would refuse.
    if (determinant == 0.0) {
        return false;
    }
    for (int i = 0; i < 9; ++i) {
        out[i] = adjugate[i] / determinant;
    }
    return true;
}

double** KrMathRoutine::mallocMatrix(int rl, int rh, int cl, int ch) const
{
    // The arithmetic on the offset pointers is the interface: rows and elements are asked
    // for by their own first index.
    double** const rows = allocate<double*>(indexCount(rl, rh));
    if (rows == nullptr) {
        nrerror("allocation failure 1 in matrix()");
        return nullptr;
    }
    for (std::int64_t r = 0; r < indexCount(rl, rh); ++r) {
        double* const row = allocate<double>(indexCount(cl, ch));
        if (row == nullptr) {
            // Kept: it returns, and the rows after this one are still asked for: a derived class's `nrerror` hears of
            // each that fails.
            nrerror("allocation failure 2 in matrix()");
        }
        rows[r] = row == nullptr ? nullptr : row - cl;
    }
    return rows - rl;
}

double* KrMathRoutine::mallocVector(int l, int h) const
{
    double* const block = allocate<double>(indexCount(l, h));
    if (block == nullptr) {
        nrerror("allocation failure in vector()");
        return nullptr;
    }
    return block - l;
}

void KrMathRoutine::nrerror(const char* msg) const
{
    // Kept: the last line, which filters of logs match with the others, though nothing exits and callers go on.
    std::fprintf(stderr, "Math Routine run-time error...\n%s\n...now exiting to system...\n", msg);
}

float KrMathRoutine::parabolicSearch(float a, float x, float c, float fa, float fx, float fc,
                                     const std::function<float(float)>& function, float tolerance, float lower,
                                     float upper, int maxIterations, float* best) const
{
    // The ends may come in either order; from here on a is the lower one.
    Bracket bracket = a <= c ? Bracket{a, x, c, fa, fx, fc} : Bracket{c, x, a, fc, fx, fa};
    for (int iteration = 1; iteration <= maxIterations; ++iteration) {
        const float width = bracket.c - bracket.a;
        // Written so that a width of NaN ends the search, too.
        if (bracket.x == bracket.a || bracket.x == bracket.c || !(width > tolerance)) {
            break;
        }
        double vertex = 0.0;
        // Written so that NaN fails too.
        if (!bracket.vertex(vertex) || !(vertex >= lower && vertex <= upper) || !function) {
            return kSearchFailed;
        }
        // The bounds were asked of the double: rounding to float may reach just beyond them.
        const float u = static_cast<float>(vertex);
        bracket.take(u, function(u));
    }
    // Only after a search that did not fail.
    if (best != nullptr) {
        *best = bracket.x;
    }
    return bracket.fx;
}

void KrMathRoutine::reArray2Trans(const KrReArray& m, double (&out)[16]) const
{
    for (unsigned int r = 0; r < 4; ++r) {
        for (unsigned int c = 0; c < 4; ++c) {
            // Column by column, the order of KrTransformation and of OpenGL.
            out[4 * c + r] = m[r][c];
        }
    }
}

long KrMathRoutine::rndToLong(double value) const
{
    using Limits = std::numeric_limits<long>;
    const double rounded = std::round(value);
    // 2 to the number of value bits: the first whole number above the largest long, exact as a double.
    const double bound = std::ldexp(1.0, Limits::digits);
    // A conversion that does not fit is undefined: all three cases are settled before it.
    if (std::isnan(rounded)) {
        return 0;
    }
    if (rounded >= bound) {
        return Limits::max();
    }
    return rounded < -bound ? Limits::min() : static_cast<long>(rounded);
}

bool KrMathRoutine::ifOdd(unsigned int value) const
{
    return (value & 1u) != 0;
}
