#pragma once

#include <toolkit/math/KrColor.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

/// Clipping planes and background of a scene window.
///
/// A setter that tells so is false, after one message and without a change, for a distance that is not above 0 and
/// finite and for a colour that does not lie between 0 and 1.
class KrRenderParameters : public KrXmlObjectOf<KrRenderParameters, KrXmlCompoundType>
{
public:
    /// The values of a new window.
    KrRenderParameters();
    KrRenderParameters(const KrRenderParameters& other);
    KrRenderParameters(KrRenderParameters&& other) noexcept;
    KrRenderParameters& operator=(const KrRenderParameters& other);
    KrRenderParameters& operator=(KrRenderParameters&& other) noexcept;
    ~KrRenderParameters() override;

    /// True when the window chooses the clipping planes from the point of view.
    bool isAutoClipping() const { return m_autoClipping.value(); }
    void setAutoClipping(bool on) { m_autoClipping = on; }
    double nearClipping() const { return m_nearClipping; } ///< m from the eye
    bool setNearClipping(double distance);
    double farClipping() const { return m_farClipping; } ///< m from the eye
    bool setFarClipping(double distance);
    const KrColor& backgroundColor() const { return m_backgroundColor; }
    bool setBackgroundColor(const KrColor& color);

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    KrXmlBasicType<bool> m_autoClipping = true;
    KrXmlBasicType<double> m_nearClipping = 0.01;
    KrXmlBasicType<double> m_farClipping = 100.0;
    KrColor m_backgroundColor = KrColor(1.0, 1.0, 1.0);
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrRenderParameters, KrXmlCompoundType>;
