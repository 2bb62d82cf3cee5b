#pragma once

#include <string>
#include <string_view>

/// Looks at the text of a COLLADA file before the mesh library does, which trusts what it reads.
class KrColladaText
{
public:
    /// Looks for damage that would cost all memory or the process: counts, strides and offsets that are no numbers or
    /// reach beyond their arrays, and lists with something else than indices in them.
    ///
    /// @param why  on refusal one clause
    static bool check(std::string_view content, std::string& why);

    /// Takes out what would move a mesh: animations, and skins, whose instances become instances of the mesh that they
    /// would bend. False, and no change, when there is nothing like that.
    static bool dropMotion(std::string& content);
    /// Gives what several geometries call by one name names of its own: some exporters number from 0 in each of them.
    /// @return whether anything was changed
    static bool separateIds(std::string& content);
    /// "Z_UP" and the like; empty where the file tells none.
    static std::string upAxis(std::string_view content);
};
