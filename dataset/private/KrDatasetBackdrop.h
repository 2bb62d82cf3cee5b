#pragma once

#include <osg/ref_ptr>

#include <string>

namespace osg
{
class Camera;
class Geometry;
class Group;
class Texture2D;
} // namespace osg

/// A picture that fills the window behind everything else, its middle where it has other sides than the window. It has
/// no depth. For use inside the library.
class KrDatasetBackdrop
{
public:
    KrDatasetBackdrop();
    ~KrDatasetBackdrop();
    KrDatasetBackdrop(const KrDatasetBackdrop&) = delete;
    KrDatasetBackdrop& operator=(const KrDatasetBackdrop&) = delete;

    /// Hangs it under the scene's root. Once.
    void attach(osg::Group& root);
    /// Shows the picture in that file from the next frame on. @param aspectRatio  of the window, width / height
    /// @return false, with a reason, for a file that is no picture
    bool show(const std::string& path, double aspectRatio, std::string& reason);

private:
    osg::ref_ptr<osg::Camera> m_camera;
    osg::ref_ptr<osg::Geometry> m_quad;
    osg::ref_ptr<osg::Texture2D> m_texture;
    std::string m_path; ///< of what is shown
};
