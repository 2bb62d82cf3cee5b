#include <tests/support/MessageRecorder.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrConePhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrEllipsoidPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace
{

using System = KrVisualizableStatedSystem;
using Limits = std::numeric_limits<double>;

const std::vector<double> kNumbers = {Limits::quiet_NaN(),
                                      Limits::infinity(),
                                      -Limits::infinity(),
                                      -1.0,
                                      0.0,
                                      -0.0,
                                      Limits::denorm_min(),
                                      1e300,
                                      0.5,
                                      4.0};

boost::shared_ptr<KrDeformationPhysicalExtent> bendable()
{
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back({std::string("skin"), KrXmlVectorType<KrTriangle>({KrTriangle(0, 1, 2)})});
    KrTriPhysicalExtent mesh;
    EXPECT_TRUE(mesh.setMesh(KrXmlVectorVector({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}), {}, {}, groups));
    const auto result = boost::make_shared<KrDeformationPhysicalExtent>();
    result->setMesh(mesh);
    EXPECT_TRUE(result->setPose("bent", {{0, 0, 0}, {1, 0, 1}, {0, 1, 0}}));
    return result;
}

boost::shared_ptr<KrGridPhysicalExtent> field()
{
    const auto grid = boost::make_shared<KrGridPhysicalExtent>();
    EXPECT_TRUE(grid->setGrid(KrVector(), KrVector(1, 1, 1), 2, 1, 1, {1.0, 2.0}));
    return grid;
}

/// A new one each time: extents are held by pointer, a copy would share what a test changes.
System sample()
{
    KrManipulatorSystem manipulators;
    KrIndividualManipulator robot("robot");
    KrManipulatorLink link("link");
    link.jointKinematics().setType(KrJointKinematics::Type::Revolute);
    link.addShape(boost::shared_ptr<KrBasePhysicalExtent>(boost::make_shared<KrSpherePhysicalExtent>(1.0)));
    link.addShape(boost::shared_ptr<KrBasePhysicalExtent>(bendable()));
    link.addShape(boost::shared_ptr<KrBasePhysicalExtent>(field()));
    robot.addChildLink(link);
    manipulators.manipulators().push_back(robot);
    System system;
    system.statedSystem() = KrStatedSystem(manipulators);
    KrLightParameters lights;
    lights.lights().resize(1);
    system.visualizationParameters().setLightParameters(lights);
    return system;
}

KrIndividualManipulator& robot(System& system)
{
    return system.statedSystem().manipulatorSystem().manipulators()[0];
}

KrManipulatorLink& link(System& system)
{
    return robot(system).childLinks()[0];
}

template <typename Extent>
Extent& extent(System& system, unsigned int shape)
{
    return dynamic_cast<Extent&>(*link(system).shape(shape)->mutablePhysicalExtent());
}

KrCoordinateSystemTransformation at(double x)
{
    KrCoordinateSystemTransformation pose;
    pose.setTranslation(KrVector(0.0, x, 0.0));
    return pose;
}

KrCoordinateSystemTransformation scaled(double x)
{
    KrCoordinateSystemTransformation pose;
    pose.setRotation({x, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0});
    return pose;
}

/// Changes a part of the visualization parameters and puts it back.
template <typename Change>
bool pov(System& system, Change change)
{
    KrPovParameters part = system.visualizationParameters().povParameters();
    const bool ok = change(part);
    system.visualizationParameters().setPovParameters(part);
    return ok;
}
template <typename Change>
bool render(System& system, Change change)
{
    KrRenderParameters part = system.visualizationParameters().renderParameters();
    const bool ok = change(part);
    system.visualizationParameters().setRenderParameters(part);
    return ok;
}
template <typename Change>
bool light(System& system, Change change)
{
    KrLightParameters part = system.visualizationParameters().lightParameters();
    const bool ok = change(part.lights()[0]);
    system.visualizationParameters().setLightParameters(part);
    return ok;
}

struct Setter
{
    const char* name;
    std::function<bool(System&, double)> set;
};

/// Every public setter of a number in a system document.
std::vector<Setter> setters()
{
    using Joint = KrJointKinematics;
    const auto joint = [](auto change) {
        return [change](System& s, double x) { return change(link(s).jointKinematics(), x); };
    };
    return {
        {"robot placement", [](System& s, double x) { return robot(s).setPlacement(at(x)); }},
        {"robot placement turned", [](System& s, double x) { return robot(s).setPlacement(scaled(x)); }},
        {"base DH frame", [](System& s, double x) { return robot(s).setBaseDhFrame(at(x)); }},
        {"origin", joint([](Joint& j, double x) { return j.setOrigin(at(x)); })},
        {"offset", joint([](Joint& j, double x) { return j.setOffset(at(x)); })},
        {"DH frame", joint([](Joint& j, double x) { return j.setDhFrame(scaled(x)); })},
        {"axis", joint([](Joint& j, double x) { return j.setAxis(KrVector(x, 0.0, 0.0)); })},
        {"limits", joint([](Joint& j, double x) { return j.setLimits(x, 1.0); })},
        {"velocity", joint([](Joint& j, double x) { return j.setMaximumVelocity(x); })},
        {"effort", joint([](Joint& j, double x) { return j.setMaximumEffort(x); })},
        {"mimic", joint([](Joint& j, double x) { return j.setMimic("other", x, 0.0); })},
        {"mimic offset", joint([](Joint& j, double x) { return j.setMimic("other", 1.0, x); })},
        {"DH", joint([](Joint& j, double x) { return j.setDenavitHartenberg(Joint::Type::Revolute, x, 0, 0, 0); })},
        {"mass", [](System& s, double x) { return link(s).massProperties().setMass(x); }},
        {"centre", [](System& s, double x) { return link(s).massProperties().setCenterOfMass(KrVector(0, x, 0)); }},
        {"inertia",
         [](System& s, double x) {
             return link(s).massProperties().setInertia({1, 1, 1, x, 0, 0});
         }},
        {"extent placement",
         [](System& s, double x) { return extent<KrBasePhysicalExtent>(s, 0).setPlacement(at(x)); }},
        {"weight", [](System& s, double x) { return extent<KrDeformationPhysicalExtent>(s, 1).setWeight(0, x); }},
        {"pose joint",
         [](System& s, double x) { return extent<KrDeformationPhysicalExtent>(s, 1).setPoseJoint(0, "j", x); }},
        {"vertices",
         [](System& s, double x) {
             return extent<KrDeformationPhysicalExtent>(s, 1).setVertices({{x, 0, 0}, {1, 0, 0}, {0, 1, 0}});
         }},
        {"piece",
         [](System& s, double x) { return extent<KrDeformationPhysicalExtent>(s, 1).setPieceOffset(0, at(x)); }},
        {"piece turned",
         [](System& s, double x) { return extent<KrDeformationPhysicalExtent>(s, 1).setPieceOffset(0, scaled(x)); }},
        {"stroke colour",
         [](System& s, double x) {
             return extent<KrDeformationPhysicalExtent>(s, 1).addStroke(
                 KrSurfaceStroke({KrPlanarVector(0.5, 0.5)}, KrColor(x, 0, 0), 0.1));
         }},
        {"transparency", [](System& s, double x) { return s.statedSystem().setTransparency(x); }},
        {"eye", [](System& s, double x) { return pov(s, [x](auto& p) { return p.setEyepoint(KrVector(x, 1, 1)); }); }},
        {"centre of interest",
         [](System& s, double x) { return pov(s, [x](auto& p) { return p.setCenterOfInterest(KrVector(x, 1, 1)); }); }},
        {"up", [](System& s, double x) { return pov(s, [x](auto& p) { return p.setUp(KrVector(0, x, 0)); }); }},
        {"field of view", [](System& s, double x) { return pov(s, [x](auto& p) { return p.setFieldOfView(x); }); }},
        {"view",
         [](System& s, double x) {
             return pov(s, [x](auto& p) { return p.setFromViewTransformationAndDistance(at(x), 2.0); });
         }},
        {"near", [](System& s, double x) { return render(s, [x](auto& p) { return p.setNearClipping(x); }); }},
        {"far", [](System& s, double x) { return render(s, [x](auto& p) { return p.setFarClipping(x); }); }},
        {"background",
         [](System& s, double x) {
             return render(s, [x](auto& p) { return p.setBackgroundColor(KrColor(0, x, 0)); });
         }},
        {"ambient",
         [](System& s, double x) { return light(s, [x](auto& l) { return l.setAmbient(KrColor(x, 0, 0)); }); }},
        {"diffuse",
         [](System& s, double x) { return light(s, [x](auto& l) { return l.setDiffuse(KrColor(0, 0, x)); }); }},
        {"specular",
         [](System& s, double x) { return light(s, [x](auto& l) { return l.setSpecular(KrColor(0, 0, 0, x)); }); }},
        {"position",
         [](System& s, double x) { return light(s, [x](auto& l) { return l.setPosition(KrVector(0, x, 0)); }); }},
        {"direction",
         [](System& s, double x) { return light(s, [x](auto& l) { return l.setDirection(KrVector(0, x, 0)); }); }},
        {"exponent", [](System& s, double x) { return light(s, [x](auto& l) { return l.setSpotExponent(x); }); }},
        {"cut-off", [](System& s, double x) { return light(s, [x](auto& l) { return l.setSpotCutoff(x); }); }},
        {"constant",
         [](System& s, double x) { return light(s, [x](auto& l) { return l.setConstantAttenuation(x); }); }},
        {"linear", [](System& s, double x) { return light(s, [x](auto& l) { return l.setLinearAttenuation(x); }); }},
        {"quadratic",
         [](System& s, double x) { return light(s, [x](auto& l) { return l.setQuadraticAttenuation(x); }); }},
    };
}

/// Setters that tell of a refusal only by their message, and what no setter sees: references to what they hold.
std::vector<Setter> silentOnes()
{
    using Extent = boost::shared_ptr<KrBasePhysicalExtent>;
    return {
        {"material",
         [](System& s, double x) {
             robot(s).materialMap().set(std::string("m"), KrDataMap::material(KrColor(x, 0, 0, x)));
             return true;
         }},
        {"marker",
         [](System& s, double x) {
             KrGUIObjectParameters gui;
             gui.setAxisScale(x);
             s.visualizationParameters().setGUIObjectParameters(gui);
             return true;
         }},
        {"data scale",
         [](System& s, double x) {
             extent<KrGridPhysicalExtent>(s, 2).setDataScale(x);
             return true;
         }},
        {"sphere",
         [](System& s, double x) {
             link(s).addShape(Extent(boost::make_shared<KrSpherePhysicalExtent>(x)));
             return true;
         }},
        {"box",
         [](System& s, double x) {
             link(s).addShape(Extent(boost::make_shared<KrBoxPhysicalExtent>(KrVector(1, x, 1))));
             return true;
         }},
        {"cylinder",
         [](System& s, double x) {
             link(s).addShape(Extent(boost::make_shared<KrCylinderPhysicalExtent>(1, x)));
             return true;
         }},
        {"capsule",
         [](System& s, double x) {
             link(s).addShape(Extent(boost::make_shared<KrCapsulePhysicalExtent>(x, 1)));
             return true;
         }},
        {"cone",
         [](System& s, double x) {
             link(s).addShape(Extent(boost::make_shared<KrConePhysicalExtent>(1, x, 1)));
             return true;
         }},
        {"ellipsoid",
         [](System& s, double x) {
             link(s).addShape(Extent(boost::make_shared<KrEllipsoidPhysicalExtent>(KrVector(1, 1, x))));
             return true;
         }},
        {"intra-link",
         [](System& s, double x) {
             robot(s).intraLinks().addIntraLink(KrIntraLink("", KrVector(x, 0, 0), "link", KrVector()));
             return true;
         }},
    };
}

bool isReadBack(const System& system, std::string& text)
{
    System copy;
    return system.writeBuffer(text) && copy.readBuffer(text.data(), text.size()) && copy == system;
}

} // namespace

TEST(KrWrittenIsRead, WhatASetterTakesAndNothingElse)
{
    for (const Setter& setter : setters()) {
        for (const double number : kNumbers) {
            SCOPED_TRACE(std::string(setter.name) + " " + std::to_string(number));
            MessageRecorder messages;
            System system = sample();
            std::string before;
            ASSERT_TRUE(isReadBack(system, before));
            const bool isTaken = setter.set(system, number);
            EXPECT_EQ(messages.take(), isTaken ? 0u : 1u) << messages.last();
            std::string after;
            // Two planes and two points of view may each be good and not fit each other.
            const bool isWritten = system.writeBuffer(after);
            if (isWritten) {
                EXPECT_TRUE(isReadBack(system, after));
            } else {
                EXPECT_TRUE(isTaken);
                EXPECT_NE(messages.take(), 0u);
                EXPECT_TRUE(messages.last().find("clipping") != std::string::npos ||
                            messages.last().find("centre of interest") != std::string::npos)
                    << messages.last();
            }
            if (!isTaken) {
                EXPECT_EQ(after, before) << "as it was";
            }
            if (std::isnan(number)) {
                EXPECT_FALSE(isTaken);
            }
        }
    }
}

TEST(KrWrittenIsRead, WhateverConstructorsAndReferencesAreGiven)
{
    for (const Setter& setter : silentOnes()) {
        for (const double number : kNumbers) {
            SCOPED_TRACE(std::string(setter.name) + " " + std::to_string(number));
            MessageRecorder messages;
            System system = sample();
            setter.set(system, number);
            std::string text;
            EXPECT_TRUE(isReadBack(system, text));
        }
    }
}

TEST(KrWrittenIsRead, OrIsRefusedByTheNameOfItsElement)
{
    const auto expectRefused = [](const char* element, const std::function<void(System&)>& spoil) {
        MessageRecorder messages;
        System system = sample();
        spoil(system);
        std::string text = "as it was";
        EXPECT_FALSE(system.writeBuffer(text)) << element;
        EXPECT_EQ(text, "as it was");
        EXPECT_EQ(messages.take(), 1u);
        EXPECT_NE(messages.last().find(element), std::string::npos) << messages.last();
    };
    const double nan = Limits::quiet_NaN();
    expectRefused("statedSystem", [](System& s) { robot(s).addChildLink(KrManipulatorLink("more")); });
    MessageRecorder messages;
    KrManipulatorSystemState state = sample().statedSystem().systemState();
    state.positionStates()[0].jointPositions()[0] = nan;
    std::string text;
    EXPECT_FALSE(state.writeBuffer(text));
    EXPECT_EQ(messages.take(), 1u);
    EXPECT_NE(messages.last().find("positionStates/positionState\": the position of joint 0"), std::string::npos)
        << messages.last();
}

TEST(KrWrittenIsRead, WhateverComesTogether)
{
    std::mt19937 random(4711);
    const std::vector<Setter> all = [] {
        std::vector<Setter> list = setters();
        for (const Setter& setter : silentOnes()) {
            list.push_back(setter);
        }
        return list;
    }();
    unsigned int numWritten = 0;
    for (int i = 0; i < 300; ++i) {
        MessageRecorder messages;
        System system = sample();
        for (int k = 0; k < 12; ++k) {
            all[random() % all.size()].set(system, kNumbers[random() % kNumbers.size()]);
        }
        link(system).setName(std::string("n\xFF%\x01", 4) + std::to_string(i));
        messages.take();
        std::string text;
        if (!system.writeBuffer(text)) {
            EXPECT_EQ(messages.take(), 1u) << messages.last();
            continue;
        }
        ++numWritten;
        EXPECT_TRUE(isReadBack(system, text)) << text;
        System copy;
        EXPECT_TRUE(copy.readBuffer(text.data(), text.size()));
        std::string again;
        EXPECT_TRUE(copy.writeBuffer(again));
        EXPECT_EQ(again, text) << "equal systems, equal documents";
    }
    EXPECT_GT(numWritten, 200u);
}
