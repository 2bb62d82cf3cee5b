#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

/// A folder of its own for each test, gone afterwards with everything in it.
class Folder
{
public:
    Folder()
        : m_path((std::filesystem::temp_directory_path() / "krTestXXXXXX").string())
    {
        if (mkdtemp(m_path.data()) == nullptr) {
            std::abort();
        }
    }
    ~Folder()
    {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path(const std::string& name) const { return m_path + "/" + name; }
    /// Writes a file, with the folders above it; returns its path.
    std::string write(const std::string& name, std::string_view content) const
    {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
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
