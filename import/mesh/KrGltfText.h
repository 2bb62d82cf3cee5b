#pragma once

#include <import/mesh/KrMeshLimits.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// glTF 2.0 files, text or binary, written anew with what a picture needs.
///
/// What is written refers only to what is there: buffers of known length, views and accessors inside them, attributes
/// of one length and the stated types, nodes that form a tree. Extensions, animations, skins, cameras and morph targets
/// are left out.
class KrGltfText
{
public:
    /// Reads the side file called so; false, with one clause, when that cannot be.
    using SideReader = std::function<bool(const std::string& name, std::string& content, std::string& why)>;
    struct Mesh
    {
        std::string text;                         ///< JSON
        std::map<std::string, std::string> files; ///< the buffers, by the names that the text uses
        std::vector<std::string> warnings;        ///< one sentence each
    };

    /// @param isBinary  `content` is a GLB
    /// @param why       on failure one clause
    static bool clean(std::string_view content, bool isBinary, const KrMeshLimits& limits, const SideReader& side,
                      Mesh& mesh, std::string& why);
};
