#pragma once

#include <string>

/// Draws the pictures of the textured sample into `folder`, which is made when it is not there.
/// @return false, after one message, when one cannot be written
bool writeSampleTextures(const std::string& folder);
