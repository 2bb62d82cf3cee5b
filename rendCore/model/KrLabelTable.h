#pragma once

#include <cstdint>
#include <string>
#include <vector>

class KrManipulatorSystem;

/// The labels of a system's parts: numbers that pictures of labels have at the pixels of each.
///
/// They count from 1 on, depth first over the manipulators: a manipulator's base link, its other links in the order of
/// joint indices, then the bodies between its links; the shapes of a link as the link lists them, those that cannot be
/// drawn included. So they depend on the system alone. 0 is for what is no part.
class KrLabelTable
{
public:
    /// What counts as a part.
    enum class Level : std::uint8_t
    {
        Manipulator,
        Link,
        Shape
    };

    struct Part
    {
        std::string manipulator;
        std::string link; ///< "START - END" for a body between two links; empty for a manipulator as a whole
        unsigned int manipulatorIndex = 0; ///< in the system
        unsigned int linkIndex = 0;        ///< 0: the base; 1 + j: joint index j; behind those the bodies between links
        unsigned int shapeIndex = 0;       ///< among the link's; 0 for a part that is no shape
    };

    /// Has no parts.
    KrLabelTable() = default;
    /// The parts of `system`, which is read during the call only.
    KrLabelTable(const KrManipulatorSystem& system, Level level);

    /// What the parts are.
    Level level() const { return m_level; }
    /// The number of parts: their labels are 1 to size().
    std::uint32_t size() const { return static_cast<std::uint32_t>(m_parts.size()); }
    /// @param label  from 1 to size(), not checked
    const Part& part(std::uint32_t label) const { return m_parts[label - 1]; }

private:
    Level m_level = Level::Link;
    std::vector<Part> m_parts;
};
