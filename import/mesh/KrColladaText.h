#pragma once

#include <string>

/// COLLADA (DAE) files, made such that the mesh library can read them without harm: it trusts what it reads.
///
/// The library sees what has been looked at, to the letter. A plain file (see KrPlainXml) is handed on as it stands,
/// without its comments; one that has more of XML in it is read without entities and written anew: sections,
/// instructions and another encoding are gone then.
class KrColladaText
{
public:
    struct Mesh
    {
        std::string text;       ///< UTF-8
        std::string upAxis;     ///< "Z_UP" and the like; empty where the file tells none
        bool isForeign = false; ///< it was no UTF-8, though it says so or nothing; it is read as Latin-1
    };

    /// Animations are left out, and skins, whose instances become instances of the mesh that they would bend. What
    /// several geometries call by one name gets names of its own.
    ///
    /// @param content  the whole file; used up
    /// @param why      on refusal one clause
    /// @return false for what is no XML, and for damage that would cost all memory or the process: counts, strides and
    ///         offsets that are no numbers or reach beyond their arrays, lists with something else than indices in
    ///         them, elements nested too deep, nodes that place themselves
    static bool clean(std::string&& content, Mesh& mesh, std::string& why);
};
