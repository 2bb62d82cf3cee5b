#pragma once

#include <toolkit/image/KrTexture.h>

#include <osg/StateSet>
#include <osg/Texture>
#include <osg/ref_ptr>

#include <map>
#include <string>
#include <utility>

class KrWindow;

/// The scene-graph form of a texture: an osg::Texture2D or osg::TextureRectangle and a state set with it on unit 0.
///
/// A file is loaded once per window: later loads in the same window share the texture object. For the rendering
/// thread. Copies share texture and state set.
class KrSGTexture : public KrTexture
{
public:
    KrSGTexture() = default;
    KrSGTexture(const KrSGTexture& other) = default;

    ~KrSGTexture() override = default;
    /// Loads `name`, or shares the texture that the current window (`KrWindow::getWindow()`) has loaded already.
    /// @return false when the file cannot be read (the toolkit says so) or the texture type is none of the two
    bool loadFromFile(const std::string& name, const KrTextureParameters& parameters,
                      KrImage::Orientation orientation) override;

    // The order of the virtual operations is part of the interface.
    /// Keeps sizes that are no powers of two as they are, without padding. Always true.
    bool calculatePOT(unsigned int width, unsigned int height) override;
    /// Makes the texture (if there is none) and a new state set.
    ///
    /// @param data  `size` bytes, width x height pixels of the parameters' format, rows without padding; copied. Size 0
    ///              keeps the pixels of a byte texture and clears those of a float texture. Missing bytes are 0.
    /// @return false, after one message, for a texture type that is neither GL_TEXTURE_2D nor GL_TEXTURE_RECTANGLE,
    ///         or without memory for the pixels
    bool load(const unsigned char* data, unsigned int size) override;
    using KrTexture::operator=;
    virtual KrSGTexture& operator=(const KrSGTexture& other);
    using KrTexture::operator==;
    /// Equal as textures, and the same scene objects.
    virtual bool operator==(const KrSGTexture& other) const;
    /// Size of the texture object, pixels; nothing before `load`.
    virtual void setWidth(unsigned int width);
    virtual void setHeight(unsigned int height);
    /// Null before `load`.
    virtual osg::StateSet* getState() const;
    virtual osg::Texture* getTexture() const;

    /// Checks a texture, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

    /// Forgets what was loaded in `window`, unless it shares its context with another window.
    static void removeTexturesFromContext(const KrWindow* window);
    /// The GL objects of the textures loaded in `window`, or the memory of them where its context is not current. The
    /// textures stay.
    static void releaseGLObjects(const KrWindow* window, osg::State* state);

private:
    bool createTexture();
    void setPixels(const unsigned char* data, unsigned int size);
    void applyParameters();
    osg::ref_ptr<osg::StateSet> makeStateSet() const;
    static osg::ref_ptr<osg::Texture> loadedTexture(const std::pair<const KrWindow*, std::string>& key);

    osg::ref_ptr<osg::StateSet> m_stateSet;
    osg::ref_ptr<osg::Texture> m_texture;

    /// By window and file name.
    static std::map<std::pair<const KrWindow*, std::string>, osg::ref_ptr<osg::Texture>> s_LoadedTextures;
};
