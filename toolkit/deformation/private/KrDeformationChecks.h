#pragma once

#include <toolkit/deformation/KrDeformationGroup.h>
#include <toolkit/math/KrVector.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

/// What the sources of KrDeformationPhysicalExtent ask of their arguments. For use inside the library.
namespace KrDeformationChecks
{

/// One message: what `method` refuses, and that nothing is changed.
void warn(const char* method, const std::string& reason);

bool areFinite(const std::vector<KrVector>& vectors);

/// At least 1: the highest number of a piece and one.
template <typename Groups>
std::uint64_t numPiecesOf(const Groups& groups)
{
    std::uint64_t number = 1;
    for (const KrDeformationGroup& group : groups) {
        number = std::max(number, std::uint64_t(group.piece()) + 1);
    }
    return number;
}

} // namespace KrDeformationChecks
