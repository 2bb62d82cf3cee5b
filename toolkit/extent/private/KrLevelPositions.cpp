#include <toolkit/extent/private/KrLevelPositions.h>

#include <toolkit/extent/private/KrMeshPlaces.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace
{

/// Steps of conjugate gradients. A corner only depends on its neighbours, so few are enough.
constexpr unsigned int kMostSteps = 3;
/// Of the sum of squares at the start: what is left of it is far below the samples' own precision.
constexpr double kSolved = 1e-6;
/// Of the mean of a spot's diagonal, added to it: along a surface nothing holds its corners, so they stay.
constexpr float kDamping = 0.5f;
/// Cosine between a triangle before and after: needles would turn over.
constexpr float kLeastCosine = 0.7f;
/// Times that triangles are looked through for those: beyond that nothing moves.
constexpr unsigned int kMostUndone = 8;

/// The linear system, by spots that may move.
class Fit
{
public:
    Fit(const KrMeshPlaces& places, const std::vector<std::uint32_t>& corners,
        const std::vector<std::uint32_t>& survivors);

    void solve(const std::vector<KrLevelSample>& samples);
    std::vector<float> positions();

private:
    static constexpr std::uint32_t kFixed = KrLevelPositions::kNone;
    using Vectors = std::vector<KrFloat3>;

    /// What a sample says about the moves of its triangle's corners.
    struct Row
    {
        std::uint32_t unknowns[3];
        float weights[3];
        KrFloat3 face;
    };

    std::uint32_t unknownAt(std::size_t index) const { return m_unknowns[m_places.spots[m_corners[index]]]; }
    void multiply(const std::vector<Row>& rows, const Vectors& in, Vectors& out) const;
    void precondition(const Vectors& in, Vectors& out) const;
    bool undoTurned();
    KrFloat3 at(std::size_t index) const;

    const KrMeshPlaces& m_places;
    const std::vector<std::uint32_t>& m_corners;
    std::vector<std::uint32_t> m_unknowns; ///< by spot
    /// By unknown, as all below, and one behind these that stays 0: so corners that are fixed need no branch.
    std::vector<float> m_damping;
    std::vector<std::array<float, 6>> m_inverses;
    Vectors m_moves; ///< m
};

double product(const std::vector<KrFloat3>& a, const std::vector<KrFloat3>& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += double{dot(a[i].data(), b[i].data())};
    }
    return sum;
}

void add(std::vector<KrFloat3>& to, float factor, const std::vector<KrFloat3>& what)
{
    for (std::size_t i = 0; i < to.size(); ++i) {
        for (unsigned int axis = 0; axis < 3; ++axis) {
            to[i][axis] += factor * what[i][axis];
        }
    }
}

/// Of the symmetric matrix xx, yy, zz, xy, xz, yz, which has no eigenvalue of 0.
std::array<float, 6> inverse(const std::array<float, 6>& m)
{
    const double a = m[0], b = m[1], c = m[2], d = m[3], e = m[4], f = m[5];
    const double x = b * c - f * f, y = e * f - d * c, z = d * f - e * b;
    const double determinant = a * x + d * y + e * z;
    const auto part = [determinant](double number) { return static_cast<float>(number / determinant); };
    return {part(x), part(a * c - e * e), part(a * b - d * d), part(y), part(z), part(d * e - a * f)};
}

Fit::Fit(const KrMeshPlaces& places, const std::vector<std::uint32_t>& corners,
         const std::vector<std::uint32_t>& survivors)
    : m_places(places)
    , m_corners(corners)
    , m_unknowns(places.numSpots, kFixed)
{
    std::vector<bool> isFixed(places.numSpots);
    for (std::size_t i = 0; i < corners.size(); ++i) {
        if (survivors[i / 3] != KrLevelPositions::kNone) {
            isFixed[places.spots[corners[i]]] = true;
        }
    }
    std::uint32_t count = 0;
    for (const std::uint32_t place : corners) {
        std::uint32_t& unknown = m_unknowns[places.spots[place]];
        if (unknown == kFixed && !isFixed[places.spots[place]]) {
            unknown = count++;
        }
    }
    m_moves.resize(count + std::size_t{1});
}

/// `out` = (the sum over samples of what they say about their corners' moves, plus damping) `in`
void Fit::multiply(const std::vector<Row>& rows, const Vectors& in, Vectors& out) const
{
    for (std::size_t i = 0; i < in.size(); ++i) {
        for (unsigned int axis = 0; axis < 3; ++axis) {
            out[i][axis] = m_damping[i] * in[i][axis];
        }
    }
    for (const Row& row : rows) {
        float along = 0.0f;
        for (unsigned int k = 0; k < 3; ++k) {
            along += row.weights[k] * dot(row.face.data(), in[row.unknowns[k]].data());
        }
        for (unsigned int k = 0; k < 3; ++k) {
            KrFloat3& sum = out[row.unknowns[k]];
            const float factor = row.weights[k] * along;
            for (unsigned int axis = 0; axis < 3; ++axis) {
                sum[axis] += factor * row.face[axis];
            }
        }
    }
    out.back() = {};
}

void Fit::precondition(const Vectors& in, Vectors& out) const
{
    for (std::size_t i = 0; i < in.size(); ++i) {
        const std::array<float, 6>& m = m_inverses[i];
        const KrFloat3& v = in[i];
        out[i] = {m[0] * v[0] + m[3] * v[1] + m[4] * v[2], m[3] * v[0] + m[1] * v[1] + m[5] * v[2],
                  m[4] * v[0] + m[5] * v[1] + m[2] * v[2]};
    }
}

// By conjugate gradients (Hestenes and Stiefel, 1952), preconditioned by the inverse of each spot's own block.
void Fit::solve(const std::vector<KrLevelSample>& samples)
{
    Vectors residual(m_moves.size());
    m_inverses.assign(m_moves.size(), {});
    const auto fixed = static_cast<std::uint32_t>(m_moves.size() - 1);
    std::vector<Row> rows;
    rows.reserve(samples.size());
    for (const KrLevelSample& sample : samples) {
        Row row = {{}, {sample.weights[0], sample.weights[1], sample.weights[2]}, sample.face};
        // What the sample's plane is away from the level.
        float off = dot(sample.face.data(), sample.position.data());
        for (unsigned int k = 0; k < 3; ++k) {
            off -= sample.weights[k] *
                   dot(sample.face.data(), m_places.position(m_corners[std::size_t{3} * sample.triangle + k]));
        }
        const KrFloat3& n = sample.face;
        for (unsigned int k = 0; k < 3; ++k) {
            const std::uint32_t unknown = unknownAt(std::size_t{3} * sample.triangle + k);
            row.unknowns[k] = std::min(unknown, fixed);
            if (unknown == kFixed) {
                continue;
            }
            const float square = sample.weights[k] * sample.weights[k];
            const float products[6] = {n[0] * n[0], n[1] * n[1], n[2] * n[2], n[0] * n[1], n[0] * n[2], n[1] * n[2]};
            for (unsigned int i = 0; i < 6; ++i) {
                m_inverses[unknown][i] += square * products[i];
            }
            for (unsigned int axis = 0; axis < 3; ++axis) {
                residual[unknown][axis] += sample.weights[k] * off * n[axis];
            }
        }
        if (row.unknowns[0] != fixed || row.unknowns[1] != fixed || row.unknowns[2] != fixed) {
            rows.push_back(row);
        }
    }
    for (std::array<float, 6>& block : m_inverses) {
        // A spot without samples has an equation, too: it stays.
        m_damping.push_back(kDamping * (block[0] + block[1] + block[2]) / 3.0f + 1e-6f);
        for (unsigned int i = 0; i < 3; ++i) {
            block[i] += m_damping.back();
        }
        block = inverse(block);
    }
    Vectors conditioned(residual.size());
    precondition(residual, conditioned);
    Vectors direction = conditioned;
    Vectors image(residual.size());
    double before = product(residual, conditioned);
    const double enough = kSolved * before;
    for (unsigned int step = 0; step < kMostSteps && before > enough; ++step) {
        multiply(rows, direction, image);
        const double length = before / product(direction, image);
        add(m_moves, static_cast<float>(length), direction);
        add(residual, static_cast<float>(-length), image);
        precondition(residual, conditioned);
        const double after = product(residual, conditioned);
        for (std::size_t i = 0; i < direction.size(); ++i) {
            for (unsigned int axis = 0; axis < 3; ++axis) {
                direction[i][axis] = conditioned[i][axis] + static_cast<float>(after / before) * direction[i][axis];
            }
        }
        before = after;
    }
}

KrFloat3 Fit::at(std::size_t index) const
{
    const float* const p = m_places.position(m_corners[index]);
    const std::uint32_t unknown = unknownAt(index);
    if (unknown == kFixed) {
        return {p[0], p[1], p[2]};
    }
    const KrFloat3& move = m_moves[unknown];
    return {p[0] + move[0], p[1] + move[1], p[2] + move[2]};
}

/// Leaves the corners of triangles that have turned where they were.
/// @return whether there were any
bool Fit::undoTurned()
{
    bool isAny = false;
    for (std::size_t i = 0; i < m_corners.size(); i += 3) {
        if (unknownAt(i) == kFixed && unknownAt(i + 1) == kFixed && unknownAt(i + 2) == kFixed) {
            continue;
        }
        KrFloat3 before = faceNormal(m_places.position(m_corners[i]), m_places.position(m_corners[i + 1]),
                                     m_places.position(m_corners[i + 2]));
        KrFloat3 after = faceNormal(at(i).data(), at(i + 1).data(), at(i + 2).data());
        normalize(after);
        // Written so that NaN counts as turned. Without an area there is no side to turn.
        if (!(normalize(before) > 0.0f) || dot(before.data(), after.data()) > kLeastCosine) {
            continue;
        }
        for (std::size_t k = i; k < i + 3; ++k) {
            std::uint32_t& unknown = m_unknowns[m_places.spots[m_corners[k]]];
            isAny = isAny || unknown != kFixed;
            unknown = kFixed;
        }
    }
    return isAny;
}

std::vector<float> Fit::positions()
{
    // Mostly the second time finds none.
    for (unsigned int time = 0; undoTurned(); ++time) {
        if (time == kMostUndone) {
            std::fill(m_unknowns.begin(), m_unknowns.end(), kFixed);
        }
    }
    std::vector<float> result(3 * m_corners.size());
    for (std::size_t i = 0; i < m_corners.size(); ++i) {
        const KrFloat3 position = at(i);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            result[3 * i + axis] = position[axis];
        }
    }
    return result;
}

} // namespace

std::vector<float> KrLevelPositions::fitted(const KrMeshPlaces& places, const std::vector<std::uint32_t>& corners,
                                            const std::vector<std::uint32_t>& survivors,
                                            const std::vector<KrLevelSample>& samples)
{
    Fit fit(places, corners, survivors);
    fit.solve(samples);
    return fit.positions();
}
