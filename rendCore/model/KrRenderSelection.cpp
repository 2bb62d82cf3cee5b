#include <rendCore/model/KrRenderSelection.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderShape.h>
#include <rendCore/model/private/KrInheritedState.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/BlendColor>
#include <osg/BlendFunc>
#include <osg/Group>
#include <osg/Material>
#include <osg/NodeVisitor>
#include <osg/PolygonMode>
#include <osg/StateSet>
#include <osg/Switch>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace
{

constexpr unsigned int kOn = osg::StateAttribute::ON;
constexpr unsigned int kOnOverride = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;
/// Kept: ON and PROTECTED with a bit (0x10) that means nothing to a state attribute, so that nothing reads it. Without
/// OVERRIDE, so that the shape's own material decides the colour.
constexpr unsigned int kSelectedMaterial = 0x15;
constexpr osg::Material::Face kBothFaces = osg::Material::FRONT_AND_BACK;
// No emission: the shape's own colours decide how light it is.
const osg::Vec4 kBlack(0.0f, 0.0f, 0.0f, 1.0f);

/// Beats what the wrapper says for shapes that are lit.
osg::ref_ptr<osg::StateSet> unlitFade(float alpha)
{
    // Protected, because the wrapper above has a blend function that overrides.
    constexpr unsigned int kOnHere = kOnOverride | osg::StateAttribute::PROTECTED;
    osg::ref_ptr<osg::StateSet> states = new osg::StateSet;
    // The constant's alpha takes the place of the colour's, which nothing sets without a material.
    states->setAttributeAndModes(
        new osg::BlendFunc(osg::BlendFunc::CONSTANT_ALPHA, osg::BlendFunc::ONE_MINUS_CONSTANT_ALPHA), kOnHere);
    states->setAttributeAndModes(new osg::BlendColor(osg::Vec4(0.0f, 0.0f, 0.0f, alpha)), kOnHere);
    return states;
}

/// A parent and one of its children. Counted: a wrapper that is taken out loses its last parent before its own children
/// are unhooked, and a new one has no parent before the end.
using Link = std::pair<osg::ref_ptr<osg::Group>, osg::ref_ptr<osg::Node>>;
using Links = std::vector<Link>;

/// Moves the children of `parent` that stay up into the gaps before them, so that few cuts are left: each moves all
/// children behind it.
void closeRanks(osg::Group& parent, std::vector<bool>& isCut)
{
    // Other groups, switches for example, keep values by place.
    if (parent.asTransform() == nullptr) {
        return;
    }
    unsigned int place = 0;
    for (unsigned int i = 0; i < isCut.size(); ++i) {
        if (isCut[i]) {
            continue;
        }
        osg::Node* const child = parent.getChild(i);
        if (child->getNumParents() > 1) {
            // Moving it would change the order of its parents.
            place = i + 1;
            continue;
        }
        if (place < i) {
            parent.setChild(place, child);
            isCut[place] = false;
            isCut[i] = true;
        }
        ++place;
    }
}

/// Takes children out of `parent`, for each link the first that is left.
void cut(osg::Group& parent, Links::const_iterator begin, Links::const_iterator end)
{
    std::map<const osg::Node*, std::size_t> planned;
    std::for_each(begin, end, [&planned](const Link& link) { ++planned[link.second]; });
    std::vector<bool> isCut(parent.getNumChildren());
    for (unsigned int i = 0; i < isCut.size(); ++i) {
        const auto child = planned.find(parent.getChild(i));
        // A link may be planned twice, through two parents: what is gone already is no child any more.
        if (child != planned.end() && child->second > 0) {
            isCut[i] = true;
            --child->second;
        }
    }
    closeRanks(parent, isCut);
    for (auto last = static_cast<unsigned int>(isCut.size()); last > 0; --last) {
        unsigned int first = last;
        while (first > 0 && isCut[first - 1]) {
            --first;
        }
        if (first < last) {
            parent.removeChildren(first, last - first);
            last = first + 1;
        }
    }
}

/// Takes children out of their parents; sorts the list.
void cutAll(Links& links)
{
    // All of a parent together: one by one each would move all children behind it. What is cut lives on in the list.
    std::sort(links.begin(), links.end());
    for (auto begin = links.begin(), end = begin; begin != links.end(); begin = end) {
        end = std::find_if(begin, links.end(), [begin](const Link& link) { return link.first != begin->first; });
        cut(*begin->first, begin, end);
    }
}

/// Stands between a shape and its parents, with a state set that overrides the shape's own.
class SelectionGroup : public osg::Group
{
public:
    /// @param shape   what is to be wrapped; null costs a message
    /// @param splice  puts the group in the shape's place at once and shows the shape as selected; otherwise the caller
    ///                links the group
    /// @param cuts    takes the shape's old links, for the caller to cut; null has them cut at once
    SelectionGroup(KrRenderShape* shape, bool splice, Links* cuts = nullptr);

    void showSelected();
    void showFaded(float alpha);

    bool isSelected() const { return m_selected; }
    void clearSelected() { m_selected = false; }

    void traverse(osg::NodeVisitor& visitor) override;

private:
    void takePlaceOf(KrRenderShape& shape, Links* cuts);
    void blend();

    osg::ref_ptr<osg::Material> m_material;
    bool m_selected;
    osg::ref_ptr<osg::StateSet> m_unlitFade; ///< null unless the shape is faded
};

SelectionGroup::SelectionGroup(KrRenderShape* shape, bool splice, Links* cuts)
    : m_material(new osg::Material)
    , m_selected(splice)
{
    const osg::ref_ptr<osg::StateSet> overrides = new osg::StateSet;
    // The one material of this wrapper: what follows changes it in place.
    overrides->setAttribute(m_material, kOnOverride);
    setStateSet(overrides);
    if (shape == nullptr) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrRenderSelection - invalid node.\n");
        return;
    }
    if (splice) {
        takePlaceOf(*shape, cuts);
        showSelected();
    }
}

// Plain pointers to this group only: it has no reference of its own before the first parent takes one.
void SelectionGroup::takePlaceOf(KrRenderShape& shape, Links* cuts)
{
    Links own;
    Links& links = cuts != nullptr ? *cuts : own;
    // A copy: the list itself changes with every link that is made.
    const osg::Node::ParentList parents = shape.getParents();
    addChild(&shape);
    for (osg::Group* parent : parents) {
        // First the link, which gives this group its first reference, then the cut.
        parent->addChild(this);
        links.emplace_back(parent, &shape);
    }
    cutAll(own);
}

void SelectionGroup::blend()
{
    getOrCreateStateSet()->setAttributeAndModes(
        new osg::BlendFunc(osg::BlendFunc::SRC_ALPHA, osg::BlendFunc::ONE_MINUS_SRC_ALPHA), kOnOverride);
}

// Without lighting there is no material, and a shape's own colour is opaque: the blending itself does the fading.
void SelectionGroup::traverse(osg::NodeVisitor& visitor)
{
    // Only culling decides what is drawn: other visitors take the plain way.
    osgUtil::CullVisitor* const cull = m_unlitFade.valid() ? visitor.asCullVisitor() : nullptr;
    if (cull == nullptr || KrInheritedState::isLit(*cull)) {
        osg::Group::traverse(visitor);
        return;
    }
    const osg::ref_ptr<osg::StateSet> states = m_unlitFade;
    cull->pushStateSet(states);
    osg::Group::traverse(visitor);
    cull->popStateSet();
}

void SelectionGroup::showSelected()
{
    m_selected = true;
    m_unlitFade = nullptr;
    osg::StateSet* overrides = getOrCreateStateSet();
    // Kept: filled, so that a selected shape is solid whatever it says of itself; `showFaded` takes it back.
    overrides->setAttributeAndModes(new osg::PolygonMode(osg::PolygonMode::FRONT_AND_BACK, osg::PolygonMode::FILL),
                                    kOnOverride);
    m_material->setAlpha(kBothFaces, 1.0f);
    m_material->setEmission(kBothFaces, kBlack);
    m_material->setSpecular(kBothFaces, osg::Vec4(0.6f, 0.6f, 0.6f, 0.6f));
    m_material->setShininess(kBothFaces, 5.0f);
    // A shape without a material has a colour all the same.
    m_material->setColorMode(osg::Material::AMBIENT_AND_DIFFUSE);
    overrides->setAttribute(m_material, kSelectedMaterial);
    blend();
    // Kept: lit and textured, over what the shape says of itself; KrRenderShape protects a picture without texture
    // coordinates from it. What the window overrides stays as the window wants it.
    overrides->setMode(GL_LIGHTING, kOnOverride);
    overrides->setTextureMode(0, GL_TEXTURE_2D, kOnOverride);
    // Kept: among the opaque ones, though a blend function is set; the faded ones, drawn later, are blended over it.
    overrides->setRenderingHint(osg::StateSet::OPAQUE_BIN);
}

void SelectionGroup::showFaded(float alpha)
{
    m_selected = false;
    osg::StateSet* overrides = getOrCreateStateSet();
    // A shape that was selected before looks like the others: without the highlights of its selection.
    m_material->setSpecular(kBothFaces, kBlack);
    m_material->setShininess(kBothFaces, 0.0f);
    m_material->setAlpha(kBothFaces, alpha);
    blend();
    m_unlitFade = alpha < 1.0f ? unlitFade(alpha) : nullptr;
    if (alpha < 1.0f) {
        overrides->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
        overrides->setAttribute(m_material, kOnOverride);
        // Kept: the wrapper's own colours, those of a default material: under light no faded shape has its own.
        m_material->setColorMode(osg::Material::OFF);
    } else {
        // The shape decides again, whether it was faded or selected before.
        overrides->setRenderingHint(osg::StateSet::DEFAULT_BIN);
        overrides->setAttribute(m_material, kOn);
        m_material->setColorMode(osg::Material::AMBIENT_AND_DIFFUSE);
    }
    // What the look of a selection has added is taken back, where this shape was selected before.
    overrides->removeAttribute(osg::StateAttribute::POLYGONMODE);
    overrides->removeAttribute(osg::StateAttribute::POLYGONOFFSET);
    overrides->setMode(GL_LIGHTING, osg::StateAttribute::INHERIT);
    overrides->setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::INHERIT);
    m_material->setEmission(kBothFaces, kBlack);
}

/// The first parent that is a wrapper; null when there is none.
SelectionGroup* wrapperOf(const KrRenderShape& shape)
{
    for (osg::Group* parent : shape.getParents()) {
        if (auto* wrapper = dynamic_cast<SelectionGroup*>(parent)) {
            return wrapper;
        }
    }
    return nullptr;
}

/// Fades or restores the shapes below a node, but for those that are selected.
///
/// The graph is not changed while it is walked: the destructor makes all new links and then cuts the old ones.
class NonSelectionVisitor : public osg::NodeVisitor
{
public:
    NonSelectionVisitor(float alpha, bool restore);
    ~NonSelectionVisitor() override;

    using osg::NodeVisitor::apply;
    void apply(osg::Group& group) override;
    void apply(osg::Geode& geode) override;

private:
    struct Addition
    {
        Link link;
        bool visible; ///< for a parent that is a switch
    };

    void fade(KrRenderShape& shape);
    void dissolve(SelectionGroup& wrapper);
    void replace(osg::Group& parent, osg::Node& oldChild, osg::Node& newChild);

    float m_alpha;
    bool m_restore;
    std::vector<Addition> m_additions;
    Links m_removals;
    /// Shapes with two parents are met twice in one pass, and so are their wrappers: those that are done.
    std::set<const osg::Node*> m_done;
};

NonSelectionVisitor::NonSelectionVisitor(float alpha, bool restore)
    : osg::NodeVisitor(osg::NodeVisitor::UPDATE_VISITOR, osg::NodeVisitor::TRAVERSE_ALL_CHILDREN)
    , m_alpha(alpha)
    , m_restore(restore)
{
    // A link that is hidden now may be shown later.
    setNodeMaskOverride(0xffffffffu);
}

NonSelectionVisitor::~NonSelectionVisitor()
{
    // Kept: all additions before the first cut: nothing is without a parent meanwhile. In the order in which they were
    // planned, which becomes that of the children.
    for (const Addition& addition : m_additions) {
        if (auto* parent = dynamic_cast<osg::Switch*>(addition.link.first.get())) {
            parent->addChild(addition.link.second, addition.visible);
        } else {
            addition.link.first->addChild(addition.link.second);
        }
    }
    cutAll(m_removals);
}

void NonSelectionVisitor::apply(osg::Group& group)
{
    auto* wrapper = dynamic_cast<SelectionGroup*>(&group);
    if (wrapper == nullptr) {
        traverse(group);
        return;
    }
    if (wrapper->isSelected()) {
        // Left as it is for this pass; the next one fades it, unless it is selected again before.
        wrapper->clearSelected();
        m_done.insert(wrapper);
        return;
    }
    if (m_done.count(wrapper) == 0) {
        traverse(group);
    }
}

void NonSelectionVisitor::apply(osg::Geode& geode)
{
    auto* shape = dynamic_cast<KrRenderShape*>(&geode);
    // Geodes that are no shapes, axes and ellipsoids for instance, are never faded.
    if (shape == nullptr || !m_done.insert(shape).second) {
        return;
    }
    if (!m_restore) {
        fade(*shape);
    } else if (SelectionGroup* wrapper = wrapperOf(*shape)) {
        dissolve(*wrapper);
    }
}

void NonSelectionVisitor::fade(KrRenderShape& shape)
{
    osg::ref_ptr<SelectionGroup> wrapper = wrapperOf(shape);
    if (!wrapper) {
        wrapper = new SelectionGroup(&shape, false);
        // Planned, not done: the list of children that the walk stands in must not change.
        m_additions.push_back({{wrapper, &shape}, true});
        for (osg::Group* parent : shape.getParents()) {
            replace(*parent, shape, *wrapper);
        }
    }
    // Kept: the attribute is only ever cleared here. Nothing in the library reads or sets it; a client that has set it
    // sees that the shape was faded.
    shape.clearAttribute(KrRenderTypes::Unfaded);
    wrapper->showFaded(m_alpha);
}

void NonSelectionVisitor::dissolve(SelectionGroup& wrapper)
{
    for (unsigned int i = 0; i < wrapper.getNumChildren(); ++i) {
        osg::Node* child = wrapper.getChild(i);
        for (osg::Group* parent : wrapper.getParents()) {
            replace(*parent, wrapper, *child);
            // Also from the wrapper: it may live on, and a shape must not have a parent that is in no scene.
            m_removals.emplace_back(&wrapper, child);
        }
    }
}

/// Plans to put `newChild` under `parent` in place of `oldChild`; in a switch it is as visible as the old one.
void NonSelectionVisitor::replace(osg::Group& parent, osg::Node& oldChild, osg::Node& newChild)
{
    const auto* asSwitch = dynamic_cast<const osg::Switch*>(&parent);
    const bool visible = asSwitch == nullptr || asSwitch->getChildValue(&oldChild);
    m_additions.push_back({{&parent, &newChild}, visible});
    m_removals.emplace_back(&parent, &oldChild);
}

/// Marks one shape.
/// @param cuts  as SelectionGroup's
void select(KrRenderManipulator* manipulator, const KrShapeStateCacheKey& key, Links* cuts)
{
    if (manipulator == nullptr) {
        return;
    }
    const auto found = manipulator->getMap().find({key.linkID(), key.shapeID()});
    if (found == manipulator->getMap().end()) {
        // Kept: the message calls the operation setSelection, for those who look for it by this text.
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrRenderSelection::setSelection - cannot find shape (%d, %d)\n",
                                     static_cast<int>(key.linkID()), static_cast<int>(key.shapeID()));
        return;
    }
    KrRenderShape* shape = found->second.get();
    if (shape == nullptr) {
        Kr::Print::instance()->write(Kr::Print::Warning, "Invalid map entry.\n");
        return;
    }
    osg::ref_ptr<SelectionGroup> wrapper = wrapperOf(*shape);
    if (!wrapper) {
        // Shows the shape as selected on its own.
        wrapper = new SelectionGroup(shape, true, cuts);
    } else {
        wrapper->showSelected();
    }
}

} // namespace

void KrRenderSelection::setSelected(KrRenderManipulator* manipulator, const KrShapeStateCacheKey& key)
{
    select(manipulator, key, nullptr);
}

void KrRenderSelection::setSelected(const std::vector<osg::ref_ptr<KrRenderManipulator>>& manipulators,
                                    const std::vector<KrShapeStateCacheKey>& keys)
{
    Links cuts;
    for (const KrShapeStateCacheKey& key : keys) {
        select(key.manipID() < manipulators.size() ? manipulators[key.manipID()].get() : nullptr, key, &cuts);
    }
    cutAll(cuts);
}

void KrRenderSelection::setNonselected(KrRenderManipulator* manipulator, float alpha, bool restore)
{
    if (manipulator != nullptr) {
        NonSelectionVisitor visitor(alpha, restore);
        manipulator->accept(visitor);
    }
}
