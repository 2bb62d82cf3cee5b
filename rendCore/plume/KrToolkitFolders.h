#pragma once

#include <string>

/// Where the files lie that this library reads at run time.
class KrToolkitFolders
{
public:
    /// Sets the environment variable KR_TOOLKITS when it is unset, from where this library lies: the folder "toolkits"
    /// of its build tree or "share/krRendCore" of its installed tree, whichever has the shader files. For programs to
    /// call at their start, before they have threads.
    /// @return whether KR_TOOLKITS is set now; false, without a message, when there is no such folder
    static bool setDefault();

    /// Whether `toolkits`, a folder that KR_TOOLKITS may name, has the shader files.
    static bool hasShaders(const std::string& toolkits);
};
