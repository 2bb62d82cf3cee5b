#include <import/KrImportReport.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/xml/KrXmlText.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

namespace
{

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

/// The length of the UTF-8 character at the start of `text`; 0 when there is none (RFC 3629, section 4).
std::size_t utf8Length(std::string_view text)
{
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool isOverlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool isSurrogate = lead == 0xED && byte(1) > 0x9F;
    const bool isTooHigh = lead == 0xF4 && byte(1) > 0x8F;
    return isOverlong || isSurrogate || isTooHigh ? 0 : length;
}

std::string quoted(std::string_view text)
{
    std::string result = "\"";
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        const unsigned char c = static_cast<unsigned char>(text[0]);
        if (length == 0) {
            result += "\xEF\xBF\xBD";
        } else if (c == '"' || c == '\\') {
            result += std::string("\\") + text[0];
        } else if (c < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            result += escape;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result + "\"";
}

std::string number(double value)
{
    std::string text;
    KrXmlText::append(text, value);
    return std::isfinite(value) ? text : "null";
}

/// Collects the members of an object, in order.
class JsonObject
{
public:
    JsonObject& raw(const char* name, const std::string& value)
    {
        m_text += (m_text.empty() ? "" : ", ") + quoted(name) + ": " + value;
        return *this;
    }
    JsonObject& string(const char* name, const std::string& value) { return raw(name, quoted(value)); }
    JsonObject& real(const char* name, double value) { return raw(name, number(value)); }
    JsonObject& count(const char* name, std::size_t value) { return raw(name, std::to_string(value)); }
    JsonObject& flag(const char* name, bool value) { return raw(name, value ? "true" : "false"); }
    std::string text() const { return "{" + m_text + "}"; }

private:
    std::string m_text;
};

template <typename List, typename Text>
std::string jsonArray(const List& list, const std::string& separator, Text text)
{
    std::string result;
    for (const auto& item : list) {
        result += (result.empty() ? "" : "," + separator) + text(item);
    }
    return "[" + result + "]";
}

std::string jsonOf(const KrImportReport::Warning& warning)
{
    return JsonObject()
        .string("file", warning.file)
        .string("element", warning.element)
        .string("text", warning.text)
        .text();
}

std::string jsonOf(const KrImportReport::Mesh& mesh)
{
    const double scale[3] = {mesh.scale.x(), mesh.scale.y(), mesh.scale.z()};
    return JsonObject()
        .string("link", mesh.link)
        .string("element", mesh.element)
        .string("uri", mesh.uri)
        .string("path", mesh.path)
        .string("rule", mesh.rule)
        .flag("missing", mesh.missing)
        .flag("collision", mesh.isCollision)
        .real("unit", mesh.unit)
        .raw("scale", jsonArray(scale, " ", number))
        .count("triangles", mesh.triangles)
        .count("degenerate", mesh.degenerate)
        .count("groups", mesh.groups)
        .raw("tried", jsonArray(mesh.tried, " ", [](const std::string& path) { return quoted(path); }))
        .text();
}

std::string jsonOf(const KrImportReport::Counts& counts)
{
    return JsonObject()
        .count("links", counts.links)
        .count("joints", counts.joints)
        .count("movableJoints", counts.movableJoints)
        .count("mimicJoints", counts.mimicJoints)
        .count("visuals", counts.visuals)
        .count("collisions", counts.collisions)
        .count("triangles", counts.triangles)
        .count("materials", counts.materials)
        .count("textures", counts.textures)
        .count("missingMeshes", counts.missingMeshes)
        .text();
}

/// "1 link", "2 links".
std::string counted(std::size_t count, const std::string& one, const std::string& many = "")
{
    return std::to_string(count) + " " + (count == 1 ? one : many.empty() ? one + "s" : many);
}

std::string missingText(const KrImportReport::Mesh& mesh)
{
    std::string text = "  link " + mesh.link + " / " + mesh.element + ": " + mesh.uri + "\n";
    if (!mesh.path.empty()) {
        return text + "    found, but not readable: " + mesh.path + "\n";
    }
    for (const std::string& path : mesh.tried) {
        text += "    tried " + path + "\n";
    }
    return text;
}

bool writeFile(const std::string& path, const std::string& content)
{
    const UniqueFile file(std::fopen(path.c_str(), "wb"));
    return file && std::fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
           std::fflush(file.get()) == 0;
}

} // namespace

void KrImportReport::addWarning(const std::string& file, const std::string& element, const std::string& text)
{
    if (m_seen.insert(file + '\n' + element + '\n' + text).second) {
        m_warnings.push_back({file, element, text});
    }
}

std::string KrImportReport::text() const
{
    std::string text = "robot \"" + m_robot + "\" from " + m_file + "\n  " + counted(m_counts.links, "link") + ", " +
                       counted(m_counts.joints, "joint") + " (" + std::to_string(m_counts.movableJoints) + " movable" +
                       (m_counts.mimicJoints ? ", " + std::to_string(m_counts.mimicJoints) + " of them mimic" : "") +
                       ")\n  " + counted(m_counts.visuals, "visual") + ", " +
                       counted(m_counts.collisions, "collision") + ", " + counted(m_counts.triangles, "triangle") +
                       "\n  " + counted(m_counts.materials, "material") + ", " + counted(m_counts.textures, "texture") +
                       ", " + counted(m_counts.missingMeshes, "missing mesh", "missing meshes") + "\n";
    if (m_counts.missingMeshes > 0) {
        text += "missing meshes:\n";
    }
    for (const Mesh& mesh : m_meshes) {
        text += mesh.missing ? missingText(mesh) : "";
    }
    if (!m_warnings.empty()) {
        text += "warnings:\n";
    }
    for (const Warning& warning : m_warnings) {
        text += "  " + (warning.file == m_file ? "" : warning.file + ": ") + warning.element +
                (warning.element.empty() ? "" : ": ") + warning.text + "\n";
    }
    return text;
}

std::string KrImportReport::json() const
{
    const auto item = [](const auto& value) { return "\n  " + jsonOf(value); };
    return "{\"robot\": " + quoted(m_robot) + ",\n\"file\": " + quoted(m_file) + ",\n\"counts\": " + jsonOf(m_counts) +
           ",\n\"warnings\": " + jsonArray(m_warnings, "", item) + ",\n\"meshes\": " + jsonArray(m_meshes, "", item) +
           "}\n";
}

bool KrImportReport::writeJson(const std::string& path) const
{
    // Written beside the target and moved there whole.
    const std::string part = path + ".part";
    errno = 0;
    if (writeFile(part, json()) && std::rename(part.c_str(), path.c_str()) == 0) {
        return true;
    }
    const int error = errno;
    std::remove(part.c_str());
    Kr::Print::instance()->write(Kr::Print::Warning, "KrImportReport::writeJson - cannot write %s: %s.\n", path.c_str(),
                                 std::strerror(error));
    return false;
}
