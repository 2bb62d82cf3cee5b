#include <toolkit/extent/private/KrConvexHull.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/math/KrAngle.h>

#include <libqhullcpp/Qhull.h>
#include <libqhullcpp/QhullError.h>
#include <libqhullcpp/QhullFacetList.h>
#include <libqhullcpp/QhullVertexSet.h>

#include <Eigen/Eigenvalues>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <utility>

namespace
{

using Points = std::vector<Eigen::Vector3d>;

/// Half of what a flat set gets for a body, as a part of the diagonal: far above rounding, and far below what is
/// promised.
constexpr double kHalfBody = 1e-7;
/// Of a hull from which kMostVertices are chosen. It bounds what the hull of a finely divided ball takes.
constexpr unsigned int kMostCandidates = 2000;

struct Face
{
    std::array<std::uint32_t, 3> corners; ///< counter-clockwise seen from outside
    Eigen::Vector3d normal;               ///< outwards, of length one
    double offset;                        ///< normal * p + offset is how far p is outside

    double over(const Eigen::Vector3d& p) const { return normal.dot(p) + offset; }
};
using Faces = std::vector<Face>;

/// Coordinates in which the points reach equally far along three axes.
///
/// Hulls do not change with them, but are exact in them, be the set as thin as it may.
class RoundFrame
{
public:
    /// @param points  different ones, all numbers finite
    RoundFrame(const std::vector<KrVector>& points, const KrVector& center, double diagonal)
        : m_center(vector(center))
        , m_diagonal(diagonal)
    {
        Eigen::Vector3d mean = Eigen::Vector3d::Zero();
        // In the scale of the diagonal, so that tolerances are the same for every mesh.
        Eigen::Matrix3d spread = Eigen::Matrix3d::Zero();
        const double share = 1.0 / static_cast<double>(points.size());
        for (const KrVector& point : points) {
            const Eigen::Vector3d p = scaled(point);
            mean += p * share;
            spread += p * p.transpose() * share;
        }
        spread -= mean * mean.transpose();
        m_axes = Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d>(spread).eigenvectors();
        m_axes.col(0) *= m_axes.determinant() > 0.0 ? 1.0 : -1.0; // a mirror would turn the faces inside out
        constexpr double infinity = std::numeric_limits<double>::infinity();
        Eigen::Vector3d low = Eigen::Vector3d::Constant(infinity);
        Eigen::Vector3d high = -low;
        for (const KrVector& point : points) {
            const Eigen::Vector3d p = m_axes.transpose() * scaled(point);
            low = low.cwiseMin(p);
            high = high.cwiseMax(p);
        }
        m_middle = 0.5 * (low + high);
        m_halfSizes = 0.5 * (high - low);
        for (int axis = 0; axis < 3; ++axis) {
            // A flat set gets a body, since a hull without volume has no faces.
            m_isThin[axis] = m_halfSizes[axis] < kHalfBody;
            m_halfSizes[axis] += m_isThin[axis] ? kHalfBody : 0.0;
        }
    }

    bool isThin(int axis) const { return m_isThin[axis]; }
    bool isLine() const { return m_isThin[0] + m_isThin[1] + m_isThin[2] > 1; }
    Eigen::Vector3d inside(const KrVector& point) const
    {
        // Each axis is stretched to the same length.
        return (m_axes.transpose() * scaled(point) - m_middle).cwiseQuotient(m_halfSizes);
    }
    KrVector outside(const Eigen::Vector3d& p) const
    {
        const Eigen::Vector3d place = m_center + m_axes * (p.cwiseProduct(m_halfSizes) + m_middle) * m_diagonal;
        return {place.x(), place.y(), place.z()};
    }

private:
    static Eigen::Vector3d vector(const KrVector& v) { return {v.x(), v.y(), v.z()}; }
    Eigen::Vector3d scaled(const KrVector& point) const { return (vector(point) - m_center) / m_diagonal; }

    Eigen::Vector3d m_center;
    double m_diagonal;
    Eigen::Matrix3d m_axes; ///< principal ones, as columns
    Eigen::Vector3d m_middle;
    Eigen::Vector3d m_halfSizes;
    bool m_isThin[3];
};

/// The points in the frame's coordinates, from -1 to 1; of a flat set each twice, below and above it.
Points insidePoints(const std::vector<KrVector>& points, const RoundFrame& frame)
{
    Points result;
    for (const KrVector& point : points) {
        result.push_back(frame.inside(point));
    }
    for (int axis = 0; axis < 3; ++axis) {
        if (!frame.isThin(axis)) {
            continue;
        }
        // The points that were there before: the copies need none of their own.
        const std::size_t count = result.size();
        result.reserve(2 * count);
        for (std::size_t i = 0; i < count; ++i) {
            result[i][axis] = -1.0;
            result.push_back(result[i]);
            result.back()[axis] = 1.0;
        }
    }
    return result;
}

/// The faces of the hull of `points`, all triangles. None where rounding defeats it.
///
/// A hull that has kMostCandidates vertices is left at that: points may be outside of it.
/// Empty for fewer points than a body has, too.
Faces hullOf(const Points& points)
{
    /// The library prints, when it goes, what nobody has taken.
    struct Quiet
    {
        orgQhull::Qhull qhull;
        ~Quiet() { qhull.clearQhullMessage(); }
    };
    // The library counts in int.
    if (points.size() > INT_MAX) {
        return {};
    }
    Faces faces;
    try {
        Quiet quiet;
        // Merged faces cut into triangles, no warnings, and where to stop.
        const std::string command = "Qt Pp TA" + std::to_string(kMostCandidates);
        quiet.qhull.runQhull("", 3, static_cast<int>(points.size()), points[0].data(), command.c_str());
        for (const orgQhull::QhullFacet& facet : quiet.qhull.facetList()) {
            const orgQhull::QhullHyperplane plane = facet.hyperplane();
            Face face = {{}, {plane[0], plane[1], plane[2]}, plane.offset()};
            const std::vector<orgQhull::QhullVertex> corners = facet.vertices().toStdVector();
            // Merged faces that could not be cut into triangles are of no use.
            if (corners.size() != 3) {
                return {};
            }
            for (unsigned int i = 0; i < 3; ++i) {
                face.corners[i] = static_cast<std::uint32_t>(corners[i].point().id());
            }
            // The library tells the corners unordered, and on which side the face is seen.
            if (facet.isTopOrient()) {
                std::swap(face.corners[1], face.corners[2]);
            }
            faces.push_back(face);
        }
    } catch (const orgQhull::QhullError&) {
        return {};
    }
    return faces;
}

/// The corners of `faces`, each once.
/// Points inside the hull are of no more use.
Points cornersOf(const Faces& faces, const Points& points)
{
    // Sorted, so that the hull does not depend on the order of its faces.
    std::vector<std::uint32_t> numbers;
    for (const Face& face : faces) {
        numbers.insert(numbers.end(), face.corners.begin(), face.corners.end());
    }
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    Points corners;
    for (const std::uint32_t number : numbers) {
        corners.push_back(points[number]);
    }
    return corners;
}

/// The middle of the surface.
/// Of the surface and not of the corners, which may lie close together on one side.
Eigen::Vector3d middleOf(const Faces& faces, const Points& points)
{
    Eigen::Vector3d middle = Eigen::Vector3d::Zero();
    double area = 0.0;
    // Weighted with twice the area; the factor is in both sums.
    for (const Face& face : faces) {
        const Eigen::Vector3d a = points[face.corners[0]];
        const Eigen::Vector3d b = points[face.corners[1]];
        const Eigen::Vector3d c = points[face.corners[2]];
        const double weight = (b - a).cross(c - a).norm();
        middle += weight / 3.0 * (a + b + c);
        area += weight;
    }
    return middle / area;
}

/// Points that are asked for by the million how far they reach: all x, all y, all z.
class Reach
{
public:
    explicit Reach(const Points& points)
        : m_columns(Eigen::Map<const Eigen::Matrix3Xd>(points[0].data(), 3, static_cast<Eigen::Index>(points.size()))
                        .transpose())
    {
    }

    /// The most of direction * p + offset, and the number of the first point that has it.
    std::pair<double, std::size_t> most(const Eigen::Vector3d& direction, double offset) const
    {
        // Some at a time, which stay in the processor's cache: a maximum without a place is found several at once.
        constexpr Eigen::Index kBlock = 256;
        Eigen::Array<double, kBlock, 1> values;
        std::pair<double, std::size_t> result(-std::numeric_limits<double>::infinity(), 0);
        for (Eigen::Index first = 0; first < m_columns.rows(); first += kBlock) {
            const Eigen::Index count = std::min(kBlock, m_columns.rows() - first);
            const auto block = m_columns.middleRows(first, count).array();
            values.head(count) =
                block.col(0) * direction.x() + block.col(1) * direction.y() + block.col(2) * direction.z() + offset;
            const double largest = values.head(count).maxCoeff();
            if (largest > result.first) {
                const double* const place = std::find(values.data(), values.data() + count, largest);
                result = {largest, static_cast<std::size_t>(first + (place - values.data()))};
            }
        }
        return result;
    }

    /// How much larger, as a part of its size about `middle`, a hull must be for one of its faces to reach every point,
    /// and which one needs the most: what chooses the points is what `enlarge` pays.
    std::pair<double, std::size_t> growth(const Face& face, const Eigen::Vector3d& middle) const
    {
        constexpr double kLeastDepth = 1e-6; // a hull of few points may not hold the middle yet
        const double depth = std::max(kLeastDepth, -face.over(middle));
        return most(face.normal / depth, face.offset / depth);
    }

    std::size_t size() const { return static_cast<std::size_t>(m_columns.rows()); }

private:
    Eigen::Matrix<double, Eigen::Dynamic, 3> m_columns;
};

/// Those of `candidates` that reach farthest, in directions spread evenly over a ball: along a spiral of golden angles.
std::vector<bool> farthest(const Reach& candidates, unsigned int numDirections)
{
    const double goldenAngle = Kr::Angle::kPi * (3.0 - std::sqrt(5.0));
    std::vector<bool> isChosen(candidates.size(), false);
    for (unsigned int i = 0; i < numDirections; ++i) {
        const double z = 1.0 - (2.0 * i + 1.0) / numDirections;
        const double r = std::sqrt(1.0 - z * z);
        const Eigen::Vector3d direction(r * std::cos(goldenAngle * i), r * std::sin(goldenAngle * i), z);
        isChosen[candidates.most(direction, 0.0).second] = true;
    }
    return isChosen;
}

/// At most kMostVertices of the candidates: first those that reach farthest, then, some at a time, those that the hull
/// of the chosen ones lacks most.
Points chosenOf(const Points& candidates, const Eigen::Vector3d& middle)
{
    const Reach reach(candidates);
    // A first choice in all directions, so that the hull has a volume from the beginning.
    std::vector<bool> isChosen = farthest(reach, 64);
    // By the face's plane, to the last bit: from one round to the next many faces stay, and rounding decides between
    // points that reach equally far.
    std::map<std::array<double, 4>, std::pair<double, std::size_t>> known;
    for (;;) {
        Points chosen;
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            if (isChosen[i]) {
                chosen.push_back(candidates[i]);
            }
        }
        const std::size_t room = KrConvexHull::kMostVertices - chosen.size();
        if (room == 0) {
            return chosen;
        }
        std::vector<std::pair<double, std::size_t>> lacking; // of each face the farthest
        for (const Face& face : hullOf(chosen)) {
            const auto [place, isNew] =
                known.try_emplace({face.normal.x(), face.normal.y(), face.normal.z(), face.offset});
            if (isNew) {
                place->second = reach.growth(face, middle);
            }
            const auto [most, number] = place->second;
            if (!isChosen[number] && most > 0.0) {
                lacking.emplace_back(most, number);
            }
        }
        if (lacking.empty()) {
            return chosen;
        }
        // Half of the room at a time: points that are chosen make others unnecessary.
        std::sort(lacking.rbegin(), lacking.rend());
        lacking.resize(std::min({lacking.size(), room, std::max<std::size_t>(room / 2, 16)}));
        for (const auto& [needed, number] : lacking) {
            isChosen[number] = true;
        }
    }
}

/// Scales a hull about `middle` until it holds `points`; false when the middle is not in it.
bool enlarge(Points& hull, const Faces& faces, const Points& points, const Eigen::Vector3d& middle)
{
    const Reach reach(points);
    double most = 0.0;
    for (const Face& face : faces) {
        if (!(face.over(middle) < 0.0)) {
            return false;
        }
        most = std::max(most, reach.growth(face, middle).first);
    }
    for (Eigen::Vector3d& point : hull) {
        point = middle + (1.0 + most) * (point - middle);
    }
    return true;
}

/// A hull of at most kMostVertices vertices: `hull` and the corners of the faces, in numbers of it.
/// False where rounding has left no hull, or none that can be enlarged.
bool makeHull(const Points& points, Points& hull, Faces& faces)
{
    const Faces whole = hullOf(points);
    const Points candidates = cornersOf(whole, points);
    const Eigen::Vector3d middle = middleOf(whole, points);
    const bool isSmall = candidates.size() <= KrConvexHull::kMostVertices;
    hull = isSmall ? candidates : chosenOf(candidates, middle);
    // Fewer than four points have no volume.
    faces = hull.size() < 4 ? Faces() : hullOf(hull);
    const bool hasAll = candidates.size() < kMostCandidates;
    return !faces.empty() && (isSmall || enlarge(hull, faces, hasAll ? candidates : points, middle));
}

/// What encloses everything: the ends of the frame's axes.
/// For lines, and where rounding defeats the hull: something that encloses there always is.
void makeBox(Points& hull, Faces& faces)
{
    hull.clear();
    for (unsigned int i = 0; i < 8; ++i) {
        hull.emplace_back((i & 1) != 0 ? 1.0 : -1.0, (i & 2) != 0 ? 1.0 : -1.0, (i & 4) != 0 ? 1.0 : -1.0);
    }
    faces = hullOf(hull);
}

} // namespace

boost::shared_ptr<KrTriPhysicalExtent> KrConvexHull::make(const std::vector<KrVector>& points,
                                                          const std::string& groupName)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    KrVector low(infinity, infinity, infinity);
    KrVector high = -low;
    // Not left to the library: it would take NaN for a place.
    for (const KrVector& point : points) {
        if (!point.isFinite()) {
            return nullptr;
        }
        for (unsigned int i = 0; i < 3; ++i) {
            low[i] = std::min(low[i], point[i]);
            high[i] = std::max(high[i], point[i]);
        }
    }
    const double diagonal = (high - low).length();
    if (points.empty() || !(diagonal > 0.0) || !std::isfinite(diagonal)) {
        return nullptr;
    }

    const RoundFrame frame(points, (low + high) * 0.5, diagonal);
    Points hull;
    Faces faces;
    // The hull of a line is a thin box, whatever its points are.
    if (frame.isLine() || !makeHull(insidePoints(points, frame), hull, faces)) {
        makeBox(hull, faces);
    }

    KrXmlVectorVector vertices;
    for (const Eigen::Vector3d& p : hull) {
        vertices.push_back(frame.outside(p));
    }
    KrXmlVectorType<KrTriangle> triangles;
    for (const Face& face : faces) {
        triangles.push_back(KrTriangle(face.corners[0], face.corners[1], face.corners[2]));
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back({groupName, triangles});
    const auto mesh = boost::make_shared<KrTriPhysicalExtent>();
    const bool isGood = mesh->setMesh(std::move(vertices), {}, {}, std::move(groups), "convex hull");
    return isGood ? mesh : boost::shared_ptr<KrTriPhysicalExtent>();
}
