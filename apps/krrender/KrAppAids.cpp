#include "KrAppAids.h"

#include "KrAppFailure.h"
#include "KrAppFraming.h"
#include "KrAppRobot.h"
#include "KrAppValue.h"

#include <rendCore/KrRenderAxis.h>
#include <rendCore/KrRenderTypes.h>
#include <rendCore/KrRenderWindow.h>
#include <toolkit/geometry/KrColor.h>
#include <toolkit/geometry/KrEnclosingShapes.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

#include <osg/Depth>
#include <osg/Geode>
#include <osg/LineWidth>
#include <osg/Material>
#include <osg/NodeVisitor>
#include <osg/StateSet>
#include <osg/Switch>

#include <algorithm>

namespace
{

constexpr double kAxisPart = 0.065; // of the robot's diagonal: shorter than most links, and still seen
const KrColor kVolumeColor(0.95, 0.55, 0.1, 0.3);

/// Finds links by name; their keys are those of the render core.
class LinkFinder
{
public:
    LinkFinder(const KrStatedSystem& system, const std::string& name)
    {
        const auto& manipulators = system.manipulatorSystem().manipulators();
        for (unsigned int i = 0; i < manipulators.size(); ++i) {
            const KrIndividualManipulator& manipulator = manipulators[i];
            const auto look = [&](const KrManipulatorLink& link, std::uint32_t index) {
                m_names.push_back(link.name());
                if (link.name() == name || manipulator.name() + "/" + link.name() == name) {
                    ++m_numFound;
                    for (std::uint32_t shape = 0; shape < link.numShapes(); ++shape) {
                        m_keys.emplace_back(i, index, shape);
                    }
                }
            };
            look(manipulator, KrShapeStateCacheKey::kBaseLink);
            const std::vector<const KrManipulatorLink*> links = manipulator.links();
            for (std::uint32_t j = 0; j < links.size(); ++j) {
                look(*links[j], j);
            }
        }
    }
    bool isFound() const { return m_numFound > 0; }
    const std::vector<KrShapeStateCacheKey>& keys() const { return m_keys; }
    const std::vector<std::string>& names() const { return m_names; }

private:
    std::size_t m_numFound = 0;
    std::vector<KrShapeStateCacheKey> m_keys;
    std::vector<std::string> m_names;
};

[[noreturn]] void unknownLink(const std::string& name, const std::vector<std::string>& links)
{
    const std::vector<std::string> near = KrAppValue::nearest(name, links);
    std::string sentence = "there is no link \"" + name + "\"";
    if (near.empty()) {
        throw KrAppFailure(KrAppFailure::CouldNot, sentence + " (--info lists the links)");
    }
    sentence += "; did you mean ";
    for (std::size_t i = 0; i < near.size(); ++i) {
        sentence += (i == 0 ? "" : i + 1 == near.size() ? " or " : ", ") + near[i];
    }
    throw KrAppFailure(KrAppFailure::CouldNot, sentence + "?");
}

void select(KrStatedSystem& system, const std::string& name)
{
    const LinkFinder finder(system, name);
    if (!finder.isFound()) {
        unknownLink(name, finder.names());
    }
    for (const KrShapeStateCacheKey& key : finder.keys()) {
        const KrShape* const shape = system.shapeByKey(key);
        if (shape != nullptr && shape->physicalExtent() != nullptr) {
            system.selectShape(key);
        }
    }
}

/// A look for every volume that the file gives none.
void lookThrough(KrIndividualManipulator& manipulator)
{
    const auto complete = [&manipulator](const std::string& name) {
        if (manipulator.dataMaps().find(name) == nullptr) {
            manipulator.dataMaps().set(name, KrDataMap::material(kVolumeColor));
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

/// In front of everything, the nearer of its kind over the farther: what lies inside solid links is seen.
void drawLast(osg::StateSet& state, int bin)
{
    state.setAttributeAndModes(new osg::Depth(osg::Depth::ALWAYS, 0.0, 1.0, false));
    state.setRenderBinDetails(bin, "DepthSortedBin", osg::StateSet::OVERRIDE_RENDERBIN_DETAILS);
}

constexpr int kEllipsoidBin = 100;
constexpr int kAxisBin = 101;

/// A light blue that glows a little: the ellipsoids' own is dark where no lamp shines.
osg::ref_ptr<osg::Material> ellipsoidLook()
{
    constexpr osg::Material::Face kBothFaces = osg::Material::FRONT_AND_BACK;
    const osg::ref_ptr<osg::Material> look = new osg::Material;
    look->setAmbient(kBothFaces, osg::Vec4(0.15f, 0.35f, 0.85f, 0.7f));
    look->setDiffuse(kBothFaces, osg::Vec4(0.20f, 0.50f, 1.0f, 0.7f));
    look->setSpecular(kBothFaces, osg::Vec4(0.35f, 0.35f, 0.35f, 0.7f));
    look->setEmission(kBothFaces, osg::Vec4(0.03f, 0.08f, 0.22f, 0.7f));
    look->setShininess(kBothFaces, 30.0f);
    return look;
}

/// Gives the mass ellipsoids and the translucent volumes of a scene their look.
class LookVisitor : public osg::NodeVisitor
{
public:
    LookVisitor()
        : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
        , m_ellipsoidLook(ellipsoidLook())
    {
        setNodeMaskOverride(~0u);
    }

    using osg::NodeVisitor::apply;
    void apply(osg::Geode& node) override
    {
        if (node.getNodeMask() == KrRenderTypes::MassProperties) {
            osg::StateSet* const state = node.getOrCreateStateSet();
            drawLast(*state, kEllipsoidBin);
            state->setMode(GL_CULL_FACE, osg::StateAttribute::ON); // the far side would show through
            state->setAttribute(m_ellipsoidLook, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
        }
    }
    void apply(osg::Switch& node) override
    {
        for (unsigned int i = 0; node.getNodeMask() == KrRenderTypes::BoundingVolumes && i < node.getNumChildren();
             ++i) {
            osg::Geode* const volume = node.getChild(i)->asGeode();
            for (unsigned int j = 0; volume != nullptr && j < volume->getNumDrawables(); ++j) {
                veil(volume->getDrawable(j)->getStateSet());
            }
        }
        traverse(node);
    }

private:
    /// One translucent surface does not hide another, in whatever order they are drawn.
    static void veil(osg::StateSet* look)
    {
        if (look != nullptr && look->getRenderingHint() == osg::StateSet::TRANSPARENT_BIN) {
            look->setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false));
        }
    }

    osg::ref_ptr<osg::Material> m_ellipsoidLook;
};

/// Lines that are as thick in a large picture as in a small one, in front of the links.
void showAxes(const KrRenderWindow& window)
{
    constexpr float kWidthPart = 0.006f; // of the picture's height
    // The window takes the length over before it has these parameters.
    KrRenderAxis::scaleAxis(window.visualizationParameters().GUIObjectParameters().axisScale());
    osg::StateSet* const state = KrRenderAxis::linkAxis(true)->getOrCreateStateSet();
    drawLast(*state, kAxisBin);
    state->setAttributeAndModes(
        new osg::LineWidth(std::max(2.0f, kWidthPart * static_cast<float>(window.windowHeight()))));
}

} // namespace

std::string KrAppAids::addShown(const std::string& list)
{
    for (const std::string& word : KrAppValue::split(list, ',')) {
        bool* const flag = word == "axes" ? &axes : word == "volumes" ? &volumes : word == "mass" ? &mass : nullptr;
        if (flag == nullptr) {
            return word.empty() ? "," : word;
        }
        *flag = true;
    }
    return std::string();
}

void KrAppAids::prepare(KrAppRobot& robot, KrVisualizationParameters& parameters) const
{
    KrStatedSystem& system = robot.statedSystem();
    for (const std::string& name : selected) {
        select(system, name);
    }
    if (!selected.empty()) {
        system.setTransparency(fade);
    }
    if (volumes) {
        for (KrIndividualManipulator& manipulator : system.manipulatorSystem().manipulators()) {
            lookThrough(manipulator);
        }
    }
    if (axes) {
        KrAppFraming framing({0.0, 0.0, 1.0}, {0.0, 1.0, 0.0}, 1.0, 1.0);
        framing.add(system.manipulatorSystem(), system.systemState());
        KrGUIObjectParameters markers = parameters.GUIObjectParameters();
        const double size = framing.isEmpty() ? 1.0 : framing.size().length();
        markers.setAxisScale(axisScale.value_or(kAxisPart * size));
        parameters.setGUIObjectParameters(markers);
    }
}

void KrAppAids::show(KrRenderWindow& window) const
{
    if (!axes && !volumes && !mass) {
        return;
    }
    window.updateScene(); // loads the system, which sets the mask anew
    const unsigned int mask = (axes ? KrRenderTypes::LinkAxes : 0u) | (volumes ? KrRenderTypes::BoundingVolumes : 0u) |
                              (mass ? KrRenderTypes::MassProperties : 0u);
    window.setDisplayMask(mask, true, false);
    if (axes) {
        showAxes(window);
    }
    LookVisitor visitor;
    window.getNode()->accept(visitor);
}
