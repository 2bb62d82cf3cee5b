#include "KrAppDataset.h"

#include "KrAppCommandLine.h"
#include "KrAppFailure.h"
#include "KrAppInterrupt.h"
#include "KrAppMessages.h"

#include <dataset/KrDatasetMaker.h>

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdio>

namespace
{

using KrAppCommandLine::wrongUsage;
using Clock = std::chrono::steady_clock;

/// Throws what the library gives as a reason, where it says that something failed.
void demand(bool isDone, const std::string& reason)
{
    if (!isDone) {
        throw KrAppFailure(KrAppFailure::CouldNot, reason);
    }
}

/// `text` as a whole number; false, and no change, for anything else.
bool readCount(const std::string& text, std::uint64_t& value)
{
    std::uint64_t read = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, read);
    if (error != std::errc() || rest != end) {
        return false;
    }
    value = read;
    return true;
}

/// "1 h 02 min", "3 min 20 s", "7 s"
std::string spoken(double seconds)
{
    const auto whole = static_cast<unsigned long long>(seconds + 0.5);
    char text[64];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%llu h %02llu min", whole / 3600, whole % 3600 / 60);
    } else if (whole >= 60) {
        std::snprintf(text, sizeof text, "%llu min %02llu s", whole / 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%llu s", whole);
    }
    return text;
}

/// How far the work is, how fast it goes and how long it will take: in place on a terminal, a line a minute elsewhere.
class Progress
{
public:
    explicit Progress(bool isQuiet)
        : m_isQuiet(isQuiet)
        , m_isTerminal(isatty(STDERR_FILENO) == 1)
        , m_start(Clock::now())
        , m_told(m_start)
    {
    }
    ~Progress()
    {
        if (m_hasLine) {
            std::fprintf(stderr, "\r\033[K"); // what follows stands on a clean line
        }
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void setDone(std::uint64_t done, std::uint64_t total)
    {
        const Clock::time_point now = Clock::now();
        const auto pause = m_isTerminal ? std::chrono::milliseconds(200) : std::chrono::milliseconds(60000);
        if (m_isQuiet || now - m_told < pause) {
            return;
        }
        m_told = now;
        const double seconds = std::chrono::duration<double>(now - m_start).count();
        const double rate = static_cast<double>(done) / seconds;
        char text[160];
        std::snprintf(text, sizeof text, "%llu of %llu samples, %.1f a second, %s left",
                      static_cast<unsigned long long>(done), static_cast<unsigned long long>(total), rate,
                      spoken(static_cast<double>(total - done) / rate).c_str());
        if (m_isTerminal) {
            std::fprintf(stderr, "\r\033[K%s", text);
            m_hasLine = true;
        } else {
            std::printf("%s\n", text);
            std::fflush(stdout);
        }
    }

private:
    bool m_isQuiet;
    bool m_isTerminal;
    bool m_hasLine = false;
    Clock::time_point m_start;
    Clock::time_point m_told;
};

/// Processor time by what it went into.
void printTimes(const KrDatasetMaker::Result& result)
{
    const double count = result.samples > 0 ? static_cast<double>(result.samples) : 1.0;
    const std::pair<const char*, double> parts[] = {
        {"posing", result.scene.posing},   {"drawing", result.scene.drawing}, {"reading", result.scene.reading},
        {"parts", result.scene.parts},     {"encoding", result.encoding},     {"writing", result.writing},
        {"publishing", result.publishing},
    };
    double sum = 0.0;
    std::printf("%-12s %10s %14s\n", "part", "seconds", "ms a sample");
    for (const auto& [name, seconds] : parts) {
        std::printf("%-12s %10.3f %14.3f\n", name, seconds, 1000.0 * seconds / count);
        sum += seconds;
    }
    std::printf("%-12s %10.3f %14.3f\n", "all", sum, 1000.0 * sum / count);
}

} // namespace

/// The options as they were typed.
struct KrAppDataset::Words
{
    std::string shard;
    std::string sample;
};

bool KrAppDataset::isAskedFor(int argc, const char* const* argv)
{
    return argc > 1 && std::string(argv[1]) == "dataset";
}

void KrAppDataset::addOptions(CLI::App& app, KrAppDataset& options, Words& words)
{
    app.name("krrender dataset");
    app.description("Makes a data set: pictures of robots in states, light and views that a recipe lets vary.");
    app.footer("Examples:\n"
               "  krrender dataset arm.json --out arms\n"
               "  krrender dataset arm.json --out arms --shard 0/2 & krrender dataset arm.json --out arms --shard 1/2\n"
               "  krrender dataset arm.json --out arms --shard $SLURM_ARRAY_TASK_ID/100\n"
               "  krrender dataset arm.json --out arms --verify --merge\n"
               "Called again, it makes what is missing; every sample has the same bytes, whoever makes it and when.\n"
               "Exit status: 0 done, 1 could not be done, or --verify has found a fault, 2 wrong usage.");
    app.add_option("RECIPE", options.m_recipe, "What is in the data set and what varies in it (JSON)")
        ->type_name("FILE");
    app.add_option("--out", options.m_out, "Folder of the data set; made if need be")
        ->type_name("DIR")
        ->group("Data set");
    app.add_option("--shard", words.shard,
                   "Make, or verify, the shards s with s % N = I, I from 0: the share of one of N processes [0/1]")
        ->type_name("I/N")
        ->group("Data set");
    app.add_option("--sample", words.sample, "Draw this sample again, into DIR, which is not there yet")
        ->type_name("K")
        ->group("Data set");
    app.add_flag("--verify", options.m_verify, "Make nothing; read every file, and name what is missing or damaged")
        ->group("Data set");
    app.add_flag("--merge", options.m_merge,
                 "Make nothing; when all shards are there, write index.json and what the format has of the whole set")
        ->group("Data set");
    app.add_flag("--require-gpu", options.m_requireGpu, "Refuse a driver that draws by software")->group("Other");
    app.add_flag("--times", options.m_times, "Print the processor time that each part of the work took")
        ->group("Other");
    app.add_flag("-q,--quiet", options.m_quiet, "Print errors only")->group("Other");
    app.set_help_flag("-h,--help", "Print this help")->group("Other");
    for (CLI::Option* option : app.get_options()) {
        option->disable_flag_override(true);
    }
}

void KrAppDataset::describe(const std::function<void(const CLI::App&)>& reader)
{
    // The options are thrown away: names and descriptions are all that is asked for.
    KrAppDataset options;
    Words words;
    CLI::App app;
    addOptions(app, options, words);
    reader(app);
}

void KrAppDataset::readWords(const Words& words)
{
    if (m_recipe.empty()) {
        wrongUsage("no recipe was named: krrender dataset RECIPE.json --out DIR (krrender dataset --help tells more)");
    }
    if (m_out.empty()) {
        wrongUsage("where to? --out DIR names the folder of the data set");
    }
    if (!words.shard.empty()) {
        const std::size_t slash = words.shard.find('/');
        const bool isRead = slash != std::string::npos && readCount(words.shard.substr(0, slash), m_process) &&
                            readCount(words.shard.substr(slash + 1), m_numProcesses);
        if (!isRead || m_process >= m_numProcesses) {
            wrongUsage("--shard " + words.shard + ": I/N with I from 0 to N - 1 is expected, 0/1 for all");
        }
    }
    if (!words.sample.empty()) {
        m_sample = 0;
        if (!readCount(words.sample, *m_sample)) {
            wrongUsage("--sample " + words.sample + ": the number of a sample is expected, from 0");
        }
    }
    if (m_sample && (m_verify || m_merge || !words.shard.empty())) {
        wrongUsage("--sample draws one sample: --shard, --verify and --merge are for data sets");
    }
    if (m_merge && !words.shard.empty()) {
        wrongUsage("--merge is for the whole data set: it does not go with --shard");
    }
}

int KrAppDataset::run(int argc, const char* const* argv, const KrAppMessages& messages)
{
    CLI::App app;
    Words words;
    addOptions(app, *this, words);
    const auto twoRecipes = [this](const std::string& extra) {
        return "one data set is made at a time: \"" + m_recipe + "\" and \"" + extra + "\" were named";
    };
    // Without the program's name: the command stands in its place.
    if (!KrAppCommandLine::parse(app, argc - 1, argv + 1, twoRecipes)) {
        return 0;
    }
    readWords(words);
    if (m_verify || m_merge) {
        verify();
    } else {
        make(messages);
    }
    return 0;
}

void KrAppDataset::verify() const
{
    KrDatasetRecipe recipe;
    KrDatasetMaker maker;
    std::string reason;
    demand(recipe.readFile(m_recipe, reason), reason);
    demand(maker.open(recipe, m_out, reason), reason);
    if (m_verify) {
        std::vector<std::string> faults;
        demand(maker.store().verify(m_process, m_numProcesses, faults, reason), reason);
        for (const std::string& fault : faults) {
            std::printf("%s\n", KrAppMessages::printable(fault).c_str());
        }
        if (!faults.empty()) {
            throw KrAppFailure(KrAppFailure::CouldNot,
                               m_out + ": " + std::to_string(faults.size()) +
                                   (faults.size() == 1 ? " fault" : " faults") +
                                   "; remove the folders of shards that are damaged, and make them again");
        }
    }
    if (m_merge) {
        demand(maker.store().merge(reason), reason);
    }
    if (!m_quiet) {
        // Those that were looked at.
        unsigned long long numSamples = 0;
        unsigned long long numShards = 0;
        for (std::uint64_t shard = 0; shard < recipe.numShards(); ++shard) {
            if (shard % m_numProcesses == m_process) {
                numSamples += recipe.shard(shard).count;
                ++numShards;
            }
        }
        std::printf("%s: %llu samples in %llu shards\n", m_out.c_str(), numSamples, numShards);
    }
}

void KrAppDataset::make(const KrAppMessages& messages) const
{
    KrDatasetRecipe recipe;
    std::string reason;
    demand(recipe.readFile(m_recipe, reason), reason);
    if (m_sample) {
        demand(KrDatasetMaker::makeSample(recipe, *m_sample, m_requireGpu, m_out, reason), reason);
        return;
    }
    KrDatasetMaker maker;
    demand(maker.open(recipe, m_out, reason), reason);
    const KrAppInterrupt interrupt;
    KrDatasetMaker::Result result;
    KrDatasetMaker::Options options;
    options.process = m_process;
    options.numProcesses = m_numProcesses;
    options.requireGpu = m_requireGpu;
    options.isStopped = [] { return KrAppInterrupt::isRequested(); };
    bool isMade = false;
    const Clock::time_point start = Clock::now();
    {
        Progress progress(m_quiet);
        options.progress = [&](std::uint64_t done, std::uint64_t total) { progress.setDone(done, total); };
        isMade = maker.make(options, result, reason);
    }
    if (m_times) {
        printTimes(result);
    }
    demand(isMade, reason);
    if (m_quiet) {
        return;
    }
    for (const std::string& warning : maker.scene().warnings()) {
        std::fprintf(stderr, "warning: %s\n", KrAppMessages::printable(warning).c_str());
    }
    for (const std::string& text : messages.texts()) {
        std::fprintf(stderr, "warning: %s\n", KrAppMessages::printable(text).c_str());
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("%s: %llu samples made in %s, %llu shards; %llu were there\n", m_out.c_str(),
                static_cast<unsigned long long>(result.samples), spoken(seconds).c_str(),
                static_cast<unsigned long long>(result.shards), static_cast<unsigned long long>(result.shardsThere));
    if (result.shardsBusy > 0) {
        std::printf("%llu more are being made by other processes\n",
                    static_cast<unsigned long long>(result.shardsBusy));
    }
}
