#pragma once

#include <toolkit/math/KrPixel.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>
#include <toolkit/xml/KrXmlVectorType.h>

/// The description of a render window as an XML object: size, place, channels, background, pbuffer.
///
/// Offered to applications; no window reads it by itself.
class KrRenderWindowParameters : public KrXmlCompoundType
{
public:
    using BackgroundColor = KrXmlVectorType<KrXmlBasicType<unsigned char>>;

    /// 128 x 128 pixels at (10, 10), three channels, no background colour.
    KrRenderWindowParameters();
    KrRenderWindowParameters(const KrRenderWindowParameters& other);
    KrRenderWindowParameters& operator=(const KrRenderWindowParameters& other);

    // The order of the virtual operations is part of the interface.
    ~KrRenderWindowParameters() override;
    KrXmlObject* clone() const override;
    bool selfTest() const override;
    bool xmlInit() override;
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    bool equality(const KrXmlObject* other) const override;
    KrXmlObject* newObject() const override;
    void registerComponents() override;
    /// Size and place on the screen, pixels. Setters take any value: these are what is asked for, not what is had.
    virtual unsigned int width() const;
    virtual void setWidth(unsigned int width);
    virtual unsigned int height() const;
    virtual void setHeight(unsigned int height);
    virtual const KrPixel& upperLeftCorner() const;
    virtual void setUpperLeftCorner(const KrPixel& corner);
    /// Of a pixel; 3 for red, green and blue.
    virtual unsigned int numChannels() const;
    virtual void setNumChannels(unsigned int channels);
    /// One value a channel, 0 to 255.
    virtual const BackgroundColor& backgroundColor() const;
    virtual void setBackgroundColor(const BackgroundColor& color);

    bool assign(const KrXmlObject& other) override;
    KrXmlToken token() const override;
    /// Whether all that is registered is equal.
    bool operator==(const KrRenderWindowParameters& other) const;
    bool operator!=(const KrRenderWindowParameters& other) const { return !(*this == other); }

    /// A default object.
    static KrRenderWindowParameters nullObject();
    /// 128 x 128 pixels, three channels, black.
    static KrRenderWindowParameters testObject();

private:
    KrXmlBasicType<unsigned int> m_width = 128u;
    KrXmlBasicType<unsigned int> m_height = 128u;
    KrPixel m_upperLeftCorner = KrPixel(10, 10);
    KrXmlBasicType<unsigned int> m_numberChannels = 3u;
    BackgroundColor m_backgroundColor;
    /// Kept: reached through XML only. Documents carry it and comparisons see it; nothing draws by it.
    KrXmlBasicType<bool> m_usePBuffering = false;
};
