#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace CLI
{
class App;
}
class KrAppMessages;

/// The command `krrender dataset`: makes data sets, looks at them and joins them.
class KrAppDataset
{
public:
    /// Whether the command line, with the program's name in front, asks for it.
    static bool isAskedFor(int argc, const char* const* argv);
    /// Shows `reader` every option with its names, group and words, for the length of the call.
    static void describe(const std::function<void(const CLI::App&)>& reader);

    /// Does what the command line asks for. Throws KrAppFailure.
    /// @return the exit status
    int run(int argc, const char* const* argv, const KrAppMessages& messages);

private:
    struct Words;
    static void addOptions(CLI::App& app, KrAppDataset& options, Words& words);
    void readWords(const Words& words);
    void make(const KrAppMessages& messages) const;
    void verify() const;

    std::string m_recipe;
    std::string m_out;
    std::uint64_t m_process = 0;
    std::uint64_t m_numProcesses = 1;
    std::optional<std::uint64_t> m_sample;
    bool m_verify = false;
    bool m_merge = false;
    bool m_requireGpu = false;
    bool m_times = false;
    bool m_quiet = false;
};
