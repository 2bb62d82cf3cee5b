#pragma once

#include <toolkit/system/KrManipulatorLink.h>

#include <boost/container/small_vector.hpp>

/// Visits the links under a link in depth-first pre-order: the order of the joint indices. Without recursion, and
/// without memory of its own for trees that are not deep. The tree does not change meanwhile.
///
/// @code
///     KrLinkWalk walk(manipulator);
///     while (const KrManipulatorLink* link = walk.next()) { ... }
/// @endcode
class KrLinkWalk
{
public:
    /// The parent of the links right under the root.
    static constexpr int kRoot = -1;

    /// A link on the way from the root to the current one.
    struct Step
    {
        const KrXmlVectorType<KrManipulatorLink>* siblings = nullptr;
        unsigned int place = 0; ///< among them
        int index = kRoot;
        const KrManipulatorLink& link() const { return (*siblings)[place]; }
    };
    using Path = boost::container::small_vector<Step, 32>;

    explicit KrLinkWalk(const KrManipulatorLink& root)
        : m_root(&root)
    {
    }

    /// Null after the last one.
    const KrManipulatorLink* next();
    /// Of the link that next() gave last.
    int index() const { return m_path.back().index; }
    int parent() const { return m_path.size() < 2 ? kRoot : m_path[m_path.size() - 2].index; }
    /// From the one right under the root to the link that next() gave last.
    const Path& path() const { return m_path; }

private:
    const KrManipulatorLink* m_root; ///< null once the walk has begun
    Path m_path;
    int m_next = 0;
};
