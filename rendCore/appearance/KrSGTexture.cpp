#include <rendCore/appearance/KrSGTexture.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/window/KrWindow.h>

#include <osg/Image>
#include <osg/TexEnv>
#include <osg/Texture2D>
#include <osg/TextureRectangle>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <new>

namespace
{

constexpr unsigned int kTextureUnit = 0;

/// Windows of several threads look into the table of loaded textures, each for its own.
std::mutex s_tableMutex;

void setTextureWidth(osg::Texture& texture, unsigned int width)
{
    if (auto* const flat = dynamic_cast<osg::Texture2D*>(&texture)) {
        flat->setTextureSize(static_cast<int>(width), flat->getTextureHeight());
    } else if (auto* const rectangle = dynamic_cast<osg::TextureRectangle*>(&texture)) {
        rectangle->setTextureSize(static_cast<int>(width), rectangle->getTextureHeight());
    }
}

void setTextureHeight(osg::Texture& texture, unsigned int height)
{
    if (auto* const flat = dynamic_cast<osg::Texture2D*>(&texture)) {
        flat->setTextureSize(flat->getTextureWidth(), static_cast<int>(height));
    } else if (auto* const rectangle = dynamic_cast<osg::TextureRectangle*>(&texture)) {
        rectangle->setTextureSize(rectangle->getTextureWidth(), static_cast<int>(height));
    }
}

/// Throws std::bad_alloc, also for more than the scene graph's images can count.
std::unique_ptr<unsigned char[]> zeros(std::uint64_t count)
{
    if (count > std::numeric_limits<unsigned int>::max()) {
        throw std::bad_alloc();
    }
    return std::make_unique<unsigned char[]>(static_cast<std::size_t>(count));
}

/// `size` bytes, zeros after them where the picture of `needed` bytes is larger: what the driver reads is always there.
std::unique_ptr<unsigned char[]> copyOfBytes(const unsigned char* data, std::size_t size, std::uint64_t needed)
{
    auto bytes = zeros(std::max<std::uint64_t>(size, needed));
    if (data != nullptr) {
        std::copy_n(data, size, bytes.get());
    }
    return bytes;
}

/// One float a byte, of the same value.
std::unique_ptr<unsigned char[]> copyAsFloats(const unsigned char* data, std::size_t size, std::uint64_t needed)
{
    auto bytes = zeros(std::max(std::uint64_t(size) * sizeof(float), needed));
    for (std::size_t i = 0; data != nullptr && i < size; ++i) {
        const float value = data[i];
        std::memcpy(bytes.get() + i * sizeof(float), &value, sizeof value);
    }
    return bytes;
}

} // namespace

std::map<std::pair<const KrWindow*, std::string>, osg::ref_ptr<osg::Texture>> KrSGTexture::s_LoadedTextures;

bool KrSGTexture::loadFromFile(const std::string& name, const KrTextureParameters& parameters,
                               KrImage::Orientation orientation)
{
    const auto key = std::make_pair(static_cast<const KrWindow*>(KrWindow::getWindow()), name);
    if (const osg::ref_ptr<osg::Texture> loaded = loadedTexture(key)) {
        m_texture = loaded;
        // The base class, which would settle parameters and size, is not asked here.
        setTextureParameters(parameters);
        setSize(static_cast<unsigned int>(m_texture->getTextureWidth()),
                static_cast<unsigned int>(m_texture->getTextureHeight()), 1.0, 1.0);
        return load(nullptr, 0);
    }
    // A texture object of its own: the one at hand may be shared under another name.
    const osg::ref_ptr<osg::Texture> before = m_texture;
    m_texture = nullptr;
    if (!KrTexture::loadFromFile(name, parameters, orientation)) {
        m_texture = before;
        return false;
    }
    const std::lock_guard<std::mutex> lock(s_tableMutex);
    s_LoadedTextures.emplace(key, m_texture);
    return true;
}

osg::ref_ptr<osg::Texture> KrSGTexture::loadedTexture(const std::pair<const KrWindow*, std::string>& key)
{
    const std::lock_guard<std::mutex> lock(s_tableMutex);
    const auto found = s_LoadedTextures.find(key);
    return found == s_LoadedTextures.end() ? nullptr : found->second;
}

bool KrSGTexture::calculatePOT(unsigned int width, unsigned int height)
{
    if (!KrTexture::calculatePOT(width, height)) {
        setSize(width, height, 1.0, 1.0);
    }
    return true;
}

bool KrSGTexture::load(const unsigned char* data, unsigned int size)
{
    if (!m_texture && !createTexture()) {
        return false;
    }
    try {
        setPixels(data, size);
    } catch (const std::bad_alloc&) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrSGTexture::load - no memory for %u x %u pixels.\n", width(),
                                     height());
        return false;
    }
    applyParameters();
    m_stateSet = makeStateSet();
    return true;
}

bool KrSGTexture::createTexture()
{
    switch (textureParameters().textureType()) {
    case GL_TEXTURE_2D:
        m_texture = new osg::Texture2D;
        break;
    case GL_TEXTURE_RECTANGLE:
        m_texture = new osg::TextureRectangle;
        break;
    default:
        Kr::Print::instance()->write(Kr::Print::Warning, "Invalid texture type\n");
        return false;
    }
    // Without it a picture whose size is no power of two is blown up and blurred.
    m_texture->setResizeNonPowerOfTwoHint(false);
    setTextureWidth(*m_texture, width());
    setTextureHeight(*m_texture, height());
    m_texture->setImage(0, new osg::Image);
    return true;
}

void KrSGTexture::setPixels(const unsigned char* data, unsigned int size)
{
    const KrTextureParameters& parameters = textureParameters();
    const GLenum type = isFloat() ? GL_FLOAT : parameters.dataFormat();
    if (!isFloat() && size == 0) {
        return;
    }
    std::unique_ptr<unsigned char[]> pixels;
    if (size != 0) {
        const std::uint64_t needed =
            std::uint64_t(height()) *
            osg::Image::computeRowWidthInBytes(static_cast<int>(width()), parameters.pixelFormat(), type, 1);
        pixels = isFloat() ? copyAsFloats(data, size, needed) : copyOfBytes(data, size, needed);
    }
    m_texture->getImage(0)->setImage(static_cast<int>(width()), static_cast<int>(height()), 1,
                                     parameters.internalFormat(), parameters.pixelFormat(), type, pixels.release(),
                                     osg::Image::USE_NEW_DELETE, 1);
    if (isFloat()) {
        m_texture->setInternalFormat(parameters.internalFormat());
        m_texture->setSourceType(GL_FLOAT);
    }
}

void KrSGTexture::applyParameters()
{
    const KrTextureParameters& parameters = textureParameters();
    const auto wrap = static_cast<osg::Texture::WrapMode>(parameters.wrap());
    m_texture->setWrap(osg::Texture::WRAP_S, wrap);
    m_texture->setWrap(osg::Texture::WRAP_T, wrap);
    m_texture->setFilter(osg::Texture::MIN_FILTER, static_cast<osg::Texture::FilterMode>(parameters.minFilter()));
    m_texture->setFilter(osg::Texture::MAG_FILTER, static_cast<osg::Texture::FilterMode>(parameters.magFilter()));
}

osg::ref_ptr<osg::StateSet> KrSGTexture::makeStateSet() const
{
    const osg::ref_ptr<osg::TexEnv> environment = new osg::TexEnv(osg::TexEnv::MODULATE);
    environment->setMode(static_cast<osg::TexEnv::Mode>(textureParameters().applyType()));
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    stateSet->setTextureAttribute(kTextureUnit, environment);
    stateSet->setTextureAttributeAndModes(kTextureUnit, m_texture, osg::StateAttribute::ON);
    return stateSet;
}

KrSGTexture& KrSGTexture::operator=(const KrSGTexture& other)
{
    if (this != &other) {
        KrTexture::operator=(other);
        m_texture = other.m_texture;
        m_stateSet = other.m_stateSet;
    }
    return *this;
}

bool KrSGTexture::operator==(const KrSGTexture& other) const
{
    return KrTexture::operator==(other) && m_texture == other.m_texture && m_stateSet == other.m_stateSet;
}

void KrSGTexture::setWidth(unsigned int width)
{
    if (m_texture && m_texture->getTextureWidth() != static_cast<int>(width)) {
        setTextureWidth(*m_texture, width);
    }
}

void KrSGTexture::setHeight(unsigned int height)
{
    if (m_texture && m_texture->getTextureHeight() != static_cast<int>(height)) {
        setTextureHeight(*m_texture, height);
    }
}

osg::StateSet* KrSGTexture::getState() const
{
    return m_stateSet.get();
}

osg::Texture* KrSGTexture::getTexture() const
{
    return m_texture.get();
}

void KrSGTexture::removeTexturesFromContext(const KrWindow* window)
{
    if (window != nullptr && !window->getShare().empty()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(s_tableMutex);
    for (auto entry = s_LoadedTextures.begin(); entry != s_LoadedTextures.end();) {
        entry = entry->first.first == window ? s_LoadedTextures.erase(entry) : std::next(entry);
    }
}

void KrSGTexture::releaseGLObjects(const KrWindow* window, osg::State* state)
{
    if (window != nullptr && !window->getShare().empty()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(s_tableMutex);
    for (const auto& [key, texture] : s_LoadedTextures) {
        if (key.first == window) {
            texture->releaseGLObjects(state);
        }
    }
}
