#include <rendCore/model/private/KrInheritedState.h>

#include <rendCore/draw/private/KrMeshArena.h>

#include <osg/CullFace>
#include <osg/LightModel>
#include <osg/PolygonMode>
#include <osg/StateSet>
#include <osgUtil/CullVisitor>

namespace
{

/// What holds of lighting where nothing below says otherwise.
osg::StateAttribute::GLModeValue lightingOf(osgUtil::CullVisitor& visitor)
{
    osg::StateAttribute::GLModeValue lighting = osg::StateAttribute::ON;
    // From the leaf to the root: the last one that overrides counts, else the first one.
    bool isFound = false;
    for (const osgUtil::StateGraph* graph = visitor.getCurrentStateGraph(); graph != nullptr; graph = graph->_parent) {
        // The root of a state graph has none.
        const osg::StateSet* const states = graph->getStateSet();
        if (states == nullptr) {
            continue;
        }
        const osg::StateAttribute::GLModeValue value = states->getMode(GL_LIGHTING);
        if ((value & osg::StateAttribute::INHERIT) == 0 && (!isFound || (value & osg::StateAttribute::OVERRIDE) != 0)) {
            lighting = value;
            isFound = true;
        }
    }
    return lighting;
}

/// Whether a plane may cut bodies open.
bool isCut(const osg::StateSet& states)
{
    // The modes of planes follow one another; drivers have eight at the most.
    constexpr osg::StateAttribute::GLMode kLast = GL_CLIP_PLANE0 + 7;
    const osg::StateSet::ModeList& modes = states.getModeList();
    for (auto mode = modes.lower_bound(GL_CLIP_PLANE0); mode != modes.end() && mode->first <= kLast; ++mode) {
        if ((mode->second & osg::StateAttribute::ON) != 0) {
            return true;
        }
    }
    return false;
}

} // namespace

bool KrInheritedState::isLit(osgUtil::CullVisitor& visitor)
{
    return (lightingOf(visitor) & osg::StateAttribute::ON) != 0;
}

bool KrInheritedState::isUnlitBelow(osgUtil::CullVisitor& visitor)
{
    return (lightingOf(visitor) & (osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE)) ==
           osg::StateAttribute::OVERRIDE;
}

bool KrInheritedState::isFilled(osgUtil::CullVisitor& visitor)
{
    for (const osgUtil::StateGraph* graph = visitor.getCurrentStateGraph(); graph != nullptr; graph = graph->_parent) {
        const osg::StateSet* const states = graph->getStateSet();
        const auto* const mode =
            states == nullptr
                ? nullptr
                : static_cast<const osg::PolygonMode*>(states->getAttribute(osg::StateAttribute::POLYGONMODE));
        if (mode != nullptr && (mode->getMode(osg::PolygonMode::FRONT) != osg::PolygonMode::FILL ||
                                mode->getMode(osg::PolygonMode::BACK) != osg::PolygonMode::FILL)) {
            return false;
        }
    }
    return true;
}

bool KrInheritedState::areBackFacesCulled(osgUtil::CullVisitor& visitor)
{
    bool isCulled = false;
    for (const osgUtil::StateGraph* graph = visitor.getCurrentStateGraph(); graph != nullptr; graph = graph->_parent) {
        const osg::StateSet* const states = graph->getStateSet();
        if (states == nullptr) {
            continue;
        }
        constexpr unsigned int kOnOverride = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;
        const auto* const face = static_cast<const osg::CullFace*>(states->getAttribute(osg::StateAttribute::CULLFACE));
        // The last one that overrides is the one that counts.
        if ((states->getMode(GL_CULL_FACE) & (kOnOverride | osg::StateAttribute::INHERIT)) == kOnOverride) {
            isCulled = face != nullptr && face->getMode() == osg::CullFace::BACK;
        } else if ((states->getMode(GL_CULL_FACE) & osg::StateAttribute::OVERRIDE) != 0) {
            isCulled = false;
        }
    }
    return isCulled;
}

const osg::LightModel* KrInheritedState::lightModel(osgUtil::CullVisitor& visitor)
{
    for (const osgUtil::StateGraph* graph = visitor.getCurrentStateGraph(); graph != nullptr; graph = graph->_parent) {
        const osg::StateSet* const states = graph->getStateSet();
        const osg::StateAttribute* const model =
            states == nullptr ? nullptr : states->getAttribute(osg::StateAttribute::LIGHTMODEL);
        if (model != nullptr) {
            return static_cast<const osg::LightModel*>(model);
        }
    }
    return nullptr;
}

bool KrInheritedState::isPlain(osgUtil::CullVisitor& visitor, const osg::StateSet* ignored)
{
    using osg::StateAttribute;
    for (const osgUtil::StateGraph* graph = visitor.getCurrentStateGraph(); graph != nullptr; graph = graph->_parent) {
        const osg::StateSet* const states = graph->getStateSet();
        if (states == nullptr || states == ignored) {
            continue;
        }
        const auto* const face = static_cast<const osg::CullFace*>(states->getAttribute(StateAttribute::CULLFACE));
        const bool areFrontsFront = states->getAttribute(StateAttribute::FRONTFACE) == nullptr &&
                                    (face == nullptr || face->getMode() == osg::CullFace::BACK);
        if (!areFrontsFront || !KrMeshArena::isOrderFree(*states) || isCut(*states) ||
            states->getAttribute(StateAttribute::PROGRAM) != nullptr ||
            states->getAttribute(StateAttribute::VERTEXPROGRAM) != nullptr) {
            return false;
        }
    }
    // A bin that sorts by depth wants every drawable by itself.
    return visitor.getCurrentRenderBin()->getSortMode() == osgUtil::RenderBin::SORT_BY_STATE;
}

bool KrInheritedState::isLook(const osg::StateSet& states)
{
    using osg::StateAttribute;
    const osg::StateSet::AttributeList& attributes = states.getAttributeList();
    // What is protected from above counts in another way than `lookBelow` weighs.
    const bool isMaterial =
        attributes.empty() || (attributes.size() == 1 && attributes.begin()->first.first == StateAttribute::MATERIAL &&
                               (attributes.begin()->second.second & StateAttribute::PROTECTED) == 0);
    return isMaterial && states.getModeList().empty() && states.getTextureModeList().empty() &&
           states.getTextureAttributeList().empty() && states.getUniformList().empty() &&
           states.getDefineList().empty() && states.getRenderingHint() == osg::StateSet::DEFAULT_BIN &&
           !states.useRenderBinDetails() && states.getNestRenderBins();
}

const osg::StateSet* KrInheritedState::lookBelow(const osg::StateSet* above, const osg::StateSet* own)
{
    if (own == nullptr || own->getAttributeList().empty()) {
        return above;
    }
    const bool isOverridden =
        above != nullptr && (above->getAttributeList().begin()->second.second & osg::StateAttribute::OVERRIDE) != 0;
    return isOverridden ? above : own;
}
