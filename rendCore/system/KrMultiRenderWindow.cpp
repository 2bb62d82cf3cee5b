#include <rendCore/system/KrMultiRenderWindow.h>

#include <rendCore/window/KrSGBaseInputHandler.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/private/KrCapturedImage.h>
#include <rendCore/window/private/KrRenderStages.h>

#include <toolkit/foundation/KrPrint.h>

#include <osgUtil/CullVisitor>
#include <osgUtil/RenderStage>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{

constexpr std::uint64_t kLargest = KrMultiRenderWindow::kLargestSize;
constexpr unsigned int kMostViews = KrMultiRenderWindow::kLargestSize * KrMultiRenderWindow::kLargestSize;

void warn(const char* message)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "%s", message);
}

// Both kept: the messages say init, wherever they come from.
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

void setFrameBufferObject(osg::Camera& camera, osg::FrameBufferObject* target)
{
    osgUtil::RenderStage* const stage = KrRenderStages::of(camera);
    if (stage && stage->getFrameBufferObject() != target) {
        stage->setFrameBufferObject(target);
        camera.dirtyAttachmentMap();
    }
}

/// Colour and depth of that size.
osg::ref_ptr<osg::FrameBufferObject> makeTarget(int width, int height)
{
    using osg::FrameBufferAttachment;
    const osg::ref_ptr<osg::FrameBufferObject> target = new osg::FrameBufferObject;
    target->setAttachment(osg::Camera::COLOR_BUFFER,
                          FrameBufferAttachment(new osg::RenderBuffer(width, height, GL_RGBA)));
    target->setAttachment(osg::Camera::DEPTH_BUFFER,
                          FrameBufferAttachment(new osg::RenderBuffer(width, height, GL_DEPTH_COMPONENT24)));
    return target;
}

bool hasSize(const osg::FrameBufferObject& target, int width, int height)
{
    const osg::RenderBuffer* const color = target.getAttachment(osg::Camera::COLOR_BUFFER).getRenderBuffer();
    return color->getWidth() == width && color->getHeight() == height;
}

osg::Matrixd worldToFrame(const KrCoordinateSystemTransformation& frameToWorld)
{
    osg::Matrixd matrix;
    frameToWorld.inverse().assign16(matrix.ptr());
    return matrix;
}

/// Up for a line of sight (length 1) that the wanted up is parallel to.
osg::Vec3d otherUp(const osg::Vec3d& look)
{
    return std::abs(look.z()) < 0.9 ? osg::Vec3d(0.0, 0.0, 1.0) : osg::Vec3d(0.0, 1.0, 0.0);
}

/// World to camera; false, and no change, where there is no line of sight.
bool lookAt(const KrVector& from, const KrVector& to, const KrVector& upward, osg::Matrixd& worldToCamera)
{
    const osg::Vec3d eye = KrRenderTypes::ec2osg(from);
    osg::Vec3d look = KrRenderTypes::ec2osg(to) - eye;
    osg::Vec3d up = KrRenderTypes::ec2osg(upward);
    up.normalize();
    const double distance = look.normalize();
    if (!(distance > 0.0) || !std::isfinite(distance)) {
        return false;
    }
    constexpr double kParallel = 1e-9; // rad
    if (!((look ^ up).length() > kParallel)) {
        up = otherUp(look);
    }
    worldToCamera = osg::Matrixd::lookAt(eye, eye + look, up);
    return true;
}

/// Reads every view of a frame and puts them together as they stand in the window.
class WindowCapture : public KrSGWindow::ImageCaptureDrawCallback
{
public:
    WindowCapture(KrImage& target, unsigned int flags, int width, int height)
        : ImageCaptureDrawCallback(&target, flags)
        , m_isDepth((flags & KrSGWindow::CaptureDepth) != 0)
    {
        m_width = static_cast<std::uint32_t>(width);
        m_height = static_cast<std::uint32_t>(height);
    }

    bool preRender(osgViewer::Viewer* viewer) override
    {
        attach(*viewer->getCamera(), *viewer);
        for (unsigned int i = 0; i < viewer->getNumSlaves(); ++i) {
            attach(*viewer->getSlave(i)._camera, *viewer);
        }
        return true;
    }

    bool postRender(osgViewer::Viewer* viewer) override
    {
        for (const Tile& tile : m_tiles) {
            tile.stage->attach(buffer(), nullptr);
        }
        if (!KrCapturedImage::allocate(*m_sceneImage, static_cast<int>(m_width), static_cast<int>(m_height),
                                       m_isDepth)) {
            return false;
        }
        fill(viewer->getCamera()->getClearColor());
        for (const Tile& tile : m_tiles) {
            paste(tile);
        }
        m_isDone = ImageCaptureDrawCallback::postRender(viewer) && m_target->sizeInBytes() > 0;
        return m_isDone;
    }

    bool isDone() const { return m_isDone; }

protected:
    ~WindowCapture() override = default;

private:
    struct Tile
    {
        osg::ref_ptr<osgUtil::RenderStage> stage;
        osg::ref_ptr<osg::Image> image;
        unsigned int x = 0; ///< pixels in the window, from the lower left
        unsigned int y = 0;
    };

    osg::Camera::BufferComponent buffer() const
    {
        return m_isDepth ? osg::Camera::DEPTH_BUFFER : osg::Camera::COLOR_BUFFER;
    }
    std::size_t bytesPerPixel() const { return m_isDepth ? sizeof(std::uint32_t) : 3; }

    void attach(osg::Camera& camera, osgViewer::Viewer& viewer)
    {
        osgUtil::RenderStage* const stage = KrRenderStages::of(camera);
        const osg::Viewport* const viewport = camera.getViewport();
        if (!stage || !viewport) {
            return;
        }
        KrRenderStages::setUp(*stage, camera, viewer);
        Tile tile;
        tile.stage = stage;
        const osg::ref_ptr<KrCapturedImage> image = new KrCapturedImage;
        image->setContext(camera.getGraphicsContext() ? camera.getGraphicsContext()->getState() : nullptr);
        tile.image = image;
        tile.x = static_cast<unsigned int>(viewport->x());
        tile.y = static_cast<unsigned int>(viewport->y());
        if (KrCapturedImage::allocate(*tile.image, static_cast<int>(viewport->width()),
                                      static_cast<int>(viewport->height()), m_isDepth)) {
            stage->attach(buffer(), tile.image);
            m_tiles.push_back(tile);
        }
    }

    /// As a buffer is when it has just been cleared.
    void fill(const osg::Vec4& color)
    {
        unsigned char* out = m_sceneImage->data();
        if (m_isDepth) {
            std::memset(out, 0xFF, m_sceneImage->getTotalSizeInBytes());
            return;
        }
        unsigned char channels[3];
        for (unsigned int c = 0; c < 3; ++c) {
            channels[c] = static_cast<unsigned char>(std::lround(std::clamp(color[c], 0.0f, 1.0f) * 255.0f));
        }
        for (std::size_t i = 0; i < std::size_t(m_width) * m_height; ++i, out += 3) {
            std::memcpy(out, channels, 3);
        }
    }

    /// What reaches beyond the window is left out.
    void paste(const Tile& tile)
    {
        const auto width = static_cast<unsigned int>(tile.image->s());
        const auto height = static_cast<unsigned int>(tile.image->t());
        if (!tile.image->data() || tile.x >= m_width || tile.y >= m_height) {
            return;
        }
        const unsigned int rows = std::min(height, m_height - tile.y);
        const std::size_t bytes = std::min(width, m_width - tile.x) * bytesPerPixel();
        for (unsigned int row = 0; row < rows; ++row) {
            std::memcpy(m_sceneImage->data(static_cast<int>(tile.x), static_cast<int>(tile.y + row)),
                        tile.image->data(0, static_cast<int>(row)), bytes);
        }
    }

    bool m_isDepth;
    bool m_isDone = false;
    std::vector<Tile> m_tiles;
};

} // namespace

/// Keeps the views where they belong when the main camera moves within a frame: input is handled after `updateScene`.
class KrMultiRenderWindow::SlavePlacer : public osg::View::Slave::UpdateSlaveCallback
{
public:
    explicit SlavePlacer(KrMultiRenderWindow* window)
        : m_window(window)
    {
    }
    /// The window is gone; its viewer may go on for a while.
    void detach() { m_window = nullptr; }
    void updateSlave(osg::View& view, osg::View::Slave& slave) override
    {
        if (m_window) {
            m_window->followMainCamera();
        }
        slave.updateSlaveImplementation(view);
    }

private:
    KrMultiRenderWindow* m_window;
};

/// Clears the tiles that have no view, whose pixels no camera touches.
class KrMultiRenderWindow::EmptyTiles : public osg::Camera::DrawCallback
{
public:
    struct Area
    {
        int x; ///< pixels, from the lower left
        int y;
        int width;
        int height;
    };

    using osg::Camera::DrawCallback::operator();
    void operator()(osg::RenderInfo& renderInfo) const override
    {
        osg::State* const state = renderInfo.getState();
        if (areas.empty() || !state) {
            return;
        }
        const osg::Vec4& color = renderInfo.getCurrentCamera()->getClearColor();
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        state->haveAppliedAttribute(osg::StateAttribute::COLORMASK);
        glClearColor(color.r(), color.g(), color.b(), color.a());
        state->applyMode(GL_SCISSOR_TEST, true);
        for (const Area& area : areas) {
            glScissor(area.x, area.y, area.width, area.height);
            glClear(GL_COLOR_BUFFER_BIT);
        }
        state->applyMode(GL_SCISSOR_TEST, false);
    }

    std::vector<Area> areas;
};

/// Overlay text lies over the whole window, and every view has it in its scene: the one drawn last shows it.
class KrMultiRenderWindow::OverlayOnce : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        osgUtil::CullVisitor* const cull = visitor->asCullVisitor();
        const osg::Camera* const camera =
            cull && cull->getRenderStage() ? cull->getRenderStage()->getCamera() : nullptr;
        const osg::View* const view = camera ? camera->getView() : nullptr;
        const unsigned int numSlaves = view ? view->getNumSlaves() : 0;
        if (numSlaves == 0 || view->getSlave(numSlaves - 1)._camera == camera) {
            traverse(node, visitor);
        }
    }
};

KrMultiRenderWindow::KrMultiRenderWindow()
    : m_placer(new SlavePlacer(this))
{
}

KrMultiRenderWindow::KrMultiRenderWindow(unsigned int singleWidth, unsigned int singleHeight, unsigned int numWindows)
    : KrMultiRenderWindow()
{
    KrMultiRenderWindow::setWindowParams(singleWidth, singleHeight, numWindows);
}

KrMultiRenderWindow::~KrMultiRenderWindow()
{
    KrMultiRenderWindow::closeWindow();
    m_placer->detach();
}

bool KrMultiRenderWindow::closeWindow()
{
    // Names that outlive the context would later be deleted in another one.
    if (m_target.valid() && m_graphicsWindow.valid() && m_graphicsWindow->getState()) {
        m_target->releaseGLObjects(m_graphicsWindow->getState());
    }
    m_target = nullptr;
    std::fill(m_views.begin(), m_views.end(), nullptr);
    return KrRenderWindow::closeWindow();
}

bool KrMultiRenderWindow::setWindowSize(unsigned int width, unsigned int height)
{
    const unsigned int widthBefore = windowWidth();
    const unsigned int heightBefore = windowHeight();
    const bool isSized = KrWindow::setWindowSize(width, height);
    const bool isFlat = width == 0 || height == 0;
    setAspectRatio(isFlat ? 1.0 : static_cast<double>(width) / static_cast<double>(height));
    if (!isSized) {
        return false;
    }
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
    return KrWindow::setWindowPos(x, y, true) && isSized;
}

void KrMultiRenderWindow::setNumColumnsHint(unsigned int numColumns)
{
    if (m_numColumnsHint != numColumns) {
        m_numColumnsHint = numColumns;
        setWindowParams(m_singleWidth, m_singleHeight, 0);
    }
}

bool KrMultiRenderWindow::shareOut(unsigned int width, unsigned int height)
{
    const unsigned int columns = std::max(1u, m_grid.columns);
    const unsigned int rows = (std::max(1u, getNumWindows()) - 1) / columns + 1;
    const unsigned int single[] = {std::max(1u, std::min(width, kLargestSize) / columns),
                                   std::max(1u, std::min(height, kLargestSize) / rows)};
    if (single[0] == m_singleWidth && single[1] == m_singleHeight) {
        return false;
    }
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
    const unsigned int count = numWindows != 0 ? numWindows : std::max(1u, old);
    if (count > kMostViews) {
        warnOfHeight(); // more views than the largest window has pixels: not even their lists are made
        return;
    }
    if (count != old) {
        setNumViews(count);
    }
    m_singleWidth = singleWidth;
    m_singleHeight = singleHeight;
    if (!chooseGrid()) {
        return;
    }
    if (KrSGWindow::setWindowSize(m_numColumns * singleWidth, m_numRows * singleHeight)) {
        m_grid = {m_numColumns, m_numRows, singleWidth, singleHeight};
    }
    if (!isInitialized()) {
        return;
    }
    if (count != old) {
        init();
    } else if (m_viewer.valid()) {
        layoutViews();
    }
}

/// Kept: also the views that stay are made anew, but for the first.
void KrMultiRenderWindow::setNumViews(unsigned int count)
{
    for (std::size_t k = 1; k < m_views.size(); ++k) {
        if (m_viewer.valid() && m_views[k].valid()) {
            const unsigned int slave = m_viewer->findSlaveIndexForCamera(m_views[k]);
            if (slave < m_viewer->getNumSlaves()) {
                m_viewer->removeSlave(slave);
            }
        }
        m_views[k] = nullptr;
    }
    m_views.resize(count);
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
        m_numColumns = m_singleWidth == 0 ? 0 : std::min(count, kLargestSize / m_singleWidth);
    }
    if (m_numColumns == 0) {
        warnOfWidth();
        return false;
    }
    m_numRows = KrTileGrid::rowsFor(count, m_numColumns);
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
    if (!m_overlayCamera->getCullCallback()) {
        m_overlayCamera->setCullCallback(new OverlayOnce);
    }
    m_viewer->setSceneData(m_sceneRoot);
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
    m_views.front() = main;
    // A new one: the last viewer's may have nested in it what its client added, and would bring that along.
    m_emptyTiles = new EmptyTiles;
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
    view->setProjectionResizePolicy(osg::Camera::FIXED);
    view->setClearColor(main.getClearColor());
    view->setClearMask(main.getClearMask());
    view->setCullingMode(main.getCullingMode());
    m_viewer->addSlave(view, osg::Matrixd::identity(), osg::Matrixd::identity(), true);
    m_viewer->findSlaveForCamera(view)->_updateSlaveCallback = m_placer;
    return view;
}

void KrMultiRenderWindow::layoutEmptyTiles()
{
    if (!m_emptyTiles) {
        return;
    }
    std::vector<EmptyTiles::Area>& areas = m_emptyTiles->areas;
    areas.clear();
    if (m_grid.width == 0 || m_grid.height == 0) {
        return;
    }
    // Each has a pixel of a window that is not too large.
    for (std::size_t k = 0; k < m_grid.numPlaces(); ++k) {
        if (k < m_views.size() && m_views[k].valid()) {
            continue;
        }
        areas.push_back({static_cast<int>(m_grid.left(k)), static_cast<int>(m_grid.bottom(k)),
                         static_cast<int>(m_grid.width), static_cast<int>(m_grid.height)});
    }
}

void KrMultiRenderWindow::setPovParametersVector(const KrXmlVectorType<KrPovParameters>& povs)
{
    m_viewMode = PovParameters;
    m_povParametersVector = povs;
    // Kept, here and in the next two: the message is that of the other case.
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

bool KrMultiRenderWindow::updateScene()
{
    const bool isUpdated = KrRenderWindow::updateScene();
    if (!isInitialized() || !m_viewer || (m_dirtyFlags & DirtyPov)) {
        return isUpdated;
    }
    fitProjectionToTile();
    shareCameraSettings();
    shareRenderTarget();
    if (m_inputHandler.valid()) {
        // The viewer does this too, but only once the frame has begun: the views would be placed by the frame before.
        m_viewer->getCamera()->setViewMatrix(m_inputHandler->getInverseMatrix());
    }
    m_reference = m_viewer->getCamera()->getViewMatrix();
    if (m_viewMode > PovParameters) {
        warn("KrMultiRenderWindow::setGL - invalid view mode.\n");
        m_viewer->updateSlaves();
        return isUpdated;
    }
    if (m_viewMode == NoViews && m_views.size() > 1) {
        warn("KrMultiRenderWindow::setGL - No view mode specified.\n"); // Kept: in every frame
    }
    placeViews();
    m_viewer->updateSlaves();
    return isUpdated;
}

/// The base class draws in the proportions of the whole window. A camera given by intrinsics has its own.
void KrMultiRenderWindow::fitProjectionToTile()
{
    osg::Camera* const camera = m_viewer->getCamera();
    double left, right, bottom, top, near, far;
    if (m_grid.width == 0 || m_grid.height == 0 || cameraIntrinsics() ||
        !camera->getProjectionMatrixAsFrustum(left, right, bottom, top, near, far)) {
        return;
    }
    right = top * m_grid.width / m_grid.height;
    camera->setProjectionMatrixAsFrustum(-right, right, bottom, top, near, far);
}

void KrMultiRenderWindow::shareCameraSettings()
{
    const osg::Camera& main = *m_viewer->getCamera();
    for (std::size_t k = 1; k < m_views.size(); ++k) {
        if (m_views[k].valid()) {
            m_views[k]->setClearColor(main.getClearColor());
            m_views[k]->setClearMask(main.getClearMask());
        }
    }
}

/// Off-screen, left to themselves, the main camera would make a target of its own tile's size and the others none.
void KrMultiRenderWindow::shareRenderTarget()
{
    osg::Camera& main = *m_viewer->getCamera();
    if (!m_views.empty() && m_views.front() == &main && m_grid.rows > 0) {
        // Going off-screen, or back, gave it the whole window.
        main.getViewport()->setViewport(0, m_grid.height * (m_grid.rows - 1), std::max(1u, m_grid.width),
                                        std::max(1u, m_grid.height));
    }
    const bool isOffScreen = getOffScreenRendering();
    if (!isOffScreen && !m_target) {
        return;
    }
    if (!isOffScreen) {
        m_target = nullptr;
    } else if (!m_target || !hasSize(*m_target, surfaceWidth(), surfaceHeight())) {
        m_target = makeTarget(surfaceWidth(), surfaceHeight());
    }
    setFrameBufferObject(main, m_target);
    for (std::size_t k = 1; k < m_views.size(); ++k) {
        if (m_views[k].valid()) {
            m_views[k]->setRenderTargetImplementation(main.getRenderTargetImplementation());
            setFrameBufferObject(*m_views[k], m_target);
        }
    }
}

void KrMultiRenderWindow::followMainCamera()
{
    const osg::Matrixd& present = m_viewer->getCamera()->getViewMatrix();
    if (m_viewMode <= PovParameters && present != m_reference) {
        m_reference = present;
        placeViews();
    }
}

/// Lens and centre of interest by which the other views are made, then all of them.
void KrMultiRenderWindow::placeViews()
{
    const KrPovParameters& own = m_visualizationParameters.povParameters();
    m_referencePov = own;
    if (m_inputHandler.valid()) {
        m_inputHandler->getPovParameters(m_referencePov);
        m_referencePov.setFieldOfView(own.fieldOfView());
    }
    if (listLength() < m_views.size()) {
        return;
    }
    const osg::Matrixd cameraToWorld = osg::Matrixd::inverse(m_reference);
    for (unsigned int k = 1; k < m_views.size(); ++k) {
        osg::View::Slave* const slave = m_views[k].valid() ? m_viewer->findSlaveForCamera(m_views[k]) : nullptr;
        if (slave) {
            slave->_viewOffset = m_viewMode == NoViews ? osg::Matrixd() : cameraToWorld * viewMatrix(k);
            slave->_projectionOffset = projectionOffset(k);
        }
    }
}

std::size_t KrMultiRenderWindow::listLength() const
{
    switch (m_viewMode) {
    case CameraFrames:
    case ObjectFrames:
        return m_coords.size();
    case EyePoints:
        return m_eyePoints.size();
    case PovParameters:
        return m_povParametersVector.size();
    case NoViews:
        break;
    }
    return m_views.size();
}

/// World to camera of view `view`, whose list entry is there. One that looks nowhere shows the window's point of view.
osg::Matrixd KrMultiRenderWindow::viewMatrix(unsigned int view) const
{
    osg::Matrixd matrix = m_reference;
    if (m_viewMode == CameraFrames) {
        matrix = worldToFrame(m_coords[view]);
    } else if (m_viewMode == ObjectFrames) {
        matrix = worldToFrame(m_coords[view]) * m_reference;
    } else if (m_viewMode == EyePoints) {
        lookAt(m_eyePoints[view], m_referencePov.centerOfInterest(), m_referencePov.up(), matrix);
    } else if (m_viewMode == PovParameters) {
        const KrPovParameters& pov = m_povParametersVector[view];
        lookAt(pov.eyepoint(), pov.centerOfInterest(), pov.up(), matrix);
    }
    return matrix;
}

/// From the main camera's projection to the view's, where its lens or distance differs.
osg::Matrixd KrMultiRenderWindow::projectionOffset(unsigned int view) const
{
    double fieldOfView = m_referencePov.fieldOfView();
    double distance = 0.0;
    if (m_viewMode == EyePoints) {
        distance = (m_referencePov.centerOfInterest() - m_eyePoints[view]).length();
    } else if (m_viewMode == PovParameters) {
        const KrPovParameters& pov = m_povParametersVector[view];
        distance = pov.viewingDistance();
        fieldOfView = pov.fieldOfView();
    }
    const osg::Matrixd& main = m_viewer->getCamera()->getProjectionMatrix();
    double left, right, bottom, top, near, far;
    osg::Matrixd inverse;
    const bool isOwn = distance > 0.0 && std::isfinite(distance) && fieldOfView > 0.0 && fieldOfView < osg::PI &&
                       !cameraIntrinsics() && main.getFrustum(left, right, bottom, top, near, far);
    return isOwn && inverse.invert(main) ? inverse * projection(fieldOfView, distance) : osg::Matrixd();
}

/// As the base class makes the main camera's.
osg::Matrixd KrMultiRenderWindow::projection(double fieldOfView, double distance) const
{
    double near = 0.0;
    double far = 0.0;
    clippingPlanes(distance, near, far);
    const double top = std::tan(0.5 * fieldOfView) * near;
    const double right = top * std::max(1u, m_grid.width) / std::max(1u, m_grid.height);
    return osg::Matrixd::frustum(-right, right, -top, top, near, far);
}

bool KrMultiRenderWindow::captureWindow(KrImage& image, unsigned int flags)
{
    if (!demandUsable("KrMultiRenderWindow::captureWindow") || !init()) {
        return false;
    }
    const osg::ref_ptr<DrawCallback> previous = getDrawCallback();
    const osg::ref_ptr<WindowCapture> capture = new WindowCapture(image, flags, surfaceWidth(), surfaceHeight());
    setDrawCallback(capture);
    const bool isDrawn = renderScene(true);
    setDrawCallback(previous);
    return isDrawn && capture->isDone();
}
