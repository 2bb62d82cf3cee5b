#pragma once

#include <osg/MatrixTransform>
#include <osg/Node>
#include <osg/ref_ptr>

/// Coordinate triads: red x, green y, blue z at every link frame, twice as large at every manipulator base.
///
/// Drawn unlit. All triads are one shared node with many parents, made on first use and kept for the life of the
/// process. It has one scale: windows that are drawn in several threads at once must want the same.
class KrRenderAxis
{
public:
    KrRenderAxis() = delete;

    /// The shared axis transform (node mask KrRenderTypes::LinkAxes); with `geodeOnly` the geode below it, which is
    /// one unit long, without scale and mask.
    static osg::ref_ptr<osg::Node> linkAxis(bool geodeOnly);
    /// Sets the length of every link's axes, m (0.2 before the first call).
    static void scaleAxis(double scale);
    /// Hangs triads under every link, its DH frame, and every manipulator below `root`. Links get one however often
    /// this is called; manipulators get another one at each call. Nothing for null.
    static void init(osg::Node* root);

    /// Draws and judges in windows of its own, see KrSelfTest. False, after one message, when something is wrong.
    static bool selfTest();

private:
    static osg::ref_ptr<osg::MatrixTransform> m_theLinkAxis;
};
