#include <rendCore/capture/KrDepthCapture.h>

#include <rendCore/base/private/KrPixelConversion.h>
#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/KrSGWindow.h>
#include <rendCore/window/private/KrDrawnProjection.h>
#include <rendCore/window/private/KrRenderStages.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/GLExtensions>
#include <osgUtil/RenderStage>

#include <algorithm>
#include <cmath>
#include <exception>

namespace
{

constexpr double kSinglePrecision = 1.0 / 16777216.0; // 2^-24: half a step of a float just above 1
constexpr double kDriverSteps = 12.0;                 // of it, lost in transforming and interpolating a depth

/// Depth to clip coordinates, as precise as the driver is given them.
KrPixelConversion::DepthTerms termsOf(const osg::Matrixd& projection)
{
    const auto single = [&projection](int row, int column) {
        return double{static_cast<float>(projection(row, column))};
    };
    return {single(2, 2), single(3, 2), single(2, 3), single(3, 3)};
}

/// Whether depth goes its own way: x and y have no part in z' and w', and rays leave one point or are parallel.
bool isSupported(const osg::Matrixd& p)
{
    // Exact comparisons: these are zeros that nothing was added to, in every projection that
    // is built and not composed.
    const bool isSeparate = p(0, 2) == 0.0 && p(1, 2) == 0.0 && p(0, 3) == 0.0 && p(1, 3) == 0.0;
    const bool isCentral = p(3, 0) == 0.0 && p(3, 1) == 0.0 && p(3, 3) == 0.0;
    // The last two: depth can be told from z' / w', and x and y from x' and y'.
    return isSeparate && (isCentral || p(2, 3) == 0.0) && p(2, 2) * p(3, 3) != p(3, 2) * p(2, 3) &&
           p(0, 0) * p(1, 1) != p(0, 1) * p(1, 0);
}

/// The slopes of the rays through a perspective picture's pixels, to the right and up for each metre of depth. Borrows
/// the projection.
struct RaySlopes
{
    RaySlopes(const osg::Matrixd& projection, unsigned int width, unsigned int height)
        : p(projection)
        , determinant(p(0, 0) * p(1, 1) - p(0, 1) * p(1, 0))
        , xStep(2.0 / width)
        , yStep(2.0 / height)
    {
    }
    /// Rows and columns by themselves: the picture's sides are the eye's, as in every camera that is not composed.
    bool isSeparate() const { return p(0, 1) == 0.0 && p(1, 0) == 0.0; }
    /// Of the middle of a pixel. Where it is separate the row does not matter, or the column.
    double right(unsigned int column, unsigned int row) const
    {
        return (x(column) * p(1, 1) - y(row) * p(1, 0)) / determinant;
    }
    double up(unsigned int column, unsigned int row) const
    {
        return (y(row) * p(0, 0) - x(column) * p(0, 1)) / determinant;
    }

    // x' = x p00 + y p10 + z p20 and w' = z p23, for z = -1, in [-1, 1] over the picture.
    double x(unsigned int column) const { return -((column + 0.5) * xStep - 1.0) * p(2, 3) + p(2, 0); }
    double y(unsigned int row) const { return -((row + 0.5) * yStep - 1.0) * p(2, 3) + p(2, 1); }

    const osg::Matrixd& p;
    double determinant;
    double xStep;
    double yStep;
};

/// What a client's callback did wrong in this frame is not this capture's.
void forgetErrors()
{
    // A context that is lost has errors without end.
    constexpr int kMostErrors = 64;
    for (int i = 0; i < kMostErrors && glGetError() != GL_NO_ERROR; ++i) {
    }
}

} // namespace

/// Stands around the drawing of the main camera's stage, where its target is still bound.
class KrDepthCapture::Reader : public KrSGWindow::DrawCallback
{
public:
    explicit Reader(KrDepthCapture& capture)
        : m_capture(capture)
        , m_stageCallback(new StageCallback(*this))
    {
    }

    // Until a stage has been read: a frame may end before it, or somebody's callback may take this one's place.
    void begin() { m_failure = "no frame was drawn"; }
    /// Null when the frame was read.
    const char* failure() const { return m_failure; }

    bool preRender(osgViewer::Viewer* viewer) override
    {
        const osg::ref_ptr<osgUtil::RenderStage> stage = KrRenderStages::ofMain(viewer);
        if (!stage) {
            return false;
        }
        // An application's own drawing goes on, inside of this.
        m_previous = stage->getDrawCallback();
        stage->setDrawCallback(m_stageCallback);
        return true;
    }
    bool postRender(osgViewer::Viewer* viewer) override
    {
        // Somebody who is called in the frame may have closed the window, and the stage has gone with it.
        if (osgUtil::RenderStage* const stage = KrRenderStages::ofMain(viewer)) {
            stage->setDrawCallback(m_previous);
        }
        m_previous = nullptr;
        return true;
    }

private:
    using StageDrawCallback = osgUtil::RenderBin::DrawCallback;

    class StageCallback : public StageDrawCallback
    {
    public:
        explicit StageCallback(Reader& reader)
            : m_reader(reader)
        {
        }
        void drawImplementation(osgUtil::RenderBin* bin, osg::RenderInfo& renderInfo,
                                osgUtil::RenderLeaf*& previous) override
        {
            if (m_reader.m_previous.valid()) {
                m_reader.m_previous->drawImplementation(bin, renderInfo, previous);
            } else {
                bin->drawImplementation(renderInfo, previous);
            }
            // The scene graph's drawing knows no exceptions: none may pass through it.
            try {
                m_reader.m_failure = m_reader.read(*bin, renderInfo);
            } catch (const std::exception&) {
                m_reader.m_failure = "there is not enough memory";
            }
        }

    private:
        Reader& m_reader;
    };

    const char* read(osgUtil::RenderBin& bin, osg::RenderInfo& renderInfo)
    {
        const osgUtil::RenderStage* const stage = bin.getStage();
        const osg::Camera* const camera = stage ? stage->getCamera() : nullptr;
        const osg::Viewport* const viewport = camera ? camera->getViewport() : nullptr;
        if (!viewport) {
            return "the camera has no viewport";
        }
        // With the near and far plane that were fitted to the scene; the camera's own matrix does not have them.
        const osg::Matrixd projection = KrDrawnProjection::of(bin, camera->getProjectionMatrix());
        if (!isSupported(projection)) {
            return "its projection mixes depth with x or y";
        }
        GLint depthBits = 0;
        GLint sampleBuffers = 0;
        glGetIntegerv(GL_DEPTH_BITS, &depthBits);
        // Depths of several samples cannot be read as one.
        glGetIntegerv(GL_SAMPLE_BUFFERS, &sampleBuffers);
        if (depthBits <= 0 || depthBits > 32 || sampleBuffers != 0) {
            return depthBits <= 0 ? "its target has no depth" : "its target has several samples a pixel";
        }
        const GLint area[4] = {static_cast<GLint>(viewport->x()), static_cast<GLint>(viewport->y()),
                               static_cast<GLint>(viewport->width()), static_cast<GLint>(viewport->height())};
        // Kept from frame to frame: a picture of the same size allocates nothing.
        m_capture.m_values.resize(std::size_t(area[2]) * std::size_t(area[3]));
        forgetErrors();
        {
            // Rows begin at multiples of four bytes, as 32-bit values do.
            const KrPixelTransferGuard guard(*renderInfo.getState()->get<osg::GLExtensions>(), 4);
            glReadPixels(area[0], area[1], area[2], area[3], GL_DEPTH_COMPONENT, GL_UNSIGNED_INT,
                         m_capture.m_values.data());
        }
        if (glGetError() != GL_NO_ERROR) {
            return "OpenGL reports an error in this frame";
        }
        m_capture.m_width = static_cast<unsigned int>(area[2]);
        m_capture.m_height = static_cast<unsigned int>(area[3]);
        m_capture.m_depthBits = static_cast<unsigned int>(depthBits);
        m_capture.m_projection = projection;
        return nullptr;
    }

    KrDepthCapture& m_capture;
    osg::ref_ptr<StageCallback> m_stageCallback;
    osg::ref_ptr<StageDrawCallback> m_previous;
    const char* m_failure = nullptr;
};

KrDepthCapture::KrDepthCapture()
    : m_reader(new Reader(*this))
{
}

KrDepthCapture::~KrDepthCapture() = default;

bool KrDepthCapture::render(KrSGWindow& window, const Options& options, std::vector<float>& depths)
{
    // The window's own callback is put back, and does not see this frame.
    const osg::ref_ptr<KrSGWindow::DrawCallback> previous = window.getDrawCallback();
    m_reader->begin();
    window.setDrawCallback(m_reader);
    const bool isDrawn = window.renderScene(true);
    window.setDrawCallback(previous);
    m_levelOfDetail = window.levelOfDetail();
    const char* failure = isDrawn ? m_reader->failure() : "no frame was drawn";
    try {
        if (!failure) {
            // Only now: on failure the caller's depths are as they were.
            depths.resize(m_values.size());
            convert(options, depths);
        }
    } catch (const std::exception&) {
        failure = "there is not enough memory";
    }
    if (failure) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrDepthCapture::render - cannot read the depths of window \"%s\": %s.\n",
                                     window.getName().c_str(), failure);
    }
    return !failure;
}

void KrDepthCapture::convert(const Options& options, std::vector<float>& depths)
{
    const KrPixelConversion::DepthBits kind = {m_depthBits};
    const KrPixelConversion::DepthTerms terms = termsOf(m_projection);
    const RaySlopes rays(m_projection, m_width, m_height);
    // Parallel rays have p(2, 3) = 0 and are as long as they are deep.
    const bool isSlanted = options.kind == Kind::Euclidean && m_projection(2, 3) != 0.0;
    const bool isSeparate = rays.isSeparate();
    if (isSlanted) {
        m_raySquares.resize(m_width);
    }
    for (unsigned int row = 0; row < m_height; ++row) {
        // The length's square is 1 + right^2 + up^2: the first two once, where all rows have them alike.
        for (unsigned int column = 0; isSlanted && (row == 0 || !isSeparate) && column < m_width; ++column) {
            const double right = rays.right(column, row);
            const double up = isSeparate ? 0.0 : rays.up(column, row);
            m_raySquares[column] = 1.0 + right * right + up * up;
        }
        const double up = isSlanted && isSeparate ? rays.up(0, row) : 0.0;
        const unsigned int place = options.rowOrder == RowOrder::TopRowFirst ? m_height - 1 - row : row;
        KrPixelConversion::toMetres(m_values.data() + std::size_t(row) * m_width, m_width, kind, terms,
                                    options.background, isSlanted ? m_raySquares.data() : nullptr, up * up,
                                    depths.data() + std::size_t(place) * m_width);
    }
}

double KrDepthCapture::errorBound(double depth) const
{
    if (m_depthBits == 0) {
        return std::numeric_limits<double>::infinity();
    }
    const KrPixelConversion::DepthTerms terms = termsOf(m_projection);
    const double w = terms.d - terms.c * depth;
    // How far the depth moves for the whole range of the depth buffer, at this depth's rate.
    const double rate = 2.0 * w * w / std::abs(terms.a * terms.d - terms.b * terms.c);
    // Of simplified meshes: what a pixel is wide at this depth, or anywhere where rays are parallel.
    const double pixels =
        0.5 * std::max(m_width * std::abs(m_projection(0, 0)), m_height * std::abs(m_projection(1, 1)));
    const double width = m_levelOfDetail > 0.0f ? (m_projection(3, 3) == 0.0 ? std::abs(depth) : 1.0) / pixels : 0.0;
    return static_cast<double>(m_levelOfDetail) * width +
           rate * (0.5 * std::ldexp(1.0, -static_cast<int>(m_depthBits)) + kDriverSteps * kSinglePrecision) +
           std::abs(depth) * kSinglePrecision;
}
