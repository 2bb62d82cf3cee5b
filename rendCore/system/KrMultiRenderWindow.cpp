#include <rendCore/system/KrMultiRenderWindow.h>

#include <rendCore/system/private/KrTileCallbacks.h>
#include <rendCore/system/private/KrTiledCapture.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/FrameBufferObject>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace
{

constexpr std::uint64_t kLargest = KrMultiRenderWindow::kLargestSize;
// A pixel for each view, in the largest window there is.
constexpr unsigned int kMostViews = KrMultiRenderWindow::kLargestSize * KrMultiRenderWindow::kLargestSize;

/// Whether the main camera and all views show `scene`.
bool isShownByAll(osgViewer::Viewer& viewer, osg::Node* scene)
{
    if (viewer.getSceneData() != scene || !viewer.getCamera()->containsNode(scene)) {
        return false;
    }
    for (unsigned int i = 0; i < viewer.getNumSlaves(); ++i) {
        const osg::View::Slave& slave = viewer.getSlave(i);
        // One that a client has added may show something of its own.
        if (slave._useMastersSceneData && !slave._camera->containsNode(scene)) {
            return false;
        }
    }
    return true;
}

// By way of "%s": a message is text, whatever is in it.
void warn(const char* message)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "%s", message);
}

// Kept, in both: the messages say init, wherever they come from, as filters of clients' logs match them.
void warnOfWidth()
{
    Kr::Print::instance()->write(Kr::Print::Warning,
                                 "KrMultiRenderWindow::init - Desired window size exceeds max dimension (%u)\n",
                                 KrMultiRenderWindow::kLargestSize);
}

void warnOfHeight()
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrMultiRenderWindow::init - Exceeded height dimension (%u).\n",
                                 KrMultiRenderWindow::kLargestSize);
}

} // namespace

KrMultiRenderWindow::KrMultiRenderWindow()
    : m_placer(new KrViewFollower([this] { followMainCamera(); }))
{
}

KrMultiRenderWindow::KrMultiRenderWindow(unsigned int singleWidth, unsigned int singleHeight, unsigned int numWindows)
    : KrMultiRenderWindow()
{
    // Named with its class: no override of a subclass runs in a constructor.
    KrMultiRenderWindow::setWindowParams(singleWidth, singleHeight, numWindows);
}

KrMultiRenderWindow::~KrMultiRenderWindow()
{
    KrMultiRenderWindow::closeWindow();
    // The viewer's slaves may hold the placer longer than this window lives.
    m_placer->detach();
}

bool KrMultiRenderWindow::closeWindow()
{
    // Names that outlive the context would later be deleted in another one.
    if (m_target.valid() && m_graphicsWindow.valid() && m_graphicsWindow->getState()) {
        m_target->releaseGLObjects(m_graphicsWindow->getState());
    }
    m_target = nullptr;
    m_windowCapture = nullptr;
    // Cameras belong to a viewer: the next one gets its own, in the same number.
    std::fill(m_views.begin(), m_views.end(), nullptr);
    return KrRenderWindow::closeWindow();
}

bool KrMultiRenderWindow::setWindowSize(unsigned int width, unsigned int height)
{
    // Of the whole window, which goes back to it where the new tiles do not fit.
    const unsigned int widthBefore = windowWidth();
    const unsigned int heightBefore = windowHeight();
    const bool isSized = KrWindow::setWindowSize(width, height);
    const bool isFlat = width == 0 || height == 0;
    setAspectRatio(isFlat ? 1.0 : static_cast<double>(width) / static_cast<double>(height));
    if (!isSized) {
        return false;
    }
    // Kept: the size given is that of one view, here and in `setWindowSizeAndPos`; clients read that of the whole
    // window back.
    setWindowParams(width, height, 0);
    const bool isLaidOut =
        m_grid.columns == m_numColumns && m_grid.rows == m_numRows && m_grid.width == width && m_grid.height == height;
    if (!isLaidOut) {
        KrSGWindow::setWindowSize(widthBefore, heightBefore); // refused: the views stand where they stood
    }
    return true;
}

bool KrMultiRenderWindow::setWindowSizeAndPos(unsigned int width, unsigned int height, int x, int y)
{
    const bool isSized = setWindowSize(width, height);
    // Moved in any case: the place is no part of what may be refused.
    return KrWindow::setWindowPos(x, y, true) && isSized;
}

void KrMultiRenderWindow::setNumColumnsHint(unsigned int numColumns)
{
    // The same hint again lays nothing out anew.
    if (m_numColumnsHint != numColumns) {
        m_numColumnsHint = numColumns;
        setWindowParams(m_singleWidth, m_singleHeight, 0);
    }
}

bool KrMultiRenderWindow::shareOut(unsigned int width, unsigned int height)
{
    // Before a grid was found there is one column.
    const unsigned int columns = std::max(1u, m_grid.columns);
    const unsigned int rows = (std::max(1u, getNumWindows()) - 1) / columns + 1;
    const unsigned int single[] = {std::max(1u, std::min(width, kLargestSize) / columns),
                                   std::max(1u, std::min(height, kLargestSize) / rows)};
    // A border that moves by less than a pixel for each tile changes nothing.
    if (single[0] == m_singleWidth && single[1] == m_singleHeight) {
        return false;
    }
    // The columns that stand are kept while the whole window changes, whatever else would fit.
    const unsigned int hint = m_numColumnsHint;
    m_numColumnsHint = columns;
    setWindowParams(single[0], single[1], 0);
    m_numColumnsHint = hint;
    return true;
}

void KrMultiRenderWindow::getSingleWindowSize(unsigned int& width, unsigned int& height) const
{
    width = m_singleWidth;
    height = m_singleHeight;
}

void KrMultiRenderWindow::setWindowParams(unsigned int singleWidth, unsigned int singleHeight, unsigned int numWindows)
{
    const unsigned int old = getNumWindows();
    // 0 means as many as before, and one at least.
    const unsigned int count = numWindows != 0 ? numWindows : std::max(1u, old);
    if (count > kMostViews) {
        warnOfHeight(); // more views than the largest window has pixels: not even their lists are made
        return;
    }
    if (count != old) {
        setNumViews(count);
    }
    // Recorded also where no grid is found: what was asked for is told by `getSingleWindowSize`.
    m_singleWidth = singleWidth;
    m_singleHeight = singleHeight;
    if (!chooseGrid()) {
        return;
    }
    // The products are within kLargestSize: `chooseGrid` has seen to it.
    if (KrSGWindow::setWindowSize(m_numColumns * singleWidth, m_numRows * singleHeight)) {
        m_grid = {m_numColumns, m_numRows, singleWidth, singleHeight};
    }
    // A window that opens later is laid out by `init`.
    if (!isInitialized()) {
        return;
    }
    if (count != old) {
        init();
    } else if (m_viewer.valid()) {
        layoutViews();
    }
}

/// Kept: also the views that stay are made anew, but for the first: `layoutViews` makes those that are missing, and a
/// client's own settings go with a camera of before.
void KrMultiRenderWindow::setNumViews(unsigned int count)
{
    for (std::size_t k = 1; k < m_views.size(); ++k) {
        if (m_viewer.valid() && m_views[k].valid()) {
            // Entry 0 is the main camera, which is no slave.
            const unsigned int slave = m_viewer->findSlaveIndexForCamera(m_views[k]);
            if (slave < m_viewer->getNumSlaves()) {
                m_viewer->removeSlave(slave);
            }
        }
        m_views[k] = nullptr;
    }
    m_views.resize(count);
    // Kept: the lists grow and shrink with the views, but for the points of view. While those are too few, `placeViews`
    // places none; those too many wait for more views.
    m_eyePoints.resize(count);
    m_coords.resize(count);
    layoutEmptyTiles();
}

/// Columns and rows for the views; false, after a warning, when the window would become too large.
bool KrMultiRenderWindow::chooseGrid()
{
    const unsigned int count = getNumWindows();
    if (m_numColumnsHint != 0 && std::uint64_t(m_singleWidth) * m_numColumnsHint <= kLargest) {
        m_numColumns = m_numColumnsHint;
    } else {
        // Without a hint, or with one that is too wide, as many as fit side by side.
        m_numColumns = m_singleWidth == 0 ? 0 : std::min(count, kLargestSize / m_singleWidth);
    }
    if (m_numColumns == 0) {
        warnOfWidth();
        return false;
    }
    m_numRows = KrTileGrid::rowsFor(count, m_numColumns);
    // In 64 bits: sizes come from clients.
    if (std::uint64_t(m_singleHeight) * m_numRows > kLargest) {
        warnOfHeight();
        return false;
    }
    return true;
}

bool KrMultiRenderWindow::init()
{
    if (!KrRenderWindow::init()) {
        return false;
    }
    layoutViews();
    // A callback that a client has set stays.
    if (!m_overlayCamera->getCullCallback()) {
        m_overlayCamera->setCullCallback(new KrOverlayOnce);
    }
    // Set again when the views are there: slaves share the viewer's scene. Only then, as it sets the viewer's clock to
    // 0 and allocates, and every capture asks for an open window.
    if (!isShownByAll(*m_viewer, m_sceneRoot)) {
        m_viewer->setSceneData(m_sceneRoot);
    }
    return true;
}

/// Entry 0 tells whose views they are: without a grid, too, it is the present viewer's.
void KrMultiRenderWindow::forgetViewsOfAnotherViewer()
{
    osg::Camera* const main = m_viewer->getCamera();
    if (m_views.empty() || m_views.front() == main) {
        return;
    }
    std::fill(m_views.begin(), m_views.end(), nullptr);
    // The first view is the main camera itself: it draws the first tile.
    m_views.front() = main;
    // A new one: the last viewer's may have nested in it what its client added, and would bring that along.
    m_emptyTiles = new KrEmptyTiles;
    main->addInitialDrawCallback(m_emptyTiles);
}

void KrMultiRenderWindow::layoutViews()
{
    forgetViewsOfAnotherViewer();
    for (unsigned int k = 0; k < m_views.size() && k < m_grid.numPlaces(); ++k) {
        osg::ref_ptr<osg::Camera>& view = m_views[k];
        if (!view) {
            view = createView(k);
        }
        view->setViewport(static_cast<int>(m_grid.left(k)), static_cast<int>(m_grid.bottom(k)),
                          static_cast<int>(std::max(1u, m_grid.width)), static_cast<int>(std::max(1u, m_grid.height)));
    }
    layoutEmptyTiles();
}

/// Placed by its number among those that are drawn, too: the sorting by it leaves nothing to chance.
osg::ref_ptr<osg::Camera> KrMultiRenderWindow::createView(unsigned int number)
{
    const osg::Camera& main = *m_viewer->getCamera();
    const osg::ref_ptr<osg::Camera> view = new osg::Camera;
    view->setGraphicsContext(m_graphicsWindow);
    view->setViewport(new osg::Viewport);
    view->setRenderOrder(main.getRenderOrder(), main.getRenderOrderNum() + static_cast<int>(number));
    // As the main camera's: projections are written here, and a resize must not change them.
    view->setProjectionResizePolicy(osg::Camera::FIXED);
    view->setClearColor(main.getClearColor());
    view->setClearMask(main.getClearMask());
    // A view shows what the main camera would: the same colours behind, the same parts left out.
    view->setCullingMode(main.getCullingMode());
    // Offsets are set in every frame that changes something: `placeViews`.
    m_viewer->addSlave(view, osg::Matrixd::identity(), osg::Matrixd::identity(), true);
    m_viewer->findSlaveForCamera(view)->_updateSlaveCallback = m_placer;
    return view;
}

void KrMultiRenderWindow::layoutEmptyTiles()
{
    if (!m_emptyTiles) {
        return;
    }
    std::vector<KrEmptyTiles::Area>& areas = m_emptyTiles->areas;
    areas.clear();
    // Tiles without a pixel leave nothing to clear.
    if (m_grid.width == 0 || m_grid.height == 0) {
        return;
    }
    // Each has a pixel of a window that is not too large.
    for (std::size_t k = 0; k < m_grid.numPlaces(); ++k) {
        // A place with a view is cleared by its camera.
        if (k < m_views.size() && m_views[k].valid()) {
            continue;
        }
        areas.push_back({static_cast<int>(m_grid.left(k)), static_cast<int>(m_grid.bottom(k)),
                         static_cast<int>(m_grid.width), static_cast<int>(m_grid.height)});
    }
}

void KrMultiRenderWindow::setPovParametersVector(const KrXmlVectorType<KrPovParameters>& povs)
{
    // The list that was set last decides; the others are kept.
    m_viewMode = PovParameters;
    m_povParametersVector = povs;
    // Kept, here and in the next two: the message is that of the other case, as filters of clients' logs match it.
    if (getNumWindows() > m_povParametersVector.size()) {
        warn("KrMultiRenderWindow::setPovParametersVector - Setting more values than windows.  Truncating.\n");
        m_povParametersVector.resize(getNumWindows());
    }
    m_dirtyFlags |= DirtyPov;
}

void KrMultiRenderWindow::setCoords(const KrXmlVectorType<KrCoordinateSystemTransformation>& coords, ViewMode mode)
{
    m_viewMode = mode;
    m_coords = coords;
    // A list that is too long keeps its rest, for views that come later.
    if (getNumWindows() > m_coords.size()) {
        warn("KrMultiRenderWindow::setCoords - Setting more values than windows.  Truncating.\n");
        m_coords.resize(getNumWindows());
    }
    m_dirtyFlags |= DirtyPov;
}

void KrMultiRenderWindow::setEyePoints(const std::vector<KrVector>& eyePoints)
{
    m_viewMode = EyePoints;
    m_eyePoints = eyePoints;
    if (m_views.size() > m_eyePoints.size()) {
        warn("KrMultiRenderWindow::setEyePoints - Setting more values than windows.  Truncating.\n");
        m_eyePoints.resize(m_views.size());
    }
    m_dirtyFlags |= DirtyPov;
}

bool KrMultiRenderWindow::captureWindow(KrImage& image, unsigned int flags)
{
    if (!demandUsable("KrMultiRenderWindow::captureWindow") || !init()) {
        return false;
    }
    // Put back, unlike a one-off capture's of the base.
    const osg::ref_ptr<DrawCallback> previous = getDrawCallback();
    // Taken, not borrowed: whoever is called in the frame may capture, or close the window.
    osg::ref_ptr<KrTiledCapture> capture = std::exchange(m_windowCapture, nullptr);
    if (!capture.valid() || !capture->isReusable()) {
        capture = new KrTiledCapture;
    }
    capture->setCapture(&image, flags);
    capture->setWindowSize(surfaceWidth(), surfaceHeight());
    setDrawCallback(capture);
    const bool isDrawn = renderScene(true);
    setDrawCallback(previous);
    // The image is the caller's.
    capture->setCapture(nullptr, flags);
    const bool isDone = isDrawn && capture->isDone();
    if (m_viewer && capture->isReusable()) {
        m_windowCapture = capture;
    }
    return isDone;
}
