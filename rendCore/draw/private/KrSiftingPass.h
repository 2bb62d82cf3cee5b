#pragma once

#include <rendCore/draw/private/KrTriangleSieve.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// Looks through all that is going to be drawn in one part of a picture, with nothing else between it, before any of it
/// is: what hides something may come last. Long work is shared out among the cores.
///
/// Scene thread only; memory is kept for the next pass.
class KrSiftingPass
{
public:
    /// Three a triangle. With fewer of them a driver does better to begin at once: one robot hides little of itself.
    static constexpr std::size_t kFewestIndices = std::size_t{3} << 19;

    /// What is left of a sieve's triangles.
    struct Seen
    {
        bool isWhole = false; ///< all of them
        const KrTriangleSieve::Sight* begin = nullptr;
        const KrTriangleSieve::Sight* end = nullptr;
    };

    KrSiftingPass();

    /// Forgets everything.
    ///
    /// @param width  of the picture, which has KrNearestDepths::kMostPixels at the most
    void begin(std::uint32_t width, std::uint32_t height);
    /// Of the pass at hand; 0 before the first one.
    std::uint64_t number() const { return m_number; }
    /// For `View`, and to copy what is seen after `run`: triangles behind others are left out. Borrowed.
    KrNearestDepths& nearest() { return m_lanes.front()->nearest; }
    /// Adds what is to be looked through from one view. Borrowed until the pass is over.
    void add(const KrTriangleSieve::View& view, const std::vector<KrTriangleSieve>& sieves);
    /// How many sieves have been added.
    std::size_t numAdded() const { return m_tasks.size(); }
    /// Looks through what was added.
    void run();
    /// What is left of a sieve. It is looked through now where `run` has not done it, since there is too much to keep.
    ///
    /// @param number  of the sieve, as they were added; `numAdded()` or more for one that was not
    /// @return good until the next call
    Seen seen(std::size_t number, const KrTriangleSieve& sieve, const KrTriangleSieve::View& view);

private:
    struct Task
    {
        const KrTriangleSieve* sieve = nullptr;
        std::size_t view = 0;
        double distance = 0.0; ///< from the eye, m
        bool isDone = false;
        bool isWhole = false;
        std::size_t lane = 0;
        std::size_t begin = 0; ///< of its sights, in the lane
        std::size_t end = 0;
    };
    /// What one core works with.
    struct Lane
    {
        KrTriangleSieve::Sights sights;
        KrNearestDepths nearest;
    };

    void look(Task& task, const KrTriangleSieve::View& view, Lane& lane);
    void work(std::size_t lane, std::size_t mostKept) noexcept;

    std::vector<KrTriangleSieve::View> m_views;
    std::vector<Task> m_tasks;
    std::vector<std::size_t> m_order; ///< in which tasks are done
    std::size_t m_numTriangles = 0;
    std::uint32_t m_width = 0; ///< of the picture
    std::uint32_t m_height = 0;
    std::vector<std::unique_ptr<Lane>> m_lanes; ///< one at least
    std::atomic<std::size_t> m_next{0};         ///< of the order
    std::uint64_t m_number = 0;
};
