#pragma once

/// Small whole-number helpers for OpenGL sizes.
namespace KrGL
{

/// The smallest power of two that is not below `value`; 1 for 0; 0x80000000 for anything above that.
unsigned int powerOf2(unsigned int value);

} // namespace KrGL
