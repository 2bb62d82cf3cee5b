#pragma once

/// How a texture is stored and drawn, in OpenGL's enumerators (glTexImage2D, glTexParameter and glTexEnv say which
/// there are). Nothing is checked here: what OpenGL does not know it refuses when the texture is made.
class KrTextureParameters
{
public:
    /// What the texture is bound to: GL_TEXTURE_2D.
    unsigned int textureType() const { return m_textureType; }
    void setTextureType(unsigned int type) { m_textureType = type; }
    /// How it meets the colour of the surface: GL_MODULATE, GL_DECAL, GL_REPLACE, ... (the texture environment's mode).
    unsigned int applyType() const { return m_applyType; }
    void setApplyType(unsigned int type) { m_applyType = type; }
    /// How it is drawn smaller and larger than it is: GL_NEAREST, GL_LINEAR; smaller from levels, too.
    unsigned int minFilter() const { return m_minFilter; }
    void setMinFilter(unsigned int filter) { m_minFilter = filter; }
    unsigned int magFilter() const { return m_magFilter; }
    void setMagFilter(unsigned int filter) { m_magFilter = filter; }
    /// What lies beyond its edges, in both directions: GL_REPEAT, GL_CLAMP, ...
    unsigned int wrap() const { return m_wrap; }
    void setWrap(unsigned int wrap) { m_wrap = wrap; }
    /// In which form OpenGL keeps it (GL_RGB, GL_RGBA, GL_RGB32F_ARB, ...).
    int internalFormat() const { return m_internalFormat; }
    void setInternalFormat(int format) { m_internalFormat = format; }
    /// In which form the pixels are handed over: their channels (GL_RGB, GL_LUMINANCE, ...) and the type of each
    /// (GL_UNSIGNED_BYTE, GL_FLOAT, ...).
    unsigned int pixelFormat() const { return m_pixelFormat; }
    void setPixelFormat(unsigned int format) { m_pixelFormat = format; }
    unsigned int dataFormat() const { return m_dataFormat; }
    void setDataFormat(unsigned int format) { m_dataFormat = format; }

    friend bool operator==(const KrTextureParameters& a, const KrTextureParameters& b);

private:
    unsigned int m_textureType = 0x0DE1; ///< GL_TEXTURE_2D
    unsigned int m_applyType = 0x2100;   ///< GL_MODULATE
    unsigned int m_minFilter = 0x2601;   ///< GL_LINEAR
    unsigned int m_magFilter = 0x2601;   ///< GL_LINEAR
    unsigned int m_wrap = 0x2901;        ///< GL_REPEAT
    int m_internalFormat = 0x1907;       ///< GL_RGB
    unsigned int m_pixelFormat = 0x1907; ///< GL_RGB
    unsigned int m_dataFormat = 0x1401;  ///< GL_UNSIGNED_BYTE
};
