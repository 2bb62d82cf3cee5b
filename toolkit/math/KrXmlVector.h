#pragma once

#include <toolkit/math/KrVector.h>
#include <toolkit/xml/KrXmlObject.h>

/// A KrVector as a component of an XML object: three numbers as the text of an element.
class KrXmlVector : public KrXmlObjectOf<KrXmlVector, KrXmlObject>
{
public:
    KrXmlVector() = default;
    KrXmlVector(const KrVector& value) // NOLINT: a value and its XML form are one thing to a caller
        : m_value(value)
    {
    }
    /// The vector itself; borrowed from this object.
    const KrVector& value() const { return m_value; }
    void setValue(const KrVector& value) { m_value = value; }
    operator const KrVector&() const { return m_value; }

    bool xmlInit() override;
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    KrXmlToken token() const override;
    void writeSchemaContent(KrXmlSchema& schema) const override;

    friend bool operator==(const KrXmlVector& a, const KrXmlVector& b) { return a.m_value == b.m_value; }

private:
    KrVector m_value;
};
