#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

/// A folder of its own for each test, gone afterwards.
class Folder
{
public:
    Folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "krAppTestXXXXXX").string();
        m_path = mkdtemp(&name[0]);
    }
    ~Folder()
    {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path(const std::string& name) const { return m_path + "/" + name; }
    std::string write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }
    /// The names in the folder.
    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            found.insert(entry.path().filename().string());
        }
        return found;
    }

private:
    std::string m_path;
};

inline std::string contentOf(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

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
