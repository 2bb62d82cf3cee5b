#include <picture/private/KrAidLooks.h>

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderShape.h>
#include <rendCore/system/KrRenderWindow.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

#include <osg/Depth>
#include <osg/Geode>
#include <osg/LightSource>
#include <osg/LineWidth>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/NodeVisitor>
#include <osg/StateSet>
#include <osg/Switch>

#include <algorithm>
#include <vector>

namespace
{

/// In front of everything, the nearer of its kind over the farther: what lies inside solid links is seen.
void drawLast(osg::StateSet& state, int bin)
{
    state.setAttributeAndModes(new osg::Depth(osg::Depth::ALWAYS, 0.0, 1.0, false));
    state.setRenderBinDetails(bin, "DepthSortedBin", osg::StateSet::OVERRIDE_RENDERBIN_DETAILS);
}

// Behind all that the robot is drawn in; axes come last.
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
    // Their own look is see-through.
    state.setMode(GL_BLEND, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    state.setMode(GL_POLYGON_OFFSET_FILL, osg::StateAttribute::OFF); // steep faces would show through at edges
    state.setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, true));
    // Among the solid parts, not with what is sorted by depth.
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
        // What is hidden by a mask may be shown later, and has its look then.
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
            // The looks of its links' volumes are its own.
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

} // namespace

void KrAidLooks::apply(KrRenderWindow& window, bool areCollisionsSolid)
{
    LookVisitor visitor(areCollisionsSolid);
    window.getNode()->accept(visitor);
}

void KrAidLooks::applyToAxes(const KrRenderWindow& window)
{
    // By the height of the picture, because lines have a width in pixels.
    constexpr float kWidthPart = 0.006f; // of the picture's height
    // The window takes the length over before it has these parameters.
    KrRenderAxis::scaleAxis(window.visualizationParameters().GUIObjectParameters().axisScale());
    osg::StateSet* const state = KrRenderAxis::linkAxis(true)->getOrCreateStateSet();
    drawLast(*state, kAxisBin);
    state->setAttributeAndModes(
        new osg::LineWidth(std::max(2.0f, kWidthPart * static_cast<float>(window.windowHeight()))));
}

void KrAidLooks::renewVolumes(KrRenderWindow& window)
{
    VolumeVisitor visitor;
    window.getNode()->accept(visitor);
}
