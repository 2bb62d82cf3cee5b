#pragma once

#include <string>

/// Tries every way to an OpenGL context and says what each said, what would mend it, and which one a window takes by
/// default. Then draws a frame with that one.
/// @param text  gets the lines
/// @return whether that frame is right: pictures can be drawn
bool krAppDoctor(std::string& text);
