#include <rendCore/selftest/KrSelfTest.h>

#include <rendCore/aids/KrRenderAxis.h>
#include <rendCore/selftest/private/KrSelfTestRun.h>
#include <rendCore/selftest/private/KrSelfTestScenes.h>
#include <rendCore/window/private/KrContextRestorer.h>

#include <osg/MatrixTransform>

#include <chrono>
#include <exception>

namespace
{

/// Puts back, when it goes, the scale of link axes: every window sets that of its own parameters, for all windows.
class AxisScaleRestorer
{
public:
    AxisScaleRestorer()
        : m_axis(KrRenderAxis::linkAxis(false)->asTransform()->asMatrixTransform())
        , m_matrix(m_axis->getMatrix())
    {
    }
    AxisScaleRestorer(const AxisScaleRestorer&) = delete;
    AxisScaleRestorer& operator=(const AxisScaleRestorer&) = delete;
    ~AxisScaleRestorer() { m_axis->setMatrix(m_matrix); }

private:
    const osg::ref_ptr<osg::MatrixTransform> m_axis;
    const osg::Matrixd m_matrix;
};

/// Draws one scene with everything that is shared put back afterwards; what the scene throws is a finding of it.
KrSelfTest::Result run(const char* name, void (*scene)(KrSelfTestRun&), const std::string& folder,
                       const KrSelfTest::Spoiler& spoiler)
{
    // Made before the run, and so put back after its scene's windows have gone.
    const AxisScaleRestorer axes;
    // Windows of the test leave their contexts current; the caller's comes back.
    const KrContextRestorer context(nullptr);
    // Last, and so the first to go: it gives the messages back to the caller's sink.
    KrSelfTestRun self(name, folder, spoiler);
    try {
        scene(self);
    } catch (const std::exception& error) {
        // No exception leaves a public function: it becomes a finding.
        self.fail("an exception: %s", error.what());
    }
    return self.result();
}

} // namespace

KrSelfTest::Result KrSelfTest::operator()(const std::string& folder, const Spoiler& spoiler) const
{
    // A steady clock: nothing that sets the time of day changes how long a test took.
    const auto start = std::chrono::steady_clock::now();
    Result result;
    try {
        result = run(m_name, m_scene, folder, spoiler);
    } catch (...) {
        // Outside the run even the message of an exception takes memory: what comes here is taken for its lack.
        result.message = "there is not enough memory";
    }
    result.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    return result;
}

const std::vector<KrSelfTest>& KrSelfTest::all()
{
    // The names are an interface: the pictures' files begin with them, and reports are read by them.
    namespace Scenes = KrSelfTestScenes;
    static const std::vector<KrSelfTest> s_all = {
        {"primitives", "six solids: outlines, areas, light and shade", Scenes::primitives},
        {"materials", "emission, diffuse, ambient and specular colours", Scenes::materials},
        {"textures", "a picture on a surface, the right way round", Scenes::textures},
        {"transparency", "translucent surfaces before and behind solids", Scenes::transparency},
        {"selection", "one shape kept, the others faded, and back", Scenes::selection},
        {"links", "the places of two links and a rod for a state", Scenes::links},
        {"axes", "axes of links and bases: place, length, colour", Scenes::axes},
        {"volumes", "a bounding volume, on and off", Scenes::volumes},
        {"mass", "the ellipsoid of a mass: size, place, turn", Scenes::mass},
        {"morph", "link matrices read by a vertex shader", Scenes::morph},
        {"plume", "light through a volume, and around a solid in it", Scenes::plume},
        {"deformation", "a surface that bends and is cut", Scenes::deformation},
        {"marks", "paint on the texture of a shape", Scenes::marks},
        {"orientation", "a lopsided target in every capture", Scenes::orientation},
        {"depth", "known distances in metres", Scenes::depth},
        {"rangemap", "a map of distances from above", Scenes::rangeMap},
        {"stream", "frames of a motion, in order", Scenes::stream},
        {"tiles", "four views of one scene", Scenes::tiles},
        {"overlay", "text on the window, and none in captures", Scenes::overlay},
        {"windows", "two windows side by side, one closed", Scenes::windows},
    };
    return s_all;
}

const KrSelfTest* KrSelfTest::find(const std::string& name)
{
    for (const KrSelfTest& test : all()) {
        // There are twenty: looking through them costs nothing.
        if (name == test.name()) {
            return &test;
        }
    }
    return nullptr;
}
