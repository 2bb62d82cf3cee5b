#include <rendCore/capture/KrDepthCapture.h>

#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/capture/private/KrMetricDepth.h>
#include <rendCore/capture/private/KrStageHook.h>
#include <rendCore/window/KrSGDrawCallbacks.h>
#include <rendCore/window/KrSGWindow.h>
#include <rendCore/window/private/KrDrawnProjection.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/GLExtensions>
#include <osgUtil/RenderStage>
#include <osgViewer/Viewer>

#include <cstddef>
#include <exception>

namespace
{

/// What a client's callback did wrong in this frame is not this capture's.
void forgetErrors()
{
    // A context that is lost has errors without end.
    constexpr int kMostErrors = 64;
    for (int i = 0; i < kMostErrors && glGetError() != GL_NO_ERROR; ++i) {
    }
}

} // namespace

/// Reads the main camera's stage.
class KrDepthCapture::Reader : public KrSGWindow::DrawCallback
{
public:
    explicit Reader(KrDepthCapture& capture)
        : m_capture(capture)
        , m_hook(new KrStageHook([this](osgUtil::RenderBin& bin, osg::RenderInfo& renderInfo) {
            try {
                m_failure = read(bin, renderInfo);
            } catch (const std::exception&) {
                m_failure = "there is not enough memory";
            }
        }))
    {
    }

    // Until a stage has been read: a frame may end before it, or somebody's callback may take this one's place.
    void begin() { m_failure = "no frame was drawn"; }
    /// Null when the frame was read.
    const char* failure() const { return m_failure; }

    bool preRender(osgViewer::Viewer* viewer) override
    {
        return viewer && viewer->getCamera() && m_hook->attach(*viewer->getCamera());
    }
    bool postRender(osgViewer::Viewer*) override
    {
        m_hook->detach();
        return true;
    }

private:
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
        if (!KrMetricDepth::isSupported(projection)) {
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
    osg::ref_ptr<KrStageHook> m_hook;
    const char* m_failure = nullptr;
};

KrDepthCapture::KrDepthCapture()
    : m_reader(new Reader(*this))
    , m_metric(std::make_unique<KrMetricDepth>())
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
            const bool isTopFirst = options.rowOrder == RowOrder::TopRowFirst;
            const auto step = static_cast<std::ptrdiff_t>(m_width);
            float* const bottom =
                depths.data() + (isTopFirst && m_height > 0 ? (m_height - 1) * std::size_t(m_width) : 0);
            m_metric->convert({m_width, m_height, m_projection, m_depthBits, options.kind, options.background},
                              m_values.data(), bottom, isTopFirst ? -step : step);
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

double KrDepthCapture::errorBound(double depth) const
{
    return KrMetricDepth::errorBound(depth, {m_width, m_height, m_projection, m_depthBits, Kind::Planar, 0.0f},
                                     static_cast<double>(m_levelOfDetail));
}
