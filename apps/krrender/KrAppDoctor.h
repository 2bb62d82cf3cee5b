#pragma once

/// Tries every way to an OpenGL context and prints, on standard output, what each said, what would mend it, and which
/// one a window takes by default.
/// @return whether pictures can be drawn
bool krAppDoctor();
