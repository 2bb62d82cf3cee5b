#pragma once

#include <string>

namespace CLI
{
class App;
}

/// Texts about a program that are made from its options, so that no other list of them is kept.
namespace KrAppManual
{

/// The manual page, for `man`: name, synopsis, options by groups, and what the footer of the help says. There a
/// paragraph that begins with a word and a colon is a section of that name, and indented lines are shown as they are.
std::string page(const CLI::App& app);

/// A script for bash that completes the program's command line: options, and their values where the name of the value's
/// type tells them: FILE and DIR, or the values themselves in small letters, "planar|euclidean" or "axes,mass".
std::string bashCompletion(const CLI::App& app);

} // namespace KrAppManual
