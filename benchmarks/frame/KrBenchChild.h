#pragma once

#include <string>
#include <vector>

/// This program once more, as a process of its own: what one way takes by itself is told by one that does nothing else.
namespace KrBenchChild
{

/// What it prints, both streams together. Throws KrBenchFailure, with that, when it fails.
/// @param before     a program with its arguments that is to run it, or nothing
/// @param arguments  of this program, the name left out
std::string run(const std::vector<std::string>& before, const std::vector<std::string>& arguments);

/// The same under valgrind, with a driver that has no threads: instructions inside `function` and below it.
/// @param profile  file for callgrind_annotate; nothing for none
double instructions(const std::string& function, const std::vector<std::string>& arguments, const std::string& profile);

} // namespace KrBenchChild
