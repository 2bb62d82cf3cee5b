#pragma once

#include <rendCore/base/private/KrPixelConversion.h>
#include <rendCore/capture/KrFrameCapture.h>
#include <rendCore/capture/private/KrLabelPass.h>

#include <osg/Matrixd>

#include <cstddef>
#include <cstdint>

/// What a label pass has drawn of one view, row by row, as callers are told to get it. For use inside the library.
class KrLabelRows
{
public:
    /// @param content  Labels or Normals
    KrLabelRows(const KrLabelPass::View& view, KrLabelPass::Content content, KrFrameCapture::NormalFrame frame);

    /// Numbers of a row of the view, as the pass reads them.
    std::size_t rowSize() const { return m_width * m_wordsPerPixel; }
    /// @param row  as read, `rowSize()` numbers  @param labels  one a pixel
    void toLabels(const std::uint32_t* row, std::uint32_t* labels) const;
    /// @param number   of the row in the view, from the bottom
    /// @param normals  three a pixel
    void toNormals(const std::uint32_t* row, unsigned int number, float* normals) const;

private:
    KrPixelConversion::TowardsEye towardsEye(unsigned int number) const;

    std::size_t m_width;
    unsigned int m_height;
    std::size_t m_wordsPerPixel;
    bool m_isPerspective;
    osg::Matrixd m_clipToEye;
    float m_rotation[9]; ///< eye axes to those that normals are told in, row vectors
};
