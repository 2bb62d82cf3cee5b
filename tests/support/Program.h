#pragma once

#include <tests/support/Folder.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <string>

/// What a program answered.
struct Answer
{
    int status = -1; ///< exit status; -1 for a crash
    std::string out;
    std::string err;

    std::size_t numErrorLines() const { return static_cast<std::size_t>(std::count(err.begin(), err.end(), '\n')); }
};

/// Runs `command` through the shell; `before` is put in front of it (an environment setting).
inline Answer runCommand(const std::string& command, const std::string& before = "")
{
    const Folder folder;
    const std::string line =
        before + " " + command + " >'" + folder.path("out") + "' 2>'" + folder.path("err") + "' </dev/null";
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(folder.path("out")), contentOf(folder.path("err"))};
}
