#include <toolkit/image/KrTexture.h>

#include <toolkit/foundation/KrGL.h>
#include <toolkit/foundation/KrPrint.h>

#include <GL/gl.h>

#include <limits>

namespace
{

// Of OpenGL 3.1, which older headers lack.
constexpr unsigned int kRectangleTexture = 0x84F5; // GL_TEXTURE_RECTANGLE

// 0 is none.
bool isPowerOf2(unsigned int value)
{
    return value != 0 && KrGL::powerOf2(value) == value;
}

/// Keeps the matrices, which are made the identity, so that corners at +-1 are the viewport's.
class ScreenAligned
{
public:
    ScreenAligned()
    {
        // The matrix mode is the client's too.
        glGetIntegerv(GL_MATRIX_MODE, &m_mode);
        for (const GLenum matrix : {GL_PROJECTION, GL_MODELVIEW}) {
            glMatrixMode(matrix);
            glPushMatrix();
            glLoadIdentity();
        }
    }
    ~ScreenAligned()
    {
        for (const GLenum matrix : {GL_PROJECTION, GL_MODELVIEW}) {
            glMatrixMode(matrix);
            glPopMatrix();
        }
        glMatrixMode(static_cast<GLenum>(m_mode));
    }
    ScreenAligned(const ScreenAligned&) = delete;
    ScreenAligned& operator=(const ScreenAligned&) = delete;

private:
    GLint m_mode = GL_MODELVIEW;
};

/// Calls `coordinate(s, t)` for each corner of the viewport, counter-clockwise, before the corner itself.
template <typename Coordinate>
void drawQuad(double u, double v, Coordinate coordinate)
{
    // Back before the caller draws anything else.
    const ScreenAligned matrices;
    glBegin(GL_QUADS);
    coordinate(0.0, 0.0);
    glVertex2d(-1.0, -1.0);
    coordinate(u, 0.0);
    glVertex2d(1.0, -1.0);
    coordinate(u, v);
    glVertex2d(1.0, 1.0);
    coordinate(0.0, v);
    glVertex2d(-1.0, 1.0);
    glEnd();
}

} // namespace

KrTexture& KrTexture::operator=(const KrTexture& other)
{
    // What a texture is, not what OpenGL has of it: a copy loads for itself.
    m_parameters = other.m_parameters;
    m_width = other.m_width;
    m_height = other.m_height;
    m_scaleU = other.m_scaleU;
    m_scaleV = other.m_scaleV;
    m_isFloat = other.m_isFloat;
    return *this;
}

bool KrTexture::operator==(const KrTexture& other) const
{
    return m_parameters == other.m_parameters && m_width == other.m_width && m_height == other.m_height &&
           m_scaleU == other.m_scaleU && m_scaleV == other.m_scaleV && m_isFloat == other.m_isFloat;
}

// The picture is let go once `take` is through: OpenGL, or the derived class, has a copy.
bool KrTexture::loadFromFile(const std::string& name, const KrTextureParameters& parameters,
                             KrImage::Orientation orientation)
{
    KrImage image;
    return image.readFile(name, orientation) && takePicture(image, parameters);
}

bool KrTexture::loadFromImage(const KrImage& image, const KrTextureParameters& parameters)
{
    // A flipped picture counts as none: its rows are in the other order.
    if (image.data() == nullptr) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrTexture::loadFromImage - the picture has no pixels.\n");
        return false;
    }
    return takePicture(image, parameters);
}

bool KrTexture::takePicture(const KrImage& image, const KrTextureParameters& parameters)
{
    // `load` takes the size as unsigned int, which is part of the interface.
    if (image.sizeInBytes() > std::numeric_limits<unsigned int>::max()) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrTexture - a picture of %u x %u pixels is no texture.\n",
                                     image.width(), image.height());
        return false;
    }
    // The picture knows its format better than the caller.
    const unsigned int format = KrGL::pixelFormat(image.channels());
    KrTextureParameters fitting = parameters;
    fitting.setPixelFormat(format);
    fitting.setInternalFormat(static_cast<int>(format));
    return take(image.data(), static_cast<unsigned int>(image.sizeInBytes()), image.width(), image.height(), fitting);
}

bool KrTexture::loadShell(unsigned int width, unsigned int height, const KrTextureParameters& parameters)
{
    if (width == 0 || height == 0) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrTexture::loadShell - %u x %u pixels are no texture.\n",
                                     width, height);
        return false;
    }
    // No pixels: the texture is to be drawn into.
    return take(nullptr, 0, width, height, parameters);
}

// The one way in, for pictures and shells: sizes first, since `load` asks for them.
bool KrTexture::take(const unsigned char* data, unsigned int size, unsigned int width, unsigned int height,
                     const KrTextureParameters& parameters)
{
    // Kept for the case that a derived class cannot load.
    const KrTexture before(*this);
    m_parameters = parameters;
    // calculatePOT sets the size where it answers true; other sizes are taken as they are.
    if (!calculatePOT(width, height)) {
        setSize(width, height, 1.0, 1.0);
    }
    if (!load(data, size)) {
        // Not by the virtual function: what a derived class holds has not changed.
        KrTexture::operator=(before);
        return false;
    }
    return true;
}

// What needs OpenGL is the derived classes' work; here a texture is its size and its parameters.
void KrTexture::bind() const {}

void KrTexture::unbind() const {}

void KrTexture::release()
{
    setSize(0, 0, 1.0, 1.0);
}

void KrTexture::scaleTexture(double& u, double& v) const
{
    u = m_scaleU;
    v = m_scaleV;
}

// Of the corner that is opposite to the origin.
void KrTexture::textureCoords(double& u, double& v) const
{
    // A rectangle texture counts in pixels.
    const bool inPixels = m_parameters.textureType() == kRectangleTexture;
    u = m_scaleU * (inPixels ? m_width : 1.0);
    v = m_scaleV * (inPixels ? m_height : 1.0);
}

// Over the whole viewport, with whatever is bound.
void KrTexture::drawScreenAlignedQuad() const
{
    double u = 0.0;
    double v = 0.0;
    textureCoords(u, v);
    drawQuad(u, v, [](double s, double t) { glTexCoord2d(s, t); });
}

void KrTexture::drawMultiTextureScreenAlignedQuad() const
{
    double u = 0.0;
    double v = 0.0;
    textureCoords(u, v);
    drawQuad(u, v, [](double s, double t) {
        glMultiTexCoord2d(GL_TEXTURE0, s, t);
        glMultiTexCoord2d(GL_TEXTURE1, s, t);
    });
}

// 0 is no texture's name.
// Derived classes that hold a texture have one.
unsigned int KrTexture::id() const
{
    return 0;
}

// For the next load; what OpenGL holds stays as it is.
void KrTexture::setTextureParameters(const KrTextureParameters& parameters)
{
    m_parameters = parameters;
}

const KrTextureParameters& KrTexture::textureParameters() const
{
    return m_parameters;
}

// True where the sizes need no enlarging; derived classes may enlarge others.
bool KrTexture::calculatePOT(unsigned int width, unsigned int height)
{
    if (!isPowerOf2(width) || !isPowerOf2(height)) {
        return false;
    }
    setSize(width, height, 1.0, 1.0);
    return true;
}

bool KrTexture::load(const unsigned char*, unsigned int)
{
    return true;
}

void KrTexture::setSize(unsigned int width, unsigned int height, double scaleU, double scaleV)
{
    m_width = width;
    m_height = height;
    m_scaleU = scaleU;
    m_scaleV = scaleV;
}
