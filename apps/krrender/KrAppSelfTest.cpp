#include "KrAppSelfTest.h"

#include "KrAppDoctor.h"
#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppMessages.h"

#include <rendCore/selftest/KrSelfTest.h>
#include <toolkit/foundation/KrReason.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace
{

constexpr const char* kDefaultFolder = "krrender-self-test";

/// Makes the folder where it is not there.
bool isUsable(const std::string& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    try {
        KrAppFiles::checkWritable(folder + "/report.txt");
        return !error;
    } catch (const KrAppFailure&) {
        return false;
    }
}

/// A folder that is named has to do; without a name one is found.
std::string chosenFolder(const std::string& folder)
{
    if (!folder.empty()) {
        if (!isUsable(folder)) {
            throw KrAppFailure(KrAppFailure::CouldNot, "cannot write into the folder " + folder);
        }
        return folder;
    }
    if (isUsable(kDefaultFolder)) {
        return kDefaultFolder;
    }
    // The current folder may be read-only: a folder for temporary files is better than no answer.
    std::error_code error;
    std::string pattern =
        (std::filesystem::temp_directory_path(error) / (std::string(kDefaultFolder) + "-XXXXXX")).string();
    if (error || !mkdtemp(pattern.data())) {
        throw KrAppFailure(KrAppFailure::CouldNot, std::string("cannot write into the folder ") + kDefaultFolder +
                                                       ", nor into one for temporary files: name another one");
    }
    return pattern;
}

/// Prints a line and keeps it for the report.
void tell(std::string& report, const std::string& line)
{
    std::printf("%s\n", line.c_str());
    // At once: a driver may end the program in the next test.
    std::fflush(stdout);
    report += line + "\n";
}

} // namespace

bool krAppSelfTest(const std::string& folder)
{
    const std::string chosen = chosenFolder(folder);
    const std::vector<KrSelfTest>& tests = KrSelfTest::all();
    std::string table;
    std::size_t numPassed = 0;
    std::size_t numPictures = 0;
    double milliseconds = 0.0;
    for (const KrSelfTest& test : tests) {
        // A test tells of its failures by its result; the others go on.
        const KrSelfTest::Result result = test(chosen);
        char line[160];
        std::snprintf(line, sizeof line, "%-13s %-6s %6.0f ms  %s", test.name(), result.passed ? "ok" : "FAILED",
                      result.milliseconds, test.checks());
        tell(table, line);
        if (!result.passed) {
            tell(table, "    " + KrReason::oneLine(result.message));
        }
        numPassed += result.passed ? 1 : 0;
        numPictures += result.pictures.size();
        milliseconds += result.milliseconds;
    }
    char summary[120];
    std::snprintf(summary, sizeof summary, "%zu of %zu passed in %.1f s", numPassed, tests.size(),
                  0.001 * milliseconds);
    tell(table, summary);
    // Whatever the tests say: the report tells of the machine as well.
    std::string doctor;
    krAppDoctor(doctor);
    KrAppFiles::writeBytes(table + "\n" + doctor, chosen + "/report.txt");
    std::printf("%s: report.txt and %zu pictures\n", chosen.c_str(), numPictures);
    return numPassed == tests.size();
}
