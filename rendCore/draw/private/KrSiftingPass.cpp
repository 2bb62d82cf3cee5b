#include <rendCore/draw/private/KrSiftingPass.h>

#include <toolkit/foundation/private/KrParallel.h>

#include <algorithm>
#include <new>
#include <numeric>
#include <utility>

namespace
{

/// Of the triangles of a sieve: with more of them left, it is drawn as a whole.
constexpr double kMostSeen = 0.9;
/// Sights of all lanes, 8 MiB: with so many, the rest is looked through when it is drawn.
constexpr std::size_t kMostKept = 524288;
/// What a core is worth waking up for: a millisecond's work, where that takes a twentieth of one.
constexpr std::size_t kFewestTriangles = 262144;
/// Each has the depths of a picture of its own.
constexpr std::size_t kMostLanes = 4;

} // namespace

KrSiftingPass::KrSiftingPass()
{
    m_lanes.push_back(std::make_unique<Lane>());
}

void KrSiftingPass::begin(std::uint32_t width, std::uint32_t height)
{
    ++m_number;
    m_views.clear();
    m_tasks.clear();
    m_numTriangles = 0;
    m_width = width;
    m_height = height;
    m_lanes.front()->sights.truncate(0);
    m_lanes.front()->nearest.begin(width, height);
}

void KrSiftingPass::add(const KrTriangleSieve::View& view, const std::vector<KrTriangleSieve>& sieves)
{
    for (const KrTriangleSieve& sieve : sieves) {
        Task task;
        task.sieve = &sieve;
        task.view = m_views.size();
        task.distance = sieve.distance(view);
        m_tasks.push_back(task);
        m_numTriangles += sieve.numTriangles();
    }
    m_views.push_back(view);
}

void KrSiftingPass::run()
{
    const std::size_t numLanes =
        std::max<std::size_t>(1, std::min({KrParallel::numCores(), m_numTriangles / kFewestTriangles, kMostLanes}));
    while (m_lanes.size() < numLanes) {
        m_lanes.push_back(std::make_unique<Lane>());
    }
    for (std::size_t lane = 1; lane < numLanes; ++lane) {
        m_lanes[lane]->sights.truncate(0);
        m_lanes[lane]->nearest.begin(m_width, m_height);
    }
    // The nearest first: most of what others hide is not kept at all then.
    m_order.resize(m_tasks.size());
    std::iota(m_order.begin(), m_order.end(), std::size_t{0});
    std::sort(m_order.begin(), m_order.end(), [this](std::size_t a, std::size_t b) {
        return std::make_pair(m_tasks[a].distance, a) < std::make_pair(m_tasks[b].distance, b);
    });
    m_next = 0;
    if (numLanes == 1) {
        work(0, kMostKept);
        return;
    }
    KrParallel::forEach(numLanes, numLanes, [this, numLanes](std::size_t lane) { work(lane, kMostKept / numLanes); });
    for (std::size_t lane = 1; lane < numLanes; ++lane) {
        nearest().add(m_lanes[lane]->nearest);
    }
}

/// Takes tasks until there are no more, or the lane has much to keep.
void KrSiftingPass::work(std::size_t lane, std::size_t mostKept) noexcept
{
    KrTriangleSieve::View view;
    try {
        while (m_lanes[lane]->sights.size() < mostKept) {
            const std::size_t next = m_next++;
            if (next >= m_tasks.size()) {
                return;
            }
            Task& task = m_tasks[m_order[next]];
            view = m_views[task.view];
            task.lane = lane;
            look(task, view, *m_lanes[lane]);
        }
    } catch (const std::bad_alloc&) {
        // What has not been looked through is when it is drawn.
    }
}

void KrSiftingPass::look(Task& task, const KrTriangleSieve::View& view, Lane& lane)
{
    KrTriangleSieve::View ours = view;
    ours.nearest = view.nearest != nullptr ? &lane.nearest : nullptr;
    task.begin = lane.sights.size();
    const std::size_t numSeen = task.sieve->find(ours, lane.sights);
    task.isWhole = static_cast<double>(numSeen) > kMostSeen * static_cast<double>(task.sieve->numTriangles());
    if (task.isWhole) {
        lane.sights.truncate(task.begin);
    }
    task.end = lane.sights.size();
    task.isDone = true;
}

KrSiftingPass::Seen KrSiftingPass::seen(std::size_t number, const KrTriangleSieve& sieve,
                                        const KrTriangleSieve::View& view)
{
    Task now;
    const Task* task = number < m_tasks.size() ? &m_tasks[number] : &now;
    Lane* lane = m_lanes[task->lane].get();
    if (!task->isDone) {
        lane = m_lanes.front().get();
        const std::size_t numKept = lane->sights.size();
        now.sieve = &sieve;
        look(now, view, *lane);
        // Not kept: the next one is written over it.
        lane->sights.truncate(numKept);
        task = &now;
    }
    const KrTriangleSieve::Sight* const sights = lane->sights.data();
    return {task->isWhole, sights + task->begin, sights + task->end};
}
