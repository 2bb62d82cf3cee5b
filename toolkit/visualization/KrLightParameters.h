#pragma once

#include <toolkit/visualization/KrLight.h>
#include <toolkit/xml/KrXmlVectorType.h>

/// The lights of a scene; a light's OpenGL number is its place in the list.
class KrLightParameters : public KrXmlObjectOf<KrLightParameters, KrXmlCompoundType>
{
public:
    /// No lights.
    KrLightParameters();
    KrLightParameters(const KrLightParameters& other);
    KrLightParameters(KrLightParameters&& other) noexcept;
    KrLightParameters& operator=(const KrLightParameters& other);
    KrLightParameters& operator=(KrLightParameters&& other) noexcept;
    ~KrLightParameters() override;

    /// The lights themselves; how many of them are drawn is OpenGL's to say, eight at least.
    const KrXmlVectorType<KrLight>& lights() const { return m_lights; }
    KrXmlVectorType<KrLight>& lights() { return m_lights; }

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrXmlVectorType<KrLight> m_lights;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrLightParameters, KrXmlCompoundType>;
extern template class KrXmlObjectOf<KrXmlVectorType<KrLight>, KrXmlObject>;
extern template class KrXmlVectorType<KrLight>;
