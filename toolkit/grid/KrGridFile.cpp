#include <toolkit/grid/KrGridFile.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrText.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>
#include <toolkit/xml/KrXmlText.h>

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace
{

constexpr std::size_t kLongestPath = 4096;  ///< in a message
constexpr std::size_t kMaxGzipRatio = 1100; ///< deflate's own bound is about 1032

/// Thrown and caught in this file only; the text is the reason.
using Trouble = std::runtime_error;

// The types of numbers that both formats have.
enum class Scalar
{
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Int64,
    UInt64,
    Float,
    Double
};

std::size_t sizeOf(Scalar type)
{
    switch (type) {
    case Scalar::Int8:
    case Scalar::UInt8:
        return 1;
    case Scalar::Int16:
    case Scalar::UInt16:
        return 2;
    case Scalar::Int32:
    case Scalar::UInt32:
    case Scalar::Float:
        return 4;
    default:
        return 8;
    }
}

// What both formats are read into, before it becomes an extent.
struct Field
{
    std::array<unsigned int, 3> counts = {0, 0, 0};
    std::array<double, 3> spacing = {1.0, 1.0, 1.0};
    std::array<double, 3> first = {0.0, 0.0, 0.0}; ///< where the first sample is
    /// Along which axes `first` is the corner of the first cell.
    std::array<bool, 3> isCorner = {false, false, false};
    std::vector<double> values;

    std::size_t numValues() const { return std::size_t{counts[0]} * counts[1] * counts[2]; }
};

// Text of a file in a message: one line, of a limited length.
std::string inQuotes(const std::string& text, std::size_t longest = Kr::Limits::kMessageName)
{
    return "\"" + KrText::oneLine(text, longest) + "\"";
}

// The size is asked before memory is.
// The whole file: headers name places anywhere in it.
std::string loadFile(const std::string& path)
{
    std::error_code error;
    const auto size = std::filesystem::is_regular_file(path, error) ? std::filesystem::file_size(path, error) : 0;
    if (error || size == 0) {
        throw Trouble(inQuotes(path, kLongestPath) + " is missing or empty");
    }
    if (size > Kr::Limits::kGridBytes) {
        throw Trouble(inQuotes(path, kLongestPath) + " is larger than 1 GiB");
    }
    std::string content(static_cast<std::size_t>(size), '\0');
    std::ifstream file(path, std::ios::binary);
    if (!file.read(&content[0], static_cast<std::streamsize>(content.size()))) {
        throw Trouble(inQuotes(path, kLongestPath) + " cannot be read");
    }
    return content;
}

// With either kind of line end; the last line need not have one.
std::string_view takeLine(std::string_view& rest)
{
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

// Exactly `count` numbers; `what` begins the message otherwise.
std::vector<double> numbers(const std::string& text, std::size_t count, const char* what)
{
    std::vector<double> out(count);
    std::string_view rest = text;
    for (double& number : out) {
        if (!KrXmlText::take(rest, number)) {
            throw Trouble(std::string(what) + " " + inQuotes(text) + " are not " + std::to_string(count) + " numbers");
        }
    }
    if (!KrXmlText::atEnd(rest)) {
        throw Trouble(std::string(what) + " " + inQuotes(text) + " are more than " + std::to_string(count));
    }
    return out;
}

/// Refuses before anything of that size is made.
/// Sizes from a file, less one along each axis where they count corners.
void setCounts(Field& field, const std::vector<double>& sizes, double lessEach)
{
    double product = 1.0;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double count = sizes[axis] - lessEach;
        // In double precision a product cannot wrap around, whatever the file says.
        product *= count;
        if (!(count >= 1.0 && product <= KrGridFile::kMaxValues) || count != std::floor(count)) {
            throw Trouble("the sizes are not those of a grid of up to " + std::to_string(KrGridFile::kMaxValues) +
                          " values");
        }
        field.counts[axis] = static_cast<unsigned int>(count);
    }
}

// By way of a copy: the bytes of a file are aligned to nothing.
template <typename T>
double one(const char* bytes, bool isSwapped)
{
    char copy[sizeof(T)];
    std::memcpy(copy, bytes, sizeof(T));
    if (isSwapped) {
        std::reverse(copy, copy + sizeof(T));
    }
    T value;
    std::memcpy(&value, copy, sizeof(T));
    return static_cast<double>(value);
}

template <typename T>
void convert(std::string_view bytes, bool isSwapped, std::vector<double>& values)
{
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = one<T>(bytes.data() + i * sizeof(T), isSwapped);
    }
}

void readBinary(std::string_view bytes, Scalar type, bool isBigEndian, Field& field)
{
    // The product is below the limit on values, see setCounts.
    const std::size_t needed = field.numValues() * sizeOf(type);
    if (bytes.size() < needed) {
        throw Trouble("its data are " + std::to_string(bytes.size()) + " bytes, not " + std::to_string(needed));
    }
    field.values.resize(field.numValues());
    // Which order the bytes of this machine have, asked of a number.
    const std::uint16_t probe = 1;
    const bool isHostLittle = *reinterpret_cast<const unsigned char*>(&probe) == 1;
    const bool isSwapped = isBigEndian == isHostLittle;
    switch (type) {
    case Scalar::Int8:
        return convert<std::int8_t>(bytes, isSwapped, field.values);
    case Scalar::UInt8:
        return convert<std::uint8_t>(bytes, isSwapped, field.values);
    case Scalar::Int16:
        return convert<std::int16_t>(bytes, isSwapped, field.values);
    case Scalar::UInt16:
        return convert<std::uint16_t>(bytes, isSwapped, field.values);
    case Scalar::Int32:
        return convert<std::int32_t>(bytes, isSwapped, field.values);
    case Scalar::UInt32:
        return convert<std::uint32_t>(bytes, isSwapped, field.values);
    case Scalar::Int64:
        return convert<std::int64_t>(bytes, isSwapped, field.values);
    case Scalar::UInt64:
        return convert<std::uint64_t>(bytes, isSwapped, field.values);
    case Scalar::Float:
        return convert<float>(bytes, isSwapped, field.values);
    case Scalar::Double:
        return convert<double>(bytes, isSwapped, field.values);
    }
}

// Numbers with white space between them; what follows the last one is not looked at.
void readText(std::string_view text, Field& field)
{
    // A digit and a space each, but for the last.
    if (text.size() / 2 + 1 < field.numValues()) {
        throw Trouble("its data end early");
    }
    field.values.resize(field.numValues());
    for (std::size_t i = 0; i < field.values.size(); ++i) {
        if (!KrXmlText::take(text, field.values[i])) {
            throw Trouble("value " + std::to_string(i + 1) + " of " + std::to_string(field.values.size()) +
                          " is missing or no number");
        }
    }
}

/// `size` bytes of one or several members in the gzip or zlib format, after each other.
std::string inflated(std::string_view bytes, std::size_t size)
{
    // Before memory is asked for: compressed data cannot stand for more than this.
    if (size / kMaxGzipRatio > bytes.size()) {
        throw Trouble("its compressed data are too short");
    }
    std::string out(size, '\0');
    z_stream stream = {};
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(&out[0]);
    stream.avail_out = static_cast<uInt>(out.size());
    // zlib's largest window, and 32 on top for telling the two formats apart by their headers.
    constexpr int gzipOrZlib = 15 + 32;
    if (inflateInit2(&stream, gzipOrZlib) != Z_OK) {
        throw Trouble("out of memory");
    }
    int result = inflate(&stream, Z_FINISH);
    // A gzip file may have several members, which are put after each other.
    while (result == Z_STREAM_END && stream.avail_out != 0 && stream.avail_in != 0) {
        result = inflateReset(&stream) == Z_OK ? inflate(&stream, Z_FINISH) : Z_STREAM_ERROR;
    }
    // A full output may come before the last bytes of the input are looked at; what is left of them does not count.
    const bool isWhole = stream.avail_out == 0 && (result == Z_STREAM_END || result == Z_BUF_ERROR || result == Z_OK);
    inflateEnd(&stream);
    if (!isWhole) {
        throw Trouble("its compressed data are damaged or too short");
    }
    return out;
}

// NRRD

using Header = std::map<std::string, std::string>;

// A field that the format demands.
const std::string& need(const Header& header, const char* key)
{
    const auto found = header.find(key);
    if (found == header.end()) {
        throw Trouble(std::string("its header has no \"") + key + "\"");
    }
    return found->second;
}

// Fields by name; of one that stands twice the last counts.
Header nrrdHeader(std::string_view& rest)
{
    Header header;
    // The first line is the magic, which readField has seen.
    takeLine(rest);
    while (!rest.empty()) {
        const std::string line(takeLine(rest));
        // An empty line ends the header; data follow, in this file or in another one.
        if (line.empty()) {
            break;
        }
        const std::size_t colon = line.find(": ");
        // Comments and key/value pairs say nothing about the grid.
        if (line[0] == '#' || colon == std::string::npos || line.find(":=") < colon) {
            continue;
        }
        // Names of fields are compared without regard to case and blanks, as other readers of the format do.
        std::string key = KrText::lowered(line.substr(0, colon));
        key.erase(std::remove(key.begin(), key.end(), ' '), key.end());
        header[key] = KrText::trimmed(std::string_view(line).substr(colon + 2));
    }
    return header;
}

Scalar nrrdType(const std::string& name)
{
    // The spellings that the definition of the format lists, but for "block", whose size it leaves to the file.
    static const std::map<std::string, Scalar> types = {
        {"signed char", Scalar::Int8},    {"int8", Scalar::Int8},
        {"int8_t", Scalar::Int8},         {"uchar", Scalar::UInt8},
        {"unsigned char", Scalar::UInt8}, {"uint8", Scalar::UInt8},
        {"uint8_t", Scalar::UInt8},       {"short", Scalar::Int16},
        {"short int", Scalar::Int16},     {"signed short", Scalar::Int16},
        {"int16", Scalar::Int16},         {"int16_t", Scalar::Int16},
        {"ushort", Scalar::UInt16},       {"unsigned short", Scalar::UInt16},
        {"uint16", Scalar::UInt16},       {"uint16_t", Scalar::UInt16},
        {"int", Scalar::Int32},           {"signed int", Scalar::Int32},
        {"int32", Scalar::Int32},         {"int32_t", Scalar::Int32},
        {"uint", Scalar::UInt32},         {"unsigned int", Scalar::UInt32},
        {"uint32", Scalar::UInt32},       {"uint32_t", Scalar::UInt32},
        {"longlong", Scalar::Int64},      {"long long", Scalar::Int64},
        {"int64", Scalar::Int64},         {"int64_t", Scalar::Int64},
        {"ulonglong", Scalar::UInt64},    {"unsigned long long", Scalar::UInt64},
        {"uint64", Scalar::UInt64},       {"uint64_t", Scalar::UInt64},
        {"float", Scalar::Float},         {"double", Scalar::Double}};
    const auto found = types.find(KrText::lowered(name));
    if (found == types.end()) {
        throw Trouble("type " + inQuotes(name) + " is none that can be read");
    }
    return found->second;
}

enum class Encoding
{
    Raw,
    Text,
    Gzip
};

// bzip2 and hexadecimal digits, which the format knows too, are not read.
Encoding nrrdEncoding(const std::string& name)
{
    static const std::map<std::string, Encoding> encodings = {{"raw", Encoding::Raw},   {"text", Encoding::Text},
                                                              {"txt", Encoding::Text},  {"ascii", Encoding::Text},
                                                              {"gzip", Encoding::Gzip}, {"gz", Encoding::Gzip}};
    const auto found = encodings.find(KrText::lowered(name));
    if (found == encodings.end()) {
        throw Trouble("encoding " + inQuotes(name) + " is none that can be read");
    }
    return found->second;
}

/// "(1,0,0) (0,1,0) (0,0,1)" as numbers.
std::vector<double> nrrdVectors(std::string text, std::size_t count, const char* what)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '(' || c == ')' || c == ','; }, ' ');
    return numbers(text, count, what);
}

/// What "axis mins" and "axis maxs" are along each axis: corners of cells (true) or middles of samples, as they are
/// taken to be where the file does not say.
std::array<bool, 3> nrrdCenters(const Header& header)
{
    std::array<bool, 3> isCell = {false, false, false};
    for (const char* key : {"centers", "centerings"}) {
        const auto found = header.find(key);
        std::istringstream words(found == header.end() ? std::string() : found->second);
        std::string word;
        for (std::size_t axis = 0; axis < 3 && words >> word; ++axis) {
            isCell[axis] = KrText::lowered(word) == "cell";
        }
    }
    return isCell;
}

/// Sets the spacing from both ends of the axes; one that is given otherwise must agree.
void nrrdSpan(const std::vector<double>& ends, bool hasSpacing, Field& field)
{
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double length = ends[axis] - field.first[axis];
        // Between the middles of n samples there are n - 1 steps. A single sample has none: its spacing is no finite
        // number and is refused in tryRead.
        const unsigned int numSteps = field.counts[axis] - (field.isCorner[axis] ? 0 : 1);
        // The tolerance is relative: headers have rounded numbers. Written so that NaN fails too.
        if (hasSpacing && !(std::abs(numSteps * field.spacing[axis] - length) <= 1e-4 * std::abs(length))) {
            throw Trouble("its spacings and axis maxs contradict each other");
        }
        field.spacing[axis] = hasSpacing ? field.spacing[axis] : length / numSteps;
    }
}

// Where the samples are: spacings, directions and ends may be told in several ways.
void nrrdPlace(const Header& header, Field& field)
{
    if (const auto found = header.find("spacings"); found != header.end()) {
        std::vector<double> spacings = numbers(found->second, 3, "spacings");
        std::copy(spacings.begin(), spacings.end(), field.spacing.begin());
    }
    if (const auto found = header.find("spacedirections"); found != header.end()) {
        const std::vector<double> m = nrrdVectors(found->second, 9, "space directions");
        // A field's axes are those of its link, so the matrix is diagonal: elements 0, 4 and 8.
        for (unsigned int i = 0; i < 9; ++i) {
            if (i % 4 != 0 && m[i] != 0.0) {
                throw Trouble("its space directions are not along the axes");
            }
        }
        field.spacing = {m[0], m[4], m[8]};
    }
    const auto minima = header.find("axismins");
    if (minima != header.end()) {
        const std::vector<double> first = numbers(minima->second, 3, "axis mins");
        std::copy(first.begin(), first.end(), field.first.begin());
        field.isCorner = nrrdCenters(header);
    }
    if (const auto found = header.find("axismaxs"); found != header.end()) {
        if (minima == header.end()) {
            throw Trouble("it has axis maxs without axis mins");
        }
        const bool hasSpacing = header.count("spacings") + header.count("spacedirections") != 0;
        nrrdSpan(numbers(found->second, 3, "axis maxs"), hasSpacing, field);
    }
    // The middle of a sample, whatever the centers say.
    if (const auto found = header.find("spaceorigin"); found != header.end()) {
        const std::vector<double> first = nrrdVectors(found->second, 3, "space origin");
        std::copy(first.begin(), first.end(), field.first.begin());
        field.isCorner.fill(false);
    }
}

// Lines before bytes, as the definition of the format has it.
void nrrdSkipLines(const Header& header, std::string_view& data)
{
    // In double precision: the number of lines is the file's word, and it ends with the data at the latest.
    const auto lines = header.find("lineskip");
    for (double n = lines == header.end() ? 0.0 : numbers(lines->second, 1, "line skip")[0]; n > 0.0 && !data.empty();
         n -= 1.0) {
        takeLine(data);
    }
}

/// How many bytes stand before `needed` ones; -1 in the header of raw data stands for all that are too many.
/// Of data that are packed, bytes are counted after unpacking.
std::size_t nrrdByteSkip(const Header& header, bool isRaw, std::size_t size, std::size_t needed)
{
    const auto found = header.find("byteskip");
    const double bytes = found == header.end() ? 0.0 : numbers(found->second, 1, "byte skip")[0];
    // Data stand at the end of the file then, behind a foreign header of unknown size.
    if (bytes == -1.0 && isRaw) {
        return size - std::min(size, needed);
    }
    if (!(bytes >= 0.0 && bytes <= static_cast<double>(Kr::Limits::kGridBytes))) {
        throw Trouble("byte skip " + inQuotes(found->second) + " is no number of bytes to skip");
    }
    return static_cast<std::size_t>(bytes);
}

/// A header names the data that came with it, and nothing else on this machine.
/// The name comes from a file: it may come from anybody.
std::string besidePath(const std::string& headerPath, const std::string& name)
{
    const std::filesystem::path relative(name);
    if (relative.is_absolute() || std::find(relative.begin(), relative.end(), "..") != relative.end()) {
        throw Trouble("its data file " + inQuotes(name) + " is not below its own folder");
    }
    return (std::filesystem::path(headerPath).parent_path() / relative).string();
}

// The header first; it says where the data are and how large they must be.
Field readNrrd(const std::string& path, std::string_view content)
{
    const Header header = nrrdHeader(content);
    Field field;
    if (need(header, "dimension") != "3") {
        throw Trouble("it has " + KrText::oneLine(header.at("dimension")) + " dimensions, not 3");
    }
    // Sizes before data: what follows relies on a number of values that is within the limit.
    setCounts(field, numbers(need(header, "sizes"), 3, "sizes"), 0.0);
    nrrdPlace(header, field);
    const Scalar type = nrrdType(need(header, "type"));
    const std::size_t needed = field.numValues() * sizeOf(type);

    // Keeps the bytes that `content` then looks at, as `unpacked` does below.
    std::string detached;
    auto file = header.find("datafile");
    if (file != header.end()) {
        detached = loadFile(besidePath(path, file->second));
        content = detached;
    }
    nrrdSkipLines(header, content);
    const Encoding encoding = nrrdEncoding(need(header, "encoding"));
    const std::size_t skipped = nrrdByteSkip(header, encoding == Encoding::Raw, content.size(), needed);
    // Lines are those of the file, bytes those of what is unpacked from it.
    std::string unpacked;
    if (encoding == Encoding::Gzip) {
        unpacked = inflated(content, skipped + needed);
        content = unpacked;
    }
    content.remove_prefix(std::min(skipped, content.size()));
    if (encoding == Encoding::Text) {
        readText(content, field);
        return field;
    }
    const auto endian = header.find("endian");
    // A single byte has no order.
    if (sizeOf(type) > 1 && endian == header.end()) {
        throw Trouble("its header has no \"endian\"");
    }
    const bool isBig = endian != header.end() && KrText::lowered(endian->second) == "big";
    readBinary(content, type, isBig, field);
    return field;
}

// Legacy VTK

Scalar vtkType(const std::string& name)
{
    static const std::map<std::string, Scalar> types = {
        {"char", Scalar::Int8},          {"unsigned_char", Scalar::UInt8},
        {"short", Scalar::Int16},        {"unsigned_short", Scalar::UInt16},
        {"int", Scalar::Int32},          {"unsigned_int", Scalar::UInt32},
        {"vtktypeint64", Scalar::Int64}, {"vtktypeuint64", Scalar::UInt64},
        {"float", Scalar::Float},        {"double", Scalar::Double}};
    const auto found = types.find(KrText::lowered(name));
    if (found == types.end()) {
        throw Trouble("type " + inQuotes(name) + " is none that can be read");
    }
    return found->second;
}

// For what VTK names in one line.
std::array<double, 3> three(const std::string& text, const char* what)
{
    const std::vector<double> n = numbers(text, 3, what);
    return {n[0], n[1], n[2]};
}

// Keywords may come in any order before the scalars, and in any case of letters.
Field readVtk(std::string_view content)
{
    // Version and title, which say nothing about the data.
    takeLine(content);
    takeLine(content);
    const std::string format = KrText::lowered(KrText::trimmed(takeLine(content)));
    if (format != "ascii" && format != "binary") {
        throw Trouble("it is neither ASCII nor BINARY");
    }
    Field field;
    // Counts of points; of cells there is one less along each axis.
    std::vector<double> dimensions;
    bool isData = false;
    while (!content.empty()) {
        const std::string line(KrText::trimmed(takeLine(content)));
        const std::size_t space = std::min(line.find_first_of(" \t"), line.size());
        const std::string key = KrText::lowered(line.substr(0, space));
        const std::string value(KrText::trimmed(std::string_view(line).substr(space)));
        if (key == "dataset" && KrText::lowered(value) != "structured_points") {
            // The other kinds of data set are not regular grids along the axes.
            throw Trouble("its data set is " + inQuotes(value) + ", not STRUCTURED_POINTS");
        } else if (key == "dimensions") {
            dimensions = numbers(value, 3, "dimensions");
        } else if (key == "origin") {
            field.first = three(value, "the origin");
            // Older versions of the format call the spacing so.
        } else if (key == "spacing" || key == "aspect_ratio") {
            field.spacing = three(value, "spacings");
            // Says how the scalars that follow are placed: a value at each point, or one for each cell.
        } else if (key == "point_data" || key == "cell_data") {
            isData = dimensions.size() == 3;
            field.isCorner.fill(key == "cell_data");
        } else if (key == "scalars" && isData) {
            std::istringstream words(value);
            std::string name, type, components = "1";
            words >> name >> type >> components;
            if (components != "1") {
                throw Trouble("scalars " + inQuotes(name) + " have " + KrText::oneLine(components) +
                              " components, not 1");
            }
            setCounts(field, dimensions, field.isCorner[0] ? 1.0 : 0.0);
            // A table of colours may be named in the next line.
            std::string_view next = content;
            if (KrText::lowered(takeLine(next)).rfind("lookup_table", 0) == 0) {
                content = next;
            }
            // Binary data are big-endian in this format, whatever machine has written them.
            format == "ascii" ? readText(content, field) : readBinary(content, vtkType(type), true, field);
            return field;
        } else if (!key.empty() && key != "dataset") {
            throw Trouble(inQuotes(line.substr(0, 40)) + " stands where structured points with scalars are expected");
        }
    }
    throw Trouble("it has no scalars");
}

// By content: a file's name says nothing.
Field readField(const std::string& path)
{
    const std::string content = loadFile(path);
    if (content.rfind("NRRD000", 0) == 0) {
        return readNrrd(path, content);
    }
    if (content.rfind("# vtk DataFile", 0) == 0) {
        return readVtk(content);
    }
    throw Trouble("it is neither NRRD nor legacy VTK");
}

} // namespace

// One message for every way to fail; the grid is as it was then.
bool KrGridFile::read(const std::string& path, KrGridPhysicalExtent& grid)
{
    const std::string reason = tryRead(path, grid);
    if (!reason.empty()) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrGridFile::read - %s: %s.\n", path.c_str(), reason.c_str());
    }
    return reason.empty();
}

// Without a message: who reads a document tells the reason at its own place.
std::string KrGridFile::tryRead(const std::string& path, KrGridPhysicalExtent& grid)
{
    try {
        const Field field = readField(path);
        KrVector minimum, maximum;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            // Written so that NaN fails too.
            if (!(field.spacing[axis] > 0.0 && std::isfinite(field.spacing[axis]) &&
                  std::isfinite(field.first[axis]))) {
                throw Trouble("its spacings are not positive or its origin is not finite");
            }
            // The box reaches half a spacing beyond the middles of the outermost samples.
            minimum[axis] = field.first[axis] - (field.isCorner[axis] ? 0.0 : 0.5 * field.spacing[axis]);
            maximum[axis] = minimum[axis] + field.counts[axis] * field.spacing[axis];
            if (!std::isfinite(maximum[axis])) {
                throw Trouble("its corners are not finite");
            }
        }
        // A value that is not finite has no colour, and would spoil the range of the others.
        if (!std::all_of(field.values.begin(), field.values.end(), [](double v) { return std::isfinite(v); })) {
            throw Trouble("not all of its values are finite");
        }
        grid.setGrid(minimum, maximum, field.counts[0], field.counts[1], field.counts[2], field.values);
        return std::string();
    } catch (const std::exception& error) {
        return error.what();
        // Nothing passes a public function.
    } catch (...) {
        return "it cannot be read";
    }
}
