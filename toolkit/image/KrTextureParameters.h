#pragma once

/// How a texture is stored and drawn; the values are OpenGL's.
class KrTextureParameters
{
public:
    unsigned int textureType() const { return m_textureType; }
    void setTextureType(unsigned int type) { m_textureType = type; }
    unsigned int applyType() const { return m_applyType; }
    void setApplyType(unsigned int type) { m_applyType = type; }
    unsigned int minFilter() const { return m_minFilter; }
    void setMinFilter(unsigned int filter) { m_minFilter = filter; }
    unsigned int magFilter() const { return m_magFilter; }
    void setMagFilter(unsigned int filter) { m_magFilter = filter; }
    unsigned int wrap() const { return m_wrap; }
    void setWrap(unsigned int wrap) { m_wrap = wrap; }
    int internalFormat() const { return m_internalFormat; }
    void setInternalFormat(int format) { m_internalFormat = format; }
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
