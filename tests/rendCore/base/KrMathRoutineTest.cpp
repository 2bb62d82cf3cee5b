#include <rendCore/base/KrMathRoutine.h>

#include <toolkit/foundation/KrReArray.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

namespace
{

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInfinity = std::numeric_limits<double>::infinity();

/// Notes what is reported instead of printing it, and takes every vector for a zero one when told to.
class NotingRoutine : public KrMathRoutine
{
public:
    void nrerror(const char* msg) const override { messages.push_back(msg); }
    double vectorNorm(const double* a) const override { return isZero ? 0.0 : KrMathRoutine::vectorNorm(a); }
    mutable std::vector<std::string> messages;
    bool isZero = false;
};

float parabola(float x)
{
    return (x - 0.25f) * (x - 0.25f) + 2.0f;
}

float search(float a, float x, float c, float lower, float upper, int maxIterations, float* best)
{
    return KrMathRoutine().parabolicSearch(a, x, c, parabola(a), parabola(x), parabola(c), parabola, 1e-3f, lower,
                                           upper, maxIterations, best);
}

/// Frees what begins `first` elements after `p`; by way of a number, since the compiler mistrusts a pointer that was
/// moved.
template <typename T>
void freeFrom(T* p, std::ptrdiff_t first)
{
    const auto address = reinterpret_cast<std::uintptr_t>(p) + static_cast<std::uintptr_t>(first) * sizeof(T);
    std::free(reinterpret_cast<void*>(address));
}

} // namespace

TEST(KrMathRoutine, CrossProductIsRightHandedAndNormalizationTakesZeroVectors)
{
    const double x[3] = {2, 0, 0}, y[3] = {0, 3, 0};
    double out[3];
    KrMathRoutine().vectorCross(x, y, out);
    EXPECT_EQ(out[2], 6.0);

    double v[3] = {0, -3, 4};
    KrMathRoutine().vectorNormalization(v, v);
    EXPECT_NEAR(v[1], -0.6, 1e-15);
    EXPECT_NEAR(v[2], 0.8, 1e-15);

    const double zero[3] = {0, 0, 0};
    KrMathRoutine().vectorNormalization(zero, out);
    EXPECT_EQ(out[0] + out[1] + out[2], 0.0);

    NotingRoutine routine;
    routine.isZero = true;
    routine.vectorNormalization(x, out);
    EXPECT_EQ(out[0], 0.0) << "the length is asked through the virtual operation";
}

TEST(KrMathRoutine, MultipliesRectanglesAndRefusesWhatDoesNotFit)
{
    const double A[6] = {1, 2, 3, 4, 5, 6}; // 2 x 3
    const double B[6] = {1, 0, 0, 1, 2, 2}; // 3 x 2
    double P[4];
    ASSERT_TRUE(KrMathRoutine().matrixMultiply(A, 2, 3, B, 3, 2, P));
    EXPECT_EQ((std::array<double, 4>{P[0], P[1], P[2], P[3]}), (std::array<double, 4>{7, 8, 16, 17}));

    double untouched[4] = {-1, -1, -1, -1};
    EXPECT_FALSE(KrMathRoutine().matrixMultiply(A, 2, 3, A, 2, 3, untouched));
    EXPECT_EQ(untouched[0], -1.0);

    double transposed[6];
    KrMathRoutine().matrixTranspose(A, 2, 3, transposed);
    EXPECT_EQ(transposed[1], 4.0);
    EXPECT_EQ(transposed[4], 3.0);
}

TEST(KrMathRoutine, AProductInPlaceReadsWhatItHasWritten)
{
    // Row (1, 2) times {{0, 1}, {1, 1}}: first 2, then 2 * 1 + 2 * 1 from the new first element (1 + 2 if not in
    // place).
    double e[4] = {1, 2, 0, 1};
    const double B[4] = {0, 1, 1, 1};
    ASSERT_TRUE(KrMathRoutine().matrixMultiply(e, 2, 2, B, 2, 2, e));
    EXPECT_EQ(e[0], 2.0);
    EXPECT_EQ(e[1], 4.0);
}

TEST(KrMathRoutine, InvertsMatricesEvenInPlaceAndLeavesSingularOnes)
{
    double m[9] = {2, 0, 1, 0, 3, 0, 0, 0, 4};
    ASSERT_TRUE(KrMathRoutine().matrixInv3(m, m));
    const double expected[9] = {0.5, 0, -0.125, 0, 1.0 / 3.0, 0, 0, 0, 0.25};
    for (int i = 0; i < 9; ++i) {
        EXPECT_NEAR(m[i], expected[i], 1e-15) << i;
    }
    const double singular[9] = {1, 2, 3, 2, 4, 6, 0, 0, 1};
    double out[9] = {7};
    EXPECT_FALSE(KrMathRoutine().matrixInv3(singular, out));
    EXPECT_EQ(out[0], 7.0);
}

TEST(KrMathRoutine, AllocatesByFirstAndLastIndex)
{
    const KrMathRoutine routine;
    double** const m = routine.mallocMatrix(1, 3, -2, 2);
    for (int r = 1; r <= 3; ++r) {
        for (int c = -2; c <= 2; ++c) {
            m[r][c] = 10.0 * r + c;
        }
    }
    EXPECT_EQ(m[2][-2], 18.0);
    EXPECT_EQ(m[1][2], 12.0);
    for (int r = 1; r <= 3; ++r) {
        freeFrom(m[r], -2);
    }
    freeFrom(m, 1);

    freeFrom(routine.mallocMatrix(5, 4, 0, 0), 5); // no rows
    double* const v = routine.mallocVector(-3, 3);
    v[-3] = v[3] = 1.0;
    freeFrom(v, -3);
}

TEST(KrMathRoutine, ReportsAnErrorAndComesBack)
{
    testing::internal::CaptureStderr();
    KrMathRoutine().nrerror("allocation failure in vector()");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Math Routine run-time error...\nallocation failure in "
                                                      "vector()\n...now exiting to system...\n");
}

TEST(KrMathRoutine, ParabolicSearchFindsAMinimum)
{
    float best = 0.0f;
    EXPECT_NEAR(search(-1.0f, 0.0f, 2.0f, -1.0f, 2.0f, 50, &best), 2.0f, 1e-6f);
    EXPECT_NEAR(best, 0.25f, 1e-3f);
    // One evaluation of a parabola is enough, also with the bracket the other way round.
    EXPECT_NEAR(search(2.0f, 0.0f, -1.0f, -1.0f, 2.0f, 1, &best), 2.0f, 1e-6f);
    EXPECT_NEAR(best, 0.25f, 1e-6f);

    // A quartic, whose minimum no single parabola meets: -(x^2) + x^4 / 2 has it at 1, value -0.5.
    const auto quartic = [](float x) { return 0.5f * x * x * x * x - x * x; };
    const float value = KrMathRoutine().parabolicSearch(0.5f, 0.8f, 1.6f, quartic(0.5f), quartic(0.8f), quartic(1.6f),
                                                        quartic, 0.3f, 0.0f, 2.0f, 30, &best);
    EXPECT_NEAR(best, 1.0f, 0.05f);
    EXPECT_EQ(value, quartic(best));
}

TEST(KrMathRoutine, ParabolicSearchAnswersTheMiddleAtOnceWhenThereIsNothingToDo)
{
    int evaluations = 0;
    const auto counting = [&evaluations](float x) {
        ++evaluations;
        return parabola(x);
    };
    const auto answer = [&](float a, float x, float c, float tolerance, int maxIterations) {
        float best = -9.0f;
        const float value = KrMathRoutine().parabolicSearch(a, x, c, 5.0f, 3.0f, 6.0f, counting, tolerance, -10.0f,
                                                            10.0f, maxIterations, &best);
        EXPECT_EQ(best, x);
        return value;
    };
    EXPECT_EQ(answer(0.0f, 1.0f, 2.0f, 1e-3f, 0), 3.0f);
    EXPECT_EQ(answer(1.0f, 1.0f, 2.0f, 1e-3f, 9), 3.0f);
    EXPECT_EQ(answer(0.0f, 2.0f, 2.0f, 1e-3f, 9), 3.0f);
    EXPECT_EQ(answer(0.0f, 1.0f, 2.0f, 2.0f, 9), 3.0f);
    EXPECT_EQ(evaluations, 0);
}

TEST(KrMathRoutine, ParabolicSearchFailsOutOfBoundsAndOnStraightLines)
{
    float best = -9.0f;
    EXPECT_EQ(search(-1.0f, 0.0f, 2.0f, 0.5f, 2.0f, 50, &best), -1.0f) << "vertex 0.25 below the bounds";
    EXPECT_EQ(search(-1.0f, 0.0f, 2.0f, -1.0f, 0.2f, 50, &best), -1.0f) << "above the bounds";
    EXPECT_EQ(KrMathRoutine().parabolicSearch(0, 1, 2, 3, 3, 3, parabola, 0.1f, -9, 9, 9, &best), -1.0f);
    EXPECT_EQ(KrMathRoutine().parabolicSearch(0, 1, 2, 3, float(kNaN), 3, parabola, 0.1f, -9, 9, 9, &best), -1.0f);
    EXPECT_EQ(KrMathRoutine().parabolicSearch(0, 1, 2, 5, 3, 6, nullptr, 0.1f, -9, 9, 9, &best), -1.0f);
    EXPECT_EQ(best, -9.0f);
    // The bounds themselves are allowed.
    EXPECT_NEAR(search(-1.0f, 0.0f, 2.0f, 0.25f, 0.25f, 1, &best), 2.0f, 1e-6f);
}

TEST(KrMathRoutine, RoundsHalvesAwayFromZeroAndStaysWithinLong)
{
    const KrMathRoutine routine;
    EXPECT_EQ(routine.rndToLong(2.5), 3);
    EXPECT_EQ(routine.rndToLong(-2.5), -3);
    EXPECT_EQ(routine.rndToLong(0.49999999999999994), 0); // adding 0.5 and cutting off would give 1
    EXPECT_EQ(routine.rndToLong(1e300), std::numeric_limits<long>::max());
    EXPECT_EQ(routine.rndToLong(-kInfinity), std::numeric_limits<long>::min());
    EXPECT_EQ(routine.rndToLong(std::ldexp(1.0, std::numeric_limits<long>::digits)), std::numeric_limits<long>::max());
    EXPECT_EQ(routine.rndToLong(kNaN), 0);
    EXPECT_TRUE(routine.ifOdd(0xffffffffu));
    EXPECT_FALSE(routine.ifOdd(0u));
}

TEST(KrMathRoutine, CopiesAnArrayColumnByColumn)
{
    KrReArray array;
    for (unsigned int r = 0; r < 4; ++r) {
        for (unsigned int c = 0; c < 4; ++c) {
            array[r][c] = 10.0 * r + c;
        }
    }
    double out[16];
    KrMathRoutine().reArray2Trans(array, out);
    EXPECT_EQ(out[13], 13.0); // row 1, column 3
    EXPECT_EQ(out[7], 31.0);  // row 3, column 1
}
