#include <rendCore/selftest/private/KrSelfTestRun.h>

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/math/KrColor.h>

#include <osg/GL>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

namespace
{

// The background is exactly black. What is this dark besides is how a driver rounds.
constexpr int kLeastLit = 8; // of 255: darker is taken for the black background

// Keys of a data map are made of a prefix and the channel's name; alpha is left to its default, which is opaque.
void setColour(KrDataMap& map, const std::string& prefix, const KrSelfTestRun::Colour& colour)
{
    map.setReal(prefix + "Red", colour[0]);
    map.setReal(prefix + "Green", colour[1]);
    map.setReal(prefix + "Blue", colour[2]);
}

// Messages of the library end in a full stop and a line end; here one becomes a clause of another sentence.
std::string withoutLineEnd(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '.')) {
        text.pop_back();
    }
    return text;
}

} // namespace

KrPovParameters KrSelfTestView::pov() const
{
    KrPovParameters pov;
    pov.setEyepoint(KrVector(0.0, -distance, 0.0));
    pov.setCenterOfInterest(KrVector(0.0, 0.0, 0.0));
    pov.setUp(KrVector(0.0, 0.0, 1.0));
    // The angle whose tangent makes the plane through the origin just `metresHigh` high: right
    // triangle of eye, origin, edge.
    pov.setFieldOfView(2.0 * std::atan(0.5 * metresHigh / distance));
    return pov;
}

KrSelfTestView::Pixel KrSelfTestView::at(const KrVector& point) const
{
    // The eye looks along +y with z upwards, so x and z go into the picture unturned and
    // only the distance scales them.
    const double pixels = scale(point.y());
    return {0.5 * width + pixels * point.x(), 0.5 * height + pixels * point.z()};
}

KrSelfTestRun::KrSelfTestRun(const char* name, const std::string& folder, const KrSelfTest::Spoiler& spoiler)
    : m_name(name)
    , m_folder(folder)
    , m_spoiler(spoiler)
    // A renderer that warns is not well even where its picture is right: the first warning decides the result, and
    // the caller's sink hears nothing of a test.
    , m_previous(Kr::Print::instance()->setSink([this](Kr::Print::Type type, const std::string& text) {
        if (type >= Kr::Print::Warning && m_said.empty()) {
            m_said = withoutLineEnd(text);
        }
    }))
{
}

KrSelfTestRun::~KrSelfTestRun()
{
    // The sink refers to this object: it goes before anything else does.
    Kr::Print::instance()->setSink(std::move(m_previous));
    if (!m_scratchFolder.empty()) {
        std::error_code error;
        std::filesystem::remove_all(m_scratchFolder, error);
    }
}

// Windows of a test are hidden: it runs beside whatever the user has on the screen.
bool KrSelfTestRun::open(KrSGWindow& window, const KrSelfTestView& view)
{
    // Both are settings of a window that is not open yet: a hidden window renders the same pixels.
    window.setHideWindow(true);
    window.setWindowSize(view.width, view.height);
    if (!window.init()) {
        fail("no window can be opened");
        return false;
    }
    // Black, so that what is covered can be counted.
    window.setBackgroundColor(KrColor(0.0, 0.0, 0.0));
    window.setPovParameters(view.pov());
    return true;
}

bool KrSelfTestRun::open(KrRenderWindow& window, const KrStatedSystem& system, const KrSelfTestView& view)
{
    // The system comes last: the window loads it with its first frame, when the context is there.
    if (!open(static_cast<KrSGWindow&>(window), view)) {
        return false;
    }
    window.setStatedSystem(system);
    return true;
}

void KrSelfTestRun::light(KrSGWindow& window, const KrVector& towardsLamp)
{
    KrLight lamp;
    lamp.setPosition(towardsLamp);
    KrLightParameters lamps;
    // This replaces the window's own lamps, so that the shading asked for depends on one direction alone.
    lamps.lights().push_back(lamp);
    window.loadLight(lamps);
}

KrImage KrSelfTestRun::capture(KrSGWindow& window, const char* what, unsigned int flags)
{
    KrImage picture;
    // As late as possible: a spoiler changes what this very frame is drawn with.
    spoilWindow(window);
    if (!window.renderSceneAndCaptureImage(picture, flags) || picture.empty()) {
        fail("%s: no frame can be drawn", what);
        return {};
    }
    // glGetError asks the context that is current, and a callback of the frame may have made another one so.
    window.makeCurrent();
    checkGL(what);
    keep(picture, what);
    return picture;
}

void KrSelfTestRun::keep(KrImage& picture, const char* what)
{
    // Spoiled before it is written, so that the file shows what was judged.
    if (m_spoiler.picture) {
        m_spoiler.picture(picture);
    }
    if (m_folder.empty() || !picture.data()) {
        return;
    }
    // A test that captures the same thing twice writes the same file twice; the later one stays.
    const std::string path = pathOf(what);
    // Captures have the lowest row first, files the highest: the image knows how to write either.
    if (picture.writeFile(path, KrImage::BottomRowFirst)) {
        m_result.pictures.push_back(path);
    } else {
        fail("%s: the picture cannot be written", what);
    }
}

void KrSelfTestRun::spoilWindow(KrSGWindow& window)
{
    if (m_spoiler.window) {
        m_spoiler.window(window);
    }
}

void KrSelfTestRun::spoilDepths(std::vector<float>& depths)
{
    if (m_spoiler.depths) {
        m_spoiler.depths(depths);
    }
}

// One error is enough: what OpenGL has kept besides comes from the same fault as a rule.
bool KrSelfTestRun::checkGL(const char* what)
{
    const GLenum error = glGetError();
    if (error != GL_NO_ERROR) {
        fail("%s: OpenGL reports the error 0x%04x", what, error);
    }
    return error == GL_NO_ERROR;
}

void KrSelfTestRun::fail(const char* format, ...)
{
    // What follows a first fault is mostly its consequence, and would only hide it.
    if (!passed()) {
        return;
    }
    // Longer messages are cut off, which vsnprintf does by itself.
    char text[400];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    m_result.message = text;
    // The warning that came before usually names the cause. It is told here, and so is no
    // finding of its own any more.
    if (!m_said.empty()) {
        m_result.message += " (" + m_said + ")";
        m_said.clear();
    }
}

bool KrSelfTestRun::expect(bool isTrue, const char* what)
{
    if (!isTrue) {
        fail("%s: this is not so", what);
    }
    return isTrue;
}

bool KrSelfTestRun::expectNear(double value, double wanted, double tolerance, const char* what)
{
    // Written so that NaN fails.
    const bool isNear = std::fabs(value - wanted) <= tolerance;
    if (!isNear) {
        fail("%s: %.6g instead of %.6g, which differs by more than %.2g", what, value, wanted, tolerance);
    }
    return isNear;
}

bool KrSelfTestRun::expectColour(const KrImage& picture, KrSelfTestView::Pixel pixel, const Colour& wanted,
                                 double tolerance, const char* what)
{
    if (!picture.data()) {
        return false;
    }
    // A patch and not a pixel: drivers differ by a pixel at edges, and no patch is near one.
    const Colour seen = colourAt(picture, pixel);
    bool isNear = true;
    for (unsigned int k = 0; k < 3; ++k) {
        // Channel by channel: a wrong hue must not be outweighed by the right brightness.
        isNear = isNear && std::fabs(seen[k] - wanted[k]) <= tolerance;
    }
    if (!isNear) {
        fail("%s: at column %.0f, row %.0f from below the colour is %.3f, %.3f, %.3f instead of %.3f, %.3f, %.3f", what,
             pixel.column, pixel.row, seen[0], seen[1], seen[2], wanted[0], wanted[1], wanted[2]);
    }
    return isNear;
}

bool KrSelfTestRun::expectCoverage(const KrImage& picture, double wanted, double tolerance, const char* what)
{
    if (!picture.data()) {
        return false;
    }
    const double seen = coverage(picture);
    // The tolerance is relative: how much an outline's pixels add depends on how large the outline is.
    const bool isNear = std::fabs(seen - wanted) <= tolerance * wanted;
    if (!isNear) {
        fail("%s: %.2f %% of the picture are covered instead of %.2f %%", what, 100.0 * seen, 100.0 * wanted);
    }
    return isNear;
}

bool KrSelfTestRun::expectSame(const KrImage& a, const KrImage& b, const char* what)
{
    if (!a.data() || !b.data()) {
        return false;
    }
    // To the byte: both come from the same driver and the same scene, and what is put back must be back altogether.
    std::size_t different = a.sizeInBytes() != b.sizeInBytes() ? 1 : 0;
    for (std::size_t i = 0; different == 0 && i < a.sizeInBytes(); ++i) {
        different += a.data()[i] != b.data()[i] ? 1 : 0;
    }
    if (different != 0) {
        fail("%s: two pictures that should be equal differ", what);
    }
    return different == 0;
}

KrSelfTestRun::Colour KrSelfTestRun::colourAt(const KrImage& picture, KrSelfTestView::Pixel pixel, unsigned int radius)
{
    Colour sum = {0.0, 0.0, 0.0};
    if (!picture.data() || picture.channels() < 3) {
        // No colour is near this one, so that a picture without channels fails whatever is asked of it.
        return {-1.0, -1.0, -1.0};
    }
    const long r = static_cast<long>(radius);
    const long width = static_cast<long>(picture.width());
    const long height = static_cast<long>(picture.height());
    // Odd pixels are taken to the edge: a wrong reckoning fails by its colour and not by reading beside the picture.
    const long column = std::clamp(static_cast<long>(pixel.column), 0L, width - 1);
    const long row = std::clamp(static_cast<long>(pixel.row), 0L, height - 1);
    double count = 0.0;
    for (long y = std::max(0L, row - r); y <= std::min(height - 1, row + r); ++y) {
        for (long x = std::max(0L, column - r); x <= std::min(width - 1, column + r); ++x) {
            const unsigned char* const p =
                picture.data() + (std::size_t(y) * picture.width() + std::size_t(x)) * picture.channels();
            for (unsigned int k = 0; k < 3; ++k) {
                sum[k] += p[k];
            }
            count += 1.0;
        }
    }
    for (double& channel : sum) {
        // `count` is at least 1: the middle was taken into the picture.
        channel /= 255.0 * count;
    }
    return sum;
}

double KrSelfTestRun::coverage(const KrImage& picture)
{
    std::size_t lit = 0;
    const std::size_t channels = picture.channels();
    // Grey pictures have one channel: the largest one decides, however many there are.
    for (std::size_t i = 0; picture.data() && i + channels <= picture.sizeInBytes(); i += channels) {
        const unsigned char* const p = picture.data() + i;
        lit += *std::max_element(p, p + channels) > kLeastLit ? 1 : 0;
    }
    const double all = double(picture.width()) * picture.height();
    return all > 0.0 ? double(lit) / all : 0.0;
}

std::string KrSelfTestRun::scratchFile(const char* name)
{
    // Made on first use: most tests need none.
    if (m_scratchFolder.empty()) {
        std::error_code error;
        // mkdtemp makes a folder that nobody else has and only this user can read, whatever runs beside it.
        std::string pattern = (std::filesystem::temp_directory_path(error) / "krselftestXXXXXX").string();
        if (error || !mkdtemp(pattern.data())) {
            fail("there is no folder for temporary files");
            // The name alone serves as a path that need not exist: the test goes on to its end with the fault noted.
            return name;
        }
        m_scratchFolder = pattern;
    }
    return m_scratchFolder + "/" + name;
}

KrSelfTest::Result KrSelfTestRun::result()
{
    // Only now: a warning alone is a finding when nothing else was.
    if (passed() && !m_said.empty()) {
        fail("an unexpected message");
    }
    m_result.passed = passed();
    return m_result;
}

std::string KrSelfTestRun::pathOf(const std::string& what) const
{
    std::string name = what;
    // Names of files without spaces can be pasted into any shell.
    std::replace(name.begin(), name.end(), ' ', '-');
    return m_folder + "/" + m_name + "-" + name + ".png";
}

KrDataMap KrSelfTestRun::glow(const Colour& colour)
{
    KrDataMap map;
    // Emission is added whatever the lamps do, so that a patch has just this colour.
    setColour(map, "krEmission", colour);
    return map;
}

boost::shared_ptr<KrBasePhysicalExtent> KrSelfTestRun::place(const boost::shared_ptr<KrBasePhysicalExtent>& extent,
                                                             const KrVector& centre, const char* material)
{
    KrCoordinateSystemTransformation placement;
    placement.setTranslation(centre);
    extent->setPlacement(placement);
    // The name is looked up in the manipulator's map when the shape is built.
    extent->setMaterialName(material);
    return extent;
}

boost::shared_ptr<KrBasePhysicalExtent> KrSelfTestRun::box(const KrVector& size, const KrVector& centre,
                                                           const char* material)
{
    return place(boost::make_shared<KrBoxPhysicalExtent>(size), centre, material);
}

boost::shared_ptr<KrTriPhysicalExtent> KrSelfTestRun::sheet(double x0, double x1, double z0, double z1, double y,
                                                            const KrDataMap& material, unsigned int columns)
{
    KrXmlVectorVector vertices, normals;
    KrXmlVectorType<KrPlanarVector> coordinates;
    KrXmlVectorType<KrTriangle> triangles;
    // One normal for all corners, towards the eye of a KrSelfTestView.
    normals.push_back(KrVector(0.0, -1.0, 0.0));
    for (std::uint32_t i = 0; i <= columns; ++i) {
        const double u = double(i) / columns;
        for (const double v : {0.0, 1.0}) {
            vertices.push_back(KrVector(x0 + u * (x1 - x0), y, z0 + v * (z1 - z0)));
            coordinates.push_back(KrPlanarVector(u, v));
        }
        const std::uint32_t first = 2 * i;
        // Counter-clockwise as the eye sees them: a sheet shows its front.
        const std::uint32_t corners[2][3] = {{first, first + 2, first + 3}, {first, first + 3, first + 1}};
        for (const auto& three : corners) {
            KrTriangle triangle;
            for (unsigned int corner = 0; corner < 3; ++corner) {
                triangle.setCorner(corner, three[corner], 0, three[corner]);
            }
            // The last column of vertices closes the sheet and begins no square.
            if (i < columns) {
                triangles.push_back(triangle);
            }
        }
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("sheet"), triangles));
    const auto mesh = boost::make_shared<KrTriPhysicalExtent>();
    mesh->setMesh(vertices, normals, coordinates, groups);
    // A material of its own: a mesh asks its own map before the manipulator's.
    mesh->setMaterial("sheet", material);
    return mesh;
}

KrIndividualManipulator KrSelfTestRun::robot()
{
    KrIndividualManipulator robot("robot");
    const std::pair<const char*, Colour> looks[] = {{"red", {1.0, 0.0, 0.0}},    {"green", {0.0, 1.0, 0.0}},
                                                    {"blue", {0.0, 0.0, 1.0}},   {"white", {1.0, 1.0, 1.0}},
                                                    {"yellow", {1.0, 1.0, 0.0}}, {"grey", {0.5, 0.5, 0.5}}};
    for (const auto& [name, colour] : looks) {
        // All glow: where a thing is does not depend on how it is lit.
        robot.materialMap().set(std::string(name), glow(colour));
    }
    return robot;
}

KrStatedSystem KrSelfTestRun::systemOf(const KrIndividualManipulator& robot)
{
    KrManipulatorSystem system;
    // A copy: shapes and extents are shared with `robot`, links are not.
    system.manipulators().push_back(robot);
    return KrStatedSystem(system);
}
