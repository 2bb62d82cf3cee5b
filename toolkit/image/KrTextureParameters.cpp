#include <toolkit/image/KrTextureParameters.h>

// Whether a texture could be used for the other; pixels are not part of it.
bool operator==(const KrTextureParameters& a, const KrTextureParameters& b)
{
    return a.m_textureType == b.m_textureType && a.m_applyType == b.m_applyType && a.m_minFilter == b.m_minFilter &&
           a.m_magFilter == b.m_magFilter && a.m_wrap == b.m_wrap && a.m_internalFormat == b.m_internalFormat &&
           a.m_pixelFormat == b.m_pixelFormat && a.m_dataFormat == b.m_dataFormat;
}
