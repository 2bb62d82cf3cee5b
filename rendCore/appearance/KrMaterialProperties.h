#pragma once

#include <rendCore/appearance/KrSGTexture.h>

#include <osg/Vec4f>

#include <string>

class KrDataMap;

/// The look of a shape group: four colours, shininess, texture, two-sidedness. Filled from a data map or from one
/// colour, and turned into OpenGL state. Colours are red, green, blue, alpha in [0, 1].
class KrMaterialProperties
{
public:
    KrMaterialProperties() = default;
    /// Copies share the texture's scene objects.
    KrMaterialProperties(const KrMaterialProperties& other);
    virtual ~KrMaterialProperties() = default;
    KrMaterialProperties& operator=(const KrMaterialProperties& other);
    /// Exact equality, the texture's scene objects by identity; NaN equals nothing.
    bool operator==(const KrMaterialProperties& other) const;
    bool operator!=(const KrMaterialProperties& other) const { return !(*this == other); }

    /// One opaque colour (in single precision) for ambient, diffuse and specular; shininess 1. Defines a material.
    void set(double r, double g, double b);
    void getDiffuseColor(osg::Vec4f& color) const;

    /// A copy that shares the scene objects of `texture`; it is shown over the colours.
    void setTexture(const KrSGTexture& texture);
    const KrSGTexture& getTexture() const { return m_texture; }
    /// Whether surfaces are seen from behind, too.
    bool renderBothSides() const { return m_renderBothSides; }
    void setRenderBothSides(bool on) { m_renderBothSides = on; }

    /// Reads the appearance keys of `map` (KrDataMap lists them) and loads the texture it names; missing keys keep
    /// their values. A material is defined from then on only if an ambient, specular, emission or shininess key is
    /// there.
    void load(const KrDataMap& map);
    /// Adds this look to `stateSet`; clears nothing that it holds.
    void setState(osg::StateSet* stateSet) const;

    /// Compares a new object with a copy of it; draws nothing. False, without a message, when they differ.
    bool selfTest() const;

private:
    bool loadColors(const KrDataMap& map);
    void loadTexture(const KrDataMap& map);

    double m_shininess = 0.0;
    KrSGTexture m_texture;
    std::string m_textureFilename;
    double m_ambient[4] = {0.0, 0.0, 0.0, 1.0};
    double m_diffuse[4] = {0.0, 0.0, 0.0, 1.0};
    double m_specular[4] = {0.0, 0.0, 0.0, 1.0};
    double m_emission[4] = {0.0, 0.0, 0.0, 1.0};
    bool m_renderBothSides = false;
    bool m_materialDefined = false;
    /// Kept: part of the layout that clients are compiled with; never copied, compared or read.
    [[maybe_unused]] double m_spareColor[4] = {0.0, 0.0, 0.0, 0.0};
};
