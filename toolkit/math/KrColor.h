#pragma once

#include <toolkit/xml/KrXmlObject.h>

/// A colour: red, green, blue, alpha, each in [0, 1]; alpha 1 is opaque.
class KrColor : public KrXmlObjectOf<KrColor, KrXmlObject>
{
public:
    KrColor() = default; ///< opaque black
    /// Any numbers; they are checked where a colour is used or read.
    KrColor(double red, double green, double blue, double alpha = 1.0)
        : m_channels{red, green, blue, alpha}
    {
    }

    /// The channels, as they were given: nothing is cut off at 0 or 1.
    virtual double red() const { return m_channels[0]; }
    virtual double green() const { return m_channels[1]; }
    virtual double blue() const { return m_channels[2]; }
    virtual double alpha() const { return m_channels[3]; }

    bool xmlInit() override;
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    KrXmlToken token() const override;
    void writeSchemaContent(KrXmlSchema& schema) const override;

    friend bool operator==(const KrColor& a, const KrColor& b);
    friend bool operator!=(const KrColor& a, const KrColor& b) { return !(a == b); }

private:
    double m_channels[4] = {0.0, 0.0, 0.0, 1.0};
};
