#include <dataset/formats/private/KrPartModel.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrIndexedMesh.h>
#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/system/private/KrLinkWalk.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace
{

constexpr double kMillimetres = 1000.0; // of a metre
constexpr std::size_t kVertex = 6;      // numbers of a vertex
constexpr std::size_t kChunk = std::size_t{1} << 20;

using Point = std::array<double, 3>;

double distance(const Point& a, const Point& b)
{
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

/// The part's link in its manipulator; null for none. The base is one, too.
const KrManipulatorLink* findLink(const KrIndividualManipulator& manipulator, unsigned int linkIndex)
{
    if (linkIndex == 0) {
        return &manipulator;
    }
    KrLinkWalk walk(manipulator);
    while (const KrManipulatorLink* link = walk.next()) {
        if (walk.index() + 1 == static_cast<int>(linkIndex)) {
            return link;
        }
    }
    return nullptr;
}

/// Whether the part is one of several shapes of its link; the only one of a link is all of it.
bool isOneOfSeveral(const KrDatasetInfo& info, const KrDatasetPart& part)
{
    return std::any_of(info.parts.begin(), info.parts.end(), [&](const KrDatasetPart& other) {
        return other.label != part.label && other.manipulatorIndex == part.manipulatorIndex &&
               other.linkIndex == part.linkIndex;
    });
}

const KrIndividualManipulator& manipulatorOf(const KrDatasetInfo& info, const KrDatasetPart& part)
{
    return info.system->manipulatorSystem().manipulators()[part.manipulatorIndex];
}

/// The surface in the DH frame; null where there is none.
boost::shared_ptr<const KrTriPhysicalExtent> surfaceOf(const KrBasePhysicalExtent& extent)
{
    const auto* const bending = dynamic_cast<const KrDeformationPhysicalExtent*>(&extent);
    if (bending == nullptr) {
        return extent.triExtent();
    }
    // As it is now it may still be bent by the state that was drawn last.
    KrDeformationPhysicalExtent rest(*bending);
    for (unsigned int i = 0; i < rest.numPoses(); ++i) {
        if (!rest.pose(i).joint().empty()) {
            rest.setWeight(i, 0.0);
        }
    }
    return rest.triExtent();
}

/// The shortest text that reads back as the same value, whatever the locale.
void append(std::string& text, float value, char end)
{
    char digits[32];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    text += end;
}

} // namespace

bool KrPartModel::isRigid(const KrDatasetInfo& info, const KrDatasetPart& part)
{
    return !part.link.empty() || manipulatorOf(info, part).childLinks().empty();
}

KrPartModel::KrPartModel(const KrDatasetInfo& info, const KrDatasetPart& part)
{
    const KrIndividualManipulator& manipulator = manipulatorOf(info, part);
    const KrManipulatorLink* const link = findLink(manipulator, part.linkIndex);
    if (link == nullptr) {
        return;
    }
    const bool isOne = isOneOfSeveral(info, part);
    for (unsigned int i = 0; i < link->numShapes(); ++i) {
        const KrShape* const shape = link->shape(i);
        const bool isWanted =
            shape != nullptr && shape->physicalExtent() != nullptr && (!isOne || i == part.shapeIndex);
        const auto surface = isWanted ? surfaceOf(*shape->physicalExtent()) : nullptr;
        if (surface) {
            // Shapes stand in the DH frame.
            add(*surface->transformed(part.linkIndex == 0 ? manipulator.baseDhFrame()
                                                          : link->jointKinematics().dhFrame()));
        }
    }
    for (std::size_t axis = 0; axis < 3 && !isEmpty(); ++axis) {
        m_low[axis] = m_high[axis] = m_vertices[axis];
        for (std::size_t k = axis; k < m_vertices.size(); k += kVertex) {
            m_low[axis] = std::min(m_low[axis], m_vertices[k]);
            m_high[axis] = std::max(m_high[axis], m_vertices[k]);
        }
    }
}

void KrPartModel::add(const KrTriPhysicalExtent& surface)
{
    const auto mesh = surface.indexedMesh();
    const auto first = static_cast<std::uint32_t>(m_vertices.size() / kVertex);
    std::uint32_t numUsed = 0;
    // The finest level has every triangle, and the first vertices.
    for (const KrIndexedMesh::Range& range : mesh->levels.front().groups) {
        for (std::size_t k = range.first; k < std::size_t{range.first} + range.count; ++k) {
            m_indices.push_back(first + mesh->indices[k]);
            numUsed = std::max(numUsed, mesh->indices[k] + 1);
        }
    }
    for (std::size_t k = 0; k < numUsed * kVertex; ++k) {
        const bool isPosition = k % kVertex < 3;
        m_vertices.push_back(static_cast<float>(mesh->vertices[k] * (isPosition ? kMillimetres : 1.0)));
    }
}

std::array<double, 3> KrPartModel::size() const
{
    std::array<double, 3> result = {};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        result[axis] = double{m_high[axis]} - m_low[axis];
    }
    return result;
}

double KrPartModel::diameter() const
{
    // From the middle outwards in: two points are no farther apart than their distances from the middle together, which
    // leaves few pairs to look at.
    Point middle = {};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        middle[axis] = 0.5 * (double{m_low[axis]} + m_high[axis]);
    }
    std::vector<std::pair<double, Point>> points;
    points.reserve(m_vertices.size() / kVertex);
    for (std::size_t k = 0; k < m_vertices.size(); k += kVertex) {
        const Point point = {m_vertices[k], m_vertices[k + 1], m_vertices[k + 2]};
        points.emplace_back(distance(point, middle), point);
    }
    std::sort(points.begin(), points.end(), std::greater<>());
    points.erase(std::unique(points.begin(), points.end()), points.end());

    double longest = 0.0;
    // A way that is long already, found by going to the farthest point a few times, makes the bound a sharp one.
    Point from = points.empty() ? middle : points.front().second;
    constexpr int kWays = 4;
    for (int i = 0; i < kWays; ++i) {
        const Point* farthest = &from;
        for (const auto& [radius, point] : points) {
            farthest = distance(from, point) > distance(from, *farthest) ? &point : farthest;
        }
        longest = std::max(longest, distance(from, *farthest));
        from = *farthest;
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        for (std::size_t j = i + 1; j < points.size() && points[i].first + points[j].first > longest; ++j) {
            longest = std::max(longest, distance(points[i].second, points[j].second));
        }
    }
    return longest;
}

bool KrPartModel::writePly(KrFileReplacement& file) const
{
    std::string text = "ply\nformat ascii 1.0\ncomment millimetres, frame of the link\nelement vertex " +
                       std::to_string(m_vertices.size() / kVertex) + "\n";
    for (const char* name : {"x", "y", "z", "nx", "ny", "nz"}) {
        text += std::string("property float ") + name + "\n";
    }
    text += "element face " + std::to_string(m_indices.size() / 3) +
            "\nproperty list uchar int vertex_indices\nend_header\n";
    // A model of a million triangles is a text of a hundred megabytes.
    const auto flush = [&](std::size_t most) {
        const bool isDone = text.size() <= most || file.write(text.data(), text.size());
        text.resize(text.size() <= most ? text.size() : 0);
        return isDone;
    };
    bool isGood = true;
    for (std::size_t k = 0; isGood && k < m_vertices.size(); ++k) {
        append(text, m_vertices[k], k % kVertex + 1 < kVertex ? ' ' : '\n');
        isGood = flush(kChunk);
    }
    for (std::size_t k = 0; isGood && k < m_indices.size(); k += 3) {
        text += "3 " + std::to_string(m_indices[k]) + " " + std::to_string(m_indices[k + 1]) + " " +
                std::to_string(m_indices[k + 2]) + "\n";
        isGood = flush(kChunk);
    }
    return isGood && flush(0);
}
