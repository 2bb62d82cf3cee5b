#include <import/report/KrImportReport.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrFileReplacement.h>
#include <toolkit/foundation/private/KrJson.h>
#include <toolkit/foundation/private/KrText.h>

namespace
{

// A sentence with a few names and paths.
constexpr std::size_t kMaxText = 1000;

/// The members and their order are a file format: docs/formats.md lists them.
std::string jsonOf(const KrImportReport::Warning& warning)
{
    return KrJson::Object()
        .string("file", warning.file)
        .string("element", warning.element)
        .string("text", warning.text)
        .text();
}

std::string jsonOf(const KrImportReport::Mesh& mesh)
{
    const double scale[3] = {mesh.scale.x(), mesh.scale.y(), mesh.scale.z()};
    return KrJson::Object()
        .string("link", mesh.link)
        .string("element", mesh.element)
        .string("uri", mesh.uri)
        .string("path", mesh.path)
        .string("rule", mesh.rule)
        .flag("missing", mesh.missing)
        .flag("collision", mesh.isCollision)
        .real("unit", mesh.unit)
        .raw("scale", KrJson::array(scale, " ", KrJson::number))
        .count("triangles", mesh.triangles)
        .count("degenerate", mesh.degenerate)
        .count("groups", mesh.groups)
        .raw("tried", KrJson::array(mesh.tried, " ", [](const std::string& path) { return KrJson::quoted(path); }))
        .text();
}

std::string jsonOf(const KrImportReport::Counts& counts)
{
    return KrJson::Object()
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

/// With the places where the file was looked for, which is what a person can mend.
std::string missingText(const KrImportReport::Mesh& mesh)
{
    std::string text =
        "  link " + KrText::oneLine(mesh.link) + " / " + mesh.element + ": " + KrText::oneLine(mesh.uri) + "\n";
    // A file that is there says more than a list of places where it is not.
    if (!mesh.path.empty()) {
        return text + "    found, but not readable: " + KrText::oneLine(mesh.path, kMaxText) + "\n";
    }
    for (const std::string& path : mesh.tried) {
        text += "    tried " + KrText::oneLine(path, kMaxText) + "\n";
    }
    return text;
}

} // namespace

void KrImportReport::addWarning(const std::string& file, const std::string& element, const std::string& text,
                                unsigned int line)
{
    // A hostile file has as many faults as it likes: nothing is kept, and nothing compared, beyond the bound.
    if (m_warnings.size() > Kr::Limits::kWarnings) {
        return;
    }
    // Cut and cleaned on the way in, so that text and JSON need no second look.
    const Warning warning{KrText::oneLine(file, Kr::Limits::kPathBytes), KrText::oneLine(element),
                          KrText::oneLine(text, kMaxText), line};
    if (m_warnings.size() == Kr::Limits::kWarnings) {
        m_warnings.push_back({warning.file, "", "there is more to warn of; no further warning is kept", 0});
        // Without the line: the same fault of one element is one warning, however often it is met.
    } else if (m_seen.insert(warning.file + '\n' + warning.element + '\n' + warning.text).second) {
        m_warnings.push_back(warning);
    }
}

std::string KrImportReport::text() const
{
    std::string text = "robot \"" + KrText::oneLine(m_robot) + "\" from " + KrText::oneLine(m_file, kMaxText) + "\n  " +
                       counted(m_counts.links, "link") + ", " + counted(m_counts.joints, "joint") + " (" +
                       std::to_string(m_counts.movableJoints) + " movable" +
                       (m_counts.mimicJoints ? ", " + std::to_string(m_counts.mimicJoints) + " of them mimic" : "") +
                       ")\n  " + counted(m_counts.visuals, "visual") + ", " +
                       counted(m_counts.collisions, "collision") + ", " + counted(m_counts.triangles, "triangle") +
                       "\n  " + counted(m_counts.materials, "material") + ", " + counted(m_counts.textures, "texture") +
                       ", " + counted(m_counts.missingMeshes, "missing mesh", "missing meshes") + "\n";
    if (m_counts.missingMeshes > 0) {
        // Those that are missing only; the JSON has a line for every mesh.
        text += "missing meshes:\n";
    }
    for (const Mesh& mesh : m_meshes) {
        text += mesh.missing ? missingText(mesh) : "";
    }
    if (!m_warnings.empty()) {
        text += "warnings:\n";
    }
    for (const Warning& warning : m_warnings) {
        // The description's own path stands in the first line.
        text += "  " + (warning.file == m_file ? "" : warning.file + ": ") + warning.element +
                (warning.element.empty() ? "" : ": ") + warning.text + "\n";
    }
    return text;
}

std::string KrImportReport::json() const
{
    // One to a line, so that two reports can be compared by a person.
    const auto item = [](const auto& value) { return "\n  " + jsonOf(value); };
    return "{\"robot\": " + KrJson::quoted(m_robot) + ",\n\"file\": " + KrJson::quoted(m_file) +
           ",\n\"counts\": " + jsonOf(m_counts) + ",\n\"warnings\": " + KrJson::array(m_warnings, "", item) +
           ",\n\"meshes\": " + KrJson::array(m_meshes, "", item) + "}\n";
}

bool KrImportReport::writeJson(const std::string& path) const
{
    // In one step: a report that cannot be written leaves the old file whole.
    const std::string failure = KrFileReplacement::write(path, json());
    if (failure.empty()) {
        return true;
    }
    Kr::Print::instance()->write(Kr::Print::Warning, "KrImportReport::writeJson - cannot write %s: %s.\n", path.c_str(),
                                 failure.c_str());
    return false;
}
