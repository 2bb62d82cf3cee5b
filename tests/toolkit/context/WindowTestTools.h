#pragma once

#include <toolkit/foundation/KrPrint.h>

#include <GL/gl.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

/// Keeps what is printed while it is alive.
class Messages
{
public:
    Messages()
        : m_before(Kr::Print::instance()->setSink(
              [this](Kr::Print::Type type, const std::string& text) { m_messages.emplace_back(type, text); }))
    {
    }
    ~Messages() { Kr::Print::instance()->setSink(m_before); }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    std::size_t number() const { return m_messages.size(); }
    const std::string& text(std::size_t i) const { return m_messages.at(i).second; }
    Kr::Print::Type type(std::size_t i) const { return m_messages.at(i).first; }

private:
    std::vector<std::pair<Kr::Print::Type, std::string>> m_messages;
    Kr::Print::Sink m_before;
};

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
