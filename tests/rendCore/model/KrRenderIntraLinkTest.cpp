#include <rendCore/model/KrRenderIntraLink.h>

#include <rendCore/model/KrRenderManipulator.h>
#include <tests/support/MessageRecorder.h>
#include <tests/support/SceneSamples.h>

#include <osg/Math>

#include <gtest/gtest.h>

namespace
{

using namespace SceneSamples;

/// From the base's origin to a point 2 m out on the link "arm".
KrIntraLink rod(const boost::shared_ptr<KrShape>& shape)
{
    KrIntraLink link("", KrVector(0.0, 0.0, 0.0), "arm", KrVector(2.0, 0.0, 0.0));
    link.setShape(shape);
    return link;
}

KrIndividualManipulator robotWithRods(const std::vector<boost::shared_ptr<KrShape>>& shapes)
{
    KrIndividualManipulator robot("robot");
    robot.addShape(box());
    robot.addChildLink(hinge("arm", box()));
    for (const boost::shared_ptr<KrShape>& shape : shapes) {
        robot.intraLinks().addIntraLink(rod(shape));
    }
    return robot;
}

} // namespace

TEST(KrRenderIntraLink, HangsNamedNodesBeforeTheBaseAndKeepsThemOutOfTheMap)
{
    const boost::shared_ptr<KrShape> shape = boost::make_shared<KrShape>(box());
    const KrIndividualManipulator robot = robotWithRods({shape, boost::make_shared<KrShape>(box())});
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    ASSERT_EQ(node->getNumChildren(), 3u);
    EXPECT_EQ(node->getChild(0)->getName(), "IntraLink 0");
    EXPECT_EQ(node->getChild(1)->getName(), "IntraLink 1");
    const auto* base = dynamic_cast<const KrRenderIntraLink*>(node->getChild(2));
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(base->getName(), "Man Base 0");
    EXPECT_EQ(node->getChild(0)->asGroup()->getNumChildren(), 1u);
    EXPECT_EQ(node->getChild(0)->asGroup()->getChild(0)->getName(), "");
    EXPECT_EQ(node->getMap().size(), 2u);
}

TEST(KrRenderIntraLink, FollowsTheLinkBetweenWhoseEndsItLies)
{
    const KrIndividualManipulator robot = robotWithRods({boost::make_shared<KrShape>(box())});
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    auto* base = dynamic_cast<KrRenderIntraLink*>(node->getChild(1));
    ASSERT_NE(base, nullptr);
    const KrManipulatorSystemState state = stateOf(translation(0.0, 0.0, 5.0), {osg::PI_2});
    base->updateState(&state);
    EXPECT_EQ(base->getMatrix().getTrans(), osg::Vec3d(0.0, 0.0, 5.0));
    const osg::Matrixd& rodToManipulator = node->getChild(0)->asTransform()->asMatrixTransform()->getMatrix();
    // The arm points along y, and so does the rod's x axis; both stand on the raised base.
    EXPECT_LT(distance(osg::Vec3d(2.0, 0.0, 0.0) * rodToManipulator, osg::Vec3d(0.0, 2.0, 5.0)), 1e-12);
    base->updateState(static_cast<const KrManipulatorSystemState*>(nullptr));
    EXPECT_LT(distance(osg::Vec3d(2.0, 0.0, 0.0) * rodToManipulator, osg::Vec3d(0.0, 2.0, 5.0)), 1e-12);
}

TEST(KrRenderIntraLink, OneWithNothingToDrawIsReportedAndSkipped)
{
    const KrIndividualManipulator robot =
        robotWithRods({nullptr, boost::make_shared<KrShape>(), boost::make_shared<KrShape>(box())});
    MessageRecorder messages;
    const osg::ref_ptr<KrRenderManipulator> node = new KrRenderManipulator(robot, 0);
    EXPECT_EQ(messages.count(), 2u);
    EXPECT_EQ(messages.count(Kr::Print::Warning, "Problem creating intralink node 0\n"), 1u);
    EXPECT_EQ(messages.count(Kr::Print::Warning, "Problem creating intralink node 1\n"), 1u);
    ASSERT_EQ(node->getNumChildren(), 2u);
    EXPECT_EQ(node->getChild(0)->getName(), "IntraLink 2");
    const KrManipulatorSystemState state = stateOf(translation(0.0, 0.0, 5.0), {0.0});
    dynamic_cast<KrRenderIntraLink&>(*node->getChild(1)).updateState(&state);
    EXPECT_FALSE(node->getChild(0)->asTransform()->asMatrixTransform()->getMatrix().isIdentity());
}

TEST(KrRenderIntraLink, WithoutAGroupTheNodesLiveUnattached)
{
    const KrIndividualManipulator robot = robotWithRods({boost::make_shared<KrShape>(box())});
    const osg::ref_ptr<KrRenderIntraLink> base = new KrRenderIntraLink(robot, 0, nullptr);
    EXPECT_EQ(base->getNumChildren(), 1u); // the DH frame
    const KrManipulatorSystemState state = stateOf(translation(0.0, 0.0, 5.0), {0.0});
    base->updateState(&state);
    EXPECT_EQ(base->getMatrix().getTrans(), osg::Vec3d(0.0, 0.0, 5.0));
}
