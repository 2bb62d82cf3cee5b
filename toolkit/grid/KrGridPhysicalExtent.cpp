#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/grid/KrGridFile.h>
#include <toolkit/xml/KrXmlReader.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace
{

// For messages.
std::string format(unsigned int nx, unsigned int ny, unsigned int nz)
{
    return std::to_string(nx) + " x " + std::to_string(ny) + " x " + std::to_string(nz);
}

/// nx * ny * nz == count, for products of any size.
bool isProduct(std::uint64_t nx, std::uint64_t ny, std::uint64_t nz, std::uint64_t count)
{
    // Two 32-bit counts fit; the third is divided away.
    const std::uint64_t layer = nx * ny;
    return layer != 0 && nz != 0 && count % layer == 0 && count / layer == nz;
}

/// Why there can be no such field; empty when there can.
/// Asked by setter and document alike, so that both refuse the same.
std::string gridProblem(const KrVector& minimum, const KrVector& maximum, unsigned int nx, unsigned int ny,
                        unsigned int nz, const std::vector<double>& values)
{
    if (!isProduct(nx, ny, nz, values.size())) {
        return format(nx, ny, nz) + " cells and " + std::to_string(values.size()) + " values do not fit";
    }
    if (!minimum.isFinite() || !maximum.isFinite() || minimum.x() > maximum.x() || minimum.y() > maximum.y() ||
        minimum.z() > maximum.z()) {
        return "the corners span no box";
    }
    const auto bad = std::find_if(values.begin(), values.end(), [](double value) { return !std::isfinite(value); });
    return bad == values.end() ? std::string() : "value " + std::to_string(bad - values.begin()) + " is not finite";
}

// Written so that NaN fails too.
bool isColor(const KrVector& color)
{
    return std::all_of(color.data(), color.data() + 3, [](double channel) { return channel >= 0.0 && channel <= 1.0; });
}

bool areColors(const KrXmlVectorVector& colors)
{
    return std::all_of(colors.begin(), colors.end(), isColor);
}

/// The bytes that base64 text stands for (RFC 4648, section 4); white space is passed over. False for other text.
bool decodeBase64(const std::string& text, std::string& bytes)
{
    // Any byte can be asked about without a second look.
    static const std::string s_alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<int, 256> digits;
    digits.fill(-1);
    for (std::size_t i = 0; i < s_alphabet.size(); ++i) {
        digits[static_cast<unsigned char>(s_alphabet[i])] = static_cast<int>(i);
    }
    std::uint32_t bits = 0;
    unsigned int numBits = 0;
    std::size_t numDigits = 0;
    std::size_t numPads = 0;
    // Three bytes for four digits; the text is in memory already, so the size is no surprise.
    bytes.reserve(text.size() / 4 * 3);
    for (const char c : text) {
        // strchr would find the closing zero of its own list.
        if (std::strchr(" \t\r\n", c) != nullptr && c != '\0') {
            continue;
        }
        if (c == '=') {
            ++numPads;
            continue;
        }
        const int digit = digits[static_cast<unsigned char>(c)];
        // Nothing follows the padding.
        if (digit < 0 || numPads != 0) {
            return false;
        }
        ++numDigits;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        numBits += 6;
        if (numBits >= 8) {
            numBits -= 8;
            bytes += static_cast<char>(static_cast<unsigned char>(bits >> numBits & 0xFFu));
        }
    }
    // Texts are whole groups of four; bits that are left over are passed over.
    return numPads <= 2 && (numDigits + numPads) % 4 == 0;
}

// The size is asked before memory is. Only a regular file has one; a pipe or a device is refused.
// False for whatever reason: the caller's message covers them all.
bool loadBytes(const std::filesystem::path& path, std::string& bytes)
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::is_regular_file(path, error) ? std::filesystem::file_size(path, error)
                                                                              : Kr::Limits::kGridBytes + 1;
    if (error || size > Kr::Limits::kGridBytes) {
        return false;
    }
    bytes.resize(static_cast<std::size_t>(size));
    std::ifstream file(path, std::ios::binary);
    return bytes.empty() || file.read(&bytes[0], static_cast<std::streamsize>(bytes.size())).good();
}

/// Little endian, whatever the machine.
template <typename Real, typename Word>
void convert(const std::string& bytes, std::vector<double>& values)
{
    values.resize(bytes.size() / sizeof(Real));
    for (std::size_t i = 0; i < values.size(); ++i) {
        Word word = 0;
        for (std::size_t k = 0; k < sizeof(Real); ++k) {
            word |= Word{static_cast<unsigned char>(bytes[i * sizeof(Real) + k])} << (8 * k);
        }
        Real value;
        std::memcpy(&value, &word, sizeof value);
        values[i] = static_cast<double>(value);
    }
}

void warn(const char* method, const std::string& reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrGridPhysicalExtent::%s - %s; nothing is changed.\n", method,
                                 reason.c_str());
}

} // namespace

// Values may stand in the document as numbers or bytes, or in a file beside it.
bool KrGridPhysicalExtent::Values::read(KrXmlReader& reader)
{
    std::string encoding, file, type;
    const bool isEncoded = reader.attribute("encoding", encoding);
    const bool isFile = reader.attribute("file", file);
    const bool isTyped = reader.attribute("type", type);
    if (!isEncoded && !isFile) {
        return KrXmlVectorType<double>::read(reader);
    }
    // A file without a type is one of KrGridFile's formats, which know theirs.
    const bool isKnownType = type == "float32" || type == "float64" || (isFile && !isTyped);
    if ((isEncoded && (encoding != "base64" || isFile)) || !isKnownType) {
        return reader.fail("values have encoding \"base64\" or a file, and type \"float32\" or \"float64\"");
    }
    // The text is read in any case: the reader has to get past the element.
    std::string text, bytes;
    if (!reader.text(text)) {
        return false;
    }
    if (isEncoded) {
        return decodeBase64(text, bytes) ? readBytes(reader, bytes, type) : reader.fail("this is no base64");
    }
    // What a stream or a socket brings has no business with the files of this machine.
    if (reader.documentFolder().empty()) {
        return reader.fail("file \"%.200s\" is beside no document", file.c_str());
    }
    // An absolute name stands for itself.
    const std::filesystem::path path = std::filesystem::path(reader.documentFolder()) / file;
    if (!isTyped) {
        return readField(reader, path.string());
    }
    return loadBytes(path, bytes) ? readBytes(reader, bytes, type)
                                  : reader.fail("file \"%.200s\" cannot be read or is larger than 1 GiB", file.c_str());
}

// The number of values is checked with the counts of cells, when both are known.
bool KrGridPhysicalExtent::Values::readBytes(KrXmlReader& reader, const std::string& bytes, const std::string& type)
{
    if (bytes.size() % (type == "float32" ? 4 : 8) != 0) {
        return reader.fail("%zu bytes are no whole number of %s", bytes.size(), type.c_str());
    }
    if (type == "float32") {
        convert<float, std::uint32_t>(bytes, values());
    } else {
        convert<double, std::uint64_t>(bytes, values());
    }
    return true;
}

/// The values of a file that knows its type; where the grid lies, the document says.
bool KrGridPhysicalExtent::Values::readField(KrXmlReader& reader, const std::string& path)
{
    KrGridPhysicalExtent field;
    const std::string problem = KrGridFile::tryRead(path, field);
    if (!problem.empty()) {
        return reader.fail("file \"%.200s\": %s", path.c_str(), problem.c_str());
    }
    values() = field.values();
    return true;
}

void KrGridPhysicalExtent::Values::writeSchemaContent(KrXmlSchema& schema) const
{
    schema.numbersOrBytes();
}

bool KrGridPhysicalExtent::setGrid(const KrVector& minimum, const KrVector& maximum, unsigned int nx, unsigned int ny,
                                   unsigned int nz, const std::vector<double>& values)
{
    // Before the first member is assigned, so that a refused grid changes nothing.
    const std::string problem = gridProblem(minimum, maximum, nx, ny, nz, values);
    if (!problem.empty()) {
        warn("setGrid", problem);
        return false;
    }
    m_values.values() = values;
    m_minimum = minimum;
    m_maximum = maximum;
    m_cells.values() = {nx, ny, nz};
    // One new revision for all of it: who draws the field looks at the number.
    touch();
    return true;
}

void KrGridPhysicalExtent::setDataScale(double scale)
{
    if (!std::isfinite(scale)) {
        warn("setDataScale", "a scale is finite");
        return;
    }
    m_dataScale = scale;
    touch();
}

void KrGridPhysicalExtent::setInflection(const KrVector& inflection)
{
    if (!inflection.isFinite()) {
        warn("setInflection", "an inflection is finite");
        return;
    }
    m_inflection = inflection;
    touch();
}

void KrGridPhysicalExtent::setLookupTable(const KrXmlVectorVector& colors)
{
    if (!areColors(colors)) {
        warn("setLookupTable", "colours are between 0 and 1");
        return;
    }
    m_lookupTable = colors;
    touch();
}

// All at once, for who draws the field.
void KrGridPhysicalExtent::layout(double& dataScale, KrVector& minimum, KrVector& maximum, KrVector& dimensions,
                                  KrVector& inflection) const
{
    dataScale = m_dataScale;
    minimum = m_minimum;
    maximum = m_maximum;
    // A field that was never set has no cells.
    dimensions = m_cells.size() == 3 ? KrVector(m_cells[0], m_cells[1], m_cells[2]) : KrVector();
    inflection = m_inflection;
}

boost::shared_ptr<const KrTriPhysicalExtent> KrGridPhysicalExtent::triExtent() const
{
    // A field is drawn as a volume and has no surface.
    return boost::shared_ptr<const KrTriPhysicalExtent>();
}

KrXmlToken KrGridPhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "grid"};
}

void KrGridPhysicalExtent::registerComponents()
{
    // The parts that all extents have come first.
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "dataScale"}, m_dataScale, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "minimum"}, m_minimum);
    registerComponent({KrXmlNamespace::core(), "maximum"}, m_maximum);
    registerComponent({KrXmlNamespace::core(), "cells"}, m_cells);
    registerComponent({KrXmlNamespace::core(), "inflection"}, m_inflection, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "values"}, m_values);
    registerComponent({KrXmlNamespace::core(), "lookupTable"}, m_lookupTable, Presence::Optional);
}

// The same as the setters ask, for what was read.
bool KrGridPhysicalExtent::validate(KrXmlRefusal& refusal) const
{
    if (!std::isfinite(m_dataScale.value()) || !m_inflection.value().isFinite() || !areColors(m_lookupTable)) {
        return refusal.fail("scale and inflection are finite, colours between 0 and 1");
    }
    // A field that was never set has no cells.
    if (m_cells.empty() && m_values.empty()) {
        return true;
    }
    if (m_cells.size() != 3) {
        return refusal.fail("\"cells\" are three counts, not %u", m_cells.size());
    }
    // The values' own type does not know how many there should be.
    const std::string problem = gridProblem(m_minimum, m_maximum, m_cells[0], m_cells[1], m_cells[2], values());
    return problem.empty() || refusal.fail("%s", problem.c_str());
}

boost::shared_ptr<KrTriPhysicalExtent> KrGridPhysicalExtent::makeTriangles() const
{
    // See triExtent().
    return boost::shared_ptr<KrTriPhysicalExtent>();
}
