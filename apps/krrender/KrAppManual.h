#pragma once

#include <string>
#include <vector>

namespace CLI
{
class App;
}

/// Texts about a program that are made from its options, so that no other list of them is kept.
namespace KrAppManual
{

/// The manual page, for `man`: name, synopsis, options by groups, and what the footer of the help says. There a
/// paragraph that begins with a word and a colon is a section of that name, and indented lines are shown as they are.
/// @param commands  words that may stand in place of options ("krrender dataset"), each a section behind the options
std::string page(const CLI::App& app, const std::vector<const CLI::App*>& commands);

/// A script for bash that completes the program's command line: options, and their values where the name of the value's
/// type tells them: FILE and DIR, or the values themselves in small letters, "planar|euclidean" or "axes,mass".
/// @param commands  as above: their options are offered behind their names
std::string bashCompletion(const CLI::App& app, const std::vector<const CLI::App*>& commands);

} // namespace KrAppManual
