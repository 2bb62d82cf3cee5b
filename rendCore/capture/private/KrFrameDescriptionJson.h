#pragma once

#include <string>

struct KrFrameDescription;

/// The form in which a frame description is stored: JSON. For use inside the library.
namespace KrFrameDescriptionJson
{

/// One object, several lines, UTF-8; every number is exact.
std::string text(const KrFrameDescription& frame);

/// Reads what `text` wrote. What other programs leave out (all but the picture's size and the camera's view) stays as
/// it is in `out`.
/// @param json  trusted in nothing but its length, which the caller limits
/// @return null, or what is wrong, as the end of a sentence; `out` is then of no use
const char* parse(const std::string& json, KrFrameDescription& out);

} // namespace KrFrameDescriptionJson
