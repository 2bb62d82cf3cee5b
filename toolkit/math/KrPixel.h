#pragma once

#include <toolkit/xml/KrXmlObject.h>

/// A place in a window: x to the right, y downwards from the upper left corner, whole pixels.
class KrPixel : public KrXmlObjectOf<KrPixel, KrXmlObject>
{
public:
    KrPixel() = default; ///< the upper left corner
    /// Columns from the left, rows from the top.
    KrPixel(unsigned int x, unsigned int y)
        : m_x(x)
        , m_y(y)
    {
    }
    /// Pixels from the left edge, and from the upper one.
    unsigned int x() const { return m_x; }
    unsigned int y() const { return m_y; }

    bool xmlInit() override;
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    KrXmlToken token() const override;
    void writeSchemaContent(KrXmlSchema& schema) const override;

    friend bool operator==(const KrPixel& a, const KrPixel& b) { return a.m_x == b.m_x && a.m_y == b.m_y; }
    friend bool operator!=(const KrPixel& a, const KrPixel& b) { return !(a == b); }

private:
    unsigned int m_x = 0;
    unsigned int m_y = 0;
};
