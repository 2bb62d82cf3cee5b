#pragma once

#include <tests/support/MessageRecorder.h>

#include <GL/gl.h>

#include <array>

using Pixel = std::array<unsigned char, 3>;

constexpr Pixel kRed = {255, 0, 0};
constexpr Pixel kGreen = {0, 255, 0};

inline void fill(const Pixel& colour)
{
    glClearColor(colour[0] / 255.0f, colour[1] / 255.0f, colour[2] / 255.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

inline Pixel pixelAt(int x, int y)
{
    Pixel pixel = {1, 2, 3};
    glReadPixels(x, y, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, pixel.data());
    return pixel;
}

/// A texture of one texel in the current context.
inline GLuint createTexture(const Pixel& colour)
{
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 1, 1, 0, GL_RGB, GL_UNSIGNED_BYTE, colour.data());
    return texture;
}

/// What the texture holds in the current context; black when there is none.
inline Pixel texelOf(GLuint texture)
{
    Pixel texel = {0, 0, 0};
    if (!glIsTexture(texture)) {
        return texel;
    }
    glBindTexture(GL_TEXTURE_2D, texture);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGB, GL_UNSIGNED_BYTE, texel.data());
    return texel;
}
