#include "KrBenchChild.h"

#include "KrBenchRobot.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace
{

/// A word of a shell command, whatever it holds.
std::string quoted(const std::string& word)
{
    std::string text = "'";
    for (const char c : word) {
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return text + "'";
}

} // namespace

std::string KrBenchChild::run(const std::vector<std::string>& before, const std::vector<std::string>& arguments)
{
    std::string command;
    for (const std::string& word : before) {
        command += quoted(word) + " ";
    }
    command += quoted(std::filesystem::read_symlink("/proc/self/exe").string());
    for (const std::string& word : arguments) {
        command += " " + quoted(word);
    }
    std::FILE* const pipe = popen((command + " 2>&1 </dev/null").c_str(), "r");
    if (pipe == nullptr) {
        throw KrBenchFailure("no process can be started");
    }
    std::string printed;
    std::array<char, 4096> buffer;
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        printed.append(buffer.data(), count);
    }
    if (pclose(pipe) != 0) {
        throw KrBenchFailure("a process of its own failed: " + printed);
    }
    return printed;
}

double KrBenchChild::instructions(const std::string& function, const std::vector<std::string>& arguments,
                                  const std::string& profile)
{
    if (std::system("command -v valgrind >/dev/null 2>&1") != 0) {
        throw KrBenchFailure("counting instructions needs valgrind (Debian: apt-get install valgrind)");
    }
    // A driver with threads of its own would draw outside the function.
    const std::string printed =
        run({"env", "LP_NUM_THREADS=0", "valgrind", "--tool=callgrind", "--toggle-collect=" + function,
             "--callgrind-out-file=" + (profile.empty() ? std::string("/dev/null") : profile)},
            arguments);
    constexpr char kCollected[] = "Collected : ";
    const std::size_t at = printed.find(kCollected);
    const double count = at == std::string::npos ? 0.0 : std::atof(printed.c_str() + at + sizeof kCollected - 1);
    if (!(count > 0.0)) {
        throw KrBenchFailure("valgrind counted nothing: " + printed);
    }
    return count;
}
