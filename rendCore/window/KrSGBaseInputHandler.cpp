#include <rendCore/window/KrSGBaseInputHandler.h>

#include <rendCore/base/KrRenderTypes.h>
#include <rendCore/window/KrSGWindow.h>

#include <osg/Vec3f>

namespace
{

// Kept: single precision. The rotation carries float rounding, centre and distance stay double; view matrices, and
// pictures with them, depend on it.
osg::Vec3f normalisedCross(const osg::Vec3f& a, const osg::Vec3f& b)
{
    osg::Vec3f cross = a ^ b;
    if (cross.length() > 0.0f) {
        cross.normalize();
    }
    return cross;
}

} // namespace

KrSGBaseInputHandler::KrSGBaseInputHandler(KrSGWindow* window)
    : m_link(window ? window->m_link : nullptr)
{
    if (window) {
        // Home is where the window looks from now.
        const KrPovParameters& pov = window->getPovParameters();
        setAutoComputeHomePosition(false);
        setHomePosition(KrRenderTypes::ec2osg(pov.eyepoint()), KrRenderTypes::ec2osg(pov.centerOfInterest()),
                        KrRenderTypes::ec2osg(pov.up()));
        m_pov = pov;
    }
}

void KrSGBaseInputHandler::setPovParameters(const KrPovParameters& pov)
{
    m_pov = pov;
    m_center = KrRenderTypes::ec2osg(pov.centerOfInterest());
    osg::Vec3d look = m_center - KrRenderTypes::ec2osg(pov.eyepoint());
    m_distance = look.length();
    // Kept: eye and centre in one place leave a line of sight of zeros, and the view matrix without NaN.
    if (m_distance > 0.0) {
        look /= m_distance;
    }
    const osg::Vec3f side = normalisedCross(osg::Vec3f(look), osg::Vec3f(KrRenderTypes::ec2osg(pov.up())));
    const osg::Vec3f up = normalisedCross(side, osg::Vec3f(look));
    const osg::Matrixd worldToCamera(side.x(), up.x(), -look.x(), 0.0, //
                                     side.y(), up.y(), -look.y(), 0.0, //
                                     side.z(), up.z(), -look.z(), 0.0, //
                                     0.0, 0.0, 0.0, 1.0);
    // Camera to world, as `getMatrix` wants it.
    m_rotation = worldToCamera.getRotate().inverse();
}

osg::Matrixd KrSGBaseInputHandler::getMatrix() const
{
    return osg::Matrixd::translate(0.0, 0.0, m_distance) * osg::Matrixd::rotate(m_rotation) *
           osg::Matrixd::translate(m_center);
}

osg::Matrixd KrSGBaseInputHandler::getInverseMatrix() const
{
    return osg::Matrixd::translate(-m_center) * osg::Matrixd::rotate(m_rotation.inverse()) *
           osg::Matrixd::translate(0.0, 0.0, -m_distance);
}

void KrSGBaseInputHandler::setByMatrix(const osg::Matrixd& cameraToWorld)
{
    // The distance stays: a matrix does not tell it.
    m_center = osg::Vec3d(0.0, 0.0, -m_distance) * cameraToWorld;
    m_rotation = cameraToWorld.getRotate();
}

void KrSGBaseInputHandler::setByInverseMatrix(const osg::Matrixd& worldToCamera)
{
    setByMatrix(osg::Matrixd::inverse(worldToCamera));
}

void KrSGBaseInputHandler::calculateEyePoint() const
{
    const osg::Vec3f eye = osg::Vec3f(0.0f, 0.0f, 0.0f) * getMatrix();
    m_pov.setEyepoint(KrRenderTypes::osg2ec(osg::Vec3d(eye)));
}

void KrSGBaseInputHandler::getPovParameters(KrPovParameters& out) const
{
    calculateEyePoint();
    m_pov.setCenterOfInterest(KrRenderTypes::osg2ec(m_center));
    out = m_pov;
}

void KrSGBaseInputHandler::setNode(osg::Node* node)
{
    m_node = node;
    // Without a node the size of before stays.
    if (m_node.valid()) {
        m_modelSize = m_node->getBound().radius();
    }
    if (getAutoComputeHomePosition()) {
        computeHomePosition();
    }
}

void KrSGBaseInputHandler::home(const osgGA::GUIEventAdapter&, osgGA::GUIActionAdapter&)
{
    KrSGWindow* const target = window();
    if (!target) {
        return;
    }
    m_pov.setEyepoint(KrRenderTypes::osg2ec(_homeEye));
    m_pov.setCenterOfInterest(KrRenderTypes::osg2ec(_homeCenter));
    m_pov.setUp(KrRenderTypes::osg2ec(_homeUp));
    // A copy: both receivers may store into what they are given.
    const KrPovParameters pov = m_pov;
    setPovParameters(pov);
    target->setPovParameters(pov);
}
