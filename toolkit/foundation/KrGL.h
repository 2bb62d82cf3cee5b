#pragma once

/// Small whole-number helpers for OpenGL.
namespace KrGL
{

/// The smallest power of two that is not below `value`; 1 for 0; 0x80000000 for anything above that.
unsigned int powerOf2(unsigned int value);

/// GL_LUMINANCE, GL_LUMINANCE_ALPHA, GL_RGB or GL_RGBA for pixels of 1 to 4 channels; GL_RGBA for any other number.
unsigned int pixelFormat(unsigned int channels);

} // namespace KrGL
