#pragma once

#include <toolkit/image/KrImage.h>
#include <toolkit/image/KrTextureParameters.h>

#include <string>

/// The pixels of a texture and how they are to be used; a subclass turns them into what its renderer draws.
class KrTexture
{
public:
    KrTexture() = default;
    KrTexture(const KrTexture&) = default;

    // The order of the virtual operations is part of the interface.
    virtual ~KrTexture() = default;
    virtual KrTexture& operator=(const KrTexture& other);
    /// Whether parameters, size and scales are equal; pixels are not looked at.
    virtual bool operator==(const KrTexture& other) const;
    /// Reads a picture file and ends in `load`. False, after one message, when the file cannot be read.
    virtual bool loadFromFile(const std::string& name, const KrTextureParameters& parameters,
                              KrImage::Orientation orientation);
    /// Takes the picture's ordinary storage and ends in `load`; channels decide the pixel format. False for an empty
    /// picture.
    virtual bool loadFromImage(const KrImage& image, const KrTextureParameters& parameters);
    /// Prepares a texture of that size without pixels; ends in `load`.
    virtual bool loadShell(unsigned int width, unsigned int height, const KrTextureParameters& parameters);
    virtual void bind() const;   ///< makes it current in the fixed pipeline; nothing here
    virtual void unbind() const; ///< nothing here
    virtual void release();      ///< forgets the pixels' size
    /// Factors from image to texture coordinates (below 1 where the texture is padded).
    virtual void scaleTexture(double& u, double& v) const;
    /// Texture coordinates of the picture's upper right corner.
    virtual void textureCoords(double& u, double& v) const;
    virtual void drawScreenAlignedQuad() const;             ///< immediate mode; needs a current context
    virtual void drawMultiTextureScreenAlignedQuad() const; ///< with coordinates on units 0 and 1
    virtual unsigned int id() const;                        ///< OpenGL name; 0 when there is none
    virtual void setTextureParameters(const KrTextureParameters& parameters);
    virtual const KrTextureParameters& textureParameters() const;

    /// Settles the texture's size for a picture of w x h. True only for sizes that are powers of two already.
    virtual bool calculatePOT(unsigned int width, unsigned int height);
    /// Makes the renderer's texture from `size` bytes; nothing here.
    virtual bool load(const unsigned char* data, unsigned int size);

    unsigned int width() const { return m_width; }   ///< of the texture, pixels
    unsigned int height() const { return m_height; } ///< of the texture, pixels
    /// Whether texels are kept as floats: false by default.
    bool isFloat() const { return m_isFloat; }
    /// Bytes become floats of the same value when loaded.
    void setFloat(bool isFloat) { m_isFloat = isFloat; }

protected:
    void setSize(unsigned int width, unsigned int height, double scaleU, double scaleV);

    KrTextureParameters m_parameters;

private:
    bool takePicture(const KrImage& image, const KrTextureParameters& parameters);
    /// Settles parameters and size and loads; back to what it was when `load` fails.
    bool take(const unsigned char* data, unsigned int size, unsigned int width, unsigned int height,
              const KrTextureParameters& parameters);

    unsigned int m_width = 0;
    unsigned int m_height = 0;
    double m_scaleU = 1.0;
    double m_scaleV = 1.0;
    bool m_isFloat = false;
};
