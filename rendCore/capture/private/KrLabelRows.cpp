#include <rendCore/capture/private/KrLabelRows.h>

#include <algorithm>

KrLabelRows::KrLabelRows(const KrLabelPass::View& view, KrLabelPass::Content content, KrFrameCapture::NormalFrame frame)
    : m_width(static_cast<std::size_t>(view.area.width))
    , m_height(static_cast<unsigned int>(view.area.height))
    , m_wordsPerPixel(content == KrLabelPass::Content::Normals ? 2 : 1)
    , m_isPerspective(view.projection(3, 3) == 0.0)
    , m_clipToEye(osg::Matrixd::inverse(view.projection))
{
    const osg::Matrixd eyeToWorld = osg::Matrixd::inverse(view.worldToEye);
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            // Right stays, up becomes down, backward becomes forward.
            const double optical = row != column ? 0.0 : row == 0 ? 1.0 : -1.0;
            m_rotation[3 * row + column] =
                static_cast<float>(frame == KrFrameCapture::NormalFrame::World ? eyeToWorld(row, column) : optical);
        }
    }
}

void KrLabelRows::toLabels(const std::uint32_t* row, std::uint32_t* labels) const
{
    if (m_wordsPerPixel == 1) {
        std::copy_n(row, m_width, labels);
    } else {
        KrPixelConversion::toLabels(row, m_width, labels);
    }
}

void KrLabelRows::toNormals(const std::uint32_t* row, unsigned int number, float* normals) const
{
    KrPixelConversion::toNormals(row, m_width, towardsEye(number), m_rotation, normals);
}

/// From the surface in a row's pixels to the eye, in eye axes.
KrPixelConversion::TowardsEye KrLabelRows::towardsEye(unsigned int number) const
{
    // Parallel rays all come from where the eye looks back to.
    osg::Vec3d first(0.0, 0.0, 1.0);
    osg::Vec3d step;
    if (m_isPerspective) {
        const auto at = [&](double column) {
            return -(osg::Vec3d(2.0 * column / static_cast<double>(m_width) - 1.0,
                                2.0 * (number + 0.5) / m_height - 1.0, 0.0) *
                     m_clipToEye);
        };
        first = at(0.5);
        step = at(1.5) - first;
    }
    KrPixelConversion::TowardsEye eye = {};
    for (int i = 0; i < 3; ++i) {
        eye.first[i] = static_cast<float>(first[i]);
        eye.step[i] = static_cast<float>(step[i]);
    }
    return eye;
}
