#include <rendCore/appearance/KrMaterialProperties.h>

#include <toolkit/material/KrDataMap.h>

#include <osg/GL>
#include <osg/Material>
#include <osg/StateSet>
#include <osg/Vec4>

#include <algorithm>

namespace
{

/// Reads the four channels of one colour; true when any of them is there.
bool loadColor(const KrDataMap& map, const std::string& name, double (&rgba)[4])
{
    // All four are read before the results are put together: one missing key must not keep the next from being read.
    const bool red = map.real(name + "Red", rgba[0]);
    const bool green = map.real(name + "Green", rgba[1]);
    const bool blue = map.real(name + "Blue", rgba[2]);
    const bool alpha = map.real(name + "Alpha", rgba[3]);
    return red || green || blue || alpha;
}

/// How a texture is mixed with the lit colour, from the word of a data map; spelt exactly so, in capitals.
unsigned int applyType(const std::string& name)
{
    static constexpr struct
    {
        const char* name;
        unsigned int type;
    } kTypes[] = {{"GL_REPLACE", GL_REPLACE},
                  {"GL_MODULATE", GL_MODULATE},
                  {"GL_DECAL", GL_DECAL},
                  {"GL_BLEND", GL_BLEND},
                  {"GL_ADD", GL_ADD}};
    for (const auto& candidate : kTypes) {
        if (name == candidate.name) {
            return candidate.type;
        }
    }
    // Kept: whatever else is written means a decal; a file that spells a mode otherwise is drawn as one.
    return GL_DECAL;
}

// Kept: every other word, those of mipmap filters too, means GL_LINEAR, so that no texture of a data map needs mipmaps.
unsigned int filter(const std::string& name)
{
    return name == "GL_NEAREST" ? GL_NEAREST : GL_LINEAR;
}

void setAll(double (&rgba)[4], const double (&value)[4])
{
    std::copy_n(value, 4, rgba);
}

// Exact, so that a colour with NaN equals nothing, itself included.
bool same(const double (&a)[4], const double (&b)[4])
{
    return std::equal(a, a + 4, b);
}

// The scene graph's materials are in single precision.
osg::Vec4 vec4(const double (&rgba)[4])
{
    return {static_cast<float>(rgba[0]), static_cast<float>(rgba[1]), static_cast<float>(rgba[2]),
            static_cast<float>(rgba[3])};
}

} // namespace

KrMaterialProperties::KrMaterialProperties(const KrMaterialProperties& other)
    : KrMaterialProperties()
{
    *this = other;
}

KrMaterialProperties& KrMaterialProperties::operator=(const KrMaterialProperties& other)
{
    if (this == &other) {
        return *this;
    }
    // Kept: all but the spare colour, which the comparison leaves out, too.
    setAll(m_ambient, other.m_ambient);
    setAll(m_diffuse, other.m_diffuse);
    setAll(m_specular, other.m_specular);
    setAll(m_emission, other.m_emission);
    m_shininess = other.m_shininess;
    m_texture = other.m_texture;
    m_textureFilename = other.m_textureFilename;
    m_renderBothSides = other.m_renderBothSides;
    m_materialDefined = other.m_materialDefined;
    return *this;
}

bool KrMaterialProperties::operator==(const KrMaterialProperties& other) const
{
    return same(m_ambient, other.m_ambient) && same(m_diffuse, other.m_diffuse) && same(m_specular, other.m_specular) &&
           same(m_emission, other.m_emission) && m_shininess == other.m_shininess && m_texture == other.m_texture &&
           m_textureFilename == other.m_textureFilename && m_renderBothSides == other.m_renderBothSides &&
           m_materialDefined == other.m_materialDefined;
}

void KrMaterialProperties::set(double r, double g, double b)
{
    // Kept: the channels pass through single precision, so that a look equals one that was set from floats. What `load`
    // made glow goes on to: the emission stays.
    const double color[4] = {static_cast<float>(r), static_cast<float>(g), static_cast<float>(b), 1.0};
    setAll(m_ambient, color);
    setAll(m_diffuse, color);
    setAll(m_specular, color);
    m_shininess = 1.0;
    m_materialDefined = true;
}

void KrMaterialProperties::getDiffuseColor(osg::Vec4f& color) const
{
    color = vec4(m_diffuse);
}

void KrMaterialProperties::setTexture(const KrSGTexture& texture)
{
    m_texture = texture;
}

void KrMaterialProperties::load(const KrDataMap& map)
{
    // Kept: overwritten, not added to. A map without any of these keys takes back the material that `set` has defined,
    // and `setState` attaches none.
    m_materialDefined = loadColors(map);
    loadTexture(map);
    map.boolean("krRenderBothSides", m_renderBothSides);
}

bool KrMaterialProperties::loadColors(const KrDataMap& map)
{
    const bool ambient = loadColor(map, "krAmbient", m_ambient);
    // Kept: a diffuse colour alone defines no material. It decides transparency and the geometry's colour; the material
    // is that of what is above in the scene.
    loadColor(map, "krDiffuse", m_diffuse);
    const bool specular = loadColor(map, "krSpecular", m_specular);
    const bool emission = loadColor(map, "krEmission", m_emission);
    const bool shininess = map.real("krShininess", m_shininess);
    return ambient || specular || emission || shininess;
}

void KrMaterialProperties::loadTexture(const KrDataMap& map)
{
    KrTextureParameters parameters;
    std::string value;
    if (map.string("krTextureEnvironmentMode", value)) {
        parameters.setApplyType(applyType(value));
    }
    if (map.string("krTextureMinFilter", value)) {
        parameters.setMinFilter(filter(value));
    }
    if (map.string("krTextureMagFilter", value)) {
        parameters.setMagFilter(filter(value));
    }
    map.string("krTextureFilename", m_textureFilename);
    // Texture coordinates of meshes count whole pictures; those of a rectangle texture would count pixels.
    parameters.setTextureType(GL_TEXTURE_2D);
    if (!m_textureFilename.empty()) {
        // A picture that cannot be read costs the texture only: the colours stand.
        // OpenGL has the lowest row first.
        m_texture.loadFromFile(m_textureFilename, parameters, KrImage::BottomRowFirst);
    }
}

void KrMaterialProperties::setState(osg::StateSet* stateSet) const
{
    if (m_texture.getState() != nullptr) {
        // First, so that what follows wins over a mode that the texture's state has.
        stateSet->merge(*m_texture.getState());
    }
    // Only the exception is stated here: whether back faces are culled at all is the window's to say.
    if (m_renderBothSides) {
        stateSet->setMode(GL_CULL_FACE, osg::StateAttribute::OFF);
    }
    // Drawn after what is opaque and from back to front: blending needs what lies behind to be there. NaN is opaque.
    if (m_diffuse[3] < 1.0) {
        stateSet->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
        stateSet->setMode(GL_BLEND, osg::StateAttribute::ON);
    }
    // Kept: such a shape is drawn in the material of what is above it in the scene.
    if (!m_materialDefined) {
        return;
    }
    constexpr osg::Material::Face kBothFaces = osg::Material::FRONT_AND_BACK;
    const osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setName("krMaterial");
    material->setAmbient(kBothFaces, vec4(m_ambient));
    material->setDiffuse(kBothFaces, vec4(m_diffuse));
    material->setSpecular(kBothFaces, vec4(m_specular));
    material->setEmission(kBothFaces, vec4(m_emission));
    material->setShininess(kBothFaces, static_cast<float>(m_shininess));
    // Otherwise the geometry's colour array would take the place of these colours.
    material->setColorMode(osg::Material::OFF);
    stateSet->setAttribute(material, osg::StateAttribute::ON);
    stateSet->setMode(GL_LIGHTING, osg::StateAttribute::ON);
}

bool KrMaterialProperties::selfTest() const
{
    // Kept: this much and nothing is drawn, unlike in the other classes, so that it passes without a display, too.
    const KrMaterialProperties one;
    const KrMaterialProperties two(one);
    return one == two;
}
