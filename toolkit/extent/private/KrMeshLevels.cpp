#include <toolkit/extent/private/KrMeshLevels.h>

#include <toolkit/extent/private/KrFloat3.h>
#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/extent/private/KrLevelNormals.h>
#include <toolkit/extent/private/KrLevelPictures.h>
#include <toolkit/extent/private/KrLevelPositions.h>
#include <toolkit/extent/private/KrLevelSample.h>
#include <toolkit/extent/private/KrMeshPlaces.h>
#include <toolkit/extent/private/KrNearestSurface.h>
#include <toolkit/extent/private/KrTriangleOrder.h>

#include <meshoptimizer.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <utility>

namespace
{

using Indices = std::vector<std::uint32_t>;

constexpr std::uint32_t kNone = KrLevelNormals::kNone;
constexpr std::size_t kMostLevels = 12;
constexpr std::size_t kFewestTriangles = 24;
/// Of the triangles of the level before: one that keeps more is left out.
constexpr double kMostKept = 0.75;
/// The same, around what far robots are drawn with.
constexpr double kMostKeptBetween = 0.9;
/// What levels may change of pictures where half a pixel of error is allowed, as whoever draws has it.
constexpr float kUsualChange = 0.009f;
/// Of the mesh's largest side: levels farther off are of no use.
constexpr float kMostError = 0.1f;
/// Largest sides of a mesh, m: squares and products beyond these are not exact enough, or none.
constexpr float kSmallestSize = 1e-9f;
constexpr float kLargestSize = 1e9f;

// Points at which surfaces are compared: for each triangle that is not one of level 0, and at least and at most.
constexpr std::size_t kSamplesPerTriangle = 2;
/// Times as few are spread over the draft, which hardly sticks out of level 0 where that is not far from it; and as
/// many middles of its triangles are looked at in any case: these are farthest off as a rule.
constexpr std::size_t kFewerOnDraft = 8;
constexpr std::size_t kMiddles = 2000;
constexpr std::size_t kFewestSamples = 1000;
constexpr std::size_t kMostSamples = 400000;
/// Of the error that the simplification estimates: farther off, any surface may be the nearest one.
constexpr float kSearchRadius = 3.0f;
/// Of the same: a point as near as this will do, though another one may be nearer.
constexpr float kNearEnough = 1.0f;
/// Corners of level 0 may lie this many times as far from a level as the error says: tips that hardly cover a pixel.
constexpr float kCornerReach = 2.0f;

/// Spreads points evenly over triangles, the same ones each time.
class Spread
{
public:
    /// @param count  of points, at least 1
    /// @param area   of all triangles together
    Spread(std::size_t count, double area)
        : m_step(area / static_cast<double>(count))
        , m_next(0.5 * m_step)
    {
    }

    /// Visits the points that the next triangle gets, by the weights of its corners.
    template <typename Visit>
    void visit(double area, const Visit& visit)
    {
        m_area += area;
        for (; m_next < m_area; m_next += m_step) {
            // The additive recurrence of the plastic number fills a square evenly; its upper half is folded down.
            m_u += 0.7548776662466927;
            m_v += 0.5698402909980532;
            m_u -= std::floor(m_u);
            m_v -= std::floor(m_v);
            const bool isBeyond = m_u + m_v > 1.0;
            const float u = static_cast<float>(isBeyond ? 1.0 - m_u : m_u);
            const float v = static_cast<float>(isBeyond ? 1.0 - m_v : m_v);
            visit(std::array<float, 3>{1.0f - u - v, u, v});
        }
    }

private:
    double m_step;
    double m_next;
    double m_area = 0.0;
    double m_u = 0.5;
    double m_v = 0.5;
};

/// Bodies that hang together, however many groups they are in.
class Parts
{
public:
    explicit Parts(const KrMeshPlaces& places);

    std::uint32_t of(std::uint32_t place) const { return m_partOf[m_places.spots[place]]; }
    /// Of its bounding box, m.
    float diagonal(std::uint32_t part) const { return normOf(m_parts[part]); }
    /// How wide it is seen at its widest, about: half its surface over its length, m.
    float width(std::uint32_t part) const { return 0.5f * m_parts[part].area / diagonal(part); }
    std::size_t size() const { return m_parts.size(); }

private:
    struct Part
    {
        KrFloat3 low;
        KrFloat3 high;
        float area;
    };

    static float normOf(const Part& part)
    {
        const KrFloat3 size = difference(part.high.data(), part.low.data());
        return std::sqrt(dot(size.data(), size.data()));
    }

    const KrMeshPlaces& m_places;
    Indices m_partOf; ///< by spot
    std::vector<Part> m_parts;
};

Parts::Parts(const KrMeshPlaces& places)
    : m_places(places)
    , m_partOf(places.numSpots)
{
    // A forest over the spots first: each one's parent, or itself.
    std::iota(m_partOf.begin(), m_partOf.end(), 0u);
    const auto rootOf = [this](std::uint32_t spot) {
        while (m_partOf[spot] != spot) {
            m_partOf[spot] = m_partOf[m_partOf[spot]];
            spot = m_partOf[spot];
        }
        return spot;
    };
    for (std::size_t i = 0; i < places.corners.size(); i += 3) {
        const std::uint32_t root = rootOf(places.spots[places.corners[i]]);
        for (const std::size_t k : {i + 1, i + 2}) {
            // To the lower one: a parent always comes before its children.
            const std::uint32_t other = rootOf(places.spots[places.corners[k]]);
            m_partOf[std::max(rootOf(root), other)] = std::min(rootOf(root), other);
        }
    }
    for (std::uint32_t spot = 0; spot < m_partOf.size(); ++spot) {
        if (m_partOf[spot] == spot) {
            m_partOf[spot] = static_cast<std::uint32_t>(m_parts.size());
            m_parts.push_back(
                {{kLargestSize, kLargestSize, kLargestSize}, {-kLargestSize, -kLargestSize, -kLargestSize}, 0.0f});
        } else {
            m_partOf[spot] = m_partOf[m_partOf[spot]];
        }
    }
    for (std::size_t i = 0; i < places.corners.size(); ++i) {
        Part& part = m_parts[of(places.corners[i])];
        const float* const p = places.position(places.corners[i]);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            part.low[axis] = std::min(part.low[axis], p[axis]);
            part.high[axis] = std::max(part.high[axis], p[axis]);
        }
        if (i % 3 == 2) {
            const KrFloat3 normal =
                faceNormal(places.position(places.corners[i - 2]), places.position(places.corners[i - 1]), p);
            part.area += 0.5f * std::sqrt(dot(normal.data(), normal.data()));
        }
    }
}

/// A level before its vertices are made.
struct Draft
{
    float error = 0.0f;                          ///< m
    float change = 0.0f;                         ///< of a picture
    Indices corners;                             ///< a place for each index, groups behind one another
    Indices survivors;                           ///< see KrLevelNormals
    std::vector<float> positions;                ///< three numbers for each index, m
    std::vector<KrLevelNormals::Corner> normals; ///< for each index
};

/// Points of level 0 on a draft.
struct Comparison
{
    std::vector<KrLevelSample> samples; ///< found on the same part of the surface
    std::vector<KrLevelSample> others;  ///< only something else is nearest
    std::vector<KrLevelSample> corners; ///< of level 0, which the draft does not have
    Indices opposites;                  ///< by triangle of the draft: one of level 0 that lies there, or kNone
};

/// How far a point of level 0 is from where it was found, m: no less than from the whole draft.
float distanceOf(const KrLevelSample& sample, const std::vector<float>& positions)
{
    const float* const corners = &positions[std::size_t{9} * sample.triangle];
    KrFloat3 out;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        out[axis] = sample.weights[0] * corners[axis] + sample.weights[1] * corners[3 + axis] +
                    sample.weights[2] * corners[6 + axis] - sample.position[axis];
    }
    return std::sqrt(dot(out.data(), out.data()));
}

float farthestOf(const std::vector<KrLevelSample>& samples, const std::vector<float>& positions)
{
    float farthest = 0.0f;
    for (const KrLevelSample& sample : samples) {
        farthest = std::max(farthest, distanceOf(sample, positions));
    }
    return farthest;
}

/// Of points at which a draft is compared with level 0.
std::size_t numSamples(const Draft& draft)
{
    const auto numNew = static_cast<std::size_t>(std::count(draft.survivors.begin(), draft.survivors.end(), kNone));
    return std::clamp(kSamplesPerTriangle * numNew, kFewestSamples, kMostSamples);
}

/// Makes the levels of a mesh, step by step.
class Levels
{
public:
    explicit Levels(const KrIndexedMesh& mesh)
        : m_mesh(mesh)
        , m_places(mesh)
    {
    }

    KrIndexedMesh run();

private:
    struct Face
    {
        KrFloat3 normal; ///< unit
        float area;      ///< m2
    };

    bool isWorthwhile() const;
    static Face faceOf(const float* a, const float* b, const float* c);
    void prepare();
    void simplify();
    /// What is left of level 0 on the way to a level.
    struct Step
    {
        Indices triangles;
        float estimate; ///< of the error, m
    };
    bool isFewer(std::size_t count, double kept) const;
    void add(Draft draft);
    void addBetween(const Step& from, const Draft& coarser);
    Step reduced(const Step& from, double kept) const;
    float reduce(Indices& triangles, double kept) const;
    void dropSmallParts(Indices& triangles, float error) const;
    Draft draft(const Step& step) const;
    void order(const Indices& triangles, Indices& corners) const;
    void findSurvivors(Draft& draft) const;
    float lostWidth(const Draft& draft, std::vector<bool>& isLost) const;
    Comparison compare(const Draft& draft, float estimate, const std::vector<bool>& isLost) const;
    float distanceFrom(const Draft& draft, const Indices& opposites, float estimate, float known) const;
    float changeBy(const Draft& draft) const;
    void finish();

    const KrIndexedMesh& m_mesh;
    KrMeshPlaces m_places;
    KrIndexedMesh m_result;
    std::vector<Face> m_faces; ///< of level 0
    std::optional<Parts> m_parts;
    std::unique_ptr<KrNearestSurface> m_surface; ///< of level 0
    std::unique_ptr<KrLevelPictures> m_pictures; ///< of level 0
    std::optional<KrLevelNormals> m_normals;
    Indices m_firstFrom; ///< by place, and one behind the last: in m_from
    Indices m_from;      ///< the triangles of level 0 by their first corner, each place's in their order
    std::vector<Draft> m_drafts;
};

KrIndexedMesh Levels::run()
{
    m_result = m_mesh;
    m_result.levels.resize(1);
    m_result.areLevelsMade = true;
    if (isWorthwhile()) {
        prepare();
        simplify();
        finish();
    }
    return std::move(m_result);
}

bool Levels::isWorthwhile() const
{
    if (m_places.corners.size() < 2 * 3 * kFewestTriangles ||
        KrTriangleOrder::isCrowded(m_places.corners.data(), m_places.corners.size(), m_places.groups.size())) {
        return false;
    }
    // Written so that NaN fails too.
    const auto isIn = [](float number) { return std::abs(number) < kLargestSize; };
    return std::all_of(m_places.positions.begin(), m_places.positions.end(), isIn) &&
           meshopt_simplifyScale(m_places.positions.data(), m_places.groups.size(), 3 * sizeof(float)) > kSmallestSize;
}

Levels::Face Levels::faceOf(const float* a, const float* b, const float* c)
{
    Face face;
    face.normal = faceNormal(a, b, c);
    face.area = 0.5f * normalize(face.normal);
    return face;
}

void Levels::prepare()
{
    const Indices& corners = m_places.corners;
    m_faces.resize(corners.size() / 3);
    m_firstFrom.resize(m_places.groups.size() + 1);
    m_from.resize(m_faces.size());
    std::vector<float> positions(3 * corners.size()), normals(positions.size());
    Indices groups(m_faces.size());
    for (std::size_t i = 0; i < corners.size(); ++i) {
        const float* const position = m_places.position(corners[i]);
        const float* const normal = &m_mesh.vertices[std::size_t{6} * m_places.vertices[i] + 3];
        for (unsigned int axis = 0; axis < 3; ++axis) {
            positions[3 * i + axis] = position[axis];
            normals[3 * i + axis] = normal[axis];
        }
    }
    for (std::size_t t = 0; t < m_faces.size(); ++t) {
        m_faces[t] = faceOf(&positions[9 * t], &positions[9 * t + 3], &positions[9 * t + 6]);
        groups[t] = m_places.groups[corners[3 * t]];
        ++m_firstFrom[corners[3 * t]];
    }
    // Counted, summed up to where each ends, and filled in from there down to where it begins.
    std::partial_sum(m_firstFrom.begin(), m_firstFrom.end(), m_firstFrom.begin());
    for (std::size_t t = m_faces.size(); t-- > 0;) {
        m_from[--m_firstFrom[corners[3 * t]]] = static_cast<std::uint32_t>(t);
    }
    m_parts.emplace(m_places);
    m_surface = std::make_unique<KrNearestSurface>(m_places.positions, corners);
    m_normals.emplace(m_mesh, m_places);
    m_pictures =
        std::make_unique<KrLevelPictures>(KrLevelPictures::Surface{positions, normals, groups}, m_mesh.isClosed);
}

// Each level from the one before: what that costs in precision is measured against level 0.
void Levels::simplify()
{
    const float limit =
        kMostError * meshopt_simplifyScale(m_places.positions.data(), m_places.groups.size(), 3 * sizeof(float));
    Indices triangles;
    for (std::size_t i = 0; i < m_places.corners.size(); i += 3) {
        const std::uint32_t* const corner = &m_places.corners[i];
        // Without an area nothing is seen of it.
        if (corner[0] != corner[1] && corner[1] != corner[2] && corner[2] != corner[0]) {
            triangles.insert(triangles.end(), corner, corner + 3);
        }
    }
    Step at = {std::move(triangles), 0.0f};
    while (at.triangles.size() > 3 * kFewestTriangles && m_drafts.size() + 3 < kMostLevels) {
        const bool isCoarse = !m_drafts.empty() && m_drafts.back().change > 2.0f * kUsualChange;
        Step next = reduced(at, isCoarse ? 0.25 : 0.5);
        if (next.estimate > limit || next.triangles.empty() || next.triangles.size() == at.triangles.size()) {
            break;
        }
        if (isFewer(next.triangles.size(), kMostKept)) {
            Draft coarser = draft(next);
            if (coarser.error > limit) {
                break;
            }
            if (coarser.change > kUsualChange && (m_drafts.empty() || m_drafts.back().change <= kUsualChange)) {
                addBetween(at, coarser);
            }
            add(std::move(coarser));
        }
        at = std::move(next);
    }
}

/// Whether so many indices are a share of `kept` of those of the level before, or less.
bool Levels::isFewer(std::size_t count, double kept) const
{
    const std::size_t before = m_drafts.empty() ? m_places.corners.size() : m_drafts.back().corners.size();
    return static_cast<double>(count) <= kept * static_cast<double>(before);
}

void Levels::add(Draft draft)
{
    // One that is no farther off serves better than the one before.
    if (!m_drafts.empty() && draft.error <= m_drafts.back().error && draft.change <= m_drafts.back().change) {
        m_drafts.pop_back();
    }
    m_drafts.push_back(std::move(draft));
}

/// A level that changes pictures by not much less than kUsualChange, where `coarser`, made from `from` as well, is
/// beyond that: a robot far away is mostly drawn with it.
void Levels::addBetween(const Step& from, const Draft& coarser)
{
    for (const double kept : {0.7, 0.85}) {
        const Step step = reduced(from, kept);
        if (!isFewer(step.triangles.size(), kMostKeptBetween) || step.triangles.size() <= coarser.corners.size()) {
            continue;
        }
        Draft between = draft(step);
        if (between.change <= kUsualChange && between.error <= coarser.error) {
            add(std::move(between));
            return;
        }
    }
}

Levels::Step Levels::reduced(const Step& from, double kept) const
{
    Step result = from;
    result.estimate += reduce(result.triangles, kept);
    dropSmallParts(result.triangles, result.estimate);
    return result;
}

/// Leaves about `kept` of the triangles, or as few as their connections allow.
/// @return how far the surface has moved, m: a mean, which single spots exceed
float Levels::reduce(Indices& triangles, double kept) const
{
    // Over the places in use only: the time is that of what is left.
    Indices remap(m_places.groups.size());
    const std::size_t count =
        meshopt_optimizeVertexFetchRemap(remap.data(), triangles.data(), triangles.size(), remap.size());
    std::vector<float> positions(3 * count);
    Indices places(count);
    for (std::uint32_t place = 0; place < remap.size(); ++place) {
        if (remap[place] != kNone) {
            places[remap[place]] = place;
            std::copy_n(m_places.position(place), 3, &positions[std::size_t{3} * remap[place]]);
        }
    }
    meshopt_remapIndexBuffer(triangles.data(), triangles.data(), triangles.size(), remap.data());
    Indices fewer(triangles.size());
    const std::size_t numTriangles = triangles.size() / 3;
    const std::size_t target = 3 * static_cast<std::size_t>(kept * static_cast<double>(numTriangles));
    float error = 0.0f;
    fewer.resize(meshopt_simplify(fewer.data(), triangles.data(), triangles.size(), positions.data(), count,
                                  3 * sizeof(float), target, std::numeric_limits<float>::max(), 0, &error));
    std::transform(fewer.begin(), fewer.end(), fewer.begin(), [&places](std::uint32_t index) { return places[index]; });
    triangles = std::move(fewer);
    return error * meshopt_simplifyScale(positions.data(), count, 3 * sizeof(float));
}

/// A simplification keeps every body, be it as a speck.
void Levels::dropSmallParts(Indices& triangles, float error) const
{
    std::size_t kept = 0;
    for (std::size_t i = 0; i < triangles.size(); i += 3) {
        if (m_parts->diagonal(m_parts->of(triangles[i])) >= error) {
            std::copy_n(triangles.begin() + static_cast<std::ptrdiff_t>(i), 3,
                        triangles.begin() + static_cast<std::ptrdiff_t>(kept));
            kept += 3;
        }
    }
    triangles.resize(kept);
}

Draft Levels::draft(const Step& step) const
{
    const float estimate = step.estimate;
    Draft result;
    order(step.triangles, result.corners);
    findSurvivors(result);
    std::vector<bool> isLost(m_parts->size(), true);
    const float width = lostWidth(result, isLost);
    const Comparison comparison = compare(result, estimate, isLost);
    result.positions = KrLevelPositions::fitted(m_places, result.corners, result.survivors, comparison.samples);
    result.normals = m_normals->fitted(result.corners, result.survivors, comparison.samples);
    const float error = std::max({width, farthestOf(comparison.samples, result.positions),
                                  farthestOf(comparison.others, result.positions),
                                  farthestOf(comparison.corners, result.positions) / kCornerReach});
    result.error = distanceFrom(result, comparison.opposites, estimate, error);
    result.change = changeBy(result);
    return result;
}

// By groups, and as a vertex cache likes them.
void Levels::order(const Indices& triangles, Indices& corners) const
{
    Indices ends(m_mesh.levels[0].groups.size() + 1);
    for (std::size_t i = 0; i < triangles.size(); i += 3) {
        ends[m_places.groups[triangles[i]] + 1] += 3;
    }
    std::partial_sum(ends.begin(), ends.end(), ends.begin());
    corners.resize(triangles.size());
    for (std::size_t i = 0; i < triangles.size(); i += 3) {
        std::uint32_t& end = ends[m_places.groups[triangles[i]]];
        std::copy_n(&triangles[i], 3, &corners[end]);
        end += 3;
    }
    Indices spots(corners.size());
    std::transform(corners.begin(), corners.end(), spots.begin(),
                   [this](std::uint32_t place) { return m_places.spots[place]; });
    std::uint32_t begin = 0;
    // Now each ends where the next one began.
    for (const std::uint32_t end : ends) {
        KrTriangleOrder::optimize(corners.data() + begin, spots.data() + begin, end - begin);
        begin = end;
    }
}

void Levels::findSurvivors(Draft& draft) const
{
    draft.survivors.reserve(draft.corners.size() / 3);
    for (std::size_t i = 0; i < draft.corners.size(); i += 3) {
        const std::uint32_t* const corner = &draft.corners[i];
        const auto begin = m_from.begin() + m_firstFrom[corner[0]], end = m_from.begin() + m_firstFrom[corner[0] + 1];
        const auto at = std::find_if(begin, end, [this, corner](std::uint32_t triangle) {
            const std::uint32_t* const known = &m_places.corners[std::size_t{3} * triangle];
            return known[1] == corner[1] && known[2] == corner[2];
        });
        draft.survivors.push_back(at != end ? *at : kNone);
    }
}

/// The widest part of which nothing is left, m.
/// @param isLost  by part, all true at first
float Levels::lostWidth(const Draft& draft, std::vector<bool>& isLost) const
{
    for (const std::uint32_t place : draft.corners) {
        isLost[m_parts->of(place)] = false;
    }
    float width = 0.0f;
    for (std::uint32_t part = 0; part < isLost.size(); ++part) {
        if (isLost[part] && m_parts->diagonal(part) > 0.0f) {
            width = std::max(width, m_parts->width(part));
        }
    }
    return width;
}

/// Finds points of level 0 on the draft.
/// @param isLost  by part: nothing is left of it in the draft
Comparison Levels::compare(const Draft& draft, float estimate, const std::vector<bool>& isLost) const
{
    // What is still there lies where it was.
    std::vector<std::uint8_t> isThere(m_faces.size());
    std::vector<std::uint8_t> isInUse(m_places.groups.size());
    double area = 0.0;
    for (std::size_t t = 0; t < draft.survivors.size(); ++t) {
        if (draft.survivors[t] != kNone) {
            isThere[draft.survivors[t]] = 1;
        }
    }
    for (const std::uint32_t place : draft.corners) {
        isInUse[place] = 1;
    }
    for (std::size_t t = 0; t < m_faces.size(); ++t) {
        isThere[t] |= isLost[m_parts->of(m_places.corners[3 * t])] ? 1 : 0;
        area += isThere[t] != 0 ? 0.0 : m_faces[t].area;
    }

    Spread spread(numSamples(draft), area);
    KrNearestSurface surface(m_places.positions, draft.corners);
    Comparison result;
    result.samples.reserve(numSamples(draft) + 1);
    result.opposites.assign(draft.survivors.size(), kNone);
    std::vector<float> largestWeights(draft.survivors.size(), 1.0f);
    // Of what is sampled. Corners that are no farther off add nothing to the error.
    float farthest = 0.0f;
    const auto look = [&](const KrNearestSurface::Point& point, const KrFloat3& normal, float plenty,
                          std::vector<KrLevelSample>& same, std::vector<KrLevelSample>& others) {
        KrNearestSurface::Hit hit;
        // Where it is not the same spot of the surface, it is only what is nearest.
        const bool isSame =
            surface.find(point, kSearchRadius * estimate, std::max(kNearEnough * estimate, plenty), plenty, hit);
        if (isSame || surface.findAny(point.position, hit)) {
            farthest = std::max(farthest, &same == &others ? 0.0f : hit.distance);
            (isSame ? same : others)
                .push_back({{point.position[0], point.position[1], point.position[2]},
                            {point.normal[0], point.normal[1], point.normal[2]},
                            normal,
                            static_cast<std::uint32_t>(hit.triangle),
                            {hit.weights[0], hit.weights[1], hit.weights[2]}});
        }
    };
    for (std::size_t t = 0; t < m_faces.size(); ++t) {
        if (isThere[t] != 0) {
            continue;
        }
        const std::uint32_t* const corners = &m_places.corners[3 * t];
        KrNearestSurface::Point point;
        bool isStarted = false;
        const auto start = [&] {
            for (unsigned int k = 0; !isStarted && k < 3; ++k) {
                surface.startAt(corners[k]);
                point.normal[k] = m_faces[t].normal[k];
            }
            isStarted = true;
        };
        for (unsigned int k = 0; k < 3; ++k) {
            // Each place once.
            if (isInUse[corners[k]] == 0) {
                isInUse[corners[k]] = 1;
                start();
                for (unsigned int axis = 0; axis < 3; ++axis) {
                    point.position[axis] = m_places.position(corners[k])[axis];
                }
                look(point, {}, farthest, result.corners, result.corners);
            }
        }
        spread.visit(m_faces[t].area, [&](const std::array<float, 3>& weights) {
            start();
            KrFloat3 normal = {};
            for (unsigned int k = 0; k < 3; ++k) {
                const float* const position = m_places.position(corners[k]);
                const float* const shading = &m_mesh.vertices[std::size_t{6} * m_places.vertices[3 * t + k] + 3];
                for (unsigned int axis = 0; axis < 3; ++axis) {
                    point.position[axis] = (k == 0 ? 0.0f : point.position[axis]) + weights[k] * position[axis];
                    normal[axis] += weights[k] * shading[axis];
                }
            }
            normalize(normal);
            const std::size_t count = result.samples.size();
            look(point, normal, 0.0f, result.samples, result.others);
            if (result.samples.size() > count) {
                // The nearer to the middle, the more even the weights.
                const KrLevelSample& sample = result.samples.back();
                const float largest = std::max({sample.weights[0], sample.weights[1], sample.weights[2]});
                if (largest < largestWeights[sample.triangle]) {
                    largestWeights[sample.triangle] = largest;
                    result.opposites[sample.triangle] = static_cast<std::uint32_t>(t);
                }
            }
        });
    }
    return result;
}

/// How far the draft lies from level 0, m.
/// @param opposites  of the comparison: searches begin there
/// @param known      m; nearer points need not be looked at
/// @return `known` or more
float Levels::distanceFrom(const Draft& draft, const Indices& opposites, float estimate, float known) const
{
    std::vector<Face> faces;
    faces.reserve(draft.survivors.size());
    double area = 0.0;
    for (std::size_t t = 0; t < draft.survivors.size(); ++t) {
        const float* const corners = &draft.positions[9 * t];
        faces.push_back(faceOf(corners, corners + 3, corners + 6));
        area += draft.survivors[t] == kNone ? faces.back().area : 0.0;
    }
    Spread spread(numSamples(draft) / kFewerOnDraft, area);
    KrNearestSurface::Hit hit;
    float farthest = known;
    const std::size_t step = 1 + faces.size() / kMiddles;
    std::size_t number = 0;
    for (std::size_t t = 0; t < faces.size(); ++t) {
        if (draft.survivors[t] != kNone) {
            continue;
        }
        const float* const corners = &draft.positions[9 * t];
        m_surface->startAt(draft.corners[3 * t]);
        if (opposites[t] != kNone) {
            m_surface->startAtTriangle(opposites[t]);
        }
        KrNearestSurface::Point point;
        std::copy_n(faces[t].normal.data(), 3, point.normal);
        const auto look = [&](const std::array<float, 3>& weights) {
            for (unsigned int axis = 0; axis < 3; ++axis) {
                point.position[axis] =
                    weights[0] * corners[axis] + weights[1] * corners[3 + axis] + weights[2] * corners[6 + axis];
            }
            // Where it is not the same spot of the surface, it is only what is nearest.
            if (m_surface->find(point, kSearchRadius * estimate, std::max(farthest, kNearEnough * estimate), farthest,
                                hit) ||
                m_surface->findAny(point.position, hit)) {
                farthest = std::max(farthest, hit.distance);
            }
        };
        if (number++ % step == 0) {
            look({1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f});
        }
        spread.visit(faces[t].area, look);
    }
    return farthest;
}

/// What a picture shows otherwise with the draft.
float Levels::changeBy(const Draft& draft) const
{
    std::vector<float> normals(draft.positions.size());
    Indices groups(draft.corners.size() / 3);
    for (std::size_t i = 0; i < draft.corners.size(); ++i) {
        for (unsigned int axis = 0; axis < 3; ++axis) {
            normals[3 * i + axis] = draft.normals[i].normal[axis];
        }
    }
    for (std::size_t t = 0; t < groups.size(); ++t) {
        groups[t] = m_places.groups[draft.corners[3 * t]];
    }
    // What changes several times as much as usual need not be told as exactly: it is a share of far more points.
    return m_pictures->changed({draft.positions, normals, groups}, 3.0f * kUsualChange);
}

// When it is known which drafts stay: only these leave vertices behind.
void Levels::finish()
{
    for (const Draft& draft : m_drafts) {
        KrIndexedMesh::Level level;
        level.error = std::max(draft.error, m_result.levels.back().error);
        level.change = std::max(draft.change, m_result.levels.back().change);
        auto end = static_cast<std::uint32_t>(m_result.indices.size());
        std::size_t next = 0;
        for (std::uint32_t group = 0; group < m_mesh.levels[0].groups.size(); ++group) {
            KrIndexedMesh::Range range = {end, 0};
            for (; next < draft.corners.size() && m_places.groups[draft.corners[next]] == group; ++next) {
                ++range.count;
            }
            end += range.count;
            level.groups.push_back(range);
        }
        const Indices vertices =
            m_normals->vertices(draft.corners, draft.survivors, draft.positions, draft.normals, m_result);
        m_result.indices.insert(m_result.indices.end(), vertices.begin(), vertices.end());
        m_result.levels.push_back(std::move(level));
    }
}

} // namespace

KrIndexedMesh KrMeshLevels::make(const KrIndexedMesh& mesh)
{
    return Levels(mesh).run();
}
