#include <import/description/KrMaterialNames.h>

#include <toolkit/foundation/private/KrText.h>

#include <algorithm>

KrMaterialNames::KrMaterialNames(Warn warn)
    : m_warn(std::move(warn))
    // The stand-in's name is taken from the start: no material of a file can dress the boxes of missing meshes.
    , m_taken{kStandIn}
{
}

void KrMaterialNames::define(const std::vector<KrRobotDescription::Material>& materials)
{
    for (const KrRobotDescription::Material& material : materials) {
        if (material.name.empty() || material.look.isEmpty()) {
            continue; // it says nothing about any other shape
        }
        // The first one under a name counts, in the order of the list: the robot's own come before those inside
        // shapes.
        const auto [place, isNew] = m_defined.emplace(material.name, material);
        // Inside shapes a name is often reused for another colour: there the look counts for that shape alone.
        if (!isNew && material.isGlobal && !(place->second.look == material.look)) {
            m_warn(material.place, "material " + material.name, "it is defined twice; the first definition counts");
        }
    }
}

void KrMaterialNames::resolve(KrRobotDescription::MaterialUse& material, const KrRobotDescription::Place& place,
                              const std::string& element)
{
    const auto defined = m_defined.find(material.name);
    std::string name;
    // Its own look counts before that of its name. An unknown name is a warning, unless a look was there and has been
    // reported.
    if (!material.look.isEmpty()) {
        name = nameOf(material.name, material.look, place);
    } else if (defined != m_defined.end()) {
        name = nameOf(material.name, defined->second.look, defined->second.place);
    } else if (!material.name.empty() && !material.isBroken) {
        m_warn(place, element, "material \"" + KrText::oneLine(material.name) + "\" is not defined");
    }
    // From here on the name says it all.
    material = {name, {}, false};
}

std::vector<KrRobotDescription::Material> KrMaterialNames::materials() const
{
    std::vector<KrRobotDescription::Material> materials;
    for (const auto& [known, material] : m_used) {
        materials.push_back(material);
    }
    // By the names that they have got; the map is in the order of those that the file gave.
    std::sort(materials.begin(), materials.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return materials;
}

std::string KrMaterialNames::nameOf(const std::string& given, const Look& look, const KrRobotDescription::Place& place)
{
    // By name and look: what several shapes say in the same words is one material.
    const auto [used, isNew] = m_used.emplace(std::make_pair(given, look), KrRobotDescription::Material());
    if (isNew) {
        const std::string base = given.empty() ? "unnamed" : given;
        std::string name = base;
        // The numbers go on where they ended: thousands of looks under one name take no longer than others.
        while (!m_taken.insert(name).second) {
            unsigned int& number = m_numbers.emplace(base, 2).first->second;
            name = base + " " + std::to_string(number++);
        }
        used->second = {place, name, look};
    }
    return used->second.name;
}
