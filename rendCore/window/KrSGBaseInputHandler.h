#pragma once

#include <toolkit/visualization/KrPovParameters.h>

#include <osg/Matrixd>
#include <osg/Quat>
#include <osg/Vec3d>
#include <osgGA/CameraManipulator>

#include <memory>

class KrSGWindow;

/// The orbit camera of a scene window: a centre of interest, a rotation and a distance from the centre.
///
/// It translates between points of view and view matrices, both ways. It interprets no mouse or keyboard event:
/// applications derive from it to add interaction. World frame, metres.
class KrSGBaseInputHandler : public osgGA::CameraManipulator
{
public:
    /// @param window  whose point of view the handler mirrors; borrowed, may be null. A window that is destroyed lets
    /// go.
    explicit KrSGBaseInputHandler(KrSGWindow* window);

    using osgGA::CameraManipulator::handle;
    using osgGA::CameraManipulator::home;

    /// Kept: "KrSBBaseInputHandler" is the registered name, by which clients know a manipulator of this class.
    const char* className() const override { return "KrSBBaseInputHandler"; }

    /// The distance is kept; the centre of interest lies that far along the camera's -z axis.
    void setByMatrix(const osg::Matrixd& cameraToWorld) override;
    void setByInverseMatrix(const osg::Matrixd& worldToCamera) override;
    osg::Matrixd getMatrix() const override;
    osg::Matrixd getInverseMatrix() const override;

    void setNode(osg::Node* node) override;
    const osg::Node* getNode() const override { return m_node.get(); }
    osg::Node* getNode() override { return m_node.get(); }

    /// Back to the home position, in the handler and in its window. Nothing without a window.
    void home(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;

    /// Stores the point of view and aims the camera.
    virtual void setPovParameters(const KrPovParameters& pov);
    /// The stored point of view with eye point and centre of interest read back from the camera.
    virtual void getPovParameters(KrPovParameters& out) const;

    /// Brings the stored point of view's eye point up to date.
    void calculateEyePoint() const;

    /// Radius of the bounding sphere of the node, m, as of the last setNode.
    double modelSize() const { return m_modelSize; }

    /// Checks a handler of its own. False, after one message, when something is wrong.
    bool selfTest() const;

protected:
    ~KrSGBaseInputHandler() override = default;

    /// Null once the window is gone.
    KrSGWindow* window() const { return m_link ? *m_link : nullptr; }

    // For handlers that move the camera themselves.
    mutable KrPovParameters m_pov;
    osg::Quat m_rotation;
    osg::Vec3d m_center;
    double m_distance = 0.0;

private:
    // The window's pointer to itself, cleared by its destructor: a handler may outlive its window.
    std::shared_ptr<KrSGWindow*> m_link;
    osg::ref_ptr<osg::Node> m_node;
    double m_modelSize = static_cast<double>(0.01f);
};
