#pragma once

#include <rendCore/model/KrLabelTable.h>

#include <cstdint>
#include <vector>

class KrIndividualManipulator;

/// The labels of one manipulator's parts at every level; the scene's side of KrLabelTable. For use inside the library.
class KrPartNumbers
{
public:
    /// Where the labels of the next manipulator begin.
    struct Next
    {
        std::uint32_t manipulator = 1;
        std::uint32_t link = 1;
        std::uint32_t shape = 1;
    };

    /// Has labels of 0 for everything.
    KrPartNumbers() = default;
    /// @param next  moved on behind this manipulator's
    KrPartNumbers(const KrIndividualManipulator& manipulator, Next& next);

    /// @param linkIndex   as in KrLabelTable::Part
    /// @param shapeIndex  among the link's; only looked at for shapes
    /// @return 0 for what is no part
    std::uint32_t label(KrLabelTable::Level level, std::size_t linkIndex, std::size_t shapeIndex) const;

private:
    std::uint32_t m_manipulator = 0;
    std::uint32_t m_firstLink = 0;
    std::vector<std::uint32_t> m_firstShapes; ///< of each link, and behind the last one
};
