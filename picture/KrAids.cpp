#include <picture/KrAids.h>

#include <picture/KrValueText.h>
#include <picture/private/KrAidLooks.h>
#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/extent/KrEnclosingShapes.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

namespace
{

constexpr double kAxisPart = 0.065; // of the robot's diagonal: shorter than most links, and still seen

/// A flag and the name that it goes by.
struct Aid
{
    const char* name;
    bool KrAids::*flag;
};

// In the order in which help and messages list them.
constexpr Aid kAids[] = {{"axes", &KrAids::axes},
                         {"volumes", &KrAids::volumes},
                         {"mass", &KrAids::mass},
                         {"collision", &KrAids::collisions}};

/// What names the links there are: the base is one, though no manipulator lists it among its own.
std::string unknownLink(const KrStatedSystem& system, const std::string& name)
{
    std::vector<std::string> links;
    for (const KrIndividualManipulator& manipulator : system.manipulatorSystem().manipulators()) {
        links.push_back(manipulator.name());
        for (const KrManipulatorLink* const link : manipulator.links()) {
            links.push_back(link->name());
        }
    }
    return "there is no link \"" + name + "\"" + KrValueText::suggestion(name, links);
}

/// Selects every link that is called LINK or MANIPULATOR/LINK: a name may be in several manipulators.
bool select(KrStatedSystem& system, const std::string& name, std::string& reason, std::vector<std::string>& warnings)
{
    bool isFound = false;
    bool isSeen = false;
    for (unsigned int i = 0; i < system.manipulatorSystem().manipulators().size(); ++i) {
        const std::string prefix = system.manipulatorSystem().manipulators()[i].name() + "/";
        std::vector<std::uint32_t> links = system.linksByName(i, name);
        if (name.compare(0, prefix.size(), prefix) == 0) {
            // Both readings count: a link's own name may begin like that.
            const std::vector<std::uint32_t> inside = system.linksByName(i, name.substr(prefix.size()));
            links.insert(links.end(), inside.begin(), inside.end());
        }
        for (const std::uint32_t link : links) {
            // All of that name are selected; that one of them can be seen is enough.
            isFound = true;
            isSeen = system.selectLink(i, link) == KrStatedSystem::LinkAnswer::Done || isSeen;
        }
    }
    if (!isFound) {
        reason = unknownLink(system, name);
    } else if (!isSeen) {
        warnings.push_back("link \"" + name + "\" has no shape to select");
    }
    return isFound;
}

/// A look for every volume that the file gives none.
void lookThrough(KrIndividualManipulator& manipulator)
{
    // Looks of the file's own stay.
    const auto complete = [&manipulator](const std::string& name) {
        if (manipulator.dataMaps().find(name) == nullptr) {
            manipulator.dataMaps().set(name, KrEnclosingShapes::look());
        }
    };
    std::vector<const KrManipulatorLink*> links = manipulator.links();
    links.push_back(&manipulator);
    std::vector<const KrShape*> volumes;
    for (const KrManipulatorLink* const link : links) {
        if (const KrShape* const shape = link->shape()) {
            shape->boundingVolumes(volumes, 1);
            for (const KrShape* const volume : volumes) {
                const KrBasePhysicalExtent* const extent = volume->physicalExtent();
                for (unsigned int i = 0; extent != nullptr && i < extent->numGroupNames(); ++i) {
                    complete(extent->groupName(i));
                }
            }
        }
    }
}

} // namespace

const std::vector<std::string>& KrAids::names()
{
    static const std::vector<std::string> s_names = [] {
        std::vector<std::string> names;
        for (const Aid& aid : kAids) {
            names.emplace_back(aid.name);
        }
        return names;
    }();
    return s_names;
}

bool KrAids::add(const std::string& name)
{
    for (const Aid& aid : kAids) {
        if (name == aid.name) {
            this->*aid.flag = true;
            return true;
        }
    }
    return false;
}

double KrAids::axisLength(const KrStatedSystem& system) const
{
    if (axisScale) {
        return *axisScale;
    }
    KrFraming framing({0.0, 0.0, 1.0}, {0.0, 1.0, 0.0}, 1.0, 1.0); // for the box
    KrFraming::Shown measured;
    measured.collisions = collisions;
    // By what has a body: the axes are what is looked for.
    framing.setShown(measured);
    framing.add(system.manipulatorSystem(), system.systemState());
    // Where there is nothing to measure, as for a robot of 1 m.
    return kAxisPart * (framing.isEmpty() ? 1.0 : framing.size().length());
}

KrFraming::Shown KrAids::shown(const KrStatedSystem& system) const
{
    KrFraming::Shown shown;
    shown.shapes = shapes;
    shown.axisLength = axes ? axisLength(system) : 0.0;
    shown.volumes = volumes;
    shown.masses = mass;
    shown.collisions = collisions;
    return shown;
}

bool KrAids::prepare(KrStatedSystem& system, KrVisualizationParameters& parameters, std::string& reason,
                     std::vector<std::string>& warnings) const
{
    for (const std::string& name : selected) {
        if (!select(system, name, reason, warnings)) {
            return false;
        }
    }
    if (!selected.empty()) {
        system.setTransparency(fade);
        // The selection takes it over by itself. The change would make every shape that bends transparent, the selected
        // ones too.
        system.setTransparencyChanged(false);
    }
    if (volumes) {
        for (KrIndividualManipulator& manipulator : system.manipulatorSystem().manipulators()) {
            lookThrough(manipulator);
        }
    }
    if (axes) {
        // A copy: what else the file says about markers stays.
        KrGUIObjectParameters markers = parameters.GUIObjectParameters();
        markers.setAxisScale(axisLength(system));
        parameters.setGUIObjectParameters(markers);
    }
    return true;
}

void KrAids::show(KrRenderWindow& window) const
{
    if (!areShown() && shapes) {
        return;
    }
    window.updateScene(); // loads the system, which sets the mask anew
    const unsigned int mask = (axes ? KrRenderTypes::LinkAxes : 0u) | (volumes ? KrRenderTypes::BoundingVolumes : 0u) |
                              (mass ? KrRenderTypes::MassProperties : 0u) |
                              (collisions ? KrRenderTypes::CollisionShapes : 0u);
    window.setDisplayMask(mask, true, false);
    // The robot by itself: aids are seen with it or without.
    window.setDisplayMask(KrRenderTypes::SceneContent, shapes, false);
    if (axes) {
        KrAidLooks::applyToAxes(window);
    }
    KrAidLooks::apply(window, areCollisionsSolid);
}

void KrAids::follow(KrRenderWindow& window)
{
    // Only while volumes are shown: renewing them makes a mesh for every link that bends.
    if (window.displayMask(KrRenderTypes::BoundingVolumes)) {
        KrAidLooks::renewVolumes(window);
    }
}
