#include <rendCore/system/KrRenderWindowParameters.h>

#include <string>

namespace
{

// Made on first use: objects that are made while libraries load need them.
struct Tokens
{
    KrXmlToken object{KrXmlNamespace::render(), "renderWindowParameters"};
    KrXmlToken width{KrXmlNamespace::render(), "width"};
    KrXmlToken height{KrXmlNamespace::render(), "height"};
    KrXmlToken upperLeftCorner{KrXmlNamespace::render(), "upperLeftCorner"};
    KrXmlToken numberChannels{KrXmlNamespace::render(), "numberChannels"};
    KrXmlToken backgroundColor{KrXmlNamespace::render(), "backgroundColor"};
    KrXmlToken usePBuffering{KrXmlNamespace::render(), "usePBuffering"};
};

const Tokens& tokens()
{
    // Thread-safe, and made once: tokens are compared in every file that is read.
    static const Tokens all;
    return all;
}

} // namespace

KrRenderWindowParameters::KrRenderWindowParameters() = default;
KrRenderWindowParameters::KrRenderWindowParameters(const KrRenderWindowParameters& other) = default;
KrRenderWindowParameters::~KrRenderWindowParameters() = default;

KrRenderWindowParameters& KrRenderWindowParameters::operator=(const KrRenderWindowParameters& other) = default;

KrXmlObject* KrRenderWindowParameters::clone() const
{
    return new KrRenderWindowParameters(*this);
}

KrXmlObject* KrRenderWindowParameters::newObject() const
{
    return new KrRenderWindowParameters;
}

bool KrRenderWindowParameters::selfTest() const
{
    // Kept, as the next three: overrides that add nothing. The interface names them; nothing else is known to need
    // them.
    return KrXmlCompoundType::selfTest();
}

bool KrRenderWindowParameters::xmlInit()
{
    return KrXmlCompoundType::xmlInit();
}

bool KrRenderWindowParameters::read(KrXmlReader& reader)
{
    return KrXmlCompoundType::read(reader);
}

bool KrRenderWindowParameters::write(KrXmlWriter& writer) const
{
    return KrXmlCompoundType::write(writer);
}

bool KrRenderWindowParameters::equality(const KrXmlObject* other) const
{
    // Objects of other classes are unequal, not an error.
    const auto* const same = dynamic_cast<const KrRenderWindowParameters*>(other);
    return same && *this == *same;
}

bool KrRenderWindowParameters::assign(const KrXmlObject& other)
{
    const auto* const same = dynamic_cast<const KrRenderWindowParameters*>(&other);
    if (same) {
        *this = *same;
    }
    return same != nullptr;
}

KrXmlToken KrRenderWindowParameters::token() const
{
    return tokens().object;
}

// Kept: in this order, which is that of the elements in written files.
void KrRenderWindowParameters::registerComponents()
{
    // What is registered is read, written and compared with schemas without further code.
    registerComponent(tokens().width, m_width);
    registerComponent(tokens().height, m_height);
    registerComponent(tokens().upperLeftCorner, m_upperLeftCorner);
    registerComponent(tokens().numberChannels, m_numberChannels);
    registerComponent(tokens().backgroundColor, m_backgroundColor);
    registerComponent(tokens().usePBuffering, m_usePBuffering);
}

bool KrRenderWindowParameters::operator==(const KrRenderWindowParameters& other) const
{
    return m_width == other.m_width && m_height == other.m_height && m_upperLeftCorner == other.m_upperLeftCorner &&
           m_numberChannels == other.m_numberChannels && m_backgroundColor == other.m_backgroundColor &&
           m_usePBuffering == other.m_usePBuffering;
}

unsigned int KrRenderWindowParameters::width() const
{
    return m_width;
}

void KrRenderWindowParameters::setWidth(unsigned int width)
{
    m_width = width;
}

unsigned int KrRenderWindowParameters::height() const
{
    return m_height;
}

void KrRenderWindowParameters::setHeight(unsigned int height)
{
    m_height = height;
}

const KrPixel& KrRenderWindowParameters::upperLeftCorner() const
{
    return m_upperLeftCorner;
}

void KrRenderWindowParameters::setUpperLeftCorner(const KrPixel& corner)
{
    m_upperLeftCorner = corner;
}

unsigned int KrRenderWindowParameters::numChannels() const
{
    return m_numberChannels;
}

void KrRenderWindowParameters::setNumChannels(unsigned int channels)
{
    m_numberChannels = channels;
}

const KrRenderWindowParameters::BackgroundColor& KrRenderWindowParameters::backgroundColor() const
{
    return m_backgroundColor;
}

void KrRenderWindowParameters::setBackgroundColor(const BackgroundColor& color)
{
    m_backgroundColor = color;
}

KrRenderWindowParameters KrRenderWindowParameters::nullObject()
{
    // Kept: the null object is a fresh one, so that an object that says nothing compares equal to it.
    return {};
}

KrRenderWindowParameters KrRenderWindowParameters::testObject()
{
    KrRenderWindowParameters parameters;
    BackgroundColor black;
    // Kept: three channels of zeros, so that it differs from a fresh object, whose list is empty.
    black.resize(3);
    parameters.setBackgroundColor(black);
    return parameters;
}
