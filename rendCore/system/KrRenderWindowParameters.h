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
    virtual unsigned int width() const; ///< pixels
    virtual void setWidth(unsigned int width);
    virtual unsigned int height() const; ///< pixels
    virtual void setHeight(unsigned int height);
    virtual const KrPixel& upperLeftCorner() const; ///< on the screen
    virtual void setUpperLeftCorner(const KrPixel& corner);
    virtual unsigned int numChannels() const;
    virtual void setNumChannels(unsigned int channels);
    /// One value a channel, 0 to 255.
    virtual const BackgroundColor& backgroundColor() const;
    virtual void setBackgroundColor(const BackgroundColor& color);

    bool assign(const KrXmlObject& other) override;
    KrXmlToken token() const override;
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
    KrXmlBasicType<bool> m_usePBuffering = false; ///< kept: reached through XML only
};
