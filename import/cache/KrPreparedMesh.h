#pragma once

#include <import/mesh/KrMeshBuilder.h>
#include <import/mesh/KrMeshFacts.h>

#include <string>
#include <string_view>
#include <vector>

/// A mesh as it comes out of its file, the mesh library's work done, in a form that is written and read back fast.
struct KrPreparedMesh
{
    /// Another file that had its part in it, and what it was like.
    struct OtherFile
    {
        std::string path;
        bool isRead = false; ///< false: only whether it is there counts
        std::string state;   ///< a digest of what was read, or a word for what was not; empty for what is not there
    };

    KrMeshFacts facts;
    KrMeshBuilder::Result result; ///< with its indexed form, where there is one
    std::vector<OtherFile> otherFiles;

    /// For this machine and this version only.
    std::string bytes() const;
    /// The prepared mesh in `bytes`, which may be anything: no memory is asked for beyond a small multiple of their
    /// number.
    /// @param prepared  written on success only
    /// @return false, without a message, for what bytes() does not give
    static bool read(std::string_view bytes, KrPreparedMesh& prepared);
};
