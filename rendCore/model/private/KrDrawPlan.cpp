#include <rendCore/model/private/KrDrawPlan.h>

#include <rendCore/model/KrRenderIntraLink.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderShape.h>
#include <rendCore/model/private/KrInheritedState.h>
#include <rendCore/model/private/KrLabelCamera.h>
#include <rendCore/model/private/KrPartNumbers.h>

#include <osg/Camera>
#include <osg/View>
#include <osgUtil/CullVisitor>
#include <osgUtil/UpdateVisitor>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <typeinfo>

namespace
{

/// What levels may change of a picture (KrIndexedMesh::Level) for each pixel of error that is allowed. Measured with
/// real robots, of which parts are hidden or dark: half a pixel stays below 0.5 % of the pixels.
constexpr double kChangePerPixel = 0.015;

bool isPlain(const osg::MatrixTransform& node)
{
    return KrShapeTable::isPlain(node) && node.getReferenceFrame() == osg::Transform::RELATIVE_RF;
}

/// Whether the visitor would come to something below `node`. An aid's own transform is often shown while what it places
/// is hidden.
bool isShown(const osg::Node& node, const osg::NodeVisitor& visitor)
{
    if (!visitor.validNodeMask(node)) {
        return false;
    }
    const bool isGroup = typeid(node) == typeid(osg::MatrixTransform) || typeid(node) == typeid(osg::Group);
    if (!isGroup || node.getCullCallback() != nullptr) {
        return true;
    }
    const osg::Group& group = *node.asGroup();
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        if (isShown(*group.getChild(i), visitor)) {
            return true;
        }
    }
    return false;
}

/// Whether the graph draws the shape for all links that have it at the place of the first one. Where bodies touch,
/// their lines have one depth, and that place decides which one is seen.
bool isShared(const osg::Node& shape)
{
    return shape.getNumParents() != 1;
}

/// How much `matrix` may lengthen a vector: from above, and nearly exact for rotations with a scale.
double largestScale(const osg::Matrixd& matrix)
{
    // By Gershgorin's circles around the eigenvalues of the matrix times its transpose.
    double largest = 0.0;
    for (int i = 0; i < 3; ++i) {
        double sum = 0.0;
        for (int j = 0; j < 3; ++j) {
            sum += std::abs(matrix(i, 0) * matrix(j, 0) + matrix(i, 1) * matrix(j, 1) + matrix(i, 2) * matrix(j, 2));
        }
        largest = std::max(largest, sum);
    }
    return std::sqrt(largest);
}

bool isIdentity(const osg::Matrixd& matrix)
{
    static const osg::Matrixd identity;
    return std::memcmp(matrix.ptr(), identity.ptr(), 16 * sizeof(double)) == 0;
}

/// In the direction of view, as the cull visitor has it, to the last bit: the planes near and far follow from it.
double depthOf(const osg::Vec3& point, const osg::Matrixd& modelView)
{
    return -(static_cast<double>(point[0]) * modelView(0, 2) + static_cast<double>(point[1]) * modelView(1, 2) +
             static_cast<double>(point[2]) * modelView(2, 2) + modelView(3, 2));
}

/// The shapes of all links: bodies, not what aids show.
std::vector<osg::ref_ptr<KrRenderShape>> shapesOf(osg::Group& manipulator)
{
    std::vector<osg::ref_ptr<KrRenderShape>> shapes;
    // A stack of its own: chains of links may be longer than that of the thread.
    std::vector<osg::Group*> open = {&manipulator};
    while (!open.empty()) {
        osg::Group& group = *open.back();
        open.pop_back();
        for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
            auto* const link = dynamic_cast<KrRenderLink*>(group.getChild(i));
            const osg::ref_ptr<osg::MatrixTransform> frame = link != nullptr ? link->getDhFrame() : nullptr;
            for (unsigned int k = 0; frame.valid() && k < frame->getNumChildren(); ++k) {
                shapes.emplace_back(dynamic_cast<KrRenderShape*>(frame->getChild(k)));
            }
            if (link != nullptr) {
                open.push_back(link);
            }
        }
    }
    return shapes;
}

/// Finds an object that nobody else holds any more, from the one behind `last` on, and makes it `last`: views give
/// theirs back in the order in which they took them, so that the next one is free most often.
template <typename T>
bool findFree(const std::vector<osg::ref_ptr<T>>& objects, std::size_t& last)
{
    for (std::size_t tried = 0; tried < objects.size(); ++tried) {
        last = last + 1 < objects.size() ? last + 1 : 0;
        if (objects[last]->referenceCount() == 1) {
            return true;
        }
    }
    return false;
}

} // namespace

/// What holds for one view in one frame.
struct KrDrawPlan::Frame
{
    osgUtil::CullVisitor& visitor;
    View& view;
    float tolerance; ///< pixels; 0 for every triangle
    double pixels;   ///< that a metre has on the screen; 1 m before the eye, in perspective
    bool isPerspective;
    bool isNearFarComputed;
    const std::vector<osg::Plane>* planes; ///< of the view, in the eye's frame; null for no culling
    double near;
    double far;
    KrMeshBatch* batch = nullptr; ///< null before the first mesh
    bool isFilled = true;         ///< not lines or points
    bool isUnlit = false;
    bool isMirrored = false; ///< by the projection
    bool areLevelsSteady = true;
    KrLabelCamera* labels = nullptr; ///< null where colours are drawn
    std::size_t linkIndex = 0;       ///< of the link at hand, as labels count
    // Of the link at hand.
    const osg::StateSet* look = nullptr; ///< the material that counts for its shapes; null for none
    double scale = 1.0;
    double depth = 0.0; ///< of what is nearest of its meshes, m
    bool isRightHanded = true;
    unsigned int nearCorner = 0;
    unsigned int farCorner = 0;
};

KrDrawPlan::KrDrawPlan(KrRenderManipulator& manipulator, const osg::ref_ptr<KrShapeTable>& table)
    : m_manipulator(manipulator)
    , m_table(table)
{
}

KrDrawPlan::~KrDrawPlan() = default;

void KrDrawPlan::keepListed()
{
    if (m_listed != m_table->generation() || !isAsListed()) {
        list();
    }
}

bool KrDrawPlan::isAsListed() const
{
    const auto isSame = [](const osg::Group& group, const Child* child, const Child* end) {
        if (group.getNumChildren() != static_cast<std::size_t>(end - child)) {
            return false;
        }
        for (unsigned int i = 0; child != end; ++child, ++i) {
            if (group.getChild(i) != child->node) {
                return false;
            }
        }
        return true;
    };
    if (!isSame(m_manipulator, m_roots.data(), m_roots.data() + m_roots.size())) {
        return false;
    }
    const Child* const children = m_children.data();
    return std::all_of(m_links.begin(), m_links.end(), [&](const Link& link) {
        return isSame(*link.node, children + link.firstChild, children + link.firstDhChild) &&
               (link.dhFrame == nullptr ||
                isSame(*link.dhFrame, children + link.firstDhChild, children + link.endChild));
    });
}

void KrDrawPlan::list()
{
    m_roots.clear();
    m_links.clear();
    m_children.clear();
    m_views.clear();
    if (m_table->hasLevels()) {
        m_table->makeLevels(shapesOf(m_manipulator));
    }
    for (unsigned int i = 0; i < m_manipulator.getNumChildren(); ++i) {
        osg::Node* const node = m_manipulator.getChild(i);
        const bool isLink = typeid(*node) == typeid(KrRenderLink) || typeid(*node) == typeid(KrRenderIntraLink);
        m_roots.push_back({node, isLink ? Kind::Link : Kind::Other, nullptr});
        if (isLink) {
            listLink(static_cast<KrRenderLink&>(*node), m_links.size());
        }
    }
    m_modelViews.resize(m_links.size());
    m_looks.resize(m_links.size());
    m_listed = m_table->generation();
}

void KrDrawPlan::listLink(KrRenderLink& link, std::size_t parent)
{
    // A stack of its own: chains of links may be longer than that of the thread.
    struct Step
    {
        std::size_t link;
        std::size_t next; ///< among its children
    };
    std::vector<Step> open;
    const auto enter = [&](KrRenderLink& node, std::size_t above) {
        Link entry;
        entry.node = &node;
        entry.parent = above;
        const osg::Callback* const callback = node.getUpdateCallback();
        entry.updateCallback =
            callback != nullptr && typeid(*callback) == typeid(MatrixUpdateCallback) ? callback : nullptr;
        entry.firstChild = m_children.size();
        listChildren(node, entry);
        entry.firstDhChild = m_children.size();
        if (entry.dhFrame != nullptr) {
            listChildren(*entry.dhFrame, entry);
        }
        entry.endChild = m_children.size();
        open.push_back({m_links.size(), entry.firstChild});
        m_links.push_back(entry);
    };
    enter(link, parent);
    while (!open.empty()) {
        Step& top = open.back();
        const std::size_t number = top.link;
        if (top.next == m_links[number].firstDhChild) {
            m_links[number].end = m_links.size();
            open.pop_back();
            continue;
        }
        const Child& child = m_children[top.next++];
        if (child.kind == Kind::Link) {
            enter(static_cast<KrRenderLink&>(*child.node), number);
        }
    }
}

void KrDrawPlan::listChildren(osg::Group& group, Link& link)
{
    const bool isUnderDhFrame = &group == link.dhFrame;
    osg::BoundingBox box;
    const osg::ref_ptr<osg::MatrixTransform> dhFrame = link.node->getDhFrame();
    for (unsigned int i = 0; i < group.getNumChildren(); ++i) {
        osg::Node* const node = group.getChild(i);
        Child child = {node, Kind::Other, nullptr};
        if (isUnderDhFrame) {
            if (auto* const shape = dynamic_cast<KrRenderShape*>(node)) {
                KrShapeTable::Entry& entry = m_table->entry(*shape);
                child.shapeIndex = link.node->shapeIndexOf(*shape);
                if (entry.mesh != nullptr || entry.isTranslucent) {
                    child.kind = Kind::Shape;
                    child.entry = &entry;
                }
                if (entry.mesh != nullptr) {
                    for (const KrShapeTable::Group& drawn : entry.groups) {
                        box.expandBy(drawn.box);
                    }
                }
            }
        } else if (typeid(*node) == typeid(KrRenderLink)) {
            child.kind = Kind::Link;
            ++link.numUpdating;
        } else if (node == dhFrame && typeid(*node) == typeid(osg::MatrixTransform) && link.dhFrame == nullptr) {
            child.kind = Kind::DhFrame;
            link.dhFrame = dhFrame;
        }
        m_children.push_back(child);
    }
    // Of the box of all: a sphere that is extended by a box may leave out what it had before.
    if (box.valid()) {
        link.sphere = osg::BoundingSphere(box);
    }
}

bool KrDrawPlan::canUpdate(const osg::NodeVisitor& visitor) const
{
    // Whatever else asks for the visitor below a node counts in its number of such children.
    return std::all_of(m_roots.begin(), m_roots.end(),
                       [](const Child& root) {
                           return root.kind == Kind::Link || (root.node->getUpdateCallback() == nullptr &&
                                                              root.node->getNumChildrenRequiringUpdateTraversal() == 0);
                       }) &&
           std::all_of(m_links.begin(), m_links.end(), [&visitor](const Link& link) {
               const osg::Callback* const callback = link.node->getUpdateCallback();
               return callback != nullptr && callback == link.updateCallback &&
                      callback->getNestedCallback() == nullptr &&
                      link.node->getNumChildrenRequiringUpdateTraversal() == link.numUpdating &&
                      visitor.validNodeMask(*link.node);
           });
}

bool KrDrawPlan::update(osg::NodeVisitor& visitor)
{
    // A client's own kind of visitor has things of its own to do at every node.
    if (typeid(visitor) != typeid(osgUtil::UpdateVisitor)) {
        return false;
    }
    keepListed();
    if (!canUpdate(visitor)) {
        return false;
    }
    if (const auto* const data = dynamic_cast<const StateData*>(visitor.getUserData())) {
        for (const Link& link : m_links) {
            // Through the virtual table, as the callback does: an intra-link node places its bodies, too.
            link.node->updateState(data->state);
        }
    }
    return true;
}

KrDrawPlan::View& KrDrawPlan::viewOf(osg::Camera& camera)
{
    // Every frame asks for them in the same order.
    for (std::size_t tried = 0; tried < m_views.size(); ++tried) {
        m_lastView = m_lastView + 1 < m_views.size() ? m_lastView + 1 : 0;
        if (m_views[m_lastView].camera == &camera) {
            return m_views[m_lastView];
        }
    }
    // Those that are gone make room.
    m_views.erase(std::remove_if(m_views.begin(), m_views.end(), [](const View& view) { return !view.camera.valid(); }),
                  m_views.end());
    m_views.push_back({&camera, std::vector<std::uint8_t>(m_children.size(), kNoLevel)});
    m_lastView = m_views.size() - 1;
    return m_views.back();
}

void KrDrawPlan::beginDrawing()
{
    m_manipulator.keepBound();
}

void KrDrawPlan::endDrawing()
{
    m_manipulator.renewBound();
}

/// Whether all that is shown stands in the list, and as it was taken over.
/// @param isFilled  whether polygons are, and not their lines or points drawn
bool KrDrawPlan::isDirect(const osg::NodeVisitor& visitor, bool isFilled)
{
    if (!isPlain(m_manipulator) || !std::all_of(m_roots.begin(), m_roots.end(), [&visitor](const Child& root) {
            return root.kind == Kind::Link || !isShown(*root.node, visitor);
        })) {
        return false;
    }
    for (std::size_t number = 0; number < m_links.size();) {
        const Link& link = m_links[number];
        if (!visitor.validNodeMask(*link.node)) {
            number = link.end;
            continue;
        }
        ++number;
        if (!isPlain(*link.node)) {
            return false;
        }
        const bool isDhFrameShown = link.dhFrame != nullptr && visitor.validNodeMask(*link.dhFrame);
        if (isDhFrameShown && !isPlain(*link.dhFrame)) {
            return false;
        }
        const std::size_t end = isDhFrameShown ? link.endChild : link.firstDhChild;
        for (std::size_t place = link.firstChild; place < end; ++place) {
            const Child& child = m_children[place];
            // Most aids are hidden most of the time.
            if ((child.kind == Kind::Other && isShown(*child.node, visitor)) ||
                (child.kind == Kind::Shape &&
                 (!m_table->isAsTaken(*child.entry) || (!isFilled && isShared(*child.node))) &&
                 visitor.validNodeMask(*child.node))) {
                return false;
            }
        }
    }
    return true;
}

bool KrDrawPlan::cull(osgUtil::CullVisitor& visitor)
{
    // A camera within the scene has no view, and what a client's view wants is not known here.
    osg::Camera* const camera = visitor.getCurrentCamera();
    osg::View* const view = camera != nullptr ? camera->getView() : nullptr;
    const auto* const settings = dynamic_cast<const KrDrawSettings*>(view);
    if (settings == nullptr || !settings->isDirect || typeid(visitor) != typeid(osgUtil::CullVisitor)) {
        return false;
    }
    // Labels are those of what the colours show: its levels, by the view of its camera.
    KrLabelCamera* const labels = KrLabelCamera::of(visitor);
    osg::Camera& seen = labels != nullptr ? labels->seen() : *camera;
    const osg::State* const state = visitor.getState();
    osg::CullingSet& culling = visitor.getCurrentCullingSet();
    const osg::CullSettings::ComputeNearFarMode nearFar = visitor.getComputeNearFarMode();
    // Where groups say for themselves whether they are lit, some have to be drawn as `flat` says, and others not.
    const bool isUnlit = !KrInheritedState::isLit(visitor);
    if ((isUnlit && !KrInheritedState::isUnlitBelow(visitor)) ||
        !KrInheritedState::isPlain(visitor, labels != nullptr ? labels->program() : nullptr)) {
        return false;
    }
    // Planes by primitives, culling by size, shadows of occluders: whoever asks for those gets the whole traversal.
    if (state == nullptr || !KrMeshArena::isSupported(*state) || !visitor.getOccluderList().empty() ||
        !culling.getStateFrustumList().empty() ||
        (culling.getCullingMask() & osg::CullingSet::SMALL_FEATURE_CULLING) != 0 ||
        (nearFar != osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR &&
         nearFar != osg::CullSettings::COMPUTE_NEAR_FAR_USING_BOUNDING_VOLUMES)) {
        return false;
    }
    if (settings->levelOfDetail > 0.0f) {
        m_table->demandLevels();
    }
    keepListed();
    m_table->beginFrame(view, visitor.getTraversalNumber());
    const bool isFilled = KrInheritedState::isFilled(visitor);
    if (!isDirect(visitor, isFilled)) {
        return false;
    }
    if (labels == nullptr) {
        settings->participants.push_back(weak_from_this());
    }

    const osg::Matrixd& projection = *visitor.getProjectionMatrix();
    const osg::Viewport* const viewport = seen.getViewport();
    // Whoever looks at lines looks at the triangles: every one, from both sides.
    Frame frame = {visitor,
                   viewOf(seen),
                   viewport != nullptr && isFilled ? settings->levelOfDetail : 0.0f,
                   viewport != nullptr ? 0.5 * std::max(viewport->width() * std::abs(projection(0, 0)),
                                                        viewport->height() * std::abs(projection(1, 1)))
                                       : 0.0,
                   projection(3, 3) == 0.0,
                   nearFar != osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR,
                   (culling.getCullingMask() & osg::CullingSet::VIEW_FRUSTUM_CULLING) != 0
                       ? &visitor.getProjectionCullingStack().back().getFrustum().getPlaneList()
                       : nullptr,
                   visitor.getCalculatedNearPlane(),
                   visitor.getCalculatedFarPlane()};
    frame.isFilled = isFilled;
    frame.isUnlit = isUnlit;
    frame.isMirrored = projection(0, 0) * projection(1, 1) < projection(0, 1) * projection(1, 0);
    frame.areLevelsSteady = settings->areLevelsSteady;
    frame.labels = labels;
    // As the general traversal multiplies, here and below, so that both give the same bits.
    m_modelView = *visitor.getModelViewMatrix();
    m_modelView.preMult(m_manipulator.getMatrix());
    for (std::size_t number = 0; number < m_links.size();) {
        if (visitor.validNodeMask(*m_links[number].node)) {
            cullLink(number, frame);
            ++number;
        } else {
            number = m_links[number].end;
        }
    }
    // What is translucent has moved the planes on its own.
    visitor.setCalculatedNearPlane(std::min(frame.near, visitor.getCalculatedNearPlane()));
    visitor.setCalculatedFarPlane(std::max(frame.far, visitor.getCalculatedFarPlane()));
    return true;
}

void KrDrawPlan::cullLink(std::size_t number, Frame& frame)
{
    const Link& link = m_links[number];
    osgUtil::CullVisitor& visitor = frame.visitor;
    osg::Matrixd& modelView = m_modelViews[number];
    modelView = number == link.parent ? m_modelView : m_modelViews[link.parent];
    modelView.preMult(link.node->getMatrix());
    m_looks[number] = KrInheritedState::lookBelow(
        number == link.parent ? m_manipulator.getStateSet() : m_looks[link.parent], link.node->getStateSet());
    if (link.dhFrame == nullptr || link.firstDhChild == link.endChild || !visitor.validNodeMask(*link.dhFrame)) {
        return;
    }
    osg::Matrixd dhModelView = modelView;
    if (!isIdentity(link.dhFrame->getMatrix())) {
        dhModelView.preMult(link.dhFrame->getMatrix());
    }
    const unsigned int joint = link.node->getJointIndex();
    frame.look = KrInheritedState::lookBelow(m_looks[number], link.dhFrame->getStateSet());
    frame.linkIndex = joint == KrRenderLink::kBaseJointIndex ? 0 : std::size_t{1} + joint;
    const Sight sight = see(link.sphere, dhModelView, frame);
    for (std::size_t place = link.firstDhChild; place < link.endChild; ++place) {
        const Child& child = m_children[place];
        if (child.kind != Kind::Shape || !visitor.validNodeMask(*child.node)) {
            continue;
        }
        if (child.entry->mesh == nullptr || sight == Sight::Unknown) {
            cullByGraph(place, dhModelView, frame);
        } else if (sight != Sight::Outside) {
            cullShape(place, dhModelView, sight == Sight::Crossing, frame);
        }
    }
}

/// By the general traversal. What is translucent is sorted by depth behind what is opaque, whenever it comes.
void KrDrawPlan::cullByGraph(std::size_t place, const osg::Matrixd& modelView, const Frame& frame)
{
    osgUtil::CullVisitor& visitor = frame.visitor;
    const Child& child = m_children[place];
    visitor.pushModelViewMatrix(kept(modelView), osg::Transform::RELATIVE_RF);
    if (frame.look != nullptr) {
        visitor.pushStateSet(frame.look);
    }
    const std::uint32_t label = labelOf(child, frame);
    if (label != 0) {
        visitor.pushStateSet(&frame.labels->states(label));
    }
    child.node->accept(visitor);
    if (label != 0) {
        visitor.popStateSet();
    }
    if (frame.look != nullptr) {
        visitor.popStateSet();
    }
    visitor.popModelViewMatrix();
}

/// Where the meshes of a link are, in the view. Fills what `frame` has of the link.
KrDrawPlan::Sight KrDrawPlan::see(const osg::BoundingSphere& sphere, const osg::Matrixd& modelView, Frame& frame) const
{
    const osg::Vec3d center = osg::Vec3d(sphere.center()) * modelView;
    frame.scale = largestScale(modelView);
    // A little larger, for what is lost in single precision.
    const double radius = 1.001 * frame.scale * static_cast<double>(sphere.radius());
    // The general traversal says what is wrong with a matrix of no numbers.
    if (!std::isfinite(center.x() + center.y() + center.z() + radius)) {
        return Sight::Unknown;
    }
    frame.depth = -center.z() - radius;
    // A mirrored body shows its backs.
    frame.isRightHanded = (osg::Vec3d(modelView(0, 0), modelView(0, 1), modelView(0, 2)) *
                               (osg::Vec3d(modelView(1, 0), modelView(1, 1), modelView(1, 2)) ^
                                osg::Vec3d(modelView(2, 0), modelView(2, 1), modelView(2, 2))) >
                           0.0) != frame.isMirrored;
    const osg::Vec3f look(static_cast<float>(-modelView(0, 2)), static_cast<float>(-modelView(1, 2)),
                          static_cast<float>(-modelView(2, 2)));
    frame.farCorner = (look.x() >= 0 ? 1 : 0) | (look.y() >= 0 ? 2 : 0) | (look.z() >= 0 ? 4 : 0);
    frame.nearCorner = ~frame.farCorner & 7;
    if (frame.planes == nullptr) {
        return Sight::Inside;
    }
    Sight sight = Sight::Inside;
    for (const osg::Plane& plane : *frame.planes) {
        const double distance = plane.distance(center);
        if (distance < -radius) {
            return Sight::Outside;
        }
        if (distance < radius) {
            sight = Sight::Crossing;
        }
    }
    return sight;
}

void KrDrawPlan::cullShape(std::size_t place, const osg::Matrixd& modelView, bool isCrossing, Frame& frame)
{
    const KrShapeTable::Entry& entry = *m_children[place].entry;
    osgUtil::CullVisitor& visitor = frame.visitor;
    if (isCrossing) {
        // The culling set of the shape's own frame, which judges boxes as the general traversal does.
        visitor.pushModelViewMatrix(kept(modelView), osg::Transform::RELATIVE_RF);
    }
    bool isSeen = false;
    bool isPartBehind = false;
    for (const KrShapeTable::Group& group : entry.groups) {
        if (!group.box.valid() || (isCrossing && visitor.isCulled(group.box))) {
            continue;
        }
        if (!frame.isNearFarComputed) {
            isSeen = true;
            continue;
        }
        double near = depthOf(group.box.corner(frame.nearCorner), modelView);
        double far = depthOf(group.box.corner(frame.farCorner), modelView);
        if (near > far) {
            std::swap(near, far);
        }
        if (far < 0.0) {
            isPartBehind = true;
            continue; // the eye
        }
        isSeen = true;
        frame.near = std::min(frame.near, near);
        frame.far = std::max(frame.far, far);
    }
    if (isCrossing) {
        visitor.popModelViewMatrix();
    }
    if (!isSeen) {
        return;
    }
    if (isPartBehind && !frame.isPerspective) {
        // The graph leaves such groups out, one by one, and a parallel projection may well show what is behind the eye.
        cullByGraph(place, modelView, frame);
        return;
    }
    // Whoever wants every triangle gets both of its sides: at the rim of a body a back face may win by a rounding. That
    // changes no label: where a closed body has a back face it has a front one.
    const bool isSolid = frame.isFilled && (frame.tolerance > 0.0f || frame.labels != nullptr) &&
                         entry.mesh->isClosed && frame.isRightHanded;
    KrMeshBatch::Item item = {modelView,
                              entry.mesh,
                              levelOf(place, *entry.mesh, frame),
                              isSolid ? static_cast<float>(frame.depth) : 0.0f,
                              {},
                              KrInheritedState::lookBelow(frame.look, m_children[place].node->getStateSet())};
    if (frame.labels != nullptr) {
        item.part = frame.labels->value(labelOf(m_children[place], frame));
    }
    batch(frame).add(item);
}

/// Of a shape of the link at hand; 0 where colours are drawn.
std::uint32_t KrDrawPlan::labelOf(const Child& shape, const Frame& frame) const
{
    return frame.labels == nullptr
               ? 0
               : m_manipulator.numbers().label(frame.labels->level(), frame.linkIndex, shape.shapeIndex);
}

/// A counted matrix: one that no view holds any more.
osg::RefMatrix* KrDrawPlan::kept(const osg::Matrixd& matrix)
{
    if (!findFree(m_matrices, m_lastMatrix)) {
        // Half as many again, so that a vain search is rare however many are needed.
        const std::size_t count = m_matrices.size();
        while (m_matrices.size() <= count + count / 2) {
            m_matrices.push_back(new osg::RefMatrix);
        }
        m_lastMatrix = count;
    }
    osg::RefMatrix* const found = m_matrices[m_lastMatrix];
    found->set(matrix);
    return found;
}

std::size_t KrDrawPlan::levelOf(std::size_t place, const KrMeshArena::Mesh& mesh, const Frame& frame) const
{
    if (frame.tolerance <= 0.0f || (frame.isPerspective && frame.depth <= 0.0)) {
        return 0;
    }
    const double pixels = frame.scale * frame.pixels / (frame.isPerspective ? frame.depth : 1.0);
    // However far away a body is, a level changes the same share of its pixels: of a small one most are at its rims.
    const auto tolerance = static_cast<double>(frame.tolerance);
    const auto coarsest = [&](double allowedError) {
        std::size_t level = 0;
        while (level + 1 < mesh.errors.size() && static_cast<double>(mesh.errors[level + 1]) * pixels <= allowedError &&
               static_cast<double>(mesh.changes[level + 1]) <= kChangePerPixel * tolerance) {
            ++level;
        }
        return level;
    };
    const std::size_t allowed = coarsest(tolerance);
    if (!frame.areLevelsSteady) {
        return allowed;
    }
    std::uint8_t& last = frame.view.levels[place];
    // Coarser only when it is well within the tolerance: a robot at the edge of two levels does not change all the
    // time.
    const std::size_t level =
        last == kNoLevel || allowed <= last ? allowed : std::max<std::size_t>(last, coarsest(0.8 * tolerance));
    last = static_cast<std::uint8_t>(std::min<std::size_t>(level, kNoLevel - 1));
    return level;
}

void KrDrawPlan::releaseGLObjects(osg::State* state) const
{
    m_table->releaseGLObjects(state);
    // They stand in no scene. Another context may get the number of this one.
    for (const osg::ref_ptr<KrMeshBatch>& batch : m_batches) {
        batch->releaseGLObjects(state);
    }
}

/// The batch of the frame and view at hand.
KrMeshBatch& KrDrawPlan::batch(Frame& frame)
{
    if (frame.batch != nullptr) {
        return *frame.batch;
    }
    if (!findFree(m_batches, m_lastBatch)) {
        m_lastBatch = m_batches.size();
        m_batches.push_back(new KrMeshBatch);
    }
    frame.batch = m_batches[m_lastBatch];
    osgUtil::CullVisitor& visitor = frame.visitor;
    frame.batch->begin(m_table->arena(), m_table->fronts(KrInheritedState::lightModel(visitor)),
                       frame.isFilled && KrInheritedState::areBackFacesCulled(visitor),
                       frame.labels != nullptr ? KrLabelCamera::kMeshPart : nullptr);
    if (frame.isUnlit) {
        visitor.pushStateSet(m_table->arena().flat());
    }
    visitor.pushStateSet(m_table->arena().base());
    // Leaves of one state graph are drawn one after the other, and those of the arena's state sets are batches.
    const osgUtil::StateGraph::LeafList& leaves = visitor.getCurrentStateGraph()->_leaves;
    if (!leaves.empty() && leaves.back()->_projection == visitor.getProjectionMatrix()) {
        frame.batch->follow(static_cast<KrMeshBatch&>(*leaves.back()->_drawable));
    }
    // The matrix is one that the view holds anyway: every item brings its own.
    visitor.addDrawableAndDepth(frame.batch, visitor.getModelViewMatrix(), 0.0f);
    visitor.popStateSet();
    if (frame.isUnlit) {
        visitor.popStateSet();
    }
    return *frame.batch;
}
