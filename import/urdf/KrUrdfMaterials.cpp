#include <import/urdf/KrUrdfMaterials.h>

#include <import/files/KrImportXml.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>

KrUrdfMaterials::KrUrdfMaterials(Warn warn, std::set<std::string> reserved)
    : m_warn(std::move(warn))
    , m_taken(std::move(reserved))
{
}

void KrUrdfMaterials::define(const xmlNode& robot)
{
    for (const xmlNode* material : KrImportXml::children(robot, "material")) {
        std::string name;
        KrImportXml::attribute(*material, "name", name);
        define(*material, "material " + name, true);
    }
    for (const xmlNode* link : KrImportXml::children(robot, "link")) {
        for (const xmlNode* visual : KrImportXml::children(*link, "visual")) {
            for (const xmlNode* material : KrImportXml::children(*visual, "material")) {
                define(*material, "", false);
            }
        }
    }
}

void KrUrdfMaterials::define(const xmlNode& material, const std::string& element, bool isGlobal)
{
    std::string name;
    if (!KrImportXml::attribute(material, "name", name) || name.empty()) {
        return;
    }
    const std::string look = lookOf(material, element);
    if (look.empty()) {
        return;
    }
    const auto [place, isNew] = m_defined.emplace(name, look);
    if (!isNew && isGlobal && place->second != look) {
        m_warn(element, "it is defined twice; the first definition counts");
    }
}

std::string KrUrdfMaterials::use(const xmlNode& material, const std::string& element)
{
    std::string name;
    KrImportXml::attribute(material, "name", name);
    const std::string look = lookOf(material, element);
    if (!look.empty()) {
        return key(name, look);
    }
    const auto defined = m_defined.find(name);
    if (defined != m_defined.end()) {
        return key(name, defined->second);
    }
    const bool isBad = KrImportXml::child(material, "color") || KrImportXml::child(material, "texture");
    if (!name.empty() && !isBad) {
        m_warn(element, "material \"" + KrText::oneLine(name) + "\" is not defined");
    }
    return "";
}

std::string KrUrdfMaterials::text() const
{
    std::string text;
    for (const auto& [name, look] : m_written) {
        text += "<material name=" + KrImportXml::quoted(name) + ">" + look + "</material>\n";
    }
    return text;
}

std::string KrUrdfMaterials::lookOf(const xmlNode& material, const std::string& element)
{
    std::string look;
    if (const xmlNode* color = KrImportXml::child(material, "color")) {
        look += colorOf(*color, element);
    }
    const xmlNode* const texture = KrImportXml::child(material, "texture");
    std::string file;
    if (texture && KrImportXml::attribute(*texture, "filename", file) && !file.empty()) {
        look += "<texture filename=" + KrImportXml::quoted(file) + "/>";
    }
    return look;
}

std::string KrUrdfMaterials::colorOf(const xmlNode& color, const std::string& element)
{
    std::string text;
    std::vector<double> rgba;
    KrImportXml::attribute(color, "rgba", text);
    if (!KrImportXml::numbers(text, rgba) || (rgba.size() != 3 && rgba.size() != 4)) {
        if (!element.empty()) {
            m_warn(element, "the colour \"" + KrText::oneLine(text, 60) + "\" is not four numbers; it is left out");
        }
        return "";
    }
    rgba.resize(4, 1.0);
    const double highest = *std::max_element(rgba.begin(), rgba.end());
    const bool isByte = *std::max_element(rgba.begin(), rgba.begin() + 3) > 1.01;
    const bool isOutside = highest > 1.0 || *std::min_element(rgba.begin(), rgba.end()) < 0.0;
    if (isOutside && !element.empty()) {
        m_warn(element, "the colour \"" + KrText::oneLine(text, 60) + "\" is outside [0, 1]; " +
                            (isByte ? "read as bytes" : "cut off"));
    }
    std::string written;
    for (std::size_t i = 0; i < 4; ++i) {
        const double value = isByte && (i < 3 || rgba[i] > 1.0) ? rgba[i] / 255.0 : rgba[i];
        written += (i ? " " : "") + KrImportXml::text(std::clamp(value, 0.0, 1.0));
    }
    return "<color rgba=\"" + written + "\"/>";
}

std::string KrUrdfMaterials::key(const std::string& name, const std::string& look)
{
    const auto [place, isNew] = m_keys.emplace(std::make_pair(name, look), "");
    if (isNew) {
        const std::string base = name.empty() ? "unnamed" : name;
        std::string key = base;
        while (!m_taken.insert(key).second) {
            unsigned int& number = m_numbers.emplace(base, 2).first->second;
            key = base + " " + std::to_string(number++);
        }
        place->second = key;
        m_written.emplace_back(key, look);
    }
    return place->second;
}
