#include <rendCore/capture/KrRender2DSampleTool.h>

#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/private/KrContextRestorer.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/system/KrStatedSystem.h>

#include <osg/Camera>
#include <osg/Image>
#include <osgViewer/Viewer>

#include <cstdint>
#include <exception>

namespace
{

constexpr double kNearLimit = 1.0;             // m
constexpr double kLargestDepth = 4294967295.0; // of 32 bits
constexpr unsigned int kCaptureType = 9;       // kept; what is read is settled by setCapture
constexpr unsigned int kDrawnByAll = 4096;     // pixels either way: every context draws so many

// What a capture that failed has left behind may be of any size, or none.
bool isUsable(const osg::Image* image, unsigned int width, unsigned int height)
{
    return image && image->data() && image->s() == static_cast<int>(width) && image->t() == static_cast<int>(height) &&
           image->getDataType() == GL_UNSIGNED_INT;
}

void toDistances(const osg::Image& depth, double distance, std::vector<std::vector<double>>& map)
{
    // Linear: an orthographic projection spreads depths evenly between its planes.
    const double scale = (distance - kNearLimit) / kLargestDepth;
    // In the order of the capture: the lowest row first.
    const auto* value = reinterpret_cast<const std::uint32_t*>(depth.data());
    for (std::vector<double>& row : map) {
        for (double& sample : row) {
            sample = kNearLimit + *value++ * scale;
        }
    }
}

/// Opens `window` with that size; false when no context draws so many pixels.
///
/// A large window opens with one pixel, and its context is asked: where there can be none it would otherwise be found
/// out only after gigabytes of it have been made.
bool open(KrRenderWindow& window, unsigned int width, unsigned int height)
{
    const bool isLarge = width > kDrawnByAll || height > kDrawnByAll;
    if (isLarge) {
        window.setWindowSize(1, 1);
    }
    window.setHideWindow(true);
    const bool isOpen = window.init();
    return !isLarge || (isOpen && window.setWindowSize(width, height));
}

/// Declares anew, in the end, what the map's window took of the changes of a system that others show, too.
class PendingChanges
{
public:
    explicit PendingChanges(const KrStatedSystem& system)
        : m_system(system)
        , m_isNew(system.isNewSystem())
        , m_isSelectionChanged(system.isSelectionChanged())
        , m_isTransparencyChanged(system.isTransparencyChanged())
    {
    }
    ~PendingChanges()
    {
        if (m_isNew) {
            m_system.setNewSystem(true);
        }
        // Windows share shapes and their fading: in the map's window the selected ones were faded like the others.
        m_system.setSelectionChanged(m_isSelectionChanged || !m_system.selectedShapes().empty());
        m_system.setTransparencyChanged(m_isTransparencyChanged);
    }
    PendingChanges(const PendingChanges&) = delete;
    PendingChanges& operator=(const PendingChanges&) = delete;

private:
    const KrStatedSystem& m_system;
    const bool m_isNew;
    const bool m_isSelectionChanged;
    const bool m_isTransparencyChanged;
};

bool sample(const KrStatedSystem& system, const KrCoordinateSystemTransformation& view, unsigned int width,
            unsigned int height, double xSize, double ySize, double distance, std::vector<std::vector<double>>& map)
{
    const KrContextRestorer restorer(nullptr);
    const PendingChanges changes(system);
    // A window of its own for each map, which is closed at the end.
    KrRenderWindow window;
    window.setStatedSystem(system);
    window.setWindowSize(width, height);
    KrPovParameters pov;
    pov.setFromViewTransformationAndDistance(view, distance);
    window.setPovParameters(pov);
    if (!open(window, width, height)) {
        return false;
    }
    // Kept: before the projection is set. The update within the frame finds nothing left to apply, and does not write
    // the point of view's projection over that of the map.
    window.updateScene();
    if (osgViewer::Viewer* const viewer = window.getViewer()) {
        osg::Camera* const camera = viewer->getCamera();
        // Distances are told by the planes, which must not be fitted to the scene.
        camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
        camera->setProjectionMatrixAsOrtho(-0.5 * xSize, 0.5 * xSize, -0.5 * ySize, 0.5 * ySize, kNearLimit, distance);
    }
    KrImage picture;
    const osg::ref_ptr<KrSGWindow::ImageCaptureDrawCallback> callback =
        new KrSGWindow::ImageCaptureDrawCallback(nullptr, kCaptureType);
    callback->setCapture(&picture, KrSGWindow::CaptureDepth);
    window.setDrawCallback(callback);
    const bool rendered = window.renderScene(true);

    // Kept: also after a frame that failed, so that a caller finds `height` rows of `width` values in any case.
    map.resize(height);
    for (std::vector<double>& row : map) {
        row.resize(width);
    }
    const osg::ref_ptr<osg::Image> depth = callback->getCapturedImage();
    // Otherwise the map has its size and what it held before, zeros where it grew.
    if (isUsable(depth, width, height)) {
        toDistances(*depth, distance, map);
    }
    return rendered;
}

} // namespace

bool KrRender2DSampleTool::get2DMap(const KrStatedSystem& system, const KrCoordinateSystemTransformation& view,
                                    unsigned int width, unsigned int height, double xSize, double ySize,
                                    double distance, std::vector<std::vector<double>>& map)
{
    // Kept: no message, and nothing is changed: callers such as krrender check before and tell themselves, and who
    // does not keeps the old map. NaN for the distance is refused, too.
    if (width == 0 || height == 0 || xSize == 0.0 || ySize == 0.0 || !(distance > kNearLimit)) {
        return false;
    }
    try {
        return sample(system, view, width, height, xSize, ySize, distance, map);
    } catch (const std::exception&) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrRender2DSampleTool::get2DMap - no memory for a map of %u x %u samples.\n",
                                     width, height);
        return false;
    }
}
