#include <tests/support/MessageRecorder.h>

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrConePhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrEllipsoid.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>
#include <toolkit/math/KrAngle.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <memory>

namespace
{

using Kr::Angle::kPi;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <typename Work>
void forEachTriangle(const KrTriPhysicalExtent& mesh, Work work)
{
    for (const KrTriPhysicalExtent::Group& group : mesh.groups()) {
        for (const KrTriangle& triangle : group.second()) {
            work(triangle);
        }
    }
}

/// By the divergence theorem: positive only for a closed surface that looks outwards.
double volume(const KrTriPhysicalExtent& mesh)
{
    double sum = 0.0;
    forEachTriangle(mesh, [&](const KrTriangle& t) {
        sum += mesh.vertices()[t.vertex(0)].dot(mesh.vertices()[t.vertex(1)].cross(mesh.vertices()[t.vertex(2)])) / 6.0;
    });
    return sum;
}

double area(const KrTriPhysicalExtent& mesh)
{
    double sum = 0.0;
    forEachTriangle(mesh, [&](const KrTriangle& t) {
        const KrVector& a = mesh.vertices()[t.vertex(0)];
        sum += 0.5 * (mesh.vertices()[t.vertex(1)] - a).cross(mesh.vertices()[t.vertex(2)] - a).length();
    });
    return sum;
}

/// Every edge belongs to exactly two triangles, which run along it in opposite directions.
bool isClosed(const KrTriPhysicalExtent& mesh)
{
    std::map<std::pair<std::uint32_t, std::uint32_t>, int> edges;
    forEachTriangle(mesh, [&](const KrTriangle& t) {
        for (unsigned int i = 0; i < 3; ++i) {
            ++edges[{t.vertex(i), t.vertex((i + 1) % 3)}];
        }
    });
    for (const auto& [edge, count] : edges) {
        const auto opposite = edges.find({edge.second, edge.first});
        if (count != 1 || opposite == edges.end() || opposite->second != 1) {
            return false;
        }
    }
    return true;
}

/// The smallest cosine between a corner's normal and its triangle; also checks lengths and texture coordinates.
double worstNormal(const KrTriPhysicalExtent& mesh)
{
    double worst = 1.0;
    forEachTriangle(mesh, [&](const KrTriangle& t) {
        const KrVector& a = mesh.vertices()[t.vertex(0)];
        KrVector flat = (mesh.vertices()[t.vertex(1)] - a).cross(mesh.vertices()[t.vertex(2)] - a);
        EXPECT_GT(flat.normalize(), 0.0);
        for (unsigned int i = 0; i < 3; ++i) {
            const KrVector& normal = mesh.normals()[t.normal(i)];
            EXPECT_NEAR(normal.length(), 1.0, 1e-9);
            worst = std::min(worst, normal.dot(flat));
            const KrPlanarVector& uv = mesh.textureCoordinates()[t.textureCoordinate(i)];
            EXPECT_TRUE(uv.u() >= 0.0 && uv.u() <= 1.0 && uv.v() >= 0.0 && uv.v() <= 1.0 + 1e-12);
        }
    });
    return worst;
}

/// Seen from outside, pictures are not mirrored: u and v turn the same way as the corners.
bool isPictureUpright(const KrTriPhysicalExtent& mesh)
{
    bool ok = true;
    forEachTriangle(mesh, [&](const KrTriangle& t) {
        const auto uv = [&](unsigned int i) { return mesh.textureCoordinates()[t.textureCoordinate(i)]; };
        const double turn =
            (uv(1).u() - uv(0).u()) * (uv(2).v() - uv(0).v()) - (uv(2).u() - uv(0).u()) * (uv(1).v() - uv(0).v());
        ok = ok && turn > 0.0;
    });
    return ok;
}

bool readText(KrXmlObject& object, const std::string& inside)
{
    const std::string name = object.token().name;
    const std::string text = "<" + name + " xmlns=\"" + KrXmlNamespace::core() + "\">" + inside + "</" + name + ">";
    return object.readBuffer(text.data(), text.size(), "test.xml");
}

} // namespace

TEST(KrPrimitiveExtents, AreClosedOutwardSurfacesOfTheRightVolume)
{
    struct Case
    {
        std::shared_ptr<KrBasePhysicalExtent> extent;
        double volume;
        double area;
        double shrink; ///< volume of 32 flat sides (and 16 stacks) against the round one
        double cosine; ///< between normals and triangles: half a segment's angle
    };
    // Regular 32-gon against its circle: 16 sin(pi/16) / pi.
    const double around = 16.0 * std::sin(kPi / 16.0) / kPi;
    const double cone = std::hypot(2.0, 0.75);
    const double ellipsoidArea = 48.882; // Thomsen's approximation for (1, 2, 3), good to 1.1 percent
    const Case cases[] = {
        {std::make_shared<KrBoxPhysicalExtent>(KrVector(1.0, 2.0, 3.0)), 6.0, 22.0, 1.0, 1.0},
        {std::make_shared<KrCylinderPhysicalExtent>(0.5, 2.0), kPi * 0.5, kPi * 2.5, around, std::cos(kPi / 32.0)},
        {std::make_shared<KrConePhysicalExtent>(1.0, 0.25, 2.0), kPi * 2.0 / 3.0 * (1.0 + 0.25 + 0.0625),
         kPi * (1.25 * cone + 1.0 + 0.0625), around, 0.99},
        {std::make_shared<KrConePhysicalExtent>(0.0, 1.0, 3.0), kPi, kPi * (std::sqrt(10.0) + 1.0), around, 0.99},
        {std::make_shared<KrSpherePhysicalExtent>(2.0), kPi * 32.0 / 3.0, kPi * 16.0, 0.985, 0.98},
        {std::make_shared<KrCapsulePhysicalExtent>(1.0, 2.0), kPi * (4.0 / 3.0 + 2.0), kPi * 8.0, 0.99, 0.98},
        {std::make_shared<KrCapsulePhysicalExtent>(1.0, 0.0), kPi * 4.0 / 3.0, kPi * 4.0, 0.985, 0.98},
        {std::make_shared<KrEllipsoidPhysicalExtent>(KrVector(1.0, 2.0, 3.0)), kPi * 8.0, ellipsoidArea, 0.985, 0.95},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.extent->token().name);
        test.extent->setMaterialName("paint");
        const boost::shared_ptr<const KrTriPhysicalExtent> mesh = test.extent->triExtent();
        ASSERT_TRUE(mesh);
        EXPECT_TRUE(isClosed(*mesh));
        EXPECT_NEAR(volume(*mesh) / test.volume, test.shrink, 0.003);
        EXPECT_NEAR(area(*mesh) / test.area, 1.0, 0.02);
        EXPECT_GE(worstNormal(*mesh), test.cosine - 1e-9);
        EXPECT_TRUE(isPictureUpright(*mesh));
        EXPECT_EQ(mesh->numGroupNames(), 1u);
        EXPECT_EQ(mesh->groupName(0), "paint");
        EXPECT_EQ(test.extent->groupName(0), "paint");
        EXPECT_EQ(test.extent->triExtent().get(), mesh.get());
        EXPECT_LE(mesh->numTriangles(), 1100u);
    }
}

TEST(KrPrimitiveExtents, NormalsAreThoseOfTheTrueSurface)
{
    // A cone's normals lean by its slope, also at the tip.
    const boost::shared_ptr<const KrTriPhysicalExtent> cone = KrConePhysicalExtent(1.0, 0.0, 1.0).triExtent();
    std::size_t numSide = 0;
    for (const KrVector& normal : cone->normals()) {
        if (normal != KrVector(0.0, 0.0, -1.0)) {
            EXPECT_NEAR(normal.z(), std::sqrt(0.5), 1e-12);
            ++numSide;
        }
    }
    EXPECT_EQ(numSide, 64u);

    // Gradient of the ellipsoid's equation at each corner.
    const KrVector axes(1.0, 2.0, 3.0);
    const boost::shared_ptr<const KrTriPhysicalExtent> ellipsoid = KrEllipsoidPhysicalExtent(axes).triExtent();
    forEachTriangle(*ellipsoid, [&](const KrTriangle& t) {
        for (unsigned int i = 0; i < 3; ++i) {
            const KrVector& p = ellipsoid->vertices()[t.vertex(i)];
            KrVector gradient(p.x() / 1.0, p.y() / 4.0, p.z() / 9.0);
            gradient.normalize();
            EXPECT_LT((gradient - ellipsoid->normals()[t.normal(i)]).length(), 1e-9);
        }
    });

    // Edges of a cylinder are sharp: normals are level or upright, nothing between.
    const boost::shared_ptr<const KrTriPhysicalExtent> cylinder = KrCylinderPhysicalExtent(1.0, 1.0).triExtent();
    for (const KrVector& normal : cylinder->normals()) {
        EXPECT_TRUE(normal.z() == 0.0 || std::abs(normal.z()) == 1.0);
    }
}

TEST(KrPrimitiveExtents, WithoutSizeHaveNoSurface)
{
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double bad : {0.0, -1.0, kNaN, infinity}) {
        MessageRecorder told;
        EXPECT_FALSE(KrSpherePhysicalExtent(bad).triExtent()) << bad;
        EXPECT_FALSE(KrCylinderPhysicalExtent(bad, 1.0).triExtent()) << bad;
        EXPECT_FALSE(KrCylinderPhysicalExtent(1.0, bad).triExtent()) << bad;
        EXPECT_FALSE(KrCapsulePhysicalExtent(bad, 1.0).triExtent()) << bad;
        EXPECT_FALSE(KrConePhysicalExtent(bad, bad, 1.0).triExtent()) << bad;
        EXPECT_FALSE(KrEllipsoidPhysicalExtent(KrVector(1.0, bad, 1.0)).triExtent()) << bad;
        EXPECT_FALSE(KrBoxPhysicalExtent(KrVector(bad, bad, 1.0)).triExtent()) << bad;
        EXPECT_EQ(told.count(), bad == 0.0 ? 0u : 7u) << "one for each that has no such size";
        EXPECT_EQ(KrBoxPhysicalExtent(KrVector(bad, 1.0, 1.0)).size().x(), 0.0);
    }
    MessageRecorder messages;

    // A plate without thickness is two faces.
    const boost::shared_ptr<const KrTriPhysicalExtent> plate = KrBoxPhysicalExtent(KrVector(2.0, 0.0, 1.0)).triExtent();
    ASSERT_TRUE(plate);
    EXPECT_EQ(plate->numTriangles(), 4u);
    EXPECT_NEAR(area(*plate), 4.0, 1e-12);
    // Sizes at the ends of what numbers can tell.
    EXPECT_EQ(worstNormal(*KrBoxPhysicalExtent(KrVector(1e-100, 1e-100, 1e-100)).triExtent()), 1.0);
    EXPECT_TRUE(KrSpherePhysicalExtent(1e30).triExtent());
    EXPECT_FALSE(KrSpherePhysicalExtent(1e150).triExtent());
    EXPECT_EQ(messages.count(), 1u) << "too far away to be drawn";
    EXPECT_TRUE(KrEllipsoidPhysicalExtent(KrVector(1e-150, 1.0, 1e30)).triExtent());
}

TEST(KrPrimitiveExtents, PlacementMovesTheSurfaceAndMarksTheChange)
{
    KrBoxPhysicalExtent box(KrVector(2.0, 1.0, 1.0));
    EXPECT_FALSE(box.isChanged());
    const boost::shared_ptr<const KrTriPhysicalExtent> before = box.triExtent();

    KrCoordinateSystemTransformation pose;
    pose.setAxisAngle({0.0, 0.0, 1.0}, kPi / 2.0);
    pose.setTranslation({0.0, 0.0, 10.0});
    box.setPlacement(pose);
    EXPECT_TRUE(box.isChanged());
    const boost::shared_ptr<const KrTriPhysicalExtent> after = box.triExtent();
    ASSERT_NE(after.get(), before.get());
    double highest = 0.0;
    double widest = 0.0;
    for (const KrVector& vertex : after->vertices()) {
        highest = std::max(highest, vertex.z());
        widest = std::max(widest, vertex.y());
    }
    EXPECT_NEAR(highest, 10.5, 1e-12);
    EXPECT_NEAR(widest, 1.0, 1e-12);
    EXPECT_NEAR(worstNormal(*after), 1.0, 1e-12);

    // Copies share the surface; assigning is a change.
    const KrBoxPhysicalExtent copy(box);
    EXPECT_EQ(copy.triExtent().get(), after.get());
    EXPECT_FALSE(copy.isChanged());
    KrBoxPhysicalExtent other;
    other.triExtent();
    other = box;
    EXPECT_TRUE(other.isChanged());
    EXPECT_EQ(other.triExtent().get(), after.get());
}

TEST(KrPrimitiveExtents, ComeBackThroughXmlAsTheirOwnClass)
{
    KrCoordinateSystemTransformation pose;
    pose.setRollPitchYaw(0.1, 0.2, 0.3);
    const std::shared_ptr<KrBasePhysicalExtent> extents[] = {
        std::make_shared<KrBoxPhysicalExtent>(KrVector(1.0, 2.0, 3.0)),
        std::make_shared<KrCylinderPhysicalExtent>(0.1, 2.0),
        std::make_shared<KrConePhysicalExtent>(1.0, 0.25, 2.0),
        std::make_shared<KrSpherePhysicalExtent>(0.7),
        std::make_shared<KrCapsulePhysicalExtent>(0.1, 0.2),
        std::make_shared<KrEllipsoidPhysicalExtent>(KrVector(1.0, 2.0, 3.0))};
    for (const auto& extent : extents) {
        extent->setPlacement(pose);
        extent->setMaterialName("m");
        EXPECT_TRUE(extent->selfTest()) << extent->token().name;
        const std::unique_ptr<KrBasePhysicalExtent> made(KrBasePhysicalExtent::newFromToken(extent->token()));
        ASSERT_TRUE(made);
        EXPECT_TRUE(made->assign(*extent));
        EXPECT_TRUE(made->equality(extent.get()));
    }
    EXPECT_EQ(KrBasePhysicalExtent::newFromToken({KrXmlNamespace::core(), "torus"}), nullptr);
    EXPECT_EQ(KrBasePhysicalExtent::newFromToken({KrXmlNamespace::render(), "box"}), nullptr);
}

TEST(KrPrimitiveExtents, ImpossibleSizesAreRefusedWhenRead)
{
    KrSpherePhysicalExtent sphere(3.0);
    KrBoxPhysicalExtent box;
    for (const char* const bad : {"-1", "nan", "inf"}) {
        MessageRecorder messages;
        EXPECT_FALSE(readText(sphere, std::string("<radius>") + bad + "</radius>"));
        EXPECT_NE(messages.only().find("element \"sphere\": radius"), std::string::npos) << messages.only();
    }
    EXPECT_EQ(sphere.radius(), 3.0);
    MessageRecorder messages;
    EXPECT_FALSE(readText(box, "<size>1 1 -1</size>"));
    EXPECT_TRUE(readText(sphere, "<radius>0</radius>"));
    EXPECT_FALSE(sphere.triExtent());
    EXPECT_EQ(messages.count(), 1u);
}

TEST(KrEllipsoid, IsEmptyOrAnExtent)
{
    EXPECT_EQ(KrEllipsoid().physicalExtent(), nullptr);
    KrCoordinateSystemTransformation pose;
    pose.setTranslation({1.0, 0.0, 0.0});
    const KrEllipsoid full(KrVector(1.0, 2.0, 3.0), pose);
    const KrEllipsoid copy = full;
    ASSERT_NE(copy.physicalExtent(), nullptr);
    EXPECT_NE(copy.physicalExtent(), full.physicalExtent());
    EXPECT_EQ(copy.physicalExtent()->placement(), pose);
    EXPECT_EQ(copy.physicalExtent()->triExtent()->numGroupNames(), 1u);
}

TEST(KrGridPhysicalExtent, HoldsWhatFitsAndRefusesTheRest)
{
    KrGridPhysicalExtent grid;
    EXPECT_TRUE(grid.selfTest());
    const std::vector<double> values{1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(grid.setGrid({-1, -1, -1}, {1, 2, 3}, 1, 2, 3, values));
    grid.setDataScale(2.5);
    grid.setInflection({0.1, 0.2, 0.3});
    grid.setLookupTable(KrXmlVectorVector({{0, 0, 0}, {1, 0.5, 0}}));
    EXPECT_TRUE(grid.selfTest());
    EXPECT_FALSE(grid.triExtent());

    const auto fails = [&grid](const KrVector& maximum, unsigned int nx, unsigned int ny, unsigned int nz,
                               const std::vector<double>& data) {
        MessageRecorder messages;
        return !grid.setGrid({-1, -1, -1}, maximum, nx, ny, nz, data) && messages.count() == 1;
    };
    EXPECT_TRUE(fails({1, 2, 3}, 2, 2, 2, values));
    EXPECT_TRUE(fails({1, 2, 3}, 0, 2, 3, {}));
    // Products that wrap around to six, or to nothing.
    EXPECT_TRUE(fails({1, 2, 3}, 0x80000000u, 0x80000000u, 4, {}));
    EXPECT_TRUE(fails({1, 2, 3}, 0xFFFFFFFFu, 0xFFFFFFFFu, 6, values));
    EXPECT_TRUE(fails({1, -2, 3}, 1, 2, 3, values));
    EXPECT_TRUE(fails({1, kNaN, 3}, 1, 2, 3, values));
    EXPECT_TRUE(fails({1, 2, 3}, 1, 2, 3, {1, 2, kNaN, 4, 5, 6}));
    MessageRecorder messages;
    grid.setDataScale(kNaN);
    grid.setLookupTable(KrXmlVectorVector({{0, 2, 0}}));
    EXPECT_EQ(messages.count(), 2u);

    double scale = 0.0;
    KrVector minimum, maximum, dimensions, inflection;
    grid.layout(scale, minimum, maximum, dimensions, inflection);
    EXPECT_EQ(scale, 2.5);
    EXPECT_EQ(maximum, KrVector(1, 2, 3));
    EXPECT_EQ(dimensions, KrVector(1, 2, 3));
    EXPECT_EQ(inflection, KrVector(0.1, 0.2, 0.3));
    EXPECT_EQ(grid.values(), values);
    EXPECT_EQ(grid.lookupTable()[1], KrVector(1, 0.5, 0));
}

TEST(KrGridPhysicalExtent, ReadsTheSameRules)
{
    const std::string corners = "<minimum>0 0 0</minimum><maximum>1 1 1</maximum>";
    KrGridPhysicalExtent grid;
    EXPECT_TRUE(readText(grid, corners + "<cells>2 1 1</cells><values>1 2</values>"));
    for (const char* const bad :
         {"<cells>2 1</cells><values>1 2</values>", "<cells>4294967295 4294967295 4294967295</cells><values>1</values>",
          "<cells>99999999999 1 1</cells><values>1</values>", "<cells>2 1 1</cells><values>1 inf</values>",
          "<cells>2 1 1</cells><values>1 2</values><lookupTable>0 0 7</lookupTable>"}) {
        MessageRecorder messages;
        EXPECT_FALSE(readText(grid, corners + bad)) << bad;
        EXPECT_EQ(messages.count(), 1u);
    }
    EXPECT_EQ(grid.values().size(), 2u);
}
