#pragma once

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/window/KrCameraIntrinsics.h>
#include <rendCore/window/KrLightProperties.h>

#include <toolkit/image/KrImage.h>
#include <toolkit/visualization/KrVisualizationParameters.h>
#include <toolkit/window/KrWindow.h>

#include <osg/Matrixd>
#include <osg/ref_ptr>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class KrSGBaseInputHandler;
class KrSGTexture;

namespace osg
{
class Camera;
class Group;
class LightSource;
class MatrixTransform;
class Node;
class State;
} // namespace osg
namespace osgViewer
{
class GraphicsWindow;
class Viewer;
} // namespace osgViewer

/// A window that owns a viewer, the root of a scene and a few fixed marker nodes, and draws one frame on request.
///
/// Constructed cheaply; all graphics objects are made in `init`, called by the client or by the first `renderScene` or
/// `setNode`. Setters record values and set dirty bits; the next `updateScene` applies them. Everything runs on the
/// thread that opened the window: frames, captures and whatever else needs the context are refused in another one, with
/// a message.
///
/// The viewer, the scene's nodes and the camera's handler are only named here: include <osgViewer/Viewer>, <osg/Group>
/// and <rendCore/window/KrSGBaseInputHandler.h> to use what `getViewer`, `getNode` and `getInputHandler` return.
class KrSGWindow : public KrWindow
{
public:
    class DrawCallback;             ///< see KrSGDrawCallbacks.h
    class ImageCaptureDrawCallback; ///< see KrSGDrawCallbacks.h

    /// Rendering switches; see `setViewerAttribute`.
    enum ViewerAttribute : std::uint32_t
    {
        Lighting = 0x01,
        Stereo = 0x02, ///< only reported by `stereoOn`
        Texturing = 0x04,
        Wireframe = 0x08,
        SmoothShading = 0x10,
        CullBackFaces = 0x20,
        Orthographic = 0x40, ///< a fixed box: x and y from 0 to 1, z from -1 to 1
        OffScreen = 0x80     ///< set and cleared by `setOffScreenRendering` and `closeWindow` only
    };

    /// What `renderSceneAndCaptureImage` reads.
    enum CaptureFlag : std::uint32_t
    {
        CaptureColor = 0x0,   ///< RGB, one byte a channel
        CaptureDepth = 0x2,   ///< one byte a pixel, nearer is darker, background 0
        CaptureFlipped = 0x8, ///< stores through the image's flipped storage
    };

    /// Needs no context: `init` makes everything that does.
    KrSGWindow();
    ~KrSGWindow() override;

    // The order of the virtual operations is part of the interface: first those of KrWindow, then these.
    /// Pixels; also sets the aspect ratio, 1 when a size is 0. A size that is refused sets the aspect ratio as well.
    bool setWindowSize(unsigned int width, unsigned int height) override;
    /// Deletes the contents, releases the viewer and the root, forgets this context's textures, closes the window.
    /// A later `renderScene` opens it again. Harmless when it is closed.
    bool closeWindow() override;
    /// Opens the window: context, viewer, camera, root and fixed nodes, input handler. True at once when it is open.
    /// @return false, after one message of KrWindow's, when there is no context
    bool init() override;
    /// One frame: makes the context current, updates, draws, swaps. What it calls (draw callbacks, handlers of input)
    /// may close the window: the rest of the frame is left out. One whose graphics context was closed (by an event that
    /// closes it, for one) is closed by the next frame, or by the one that is being drawn, with a message.
    /// @return false when there is no context, it was closed or it cannot be made current
    virtual bool renderScene(bool swapBuffers);
    /// Shows `image` as a quad that fills the window, and draws one frame. False for an image without pixels, or when
    /// the frame cannot be drawn. The first image makes the window orthographic; in one that the client has made
    /// orthographic before there is no quad. All windows of a thread that show an image show the latest one.
    virtual bool setImageBuffer(const KrImage& image, bool swapBuffers);
    /// One frame, of which the pixels of `block` (row 0 at the bottom) go into `image`; false for a null block.
    virtual bool renderSceneAndCaptureImage(KrImage& image, unsigned int flags, const KrImageBlock* block);
    /// Takes these lights, numbered as they stand there, in place of those before; the next `updateScene` shows them.
    /// The first eight light. What a light of a list that was longer left in the scene stays there, as a light source
    /// that the root has switched off.
    virtual void loadLight(const KrLightParameters& lights);
    /// Empties the root (fixed nodes too, until the next `loadScene`) and forgets the lights.
    virtual void deleteContents();
    /// POV, render and light parameters at once; also the home position. Give them after the system: a new system
    /// drops the lights.
    virtual bool setVisualizationParameters(const KrVisualizationParameters& parameters);
    virtual const KrVisualizationParameters& visualizationParameters() const;
    /// Where the camera stands from the next `updateScene` on. World frame, metres. Always true.
    virtual bool setPovParameters(const KrPovParameters& pov);
    /// As it was set, or as the input handler moved it; borrowed.
    virtual const KrPovParameters& getPovParameters() const;
    /// Draws into a framebuffer object instead of the window, which is hidden meanwhile. Always true.
    virtual bool setOffScreenRendering(bool on);
    virtual bool getOffScreenRendering() const;
    /// Switches ViewerAttribute bits; applied by the next `updateScene`.
    virtual void setViewerAttribute(unsigned int bits, bool on);
    virtual unsigned int viewerAttribute() const;
    /// The primary mask (KrRenderTypes::DisplayAttributes). `loadScene` sets it to exactly SceneContent, so other bits
    /// must be set again after each load of a system.
    virtual unsigned int displayMask() const;
    /// True when the primary mask shares a bit with `bits`.
    virtual bool displayMask(unsigned int bits) const;
    virtual void setDisplayMask(unsigned int mask, bool on, bool secondary);
    virtual bool stereoOn() const;
    /// Width / height of the picture that the field of view is for. `setWindowSize` sets it to the window's.
    virtual void setAspectRatio(double aspectRatio);
    virtual double aspectRatio() const;
    /// The root; null before the window is opened.
    ///
    /// Closing the window releases the GL objects of what hangs under it then. A node that was taken out before and is
    /// kept must release them itself (`node->releaseGLObjects(state)`, the state of the viewer's graphics context)
    /// while the window is open: the next window would take their names for its own.
    virtual osg::ref_ptr<osg::Group> getNode() const;
    /// Null draws through the viewer directly.
    virtual void setDrawCallback(osg::ref_ptr<DrawCallback> callback);
    virtual osg::ref_ptr<DrawCallback> getDrawCallback() const;
    virtual void setLights();
    /// Adds a text at (x, y), pixels from the window's upper left corner, from which it keeps its distance when the
    /// window is resized. Nothing before `init`. Overlay text is not in captured images.
    virtual void setOverlayText(const std::string& text, unsigned int x, unsigned int y, const KrColor& color);
    virtual void clearAllOverlayText();
    /// Takes a reference. In an open window installing a handler sends the camera to the handler's home, also when it
    /// is the one that is installed: set the point of view afterwards.
    virtual void setInputHandler(KrSGBaseInputHandler* handler);
    virtual KrSGBaseInputHandler* getInputHandler() const;
    /// Null when the window is closed; borrowed.
    virtual osgViewer::Viewer* getViewer() const;
    /// Applies what was set since the last call: point of view, projection, attributes, lights, mask. Part of every
    /// frame; nothing in a window that is not open.
    virtual bool updateScene();
    /// Draws and judges in windows of its own, see KrSelfTest; this one stays as it is. False, after one message, when
    /// something is wrong.
    virtual bool selfTest() const;
    /// Attaches the fixed nodes and resets the primary display mask. False when the window was never opened.
    virtual bool loadScene();
    /// One frame, which goes into `image` (CaptureFlag bits). Replaces and drops an installed draw callback.
    virtual bool renderSceneAndCaptureImage(KrImage& image, unsigned int flags);
    /// A light source becomes the root (a copy of it where the window shares its context); any other group is added to
    /// the root. Opens the window when it is not open. A new root comes as it is: fixed nodes (with markers and overlay
    /// text), system and lights stay with the one before, the attributes until `setViewerAttribute` is called. The one
    /// before has released its GL objects; for a group that is taken out by hand see `getNode`.
    /// @return false for null, or when the window cannot be opened
    virtual bool setNode(osg::ref_ptr<osg::Group> node);

    /// Clipping planes and background. Automatic planes become 0.01 m and twice the viewing distance. Always true.
    bool loadRenderParameters(const KrRenderParameters& parameters);
    /// Hides KrWindow's: this one also reaches a window that is open.
    void setBackgroundColor(const KrColor& color);
    /// Poses a marker (GlobalAxisMarker or CenterOfInterestMarker) and shows it.
    void setGuiMarkerMatrix(const KrRenderTypes::DisplayAttributes& marker, const osg::Matrixd& matrix);
    /// From the next `updateScene` on draws as this camera does, instead of with the point of view's field of view and
    /// the aspect ratio; the point of view goes on placing it. Kept when the window is closed. Near and far planes come
    /// from the point of view, as always, and give way to those of what is drawn. Its picture covers the whole window:
    /// in one of another size everything is scaled with it, as `KrCameraIntrinsics::scaledTo` tells. The Orthographic
    /// attribute goes before it.
    /// @return false, after one message, and the camera as it was for numbers that are no camera
    bool setCameraIntrinsics(const KrCameraIntrinsics& intrinsics);
    /// Back to field of view and aspect ratio.
    void clearCameraIntrinsics();
    /// What was set, exactly; null when nothing is. Borrowed until the next change.
    const KrCameraIntrinsics* cameraIntrinsics() const { return m_intrinsics ? &*m_intrinsics : nullptr; }

    /// The light from everywhere, which reaches what no lamp does; each channel in [0, 1], 0.5 at first. It is in the
    /// next frame, and stays when lights, scene or context go. Windows that share a scene share it.
    void setAmbientLight(const KrColor& light);
    const KrColor& ambientLight() const { return m_ambientLight; }

    /// The error that meshes may show on the screen, pixels, from the next frame on: farther away they are drawn with
    /// fewer triangles, whose surface lies within that error. However small a body is, its pixels change little, too:
    /// half a pixel of error is meant to change fewer than 0.5 % of them by more than 16 of 255, and all of them by
    /// less than 1 of 255 in the mean (what is allowed is in proportion to the error; it is judged mesh by mesh when
    /// its levels are made, over several directions, with a lamp of its own). So beyond some distance a body is not
    /// drawn with fewer triangles any more. 0, the default, draws every triangle. Kept when the window is closed.
    /// @return false, after one message, and the error as it was for a negative one and for what is no number
    bool setLevelOfDetail(float pixels);
    float levelOfDetail() const { return m_levelOfDetail; }
    /// On, the default, meshes become coarser only well within that error, so that nothing flickers while the eye
    /// moves. Off, a frame depends on none before it: for data sets, whose pictures are to be the same in every order.
    /// Kept when the window is closed.
    void setSteadyLevels(bool on);
    bool areLevelsSteady() const { return m_areLevelsSteady; }
    /// On, the default, the robots of a frame go to the driver by a way of their own where nothing needs the scene
    /// graph's traversals. Pictures are the same with it and without (but for pixels in which two bodies are equally
    /// far, to the last bit: either may be seen): it is for comparing, and for a client whose own nodes or callbacks
    /// below a robot want every traversal. Kept when the window is closed.
    void setDirectDrawing(bool on);
    bool isDirectDrawing() const { return m_isDirectDrawing; }

protected:
    /// Pending changes, one bit a kind.
    enum DirtyFlag : std::uint32_t
    {
        DirtySystem = 0x01, ///< consumed by subclasses
        DirtyPov = 0x02,
        DirtyProjection = 0x04,
        DirtyLights = 0x08,   ///< consumed by subclasses
        DirtyContents = 0x10, ///< consumed by subclasses
        DirtyAxisScale = 0x20,
        DirtyAttributes = 0x40,
        DirtyAll = 0x7f
    };

    KrVisualizationParameters m_visualizationParameters;
    double m_aspectRatio = 1.0;
    std::vector<KrLightProperties> m_lights;
    double m_factorA = 1.0; ///< for subclasses
    double m_factorB = 1.0; ///< for subclasses
    osg::ref_ptr<osg::MatrixTransform> m_coiTransform;
    osg::ref_ptr<osg::MatrixTransform> m_globalAxisTransform;
    osg::ref_ptr<osg::Group> m_tempGroup;
    std::uint32_t m_displayMask = KrRenderTypes::SceneContent;
    std::uint32_t m_secondaryDisplayMask = 0;
    std::uint32_t m_viewerAttributes = Lighting | Texturing | SmoothShading;
    std::uint32_t m_dirtyFlags = DirtyAll;
    osg::ref_ptr<KrSGBaseInputHandler> m_inputHandler;
    osg::ref_ptr<osg::LightSource> m_sceneRoot;
    osg::ref_ptr<osgViewer::Viewer> m_viewer;
    osg::ref_ptr<osgViewer::GraphicsWindow> m_graphicsWindow;
    osg::ref_ptr<DrawCallback> m_drawCallback;
    osg::ref_ptr<osg::Camera> m_overlayCamera;
    KrColor m_ambientLight = KrColor(0.5, 0.5, 0.5, 0.5);

    int surfaceWidth() const;  ///< pixels that are drawn into: 1 where the window has 0
    int surfaceHeight() const; ///< pixels that are drawn into: 1 where the window has 0
    /// The planes of a camera that far from what it looks at, before those of what is drawn take their place. m
    void clippingPlanes(double distance, double& near, double& far) const;

private:
    void createGraphicsWindow();
    void createSceneRoot();
    void createFixedNodes();
    void createCenterOfInterestMarker();
    void createOverlayCamera();
    void fitOverlay();
    void setUpCamera();
    void updateProjection();
    void applyDrawSettings();
    void applyViewerAttributes();
    void resizeGraphicsWindow();
    void refreshRenderTarget();
    void placeOverlayTexts();
    void releaseGLObjects();
    void releaseNames(osg::State& state) const;
    bool closeWithContext();
    void releaseViewer();
    void attachToRoot(osg::Node* node);
    void createImageQuad(const KrSGTexture& texture);

    friend class KrSGBaseInputHandler; // keeps m_link
    std::shared_ptr<KrSGWindow*> m_link = std::make_shared<KrSGWindow*>(this);
    osg::ref_ptr<osg::Group> m_imageQuad; ///< null before the first image
    /// Of renderSceneAndCaptureImage, with the image that is read into: kept, so that the next one allocates nothing.
    osg::ref_ptr<ImageCaptureDrawCallback> m_capture;
    bool m_appliedOrthographic = false;
    bool m_isDirectDrawing = true;
    float m_levelOfDetail = 0.0f; ///< pixels
    bool m_areLevelsSteady = true;
    std::optional<KrCameraIntrinsics> m_intrinsics;
};
