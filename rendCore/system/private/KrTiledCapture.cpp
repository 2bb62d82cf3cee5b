#include <rendCore/system/private/KrTiledCapture.h>

#include <rendCore/window/private/KrRenderStages.h>

#include <osgViewer/Viewer>

#include <algorithm>
#include <cmath>
#include <cstring>

KrTiledCapture::KrTiledCapture()
    : ImageCaptureDrawCallback(nullptr, KrSGWindow::CaptureColor)
{
}

void KrTiledCapture::setWindowSize(int width, int height)
{
    m_width = static_cast<std::uint32_t>(width);
    m_height = static_cast<std::uint32_t>(height);
}

bool KrTiledCapture::preRender(osgViewer::Viewer* viewer)
{
    m_isDone = false;
    m_numTiles = 0;
    // The main camera draws the first tile; it is no slave.
    attach(*viewer->getCamera(), *viewer);
    for (unsigned int i = 0; i < viewer->getNumSlaves(); ++i) {
        attach(*viewer->getSlave(i)._camera, *viewer);
    }
    return true;
}

bool KrTiledCapture::postRender(osgViewer::Viewer* viewer)
{
    for (std::size_t i = 0; i < m_numTiles; ++i) {
        // An image that stays attached would be read in every later frame.
        m_tiles[i].stage->attach(buffer(), nullptr);
        m_tiles[i].stage = nullptr;
    }
    if (!KrCapturedImage::allocate(*m_sceneImage, static_cast<int>(m_width), static_cast<int>(m_height), isDepth())) {
        return false;
    }
    // Places without a view look as the empty tiles of the window do.
    fill(viewer->getCamera()->getClearColor());
    for (std::size_t i = 0; i < m_numTiles; ++i) {
        paste(m_tiles[i]);
    }
    // From here on it is a frame like any other: flipping and depths are the base's.
    m_isDone = ImageCaptureDrawCallback::postRender(viewer) && m_target->sizeInBytes() > 0;
    return m_isDone;
}

void KrTiledCapture::attach(osg::Camera& camera, osgViewer::Viewer& viewer)
{
    osgUtil::RenderStage* const stage = KrRenderStages::of(camera);
    const osg::Viewport* const viewport = camera.getViewport();
    // A camera that draws nothing leaves its place as it is filled.
    if (!stage || !viewport) {
        return;
    }
    // Before `attach`, which a later set-up would undo.
    KrRenderStages::setUp(*stage, camera, viewer);
    if (m_numTiles == m_tiles.size()) {
        // One image for each view: a stage reads what its own camera has drawn.
        m_tiles.emplace_back();
        m_tiles.back().image = new KrCapturedImage;
    }
    Tile& tile = m_tiles[m_numTiles];
    tile.image->setContext(camera.getGraphicsContext() ? camera.getGraphicsContext()->getState() : nullptr);
    tile.x = static_cast<unsigned int>(viewport->x());
    tile.y = static_cast<unsigned int>(viewport->y());
    if (KrCapturedImage::allocate(*tile.image, static_cast<int>(viewport->width()),
                                  static_cast<int>(viewport->height()), isDepth())) {
        stage->attach(buffer(), tile.image);
        tile.stage = stage;
        ++m_numTiles;
    }
}

/// As a buffer is when it has just been cleared.
void KrTiledCapture::fill(const osg::Vec4& color)
{
    unsigned char* out = m_sceneImage->data();
    if (isDepth()) {
        // All ones is the farthest depth.
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
void KrTiledCapture::paste(const Tile& tile)
{
    const auto width = static_cast<unsigned int>(tile.image->s());
    const auto height = static_cast<unsigned int>(tile.image->t());
    // A window that was resized within its frame may have tiles beyond it.
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
