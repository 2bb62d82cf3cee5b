#include <rendCore/system/KrRenderWindow.h>

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/aids/KrRenderCollisionShapes.h>
#include <rendCore/aids/private/KrEllipsoidMaker.h>
#include <rendCore/aids/private/KrVolumeMaker.h>
#include <rendCore/base/private/KrTraversalStack.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/model/KrRenderSelection.h>
#include <rendCore/model/private/KrDrawPlan.h>
#include <rendCore/model/private/KrMarkTransfer.h>
#include <rendCore/model/private/KrPartNumbers.h>
#include <rendCore/window/KrSGBaseInputHandler.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/system/private/KrLinkWalk.h>
#include <toolkit/system/private/KrShapeLookup.h>

#include <osg/LightSource>
#include <osgViewer/Viewer>

#include <algorithm>
#include <utility>

KrRenderWindow::KrRenderWindow()
    : m_markTransfer(std::make_unique<KrMarkTransfer>())
{
    // Kept: over the name that the base has given. Titles and messages show it, also those of windows of several views.
    KrWindow::setName("KrRenderWindow");
}

KrRenderWindow::~KrRenderWindow()
{
    m_state.reset();
    KrRenderWindow::closeWindow();
}

bool KrRenderWindow::init()
{
    // Kept: an open window is not set up again: every capture calls this first.
    return (isInitialized() && getViewer()) || KrSGWindow::init();
}

bool KrRenderWindow::setVisualizableStatedSystem(const KrVisualizableStatedSystem& system)
{
    return setStatedSystem(system.statedSystem(), system.visualizationParameters());
}

bool KrRenderWindow::setStatedSystem(const KrStatedSystem& system, const KrVisualizationParameters& parameters)
{
    setStatedSystem(system);
    return setVisualizationParameters(parameters);
}

bool KrRenderWindow::setStatedSystem(const KrStatedSystem& system)
{
    // The system of before goes first, and with it what points into it.
    deleteContents();
    // Borrowed: the client keeps the system while the window shows it.
    m_statedSystem = &system;
    // A copy: poses change by `setState`, whatever becomes of the system's own state.
    setState(system.systemState());
    if (isInitialized()) {
        updateScene();
    }
    // Kept: also where the scene is loaded only when the window opens. Clients learn from it that there is a system,
    // not that it has been drawn.
    setSystemReady(true);
    return true;
}

const KrStatedSystem* KrRenderWindow::statedSystem() const
{
    return m_statedSystem;
}

void KrRenderWindow::setState(const KrManipulatorSystemState& state)
{
    // In place: this is called for every frame, and a new copy would take memory for every link.
    if (m_state) {
        *m_state = state;
    } else {
        m_state = std::make_unique<KrManipulatorSystemState>(state);
    }
}

const KrManipulatorSystemState* KrRenderWindow::state() const
{
    return m_state.get();
}

const std::vector<std::vector<KrCoordinateSystemTransformation>>& KrRenderWindow::vvTrans() const
{
    return m_vvTrans;
}

std::vector<std::vector<KrCoordinateSystemTransformation>>& KrRenderWindow::vvTrans()
{
    return m_vvTrans;
}

KrCoordinateSystemTransformation* KrRenderWindow::getGuideTrans(unsigned int i, unsigned int j)
{
    return i < m_vvTrans.size() && j < m_vvTrans[i].size() ? &m_vvTrans[i][j] : nullptr;
}

void KrRenderWindow::setSystemReady(bool ready)
{
    m_systemReady = ready;
}

bool KrRenderWindow::systemReady() const
{
    return m_systemReady;
}

void KrRenderWindow::deleteContents()
{
    // Kept: from here to the next system the window is not ready, and a client that asks knows that it has none.
    setSystemReady(false);
    m_state.reset();
    if (osgViewer::Viewer* const viewer = getViewer()) {
        // The visitor would go on carrying the state that has just been deleted.
        KrRenderLink::updateState(viewer->getUpdateVisitor(), nullptr);
    }
    m_statedSystem = nullptr;
    // Before the shapes go that carry them.
    collectMarks();
    m_isDepthTold = false;
    m_renderManipulators.clear();
    m_lacksCollisionShapes = false;
    KrSGWindow::deleteContents();
}

bool KrRenderWindow::closeWindow()
{
    collectMarks();
    m_renderManipulators.clear();
    m_lacksCollisionShapes = false;
    return KrSGWindow::closeWindow();
}

/// Marks outlive the shapes that they are on, as far as their extents are shown again.
void KrRenderWindow::collectMarks()
{
    for (const osg::ref_ptr<KrRenderManipulator>& manipulator : m_renderManipulators) {
        m_markTransfer->collect(manipulator);
    }
}

bool KrRenderWindow::loadScene(const KrStatedSystem* system)
{
    if (!system || !isInitialized() || !m_sceneRoot) {
        // Kept: the message says KrSystemState, as filters of clients' logs match it.
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrRenderWindow::loadScene - not initialized or bad KrSystemState\n");
        return false;
    }
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = system->manipulatorSystem().manipulators();
    // Before anything is taken down: a system that cannot be drawn leaves the scene as it is.
    if (!fitsStack(manipulators)) {
        return false;
    }
    m_lacksCollisionShapes = false; // the mask is set anew while the old scene is there yet
    // The base first: it attaches the fixed nodes and sets the mask to the scene alone.
    KrSGWindow::loadScene();
    detachManipulators();
    collectMarks();
    // Extents are told by the handles of the shapes of before, which building the new ones replaces.
    m_markTransfer->match(system->manipulatorSystem());
    // The old nodes go before the new ones are built: shapes that are still alive would be taken for shared ones, and
    // stand in no map of the new nodes.
    m_renderManipulators.assign(manipulators.size(), nullptr);
    // Aids are hidden in most scenes, and the robots of a scene are often copies of one.
    KrVolumeMaker volumes(KrVolumeMaker::Corners::WhenSeen);
    // Robots that share shapes share what the driver holds of them.
    const osg::ref_ptr<KrShapeTable> shapes = new KrShapeTable;
    KrPartNumbers::Next next;
    for (unsigned int i = 0; i < manipulators.size(); ++i) {
        m_renderManipulators[i] = new KrRenderManipulator(manipulators[i], i);
        m_renderManipulators[i]->setShapeTable(shapes);
        m_renderManipulators[i]->setNumbers(KrPartNumbers(manipulators[i], next));
        m_sceneRoot->addChild(m_renderManipulators[i]);
        // Kept: manipulator by manipulator, whose volumes look as its own maps say.
        volumes.addTo(*m_renderManipulators[i], manipulators[i].dataMaps());
    }
    m_markTransfer->giveBack();
    // For `updateScene`, which shows a selection that stands on the new nodes.
    m_isSceneNew = true;
    // Kept: only here. A scene that was not loaded leaves it set, and `updateScene` asks again in the next frame.
    m_dirtyFlags &= ~std::uint32_t(DirtySystem);
    if (m_inputHandler.valid()) {
        // After the content is in: the size of the scene is read here.
        m_inputHandler->setNode(m_sceneRoot);
    }
    // The system is told that it was looked at: its flags are mutable for this.
    system->setNewSystem(false);
    // A new system has bodies of its own to tell of.
    m_areBodiesTold = false;
    // Kept: axes and masses after the input handler, which has measured the scene without them.
    KrRenderAxis::init(m_sceneRoot);
    KrEllipsoidMaker(KrEllipsoidMaker::Corners::WhenSeen).addTo(*m_sceneRoot);
    m_lacksCollisionShapes = true;
    buildShownCollisionShapes();
    return true;
}

void KrRenderWindow::setDisplayMask(unsigned int mask, bool on, bool secondary)
{
    KrSGWindow::setDisplayMask(mask, on, secondary);
    buildShownCollisionShapes();
}

/// What nobody looks at costs nothing: most programs never show them.
void KrRenderWindow::buildShownCollisionShapes()
{
    // Asked where masks change and where scenes are loaded: whichever comes second builds them.
    if (m_lacksCollisionShapes && ((m_displayMask | m_secondaryDisplayMask) & KrRenderTypes::CollisionShapes) != 0) {
        m_lacksCollisionShapes = false;
        KrRenderCollisionShapes::init(m_sceneRoot);
    }
}

/// Asked again every frame while the system is not loaded, and tells of it once.
bool KrRenderWindow::fitsStack(const KrXmlVectorType<KrIndividualManipulator>& manipulators)
{
    const auto deepest = std::max_element(
        manipulators.begin(), manipulators.end(),
        [](const KrIndividualManipulator& a, const KrIndividualManipulator& b) { return a.depth() < b.depth(); });
    // To ask for what is left of the stack takes a file of the system: once, unless there is something to tell.
    const bool fits =
        deepest == manipulators.end() || KrTraversalStack::holds(*deepest, true) ||
        std::all_of(manipulators.begin(), manipulators.end(), [this](const KrIndividualManipulator& manipulator) {
            return KrTraversalStack::holds(manipulator, m_isDepthTold);
        });
    m_isDepthTold = !fits;
    return fits;
}

void KrRenderWindow::detachManipulators()
{
    // From the last one on, which leaves the places of the others as they are.
    for (std::size_t i = m_renderManipulators.size(); i-- > 0;) {
        const unsigned int place = m_sceneRoot->getChildIndex(m_renderManipulators[i]);
        if (place < m_sceneRoot->getNumChildren()) {
            m_sceneRoot->removeChildren(place, 1);
        }
    }
}

bool KrRenderWindow::updateScene()
{
    if ((!isInitialized() || !getViewer()) && !init()) {
        return false;
    }
    // A window without a system is a scene window.
    if (!m_statedSystem) {
        return KrSGWindow::updateScene();
    }
    if (((m_dirtyFlags & DirtySystem) || m_statedSystem->isNewSystem()) && !loadScene(m_statedSystem)) {
        return false;
    }
    // The links take their poses when the frame's update traversal meets them.
    if (!KrRenderLink::updateState(m_viewer->getUpdateVisitor(), m_state.get())) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrRenderWindow::updateScene - Scene not initialized.\n");
        return false;
    }
    // Kept: shapes, selection, transparency, then the base class. A shape gets its new vertices before its new opacity,
    // and the base clears the dirty flags that were read above.
    updateDeformations();
    // The nodes of a scene just built know nothing of a selection that stands.
    const bool isStanding = std::exchange(m_isSceneNew, false) && !m_statedSystem->selectedShapes().empty();
    if (isStanding || m_statedSystem->isSelectionChanged()) {
        updateSelection();
    }
    if (m_statedSystem->isTransparencyChanged()) {
        updateTransparency();
    }
    // Told when they are shown, not when they are built.
    if (((m_displayMask | m_secondaryDisplayMask) & KrRenderTypes::MassProperties) != 0) {
        tellOfImpossibleBodies();
    }
    return KrSGWindow::updateScene();
}

/// Links whose ellipsoids one would look for in vain, once for each system.
void KrRenderWindow::tellOfImpossibleBodies()
{
    if (m_areBodiesTold) {
        return;
    }
    m_areBodiesTold = true;
    for (const KrIndividualManipulator& manipulator : m_statedSystem->manipulatorSystem().manipulators()) {
        // The base is a link, too, and stands in no list of child links.
        manipulator.massProperties().tellWhyImpossible(manipulator.name());
        KrLinkWalk walk(manipulator);
        while (const KrManipulatorLink* const link = walk.next()) {
            link->massProperties().tellWhyImpossible(link->name());
        }
    }
}

/// Null for a key that names a manipulator the scene does not have.
KrRenderManipulator* KrRenderWindow::renderManipulator(std::uint32_t index) const
{
    return index < m_renderManipulators.size() ? m_renderManipulators[index].get() : nullptr;
}

void KrRenderWindow::updateDeformations()
{
    KrShapeLookup lookup(m_statedSystem->manipulatorSystem());
    for (const KrShapeStateCacheKey& key : m_statedSystem->changedShapes()) {
        m_workKey = key;
        const KrShape* const shape = lookup.shape(m_workKey);
        if (KrRenderManipulator* const node = renderManipulator(m_workKey.manipID())) {
            node->updateDeformation(m_workKey.linkID(), m_workKey.shapeID(), shape);
        }
    }
}

void KrRenderWindow::updateSelection()
{
    const std::vector<KrShapeStateCacheKey>& selected = m_statedSystem->selectedShapes();
    // Kept: first all that are selected, then the others: fading leaves out what was just marked.
    KrRenderSelection::setSelected(m_renderManipulators, selected);
    // Kept: without a selection nothing is faded, and the wrappers go: all shapes have their own looks again.
    const bool restore = selected.empty();
    // The system's count: manipulators that are not drawn give null, which is harmless.
    const unsigned int count = m_statedSystem->manipulatorSystem().manipulators().size();
    for (unsigned int i = 0; i < count; ++i) {
        KrRenderSelection::setNonselected(renderManipulator(i), static_cast<float>(m_statedSystem->transparency()),
                                          restore);
    }
    // Acknowledged last.
    m_statedSystem->setSelectionChanged(false);
}

void KrRenderWindow::updateTransparency()
{
    const float alpha = static_cast<float>(m_statedSystem->transparency());
    // Kept: what is walked is the list of changed shapes. Clients name there what a new transparency is for; every
    // other shape stays as it is.
    KrShapeLookup lookup(m_statedSystem->manipulatorSystem());
    for (const KrShapeStateCacheKey& key : m_statedSystem->changedShapes()) {
        m_workKey = key;
        const KrShape* const shape = lookup.shape(m_workKey);
        if (KrRenderManipulator* const node = renderManipulator(m_workKey.manipID())) {
            node->updateTransparency(m_workKey.linkID(), m_workKey.shapeID(), shape, alpha);
        }
    }
    m_statedSystem->setTransparencyChanged(false);
}
