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

// Materials give texture coordinates for this unit alone.
constexpr unsigned int kTextureUnit = 0;

/// Windows of several threads look into the table of loaded textures, each for its own.
std::mutex s_tableMutex;

/// The size is not known to their common base: each of the two classes is asked for.
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
    // The image's sizes are multiplied in unsigned int there, which would come out small.
    if (count > std::numeric_limits<unsigned int>::max()) {
        throw std::bad_alloc();
    }
    // make_unique clears what it makes: the rest behind a short picture is black.
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
        // Copied, because the buffer is one of bytes, as the scene graph deletes it.
        std::memcpy(bytes.get() + i * sizeof(float), &value, sizeof value);
    }
    return bytes;
}

} // namespace

std::map<std::pair<const KrWindow*, std::string>, osg::ref_ptr<osg::Texture>> KrSGTexture::s_LoadedTextures;

bool KrSGTexture::loadFromFile(const std::string& name, const KrTextureParameters& parameters,
                               KrImage::Orientation orientation)
{
    // By window as well: windows with contexts of their own do not share texture objects.
    const auto key = std::make_pair(static_cast<const KrWindow*>(KrWindow::getWindow()), name);
    if (const osg::ref_ptr<osg::Texture> loaded = loadedTexture(key)) {
        m_texture = loaded;
        // The base class, which would settle parameters and size, is not asked here.
        setTextureParameters(parameters);
        setSize(static_cast<unsigned int>(m_texture->getTextureWidth()),
                static_cast<unsigned int>(m_texture->getTextureHeight()), 1.0, 1.0);
        // Without pixels: those of the shared texture stay, and only this object's state set is made.
        return load(nullptr, 0);
    }
    // A texture object of its own: the one at hand may be shared under another name.
    const osg::ref_ptr<osg::Texture> before = m_texture;
    m_texture = nullptr;
    if (!KrTexture::loadFromFile(name, parameters, orientation)) {
        // A refusal leaves the texture that was there, in the scene and in this object.
        m_texture = before;
        return false;
    }
    // Held for the table alone: reading a file under it would make all windows wait.
    const std::lock_guard<std::mutex> lock(s_tableMutex);
    // Only what was read gets here: a file that is missing today may be there tomorrow.
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
    // The base takes powers of two only. Other sizes stay as they are: OpenGL draws them since
    // 2.0, and padding costs memory.
    if (!KrTexture::calculatePOT(width, height)) {
        setSize(width, height, 1.0, 1.0);
    }
    return true;
}

bool KrSGTexture::load(const unsigned char* data, unsigned int size)
{
    // A texture that is there may be in the scene already, or shared: it is filled anew and not replaced.
    if (!m_texture && !createTexture()) {
        return false;
    }
    try {
        setPixels(data, size);
    } catch (const std::bad_alloc&) {
        // The size comes from a file; the texture keeps its pixels.
        Kr::Print::instance()->write(Kr::Print::Warning, "KrSGTexture::load - no memory for %u x %u pixels.\n", width(),
                                     height());
        return false;
    }
    applyParameters();
    // A new one: the state set of before may hang in shapes that were made with other parameters.
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
        // Kept: without the names of class and method, for those who look for the message by this text.
        Kr::Print::instance()->write(Kr::Print::Warning, "Invalid texture type\n");
        return false;
    }
    // Without it a picture whose size is no power of two is blown up and blurred.
    m_texture->setResizeNonPowerOfTwoHint(false);
    setTextureWidth(*m_texture, width());
    setTextureHeight(*m_texture, height());
    // Empty, so that `setPixels` always has an image to fill.
    m_texture->setImage(0, new osg::Image);
    return true;
}

void KrSGTexture::setPixels(const unsigned char* data, unsigned int size)
{
    const KrTextureParameters& parameters = textureParameters();
    // Kept: a float texture is told by the base's flag, whatever format the parameters name, so that `setFloat` is
    // enough: parameters name bytes by default.
    const GLenum type = isFloat() ? GL_FLOAT : parameters.dataFormat();
    // Kept: no pixels keep those of a byte texture, as `loadFromFile` needs for a picture that is shared already, and
    // clear those of a float one, on which nothing is known to depend.
    if (!isFloat() && size == 0) {
        return;
    }
    std::unique_ptr<unsigned char[]> pixels;
    if (size != 0) {
        // In 64 bits: width and height come from a file.
        const std::uint64_t needed =
            std::uint64_t(height()) *
            osg::Image::computeRowWidthInBytes(static_cast<int>(width()), parameters.pixelFormat(), type, 1);
        pixels = isFloat() ? copyAsFloats(data, size, needed) : copyOfBytes(data, size, needed);
    }
    // Packing 1: rows follow one another without gaps. The image owns the pixels from here on.
    m_texture->getImage(0)->setImage(static_cast<int>(width()), static_cast<int>(height()), 1,
                                     parameters.internalFormat(), parameters.pixelFormat(), type, pixels.release(),
                                     osg::Image::USE_NEW_DELETE, 1);
    if (isFloat()) {
        // Otherwise the scene graph would choose the format by the image's.
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
    // Kept: made to modulate, then given what the parameters say. Only the second is seen; nothing is known to depend
    // on the first.
    const osg::ref_ptr<osg::TexEnv> environment = new osg::TexEnv(osg::TexEnv::MODULATE);
    environment->setMode(static_cast<osg::TexEnv::Mode>(textureParameters().applyType()));
    osg::ref_ptr<osg::StateSet> stateSet = new osg::StateSet;
    // An environment is an attribute without a mode; the texture's mode is what switches it on.
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
    // The same size again would have the driver make its texture anew.
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
