#pragma once

#include <rendCore/system/KrRenderWindow.h>
#include <rendCore/system/KrTileGrid.h>

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrVector.h>
#include <toolkit/visualization/KrPovParameters.h>
#include <toolkit/xml/KrXmlVectorType.h>

#include <osg/Matrixd>
#include <osg/ref_ptr>

#include <cstddef>
#include <vector>

class KrEmptyTiles;
class KrTiledCapture;
class KrViewFollower;

namespace osg
{
class FrameBufferObject;
} // namespace osg

/// A render window that shows its scene in several views at once: equal tiles in a grid, filled row by row from the
/// upper left, each with a camera of its own.
///
/// View 0 is the window's main camera. It shows the window's own point of view (`setPovParameters`, the input handler),
/// and is the reference for the others, which a list places: entry k places view k, entry 0 is not looked at. What an
/// entry means is the view mode. The views share light, display masks, attributes and background; lamps that are fixed
/// to the eye are fixed to view 0's.
///
/// Captures of the base class (`renderSceneAndCaptureImage`, capture callbacks) see view 0; `captureWindow` sees all.
class KrMultiRenderWindow : public KrRenderWindow
{
public:
    /// What places the views. World frame, metres.
    enum ViewMode : unsigned int
    {
        NoViews = 0, ///< nothing: every view shows the window's point of view
        /// `setCoords`: the frame of the view's camera, camera to world: it looks along the frame's -z axis, y is up.
        /// Lens and distance are those of the window's point of view; where that one stands does not matter.
        CameraFrames = 1,
        /// `setEyePoints`: where the view's eye is. It looks at the centre of interest of the window's point of view,
        /// with that one's up; where that is parallel to the line of sight, z, else y is up.
        EyePoints = 2,
        /// `setCoords`: the frame, frame to world, in which the window's point of view is understood: the view sees
        /// what stands at the frame as view 0 sees what stands at the origin.
        ObjectFrames = 3,
        /// `setPovParametersVector`: the view's own point of view, field of view included.
        PovParameters = 4
    };

    /// Pixels, of the whole window, in both directions.
    static constexpr unsigned int kLargestSize = 2048;

    /// No views, and no grid, before `setWindowParams` or `setWindowSize`.
    KrMultiRenderWindow();
    /// As `setWindowParams`.
    KrMultiRenderWindow(unsigned int singleWidth, unsigned int singleHeight, unsigned int numWindows);
    ~KrMultiRenderWindow() override;

    /// Width and height of one view, pixels; the number of views is kept and the window becomes as large as their
    /// grid. `aspectRatio()` becomes the window's, views are drawn in the proportions of their tiles.
    bool setWindowSize(unsigned int width, unsigned int height) override;
    /// `setWindowSize` and the position of the window's upper left corner on the screen.
    bool setWindowSizeAndPos(unsigned int width, unsigned int height, int x, int y) override;
    bool closeWindow() override;
    bool init() override;
    bool updateScene() override;
    bool selfTest() const override;

    // The order of the virtual operations is part of the interface.
    /// Lays the grid out: columns by the hint, or as many as fit; as many rows as that takes.
    ///
    /// Too wide or too high is told in a warning, and the window keeps its size and its grid, in which the views go on
    /// standing; when their number was to change, all but view 0 are made anew by the next `init` or `captureWindow`,
    /// as many as the grid has tiles for. A number of views that differs makes all but view 0 anew and resizes the
    /// lists of eye points and frames, but not that of points of view.
    /// @param singleWidth   of one view, pixels
    /// @param singleHeight  of one view, pixels
    /// @param numWindows    number of views; 0 keeps it, and makes it 1 where there are none
    virtual void setWindowParams(unsigned int singleWidth, unsigned int singleHeight, unsigned int numWindows);

    /// Columns that the grid shall have, more than there are views included; 0 for as many as fit. A hint that does
    /// not fit is not followed.
    void setNumColumnsHint(unsigned int numColumns);
    /// Gives every view its share of a window of that size, as the user's drag of a window's edge asks: the grid keeps
    /// its columns and rows, and the window becomes as large as it.
    /// @param width   of the whole window, pixels; what is over kLargestSize is left out
    /// @param height  of the whole window, pixels; what is over kLargestSize is left out
    /// @return false, and nothing done, when the views have that share already
    bool shareOut(unsigned int width, unsigned int height);
    /// What was asked for last, also when it was refused. Pixels.
    void getSingleWindowSize(unsigned int& width, unsigned int& height) const;
    unsigned int getNumWindows() const { return static_cast<unsigned int>(m_views.size()); }

    // Each list is copied. One that is shorter than the number of views is filled up, with a warning that (kept) says
    // the opposite; a longer one is kept whole. While a list is shorter than the number of views, which grew since, no
    // view is placed by it: give it again.

    /// Mode PovParameters.
    void setPovParametersVector(const KrXmlVectorType<KrPovParameters>& povs);
    /// @param mode  CameraFrames or ObjectFrames
    void setCoords(const KrXmlVectorType<KrCoordinateSystemTransformation>& coords, ViewMode mode);
    /// Mode EyePoints.
    void setEyePoints(const std::vector<KrVector>& eyePoints);

    /// Draws one frame, of which all views go into one picture of the window's size, row 0 at the bottom: each tile
    /// where it stands in the window, tiles without a view in the background colour. On screen and off screen alike;
    /// as in every capture, without overlay text.
    ///
    /// Depth is remapped over the whole picture: views of different near and far planes are not comparable.
    /// A draw callback that is installed misses this frame.
    /// @param flags  CaptureFlag bits
    /// @return false when the window cannot be opened or drawn, or there is no memory for the picture
    bool captureWindow(KrImage& image, unsigned int flags);

protected:
    std::vector<osg::ref_ptr<osg::Camera>> m_views; ///< [0] is the viewer's own; null before `init`
    KrXmlVectorType<KrCoordinateSystemTransformation> m_coords;
    std::vector<KrVector> m_eyePoints;
    KrXmlVectorType<KrPovParameters> m_povParametersVector;
    ViewMode m_viewMode = NoViews;
    unsigned int m_numColumnsHint = 0;
    unsigned int m_numRows = 0;
    unsigned int m_numColumns = 0;
    unsigned int m_singleWidth = 0;  ///< pixels
    unsigned int m_singleHeight = 0; ///< pixels

private:
    void setNumViews(unsigned int count);
    bool chooseGrid();
    void layoutViews();
    osg::ref_ptr<osg::Camera> createView(unsigned int number);
    void forgetViewsOfAnotherViewer();
    void layoutEmptyTiles();
    void fitProjectionToTile();
    void shareCameraSettings();
    void shareRenderTarget();
    void followMainCamera();
    void placeViews();
    std::size_t listLength() const;
    osg::Matrixd viewMatrix(unsigned int view) const;
    osg::Matrixd projectionOffset(unsigned int view) const;
    osg::Matrixd projection(double fieldOfView, double distance) const;

    osg::ref_ptr<KrViewFollower> m_placer;
    osg::ref_ptr<KrEmptyTiles> m_emptyTiles; ///< the present viewer's; null before it has views
    KrTileGrid m_grid; ///< the latest layout that was not refused; without one view 0 fills the window
    osg::ref_ptr<osg::FrameBufferObject> m_target; ///< of all views when off-screen; else null
    osg::ref_ptr<KrTiledCapture> m_windowCapture;  ///< of captureWindow, kept: the next one allocates nothing
    osg::Matrixd m_reference;                      ///< world to camera of view 0, by which the others are placed
    KrPovParameters m_referencePov;                ///< the same as a point of view
};
