#include <rendCore/capture/KrFrameCapture.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/base/private/KrPixelConversion.h>
#include <rendCore/base/private/KrPixelTransferGuard.h>
#include <rendCore/capture/private/KrLabelPass.h>
#include <rendCore/capture/private/KrLabelRows.h>
#include <rendCore/capture/private/KrMetricDepth.h>
#include <rendCore/capture/private/KrStageHook.h>
#include <rendCore/model/KrRenderIntraLink.h>
#include <rendCore/model/KrRenderLink.h>
#include <rendCore/model/KrRenderManipulator.h>
#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/window/KrSGDrawCallbacks.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/FrameStamp>
#include <osg/GLExtensions>
#include <osgUtil/RenderStage>
#include <osgViewer/Viewer>

#include <time.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <exception>
#include <functional>
#include <utility>

namespace
{

using Area = KrLabelPass::Area;
using Content = KrLabelPass::Content;

/// Where a row goes, counted from the bottom of the picture.
std::size_t placeOf(unsigned int row, unsigned int height, KrDepthCapture::RowOrder order)
{
    return order == KrDepthCapture::RowOrder::TopRowFirst ? height - 1 - row : row;
}

/// As precise as the driver is given it.
osg::Matrixd inSinglePrecision(const osg::Matrixd& matrix)
{
    osg::Matrixd rounded;
    std::transform(matrix.ptr(), matrix.ptr() + 16, rounded.ptr(),
                   [](double number) { return double{static_cast<float>(number)}; });
    return rounded;
}

/// Adds the processor time of this thread, from when the driver has drawn all there is, to a sum.
class ReadingClock
{
public:
    explicit ReadingClock(double& sum)
        : m_sum(sum)
    {
        // A driver that draws by software would otherwise draw in the call that reads.
        glFinish();
        m_start = now();
    }
    ~ReadingClock() { m_sum += now() - m_start; }
    ReadingClock(const ReadingClock&) = delete;
    ReadingClock& operator=(const ReadingClock&) = delete;

private:
    static double now()
    {
        timespec time = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }

    double& m_sum;
    double m_start = 0.0;
};

/// The node of a link, or of a body between links, and with it where it stands.
class PartFinder : public osg::NodeVisitor
{
public:
    explicit PartFinder(const KrLabelTable::Part& part)
        : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN)
        , m_part(part)
    {
    }

    using osg::NodeVisitor::apply;
    void apply(osg::MatrixTransform& node) override
    {
        if (isFound) {
            return;
        }
        if (const auto* const manipulator = dynamic_cast<const KrRenderManipulator*>(&node)) {
            m_manipulator = manipulator;
            if (manipulator->getManipulatorIndex() == m_part.manipulatorIndex) {
                traverse(node);
            }
            return;
        }
        if (isWanted(node)) {
            isFound = true;
            linkToWorld = osg::computeLocalToWorld(getNodePath());
            return;
        }
        traverse(node);
    }

    bool isFound = false;
    osg::Matrixd linkToWorld;

private:
    bool isWanted(const osg::MatrixTransform& node) const
    {
        if (const auto* const link = dynamic_cast<const KrRenderLink*>(&node)) {
            const unsigned int joint = link->getJointIndex();
            return (joint == KrRenderLink::kBaseJointIndex ? 0 : joint + 1) == m_part.linkIndex;
        }
        if (m_manipulator == nullptr || m_part.linkIndex <= m_manipulator->getNumTotalLinks()) {
            return false;
        }
        for (unsigned int i = 0; i < m_manipulator->getNumChildren(); ++i) {
            const auto* const base = dynamic_cast<const KrRenderIntraLink*>(m_manipulator->getChild(i));
            if (base != nullptr && base->indexOf(node) == m_part.linkIndex - m_manipulator->getNumTotalLinks() - 1) {
                return true;
            }
        }
        return false;
    }

    const KrLabelTable::Part& m_part;
    const KrRenderManipulator* m_manipulator = nullptr;
};

} // namespace

/// One frame of a window, whichever it is: colours by hooks, all else by the pass behind it.
class KrFrameCapture::Frame : public KrSGWindow::DrawCallback
{
public:
    /// What is done behind the frame; null or why it failed, as the end of a sentence.
    using Task = std::function<const char*(Frame& frame, osgViewer::Viewer& viewer)>;

    bool render(osgViewer::Viewer* viewer) override;

    const char* readKinds(osgViewer::Viewer& viewer);
    const char* readPixel(osgViewer::Viewer& viewer, unsigned int x, unsigned int y, KrFrameCapture::Pick& pick,
                          std::uint32_t& label);
    const char* readBits(osgViewer::Viewer& viewer, KrLabelTable::Level level, std::uint32_t numLabels,
                         std::vector<std::uint32_t>& words, std::vector<std::uint64_t>& counts);

    unsigned int width() const { return m_width; }
    unsigned int height() const { return m_height; }
    void releasePass() { m_pass->detach(); }

    Task task;
    Options options;
    Targets targets;
    const char* failure = nullptr;
    osg::Matrixd projection;
    double levelOfDetail = 0.0;
    double readingTime = 0.0; ///< s

protected:
    ~Frame() override = default;

private:
    const char* layOut(osgViewer::Viewer& viewer);
    const char* layOutAgain(osgViewer::Viewer& viewer);
    void attachHooks();
    void readColors(osgUtil::RenderBin& bin, osg::RenderInfo& renderInfo);
    void unpack(const KrLabelPass::View& view);
    KrMetricDepth::Picture pictureOf(const KrLabelPass::View& view) const;

    const osg::ref_ptr<KrLabelPass> m_pass = new KrLabelPass;
    KrMetricDepth m_metric;
    std::vector<KrLabelPass::View> m_views;
    std::vector<KrLabelPass::View> m_viewsBefore; ///< the frame
    std::vector<osg::ref_ptr<KrStageHook>> m_hooks;
    std::size_t m_numHooked = 0;
    std::size_t m_numColorsRead = 0;
    int m_originX = 0; ///< of the picture, the window's pixels
    int m_originY = 0;
    unsigned int m_width = 0; ///< of labels and their like, pixels
    unsigned int m_height = 0;
    std::vector<unsigned char> m_bytes;
    std::vector<std::uint32_t> m_words;
    std::vector<std::uint32_t> m_depths;
    const char* m_colorFailure = nullptr;

    friend class KrFrameCapture;
};

/// Which cameras draw what part of the picture.
const char* KrFrameCapture::Frame::layOut(osgViewer::Viewer& viewer)
{
    const osg::Camera& main = *viewer.getCamera();
    const osg::Viewport* const viewport = main.getViewport();
    const osg::GraphicsContext::Traits* const traits =
        main.getGraphicsContext() ? main.getGraphicsContext()->getTraits() : nullptr;
    if (!viewport || !traits) {
        return "the camera has no viewport";
    }
    // A window of several views is a picture of all of them.
    const bool isTiled = viewer.getNumSlaves() > 0;
    m_originX = isTiled ? 0 : static_cast<int>(viewport->x());
    m_originY = isTiled ? 0 : static_cast<int>(viewport->y());
    const unsigned int width =
        isTiled ? static_cast<unsigned int>(traits->width) : static_cast<unsigned int>(viewport->width());
    const unsigned int height =
        isTiled ? static_cast<unsigned int>(traits->height) : static_cast<unsigned int>(viewport->height());
    const unsigned int reduction = options.reduction;
    if (reduction == 0 || width % reduction != 0 || height % reduction != 0) {
        return "the reduction does not divide its size";
    }
    m_width = width / reduction;
    m_height = height / reduction;
    m_views.clear();
    const int step = static_cast<int>(reduction);
    for (unsigned int i = 0; i <= viewer.getNumSlaves(); ++i) {
        osg::Camera* const camera = i == 0 ? viewer.getCamera() : viewer.getSlave(i - 1)._camera.get();
        const osg::Viewport* const area = camera ? camera->getViewport() : nullptr;
        if (!area) {
            continue;
        }
        m_views.push_back(
            {camera,
             {(static_cast<int>(area->x()) - m_originX) / step, (static_cast<int>(area->y()) - m_originY) / step,
              static_cast<int>(area->width()) / step, static_cast<int>(area->height()) / step},
             osg::Matrixd(),
             osg::Matrixd()});
    }
    return nullptr;
}

/// Behind a frame: whoever is called in it may have taken cameras away or resized them.
const char* KrFrameCapture::Frame::layOutAgain(osgViewer::Viewer& viewer)
{
    const unsigned int width = m_width;
    const unsigned int height = m_height;
    std::swap(m_views, m_viewsBefore);
    const char* const reason = layOut(viewer);
    const auto isSame = [](const KrLabelPass::View& a, const KrLabelPass::View& b) {
        return a.camera == b.camera && a.area.x == b.area.x && a.area.y == b.area.y && a.area.width == b.area.width &&
               a.area.height == b.area.height;
    };
    const bool areSame = width == m_width && height == m_height &&
                         std::equal(m_views.begin(), m_views.end(), m_viewsBefore.begin(), m_viewsBefore.end(), isSame);
    return reason || areSame ? reason : "its size or its views changed in the frame";
}

void KrFrameCapture::Frame::attachHooks()
{
    m_numHooked = 0;
    m_numColorsRead = 0;
    m_colorFailure = nullptr;
    for (const KrLabelPass::View& view : m_views) {
        if (m_numHooked == m_hooks.size()) {
            m_hooks.push_back(new KrStageHook([this](osgUtil::RenderBin& bin, osg::RenderInfo& renderInfo) {
                try {
                    readColors(bin, renderInfo);
                } catch (const std::exception&) {
                    m_colorFailure = "there is not enough memory";
                }
            }));
        }
        m_numHooked += m_hooks[m_numHooked]->attach(*view.camera) ? 1 : 0;
    }
    if (m_views.size() < 2) {
        return;
    }
    // Places without a view look as the empty tiles of the window do.
    const osg::Vec4 background = m_views.front().camera->getClearColor();
    unsigned char color[3];
    for (unsigned int c = 0; c < 3; ++c) {
        color[c] = static_cast<unsigned char>(std::lround(std::clamp(background[c], 0.0f, 1.0f) * 255.0f));
    }
    const std::size_t count = std::size_t(m_width) * m_height * options.reduction * options.reduction;
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(targets.color + 3 * i, color, 3);
    }
}

void KrFrameCapture::Frame::readColors(osgUtil::RenderBin& bin, osg::RenderInfo& renderInfo)
{
    const osgUtil::RenderStage* const stage = bin.getStage();
    const osg::Viewport* const viewport = stage ? stage->getViewport() : nullptr;
    if (!viewport) {
        return;
    }
    const auto width = static_cast<std::size_t>(viewport->width());
    const auto height = static_cast<std::size_t>(viewport->height());
    const int x = static_cast<int>(viewport->x()) - m_originX;
    const int y = static_cast<int>(viewport->y()) - m_originY;
    const std::size_t fullWidth = std::size_t(m_width) * options.reduction;
    const unsigned int fullHeight = m_height * options.reduction;
    // The frame may have been resized since it was laid out.
    if (x < 0 || y < 0 || static_cast<std::size_t>(x) + width > fullWidth ||
        static_cast<std::size_t>(y) + height > fullHeight) {
        m_colorFailure = "its size changed in the frame";
        return;
    }
    const ReadingClock clock(readingTime);
    GLint alphaBits = 0;
    glGetIntegerv(GL_ALPHA_BITS, &alphaBits);
    // Four channels are copied as they stand, where the buffer has as many; three are packed pixel by pixel.
    const std::size_t channels = alphaBits > 0 ? 4 : 3;
    m_bytes.resize(width * height * channels);
    {
        const KrPixelTransferGuard guard(*renderInfo.getState()->get<osg::GLExtensions>(), 1);
        glReadPixels(static_cast<GLint>(viewport->x()), static_cast<GLint>(viewport->y()), static_cast<GLsizei>(width),
                     static_cast<GLsizei>(height), channels == 4 ? GL_RGBA : GL_RGB, GL_UNSIGNED_BYTE, m_bytes.data());
    }
    for (unsigned int row = 0; row < height; ++row) {
        const unsigned char* const from = m_bytes.data() + row * width * channels;
        const std::size_t place = placeOf(static_cast<unsigned int>(y) + row, fullHeight, options.rowOrder);
        unsigned char* const to = targets.color + 3 * (place * fullWidth + static_cast<std::size_t>(x));
        if (channels == 4) {
            KrPixelConversion::toRgb(from, width, to);
        } else {
            std::memcpy(to, from, 3 * width);
        }
    }
    ++m_numColorsRead;
}

bool KrFrameCapture::Frame::render(osgViewer::Viewer* viewer)
{
    failure = layOut(*viewer);
    if (!failure && (targets.color || targets.depth || targets.labels || targets.normals) &&
        (targets.width != m_width || targets.height != m_height)) {
        failure = "the images are not of its size";
    }
    if (failure) {
        return false;
    }
    const osg::ref_ptr<osg::GraphicsContext> context = viewer->getCamera()->getGraphicsContext();
    if (targets.color) {
        attachHooks();
        viewer->frame(DBL_MAX);
        for (std::size_t i = 0; i < m_numHooked; ++i) {
            m_hooks[i]->detach();
        }
        failure = m_colorFailure ? m_colorFailure : m_numColorsRead < m_views.size() ? "no frame was drawn" : nullptr;
    } else if (viewer->getFrameStamp()->getFrameNumber() == 0) {
        // The first frame of a viewer sets it up.
        viewer->frame(DBL_MAX);
    } else {
        // All that moves is moved; nothing is drawn that nobody looks at.
        viewer->advance(DBL_MAX);
        viewer->eventTraversal();
        viewer->updateTraversal();
    }
    // Somebody who is called in the frame may have closed the window, or drawn another one.
    if (!failure &&
        !(context->getState() && viewer->getCamera()->getGraphicsContext() == context && context->makeCurrent())) {
        failure = "no frame was drawn";
    }
    failure = failure ? failure : layOutAgain(*viewer);
    if (!failure) {
        try {
            failure = task(*this, *viewer);
        } catch (const std::exception&) {
            failure = "there is not enough memory";
            m_pass->end(*viewer);
        }
    }
    return !failure;
}

KrMetricDepth::Picture KrFrameCapture::Frame::pictureOf(const KrLabelPass::View& view) const
{
    return {static_cast<unsigned int>(view.area.width),
            static_cast<unsigned int>(view.area.height),
            view.projection,
            KrLabelPass::kDepthBits,
            options.depthKind,
            options.background};
}

const char* KrFrameCapture::Frame::readKinds(osgViewer::Viewer& viewer)
{
    if (!targets.depth && !targets.labels && !targets.normals) {
        return nullptr;
    }
    KrLabelPass::Request request;
    request.content = targets.normals ? Content::Normals : Content::Labels;
    request.level = options.labelLevel;
    // Memory first: what is bound is bound to the end.
    const std::size_t count = std::size_t(m_width) * m_height;
    m_words.resize(count * (targets.normals ? 2 : 1));
    m_depths.resize(targets.depth ? count : 0);
    if (const char* const reason =
            m_pass->draw(viewer, static_cast<int>(m_width), static_cast<int>(m_height), request, m_views)) {
        return reason;
    }
    const ReadingClock clock(readingTime);
    const osg::State& state = *viewer.getCamera()->getGraphicsContext()->getState();
    if (m_views.size() > 1) {
        // What no view covers.
        std::fill_n(targets.depth, targets.depth ? count : 0, options.background);
        std::fill_n(targets.labels, targets.labels ? count : 0, 0u);
        std::fill_n(targets.normals, targets.normals ? 3 * count : 0, 0.0f);
    }
    const char* reason = nullptr;
    for (const KrLabelPass::View& view : m_views) {
        const Area& area = view.area;
        if (area.x < 0 || area.y < 0 || area.x + area.width > static_cast<int>(m_width) ||
            area.y + area.height > static_cast<int>(m_height)) {
            reason = "a view of it reaches beyond it";
            break;
        }
        if (targets.labels || targets.normals) {
            KrLabelPass::readPixels(state, area, request.content, m_words.data());
        }
        if (targets.depth) {
            if (!KrMetricDepth::isSupported(view.projection)) {
                reason = "its projection mixes depth with x or y";
                break;
            }
            KrLabelPass::readDepths(state, area, m_depths.data());
        }
        unpack(view);
    }
    m_pass->end(viewer);
    projection = m_views.front().projection;
    return reason;
}

void KrFrameCapture::Frame::unpack(const KrLabelPass::View& view)
{
    const Area& area = view.area;
    const KrLabelRows rows(view, targets.normals ? Content::Normals : Content::Labels, options.normalFrame);
    for (unsigned int row = 0; row < static_cast<unsigned int>(area.height); ++row) {
        const std::uint32_t* const from = m_words.data() + row * rows.rowSize();
        const std::size_t place = placeOf(static_cast<unsigned int>(area.y) + row, m_height, options.rowOrder);
        const std::size_t to = place * m_width + static_cast<std::size_t>(area.x);
        if (targets.labels) {
            rows.toLabels(from, targets.labels + to);
        }
        if (targets.normals) {
            rows.toNormals(from, row, targets.normals + 3 * to);
        }
    }
    if (targets.depth) {
        const std::size_t place = placeOf(static_cast<unsigned int>(area.y), m_height, options.rowOrder);
        const auto step = static_cast<std::ptrdiff_t>(m_width);
        m_metric.convert(pictureOf(view), m_depths.data(),
                         targets.depth + place * m_width + static_cast<std::size_t>(area.x),
                         options.rowOrder == KrDepthCapture::RowOrder::TopRowFirst ? -step : step);
    }
}

const char* KrFrameCapture::Frame::readPixel(osgViewer::Viewer& viewer, unsigned int x, unsigned int y,
                                             KrFrameCapture::Pick& pick, std::uint32_t& label)
{
    label = 0;
    if (x >= m_width || y >= m_height) {
        return "the pixel lies outside of it";
    }
    const Area pixel = {static_cast<int>(x), static_cast<int>(m_height - 1 - y), 1, 1};
    const KrLabelPass::Request request = {Content::Normals, KrLabelTable::Level::Shape, 1};
    if (const char* const reason =
            m_pass->draw(viewer, static_cast<int>(m_width), static_cast<int>(m_height), request, m_views, &pixel)) {
        return reason;
    }
    const osg::State& state = *viewer.getCamera()->getGraphicsContext()->getState();
    // Of the view that the pixel lies in: its row, of which the other pixels are cleared or not read.
    const auto view = std::find_if(m_views.begin(), m_views.end(), [&](const KrLabelPass::View& candidate) {
        const Area& area = candidate.area;
        return pixel.x >= area.x && pixel.x < area.x + area.width && pixel.y >= area.y &&
               pixel.y < area.y + area.height;
    });
    std::uint32_t depth = 0;
    if (view != m_views.end()) {
        const Area& area = view->area;
        const auto column = static_cast<std::size_t>(pixel.x - area.x);
        const auto row = static_cast<unsigned int>(pixel.y - area.y);
        m_words.assign(std::size_t(2) * static_cast<unsigned int>(area.width), 0);
        KrLabelPass::readPixels(state, pixel, request.content, m_words.data() + 2 * column);
        KrLabelPass::readDepths(state, pixel, &depth);
        const KrLabelRows rows(*view, request.content, NormalFrame::World);
        std::vector<std::uint32_t> labels(static_cast<std::size_t>(area.width));
        std::vector<float> normals(3 * labels.size());
        rows.toLabels(m_words.data(), labels.data());
        rows.toNormals(m_words.data(), row, normals.data());
        label = labels[column];
        pick.normal = KrVector(normals[3 * column], normals[3 * column + 1], normals[3 * column + 2]);
        const double window =
            (depth >> (32 - KrLabelPass::kDepthBits)) / static_cast<double>((1u << KrLabelPass::kDepthBits) - 1);
        const osg::Vec3d point = osg::Vec3d(2.0 * (static_cast<double>(column) + 0.5) / area.width - 1.0,
                                            2.0 * (row + 0.5) / area.height - 1.0, 2.0 * window - 1.0) *
                                 osg::Matrixd::inverse(inSinglePrecision(view->projection));
        KrRenderTypes::osg2ec(point * osg::Matrixd::inverse(view->worldToEye), pick.point);
        pick.planarDepth = -point.z();
        pick.distance = view->projection(3, 3) == 0.0 ? point.length() : -point.z();
    }
    m_pass->end(viewer);
    return nullptr;
}

const char* KrFrameCapture::Frame::readBits(osgViewer::Viewer& viewer, KrLabelTable::Level level,
                                            std::uint32_t numLabels, std::vector<std::uint32_t>& words,
                                            std::vector<std::uint64_t>& counts)
{
    const std::size_t count = std::size_t(m_width) * m_height;
    const std::uint32_t perPass = KrLabelCamera::kNumBits;
    // In 64 bits: on a machine of 32 the product may come round to less than what is written.
    const std::uint64_t numWords = std::uint64_t{4} * count * ((std::uint64_t{numLabels} + perPass - 1) / perPass);
    if (numWords > words.max_size()) {
        return "there is not enough memory";
    }
    words.resize(static_cast<std::size_t>(numWords));
    counts.assign(numLabels, 0);
    std::uint32_t* out = words.data();
    for (std::uint32_t first = 1; first <= numLabels; first += perPass, out += 4 * count) {
        const KrLabelPass::Request request = {Content::Bits, level, first};
        if (const char* const reason =
                m_pass->draw(viewer, static_cast<int>(m_width), static_cast<int>(m_height), request, m_views)) {
            return reason;
        }
        const ReadingClock clock(readingTime);
        KrLabelPass::readPixels(*viewer.getCamera()->getGraphicsContext()->getState(),
                                {0, 0, static_cast<int>(m_width), static_cast<int>(m_height)}, request.content, out);
        m_pass->end(viewer);
        for (std::size_t i = 0; i < 4 * count; ++i) {
            for (std::uint32_t bits = out[i], bit = 0; bits != 0; bits >>= 1, ++bit) {
                const std::size_t label = first + 32 * (i % 4) + bit;
                // A client may have taken parts away since the scene was built, which nobody was told.
                if ((bits & 1u) != 0 && label <= counts.size()) {
                    ++counts[label - 1];
                }
            }
        }
    }
    return nullptr;
}

KrFrameCapture::KrFrameCapture()
    : m_frame(new Frame)
{
}

KrFrameCapture::~KrFrameCapture()
{
    m_frame->releasePass();
}

bool KrFrameCapture::isFree(const KrSGWindow& window, const char* operation) const
{
    if (m_frame->task) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrFrameCapture::%s - cannot read window \"%s\": this capture is in the middle of "
                                     "another frame.\n",
                                     operation, window.getName().c_str());
        return false;
    }
    return true;
}

bool KrFrameCapture::capture(KrSGWindow& window, bool swapBuffers, const char* operation)
{
    // The window's own callback is put back, and does not see this frame.
    const osg::ref_ptr<KrSGWindow::DrawCallback> previous = window.getDrawCallback();
    // Until it has been rendered: a frame may end before it, or somebody's callback may take this one's place.
    m_frame->failure = "no frame was drawn";
    window.setDrawCallback(m_frame);
    const bool isDrawn = window.renderScene(swapBuffers);
    window.setDrawCallback(previous);
    m_frame->task = nullptr;
    m_frame->targets = Targets();
    const char* const failure = isDrawn ? m_frame->failure : "no frame was drawn";
    if (failure) {
        Kr::Print::instance()->write(Kr::Print::Warning, "KrFrameCapture::%s - cannot read window \"%s\": %s.\n",
                                     operation, window.getName().c_str(), failure);
    } else {
        m_frame->levelOfDetail = static_cast<double>(window.levelOfDetail());
    }
    return !failure;
}

bool KrFrameCapture::render(KrSGWindow& window, const Options& options, const Targets& targets)
{
    if (!isFree(window, "render")) {
        return false;
    }
    m_frame->options = options;
    m_frame->targets = targets;
    m_frame->task = [](Frame& frame, osgViewer::Viewer& viewer) { return frame.readKinds(viewer); };
    return capture(window, targets.color != nullptr, "render");
}

bool KrFrameCapture::pick(KrRenderWindow& window, unsigned int x, unsigned int y, unsigned int reduction,
                          std::optional<Pick>& pick)
{
    if (!isFree(window, "pick")) {
        return false;
    }
    Pick found;
    std::uint32_t label = 0;
    m_frame->options = Options();
    m_frame->options.reduction = reduction;
    m_frame->targets = Targets();
    m_frame->task = [&](Frame& frame, osgViewer::Viewer& viewer) {
        return frame.readPixel(viewer, x, y, found, label);
    };
    if (!capture(window, false, "pick")) {
        return false;
    }
    pick.reset();
    const KrStatedSystem* const system = window.statedSystem();
    if (label == 0 || !system) {
        return true;
    }
    const KrLabelTable table(system->manipulatorSystem(), KrLabelTable::Level::Shape);
    if (label > table.size()) {
        return true;
    }
    found.part = table.part(label);
    PartFinder finder(found.part);
    window.getViewer()->getSceneData()->accept(finder);
    KrRenderTypes::osg2ec(KrRenderTypes::ec2osg(found.point) * osg::Matrixd::inverse(finder.linkToWorld),
                          found.pointInLink);
    pick = found;
    return true;
}

bool KrFrameCapture::renderAmodal(KrRenderWindow& window, KrLabelTable::Level level, unsigned int reduction,
                                  KrAmodalMasks& masks)
{
    if (!isFree(window, "renderAmodal")) {
        return false;
    }
    KrAmodalMasks found;
    m_frame->options = Options();
    m_frame->options.reduction = reduction;
    m_frame->targets = Targets();
    m_frame->task = [&](Frame& frame, osgViewer::Viewer& viewer) {
        const KrStatedSystem* const system = window.statedSystem();
        const std::uint32_t numLabels = system ? KrLabelTable(system->manipulatorSystem(), level).size() : 0;
        found.m_width = frame.width();
        found.m_height = frame.height();
        return frame.readBits(viewer, level, numLabels, found.m_words, found.m_numPixels);
    };
    if (!capture(window, false, "renderAmodal")) {
        return false;
    }
    masks = std::move(found);
    return true;
}

const osg::Matrixd& KrFrameCapture::projection() const
{
    return m_frame->projection;
}

double KrFrameCapture::readingTime() const
{
    return m_frame->readingTime;
}

double KrFrameCapture::errorBound(double depth) const
{
    if (m_frame->m_views.empty()) {
        return std::numeric_limits<double>::infinity();
    }
    const double reduction = std::max(1u, m_frame->options.reduction);
    return KrMetricDepth::errorBound(depth, m_frame->pictureOf(m_frame->m_views.front()),
                                     m_frame->levelOfDetail / reduction);
}

std::size_t KrAmodalMasks::wordOf(std::uint32_t label) const
{
    const std::uint32_t place = label - 1;
    return std::size_t(4) * m_width * m_height * (place / KrLabelCamera::kNumBits) +
           place % KrLabelCamera::kNumBits / 32;
}

bool KrAmodalMasks::covers(std::uint32_t label, unsigned int x, unsigned int y) const
{
    const std::size_t pixel = std::size_t(m_height - 1 - y) * m_width + x;
    return (m_words[wordOf(label) + 4 * pixel] >> (label - 1) % 32 & 1u) != 0;
}

void KrAmodalMasks::mask(std::uint32_t label, unsigned char* out) const
{
    const std::uint32_t* const words = m_words.data() + wordOf(label);
    const std::uint32_t bit = (label - 1) % 32;
    for (unsigned int y = 0; y < m_height; ++y) {
        const std::uint32_t* const row = words + std::size_t(4) * (m_height - 1 - y) * m_width;
        for (unsigned int x = 0; x < m_width; ++x) {
            *out++ = (row[std::size_t(4) * x] >> bit & 1u) != 0 ? 255 : 0;
        }
    }
}
