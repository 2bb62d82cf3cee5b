#include <toolkit/material/KrDataMap.h>

#include <toolkit/math/KrColor.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

namespace
{

// The one key whose value is the name of a file.
const char* const kTextureKey = "krTextureFilename";

// The three types that a document can write.
using Value = std::variant<double, std::string, bool>;

// False when there is no such key, or its value is of another type; `out` stays as it was.
template <typename T>
bool find(const std::map<std::string, Value>& values, const std::string& key, T& out)
{
    const auto found = values.find(key);
    const T* const value = found == values.end() ? nullptr : std::get_if<T>(&found->second);
    if (value == nullptr) {
        return false;
    }
    out = *value;
    return true;
}

// A failure has been told by the reader; what `out` then holds is not used.
template <typename T>
bool readValue(KrXmlReader& reader, Value& out)
{
    KrXmlBasicType<T> value;
    const bool ok = value.read(reader);
    out = value.value();
    return ok;
}

// The element's name decides the type; the key was read before.
bool readAnyValue(KrXmlReader& reader, Value& out)
{
    const KrXmlToken& element = reader.element();
    if (element == KrXmlBasicType<double>().token()) {
        return readValue<double>(reader, out);
    }
    if (element == KrXmlBasicType<std::string>().token()) {
        return readValue<std::string>(reader, out);
    }
    if (element == KrXmlBasicType<bool>().token()) {
        return readValue<bool>(reader, out);
    }
    return reader.fail("a data map has \"real\", \"string\" and \"boolean\"");
}

// The element's name tells the type, its attribute the key.
template <typename T>
bool writeValue(KrXmlWriter& writer, const std::string& key, const T& plain)
{
    const KrXmlBasicType<T> value(plain);
    return writer.beginElement(value.token()) && writer.attribute("key", key) && value.write(writer) &&
           writer.endElement();
}

// Four numbers by the names that the scene builder looks for.
void setColor(KrDataMap& map, const std::string& name, double red, double green, double blue, double alpha)
{
    map.setReal(name + "Red", red);
    map.setReal(name + "Green", green);
    map.setReal(name + "Blue", blue);
    map.setReal(name + "Alpha", alpha);
}

/// Names a texture in full when it lies beside the document that names it; another name stays as it is.
void resolveTexture(std::map<std::string, Value>& values, const std::string& documentFolder)
{
    const auto found = values.find(kTextureKey);
    auto* const name = found == values.end() ? nullptr : std::get_if<std::string>(&found->second);
    // An empty folder: the document came by a stream or a buffer, which lie beside nothing.
    if (name == nullptr || name->empty() || documentFolder.empty() || std::filesystem::path(*name).is_absolute()) {
        return;
    }
    std::error_code error;
    // A name that finds nothing here is left for whoever loads the picture.
    const std::filesystem::path beside = std::filesystem::absolute(documentFolder, error) / *name;
    if (!error && std::filesystem::is_regular_file(beside, error)) {
        *name = beside.lexically_normal().string();
    }
}

} // namespace

template class KrXmlObjectOf<KrDataMap, KrXmlObject>;

// Copies are compiled here, once, and not in every file that includes the header.
KrDataMap::KrDataMap() = default;
KrDataMap::KrDataMap(const KrDataMap& other) = default;
KrDataMap::KrDataMap(KrDataMap&& other) noexcept = default;
KrDataMap& KrDataMap::operator=(const KrDataMap& other) = default;
KrDataMap& KrDataMap::operator=(KrDataMap&& other) noexcept = default;
KrDataMap::~KrDataMap() = default;

// Key by key, which the map keeps in order.
bool operator==(const KrDataMap& a, const KrDataMap& b)
{
    return std::equal(a.m_values.begin(), a.m_values.end(), b.m_values.begin(), b.m_values.end(),
                      [](const auto& one, const auto& other) {
                          // A number that is none equals itself here, so that a map equals its copy.
                          const auto* const x = std::get_if<double>(&one.second);
                          const auto* const y = std::get_if<double>(&other.second);
                          const bool areNoNumbers = x != nullptr && y != nullptr && std::isnan(*x) && std::isnan(*y);
                          return one.first == other.first && (areNoNumbers || one.second == other.second);
                      });
}

bool KrDataMap::real(const std::string& key, double& out) const
{
    return find(m_values, key, out);
}

bool KrDataMap::string(const std::string& key, std::string& out) const
{
    return find(m_values, key, out);
}

bool KrDataMap::boolean(const std::string& key, bool& out) const
{
    return find(m_values, key, out);
}

// A key has one value: another type takes the old one's place.
void KrDataMap::setReal(const std::string& key, double value)
{
    m_values[key] = value;
}

void KrDataMap::setString(const std::string& key, const std::string& value)
{
    m_values[key] = value;
}

void KrDataMap::setBoolean(const std::string& key, bool value)
{
    m_values[key] = value;
}

bool KrDataMap::erase(const std::string& key)
{
    return m_values.erase(key) != 0;
}

// The four colours and the exponent of OpenGL's materials.
KrDataMap KrDataMap::material(const KrColor& color)
{
    // Highlights are weak and wide: a fifth of white, and an exponent of 20 where OpenGL goes up to 128.
    constexpr double highlight = 0.2;
    constexpr double shininess = 20.0;
    KrDataMap map;
    // Ambient and diffuse light show the same colour; alpha stands in all four, since each is a colour of its own.
    setColor(map, "krAmbient", color.red(), color.green(), color.blue(), color.alpha());
    setColor(map, "krDiffuse", color.red(), color.green(), color.blue(), color.alpha());
    setColor(map, "krSpecular", highlight, highlight, highlight, color.alpha());
    setColor(map, "krEmission", 0.0, 0.0, 0.0, color.alpha());
    map.setReal("krShininess", shininess);
    return map;
}

const KrDataMap& KrDataMap::defaultManipColor()
{
    // Made once: a reference to it stays valid.
    static const KrDataMap s_map = material(KrColor(0.75, 0.75, 0.75));
    return s_map;
}

// Half transparent.
const KrDataMap& KrDataMap::blueColor()
{
    static const KrDataMap s_map = material(KrColor(0.0, 0.0, 1.0, 0.5));
    return s_map;
}

bool KrDataMap::xmlInit()
{
    m_values.clear();
    return true;
}

bool KrDataMap::read(KrXmlReader& reader)
{
    // A map of its own: one that is read by half must not remain.
    std::map<std::string, Value> values;
    reader.enter();
    while (reader.nextChild()) {
        std::string key;
        if (!reader.attribute("key", key)) {
            return reader.fail("attribute \"key\" is missing");
        }
        Value value;
        if (!readAnyValue(reader, value)) {
            return false;
        }
        // Two values for one key would leave the winner to chance.
        if (!values.emplace(key, std::move(value)).second) {
            return reader.fail("key \"%.80s\" stands twice", key.c_str());
        }
    }
    if (reader.failed()) {
        return false;
    }
    resolveTexture(values, reader.documentFolder());
    m_values = std::move(values);
    return true;
}

bool KrDataMap::write(KrXmlWriter& writer) const
{
    bool ok = true;
    // The order is that of the keys, so that the same map gives the same document.
    for (const auto& [key, value] : m_values) {
        // A structured binding cannot be captured by a lambda of C++17.
        const std::string& name = key;
        ok = ok && std::visit([&](const auto& plain) { return writeValue(writer, name, plain); }, value);
    }
    return ok;
}

KrXmlToken KrDataMap::token() const
{
    return {KrXmlNamespace::core(), "dataMap"};
}

// Values of three types, each with its key; which keys there are is not the map's to say.
void KrDataMap::writeSchemaContent(KrXmlSchema& schema) const
{
    schema.keyedValues();
}
