#pragma once

#include <string>

/// Draws and judges the sample scenes of the render core, prints a table of them, and leaves the pictures, the table
/// and what krAppDoctor says in a folder: what goes with a report of a bug.
/// @param folder  made when it is not there; files in it are overwritten. Empty for "krrender-self-test", or a new
///                folder for temporary files where that cannot be made
/// @return whether every scene came out right
/// Throws KrAppFailure (CouldNot) when the folder cannot be written.
bool krAppSelfTest(const std::string& folder);
