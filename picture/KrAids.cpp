#include "KrAppAids.h"

#include "KrAppFailure.h"
#include "KrAppRobot.h"

#include <picture/KrFraming.h>
#include <picture/KrValueText.h>
#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderShape.h>
#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/extent/KrEnclosingShapes.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

#include <boost/make_shared.hpp>
#include <osg/Depth>
#include <osg/Geode>
#include <osg/LineWidth>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/NodeVisitor>
#include <osg/StateSet>
#include <osg/Switch>

#include <algorithm>
#include <utility>

namespace
{

constexpr double kAxisPart = 0.065; // of the robot's diagonal: shorter than most links, and still seen

/// A copy that the scene draws by itself: what shapes share is drawn once, and would be selected as one.
boost::shared_ptr<KrShape> unshared(const KrShape& shape)
{
    const auto own = boost::make_shared<KrShape>(shape);
    const KrBasePhysicalExtent* const extent = shape.physicalExtent();
    if (extent != nullptr && extent->triExtent()) { // fields are not shared
        own->setPhysicalExtent(
            boost::shared_ptr<KrBasePhysicalExtent>(static_cast<KrBasePhysicalExtent*>(extent->clone())));
    }
    return own;
}

/// Gives a link shapes of its own.
void unshareShapes(KrManipulatorLink& link)
{
    KrManipulatorLink own(link.name());
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const KrShape* const shape = link.shape(i);
        own.addShape(shape != nullptr ? unshared(*shape) : boost::shared_ptr<KrShape>());
    }
    bool isDeformable = false;
    link.deformable(isDeformable);
    own.setDeformable(isDeformable);
    own.shareCollisionShapes(link);
    own.jointKinematics() = link.jointKinematics();
    own.massProperties() = link.massProperties();
    own.childLinks() = std::move(link.childLinks());
    link = std::move(own); // of a manipulator its base link only
}

/// Finds links by name and unshares their shapes. Keys are those of the render core.
class LinkFinder
{
public:
    LinkFinder(KrManipulatorSystem& system, const std::string& name)
        : m_name(name)
    {
        for (m_manipulator = 0; m_manipulator < system.manipulators().size(); ++m_manipulator) {
            KrIndividualManipulator& manipulator = system.manipulators()[m_manipulator];
            m_prefix = manipulator.name() + "/";
            look(manipulator);
        }
    }
    bool isFound() const { return m_numFound > 0; }
    const std::vector<KrShapeStateCacheKey>& keys() const { return m_keys; }
    const std::vector<std::string>& names() const { return m_names; }

private:
    /// Children before the links that they hang under.
    void look(KrIndividualManipulator& manipulator)
    {
        const std::vector<const KrManipulatorLink*> links = manipulator.links();
        m_names.push_back(manipulator.name());
        for (const KrManipulatorLink* const link : links) {
            m_names.push_back(link->name());
        }
        for (std::size_t i = links.size(); i-- > 0;) {
            // The manipulator is ours to change; a link's place does not depend on what it holds.
            unshareIfNamed(const_cast<KrManipulatorLink&>(*links[i]), static_cast<std::uint32_t>(i));
        }
        unshareIfNamed(manipulator, KrShapeStateCacheKey::kBaseLink);
    }
    void unshareIfNamed(KrManipulatorLink& link, std::uint32_t index)
    {
        if (link.name() != m_name && m_prefix + link.name() != m_name) {
            return;
        }
        ++m_numFound;
        unshareShapes(link);
        for (std::uint32_t shape = 0; shape < link.numShapes(); ++shape) {
            m_keys.emplace_back(m_manipulator, index, shape);
        }
    }

    std::string m_name;
    std::string m_prefix;
    unsigned int m_manipulator = 0;
    std::size_t m_numFound = 0;
    std::vector<KrShapeStateCacheKey> m_keys;
    std::vector<std::string> m_names;
};

[[noreturn]] void unknownLink(const std::string& name, const std::vector<std::string>& links)
{
    const std::vector<std::string> near = KrValueText::nearest(name, links);
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
    const LinkFinder finder(system.manipulatorSystem(), name);
    if (!finder.isFound()) {
        unknownLink(name, finder.names());
    }
    bool hasShape = false;
    for (const KrShapeStateCacheKey& key : finder.keys()) {
        const KrShape* const shape = system.shapeByKey(key);
        if (shape != nullptr && shape->physicalExtent() != nullptr) {
            hasShape = system.selectShape(key) || hasShape;
        }
    }
    if (!hasShape) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrAppAids::prepare - link \"%s\" has no shape to select.\n",
                                     name.c_str());
    }
}

/// A look for every volume that the file gives none.
void lookThrough(KrIndividualManipulator& manipulator)
{
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

/// Collision shapes as the body of a robot: they hide what is behind them, and have a depth.
void makeSolid(osg::StateSet& state)
{
    constexpr unsigned int kOverride = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;
    constexpr osg::Material::Face kBothFaces = osg::Material::FRONT_AND_BACK;
    const osg::ref_ptr<osg::Material> look = new osg::Material;
    look->setAmbient(kBothFaces, osg::Vec4(0.50f, 0.66f, 0.60f, 1.0f));
    look->setDiffuse(kBothFaces, osg::Vec4(0.50f, 0.66f, 0.60f, 1.0f));
    look->setSpecular(kBothFaces, osg::Vec4(0.1f, 0.1f, 0.1f, 1.0f));
    look->setShininess(kBothFaces, 20.0f);
    state.setAttribute(look, kOverride);
    state.setMode(GL_BLEND, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    state.setMode(GL_POLYGON_OFFSET_FILL, osg::StateAttribute::OFF); // steep faces would show through at edges
    state.setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, true));
    state.setRenderBinDetails(0, "RenderBin", osg::StateSet::OVERRIDE_RENDERBIN_DETAILS);
}

/// One translucent surface does not hide another, in whatever order they are drawn.
void veil(osg::StateSet* look)
{
    if (look != nullptr && look->getRenderingHint() == osg::StateSet::TRANSPARENT_BIN) {
        look->setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false));
    }
}

/// Gives the mass ellipsoids and the translucent volumes of a scene their look.
class LookVisitor : public osg::NodeVisitor
{
public:
    explicit LookVisitor(bool areCollisionsSolid)
        : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
        , m_ellipsoidLook(ellipsoidLook())
        , m_areCollisionsSolid(areCollisionsSolid)
    {
        setNodeMaskOverride(~0u);
    }

    using osg::NodeVisitor::apply;
    void apply(osg::Geode& node) override
    {
        for (unsigned int i = 0; m_isVolume && i < node.getNumDrawables(); ++i) {
            veil(node.getDrawable(i)->getStateSet());
        }
        if (node.getNodeMask() == KrRenderTypes::MassProperties) {
            osg::StateSet* const state = node.getOrCreateStateSet();
            drawLast(*state, kEllipsoidBin);
            state->setMode(GL_CULL_FACE, osg::StateAttribute::ON);             // the far side would show through
            state->setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF); // no link's, where links are hidden
            state->setAttribute(m_ellipsoidLook, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
        }
    }
    void apply(osg::Group& node) override
    {
        if (m_areCollisionsSolid && node.getNodeMask() == KrRenderTypes::CollisionShapes) {
            makeSolid(*node.getOrCreateStateSet());
        }
        traverse(node);
    }
    void apply(osg::MatrixTransform& node) override
    {
        // Bodies between links are shown and hidden with those of the links.
        if (node.getName().rfind("IntraLink ", 0) == 0) {
            node.setNodeMask(KrRenderTypes::SceneContent);
        }
        traverse(node);
    }
    void apply(osg::Switch& node) override
    {
        // Not always the switch's own children: where something is selected, volumes are wrapped.
        m_isVolume = node.getNodeMask() == KrRenderTypes::BoundingVolumes;
        traverse(node);
        m_isVolume = false;
    }

private:
    osg::ref_ptr<osg::Material> m_ellipsoidLook;
    bool m_areCollisionsSolid;
    bool m_isVolume = false; ///< below a switch of volumes
};

/// The volume that is seen of a link; null when it has none.
osg::Geode* drawnVolume(const KrRenderLink& link)
{
    const osg::ref_ptr<osg::MatrixTransform> frame = link.getDhFrame();
    for (unsigned int i = 0; frame && i < frame->getNumChildren(); ++i) {
        osg::Switch* const volumes = frame->getChild(i)->asSwitch();
        if (volumes == nullptr || volumes->getNodeMask() != KrRenderTypes::BoundingVolumes) {
            continue;
        }
        for (unsigned int k = 0; k < volumes->getNumChildren(); ++k) {
            osg::Node* node = volumes->getValue(k) ? volumes->getChild(k) : nullptr;
            while (node != nullptr && node->asGeode() == nullptr) { // wrapped, where something is selected
                osg::Group* const group = node->asGroup();
                node = group != nullptr && group->getNumChildren() > 0 ? group->getChild(0) : nullptr;
            }
            if (node != nullptr) {
                return node->asGeode();
            }
        }
    }
    return nullptr;
}

/// Puts anew what encloses the links that bend.
class VolumeVisitor : public osg::NodeVisitor
{
public:
    VolumeVisitor()
        : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
    {
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (const auto* const manipulator = dynamic_cast<const KrRenderManipulator*>(&node)) {
            m_manipulator = manipulator->getManipulator();
        } else if (const auto* const link = dynamic_cast<const KrRenderLink*>(&node)) {
            renew(*link);
        }
        traverse(node);
    }
    void apply(osg::Geode&) override {}

private:
    void renew(const KrRenderLink& link)
    {
        bool bends = false;
        link.getLink()->deformable(bends);
        const KrShape* const shape = bends ? link.getLink()->shape() : nullptr;
        osg::Geode* const drawn = shape != nullptr ? drawnVolume(link) : nullptr;
        if (drawn == nullptr) {
            return;
        }
        shape->boundingVolumes(m_volumes, 1);
        const KrBasePhysicalExtent* const extent = m_volumes.empty() ? nullptr : m_volumes.back()->physicalExtent();
        if (extent == nullptr) {
            return;
        }
        const osg::ref_ptr<KrRenderShape> now = new KrRenderShape(extent, m_manipulator->dataMaps());
        drawn->removeDrawables(0, drawn->getNumDrawables());
        for (unsigned int i = 0; i < now->getNumDrawables(); ++i) {
            veil(now->getDrawable(i)->getStateSet());
            now->getDrawable(i)->setSupportsDisplayList(false); // for one frame
            drawn->addDrawable(now->getDrawable(i));
        }
    }

    const KrIndividualManipulator* m_manipulator = nullptr; ///< whose links are visited
    std::vector<const KrShape*> m_volumes;
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
    for (const std::string& word : KrValueText::split(list, ',')) {
        bool* const flag = word == "axes"        ? &axes
                           : word == "volumes"   ? &volumes
                           : word == "mass"      ? &mass
                           : word == "collision" ? &collisions
                                                 : nullptr;
        if (flag == nullptr) {
            return word.empty() ? "," : word;
        }
        *flag = true;
    }
    return std::string();
}

const std::vector<std::string>& KrAppAids::words()
{
    static const std::vector<std::string> s_words = {"axes", "volumes", "mass", "collision"};
    return s_words;
}

void KrAppAids::complete(const KrAppRobot& robot, std::vector<std::string>& warnings)
{
    if (robot.hasVisibleShape() || robot.numCollisionShapes() == 0 || !shapes) {
        return;
    }
    if (!collisions) {
        collisions = areCollisionsSolid = true;
        warnings.push_back("no link has a visible shape: the collision shapes are drawn");
    }
}

double KrAppAids::axisLength(const KrStatedSystem& system) const
{
    if (axisScale) {
        return *axisScale;
    }
    KrFraming framing({0.0, 0.0, 1.0}, {0.0, 1.0, 0.0}, 1.0, 1.0);
    KrFraming::Shown shown;
    shown.collisions = collisions;
    framing.setShown(shown);
    framing.add(system.manipulatorSystem(), system.systemState());
    return kAxisPart * (framing.isEmpty() ? 1.0 : framing.size().length());
}

void KrAppAids::frame(const KrStatedSystem& system, KrFraming& framing) const
{
    KrFraming::Shown shown;
    shown.shapes = shapes;
    shown.axisLength = axes ? axisLength(system) : 0.0;
    shown.volumes = volumes;
    shown.masses = mass;
    shown.collisions = collisions;
    framing.setShown(shown);
}

void KrAppAids::foldMasses(const KrAppRobot& robot, std::vector<std::string>& warnings) const
{
    if (collisions && robot.numCollisionShapes() == 0) {
        warnings.push_back("--show collision shows nothing: no link has a collision shape");
    }
    std::vector<std::pair<std::string, const KrMassProperties*>> given;
    for (const KrIndividualManipulator& manipulator : robot.manipulators()) {
        std::vector<const KrManipulatorLink*> links = manipulator.links();
        links.insert(links.begin(), &manipulator);
        for (const KrManipulatorLink* const link : links) {
            if (link->massProperties().isGiven()) {
                given.emplace_back(link->name(), &link->massProperties());
            }
        }
    }
    if (mass) {
        if (given.empty()) {
            warnings.push_back("--show mass shows nothing: no link has a mass");
        }
        return;
    }
    given.erase(std::remove_if(given.begin(), given.end(),
                               [](const auto& link) { return link.second->whyImpossible().empty(); }),
                given.end());
    if (given.empty()) {
        return;
    }
    if (robot.report.warnings().empty()) { // an import has told
        warnings.push_back(
            "no body has the mass properties of link \"" + given.front().first + "\"" +
            (given.size() > 1 ? ", nor those of " + std::to_string(given.size() - 1) + " more links" : std::string()) +
            "; --show mass tells why");
    }
}

void KrAppAids::prepare(KrAppRobot& robot, KrVisualizationParameters& parameters) const
{
    KrStatedSystem& system = robot.statedSystem();
    for (const std::string& name : selected) {
        select(system, name);
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
        KrGUIObjectParameters markers = parameters.GUIObjectParameters();
        markers.setAxisScale(axisLength(system));
        parameters.setGUIObjectParameters(markers);
    }
}

void KrAppAids::show(KrRenderWindow& window) const
{
    if (!areShown() && shapes) {
        return;
    }
    window.updateScene(); // loads the system, which sets the mask anew
    const unsigned int mask = (axes ? KrRenderTypes::LinkAxes : 0u) | (volumes ? KrRenderTypes::BoundingVolumes : 0u) |
                              (mass ? KrRenderTypes::MassProperties : 0u) |
                              (collisions ? KrRenderTypes::CollisionShapes : 0u);
    window.setDisplayMask(mask, true, false);
    window.setDisplayMask(KrRenderTypes::SceneContent, shapes, false);
    if (axes) {
        showAxes(window);
    }
    LookVisitor visitor(areCollisionsSolid);
    window.getNode()->accept(visitor);
}

void KrAppAids::follow(KrRenderWindow& window)
{
    if (window.displayMask(KrRenderTypes::BoundingVolumes)) {
        VolumeVisitor visitor;
        window.getNode()->accept(visitor);
    }
}
