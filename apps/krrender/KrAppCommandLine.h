#pragma once

#include <functional>
#include <string>

namespace CLI
{
class App;
}

/// How command lines are read and refused, whatever their options.
namespace KrAppCommandLine
{

/// Ends the program with this sentence and the exit status for a command line that makes no sense.
[[noreturn]] void wrongUsage(const std::string& sentence);

/// Reads a command line into what `app` was given; its name and version stand in what is printed.
/// @param tooMany  says what is wrong with a word that is no option's, when all that are expected are there
/// @return false when the program is done (help, version); their text has been printed then
/// Throws KrAppFailure (WrongUsage), for values that are empty, too.
bool parse(CLI::App& app, int argc, const char* const* argv,
           const std::function<std::string(const std::string&)>& tooMany);

} // namespace KrAppCommandLine
