#include <tests/support/MessageRecorder.h>

#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/extent/private/KrPrimitiveMesh.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

using Extent = KrDeformationPhysicalExtent;

Extent box(double edge = 2.0)
{
    Extent extent;
    extent.setMesh(*KrPrimitiveMesh::box(KrVector(edge, edge, edge), "skin"));
    return extent;
}

/// Volume of a closed surface; the triangles of `piece` only, as they are seen.
double volume(const Extent& extent, unsigned int piece)
{
    double sixfold = 0.0;
    const KrCoordinateSystemTransformation toOwner = extent.pieceToOwner(piece);
    for (const KrDeformationGroup& group : extent.groups()) {
        for (const KrTriangle& triangle : group.triangles()) {
            KrVector corners[3];
            for (unsigned int i = 0; i < 3; ++i) {
                corners[i] = toOwner.transformPoint(extent.points()[triangle.vertex(i)]);
            }
            sixfold += group.piece() == piece ? corners[0].dot(corners[1].cross(corners[2])) : 0.0;
        }
    }
    return sixfold / 6.0;
}

double area(const KrTriPhysicalExtent& mesh)
{
    double twice = 0.0;
    for (const auto& group : mesh.groups()) {
        for (const KrTriangle& triangle : group.second()) {
            const KrVector& a = mesh.vertices()[triangle.vertex(0)];
            twice += (mesh.vertices()[triangle.vertex(1)] - a).cross(mesh.vertices()[triangle.vertex(2)] - a).length();
        }
    }
    return 0.5 * twice;
}

std::vector<KrVector> sheared(const Extent& extent)
{
    std::vector<KrVector> moved = extent.vertices();
    for (KrVector& vertex : moved) {
        vertex.setX(vertex.x() + 0.5 * vertex.z());
    }
    return moved;
}

KrCoordinateSystemTransformation translation(double x, double y, double z)
{
    KrCoordinateSystemTransformation pose;
    pose.setTranslation(KrVector(x, y, z));
    return pose;
}

} // namespace

TEST(KrDeformationPhysicalExtent, KeepsSharpEdgesOrSmoothsThemAndFollowsACurvedSurface)
{
    const Extent sharp = box();
    for (const KrVector& normal : sharp.normals()) {
        EXPECT_EQ(std::max({std::abs(normal.x()), std::abs(normal.y()), std::abs(normal.z())}), 1.0);
    }
    Extent ball;
    const boost::shared_ptr<KrTriPhysicalExtent> sphere = KrPrimitiveMesh::ellipsoid(KrVector(1.0, 1.0, 1.0), "ball");
    ball.setMesh(*sphere, Extent::Smoothing::Smooth);
    for (const KrDeformationGroup& group : ball.groups()) {
        for (const KrTriangle& triangle : group.triangles()) {
            const KrVector& place = ball.points()[triangle.vertex(0)];
            // Away from the seam, whose vertices may have their neighbours on one side only.
            if (std::abs(place.z()) < 0.9 && place.x() < 0.0) {
                EXPECT_GT(ball.normals()[triangle.normal(0)].dot(place), 0.9999);
            }
        }
    }
}

TEST(KrDeformationPhysicalExtent, BlendsPosesAndTellsEveryOnlookerWhatChanged)
{
    Extent extent = box();
    const Extent::Revision seen = extent.revision();
    EXPECT_EQ(extent.changesSince(seen), Extent::NothingChanged);
    ASSERT_TRUE(extent.setPose("shear", sheared(extent)));
    ASSERT_TRUE(extent.setWeight(extent.poseIndex("shear"), 0.5));
    const KrVector corner = extent.vertices()[0];
    EXPECT_NEAR(extent.points()[0].x(), corner.x() + 0.25 * corner.z(), 1e-12);
    EXPECT_EQ(extent.changesSince(seen), Extent::VerticesMoved);
    extent.recompute();
    extent.setChanged(false);
    EXPECT_EQ(extent.changesSince(seen), Extent::VerticesMoved) << "whoever else was told of it";

    ASSERT_TRUE(extent.cutByPlane(0, KrVector(), KrVector(0.0, 0.0, 3.0)));
    EXPECT_EQ(extent.changesSince(seen), unsigned(Extent::VerticesMoved | Extent::CutChanged));
    const Extent::Revision cut = extent.revision();
    Extent other = box();
    other = extent;
    extent = other;
    EXPECT_EQ(extent.changesSince(cut), unsigned(Extent::VerticesMoved | Extent::CutChanged | Extent::StrokesChanged))
        << "assigned to";
    EXPECT_EQ(Extent(extent).changesSince(extent.revision()),
              unsigned(Extent::VerticesMoved | Extent::CutChanged | Extent::StrokesChanged))
        << "another extent, though its counts may be the same";
}

TEST(KrDeformationPhysicalExtent, APlaneCutsAsSeenAndThePiecesGoOnDeforming)
{
    Extent extent = box();
    extent.setPlacement(translation(0.0, 0.0, 10.0));
    ASSERT_TRUE(extent.setPose("shear", sheared(extent)));
    const double before = area(*extent.triExtent());
    ASSERT_TRUE(extent.cutByPlane(0, KrVector(0.0, 0.0, 10.5), KrVector(0.0, 0.0, 1.0), "inside"));
    ASSERT_EQ(extent.numPieces(), 2u);
    ASSERT_EQ(extent.numGroupNames(), 4u);
    EXPECT_EQ(extent.groupName(1), "skin");
    EXPECT_EQ(extent.groupName(3), "inside");
    EXPECT_NEAR(area(*extent.triExtent()), before + 2.0 * 4.0, 1e-9) << "two caps";

    ASSERT_TRUE(extent.setWeight(0, 1.0));
    ASSERT_TRUE(extent.setPieceOffset(1, translation(5.0, 0.0, 0.0)));
    // A shear keeps the volume; closed pieces have theirs wherever they are.
    EXPECT_NEAR(volume(extent, 0), 6.0, 1e-9);
    EXPECT_NEAR(volume(extent, 1), 2.0, 1e-9);
    for (const KrDeformationGroup& group : extent.groups()) {
        for (const KrTriangle& triangle : group.triangles()) {
            const KrVector& normal = extent.normals()[triangle.normal(0)];
            const double along = group.piece() == 0 ? 1.0 : -1.0;
            EXPECT_TRUE(!group.isCap() || std::abs(normal.z() - along) < 1e-12) << "caps look out of their piece";
            for (unsigned int i = 0; i < 3; ++i) {
                const double z = extent.points()[triangle.vertex(i)].z();
                EXPECT_TRUE(group.piece() == 0 ? z <= 0.5 + 1e-12 : z >= 0.5 - 1e-12);
            }
        }
    }
    // The moved piece, where it is now: its cap is cut with it. The plane stands upright at its middle.
    ASSERT_TRUE(extent.cutByPlane(1, KrVector(5.375, 0.0, 10.75), KrVector(1.0, 0.0, 0.0), "inside"));
    EXPECT_NEAR(volume(extent, 1), 1.0, 1e-9);
    EXPECT_NEAR(volume(extent, 2), 1.0, 1e-9);
}

// A stem below z = 0, 0.2 m wide and 1 m high, under a head, 1 m wide and 1 m high.
TEST(KrDeformationPhysicalExtent, ASurfaceInThePlaneStaysWithItsBody)
{
    KrXmlVectorVector vertices;
    KrXmlVectorType<KrTriangle> triangles;
    const auto addQuad = [&triangles](std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
        triangles.push_back(KrTriangle(a, b, c));
        triangles.push_back(KrTriangle(a, c, d));
    };
    for (const auto& [half, z] :
         {std::pair(0.1, -1.0), std::pair(0.1, 0.0), std::pair(0.5, 0.0), std::pair(0.5, 1.0)}) {
        for (const auto& [x, y] : {std::pair(-1, -1), std::pair(1, -1), std::pair(1, 1), std::pair(-1, 1)}) {
            vertices.push_back(KrVector(half * x, half * y, z));
        }
    }
    addQuad(3, 2, 1, 0);
    addQuad(12, 13, 14, 15);
    for (std::uint32_t i = 0; i < 12; ++i) {
        const std::uint32_t next = i - i % 4 + (i + 1) % 4;
        addQuad(i, next, next + 4, i + 4);
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("body"), triangles));
    KrTriPhysicalExtent mesh;
    ASSERT_TRUE(mesh.setMesh(vertices, KrXmlVectorVector(), KrXmlVectorType<KrPlanarVector>(), groups));
    Extent whole;
    whole.setMesh(mesh);
    for (const double up : {1.0, -1.0}) {
        Extent extent = whole;
        ASSERT_TRUE(extent.cutByPlane(0, KrVector(), KrVector(0.0, 0.0, up), "cap"));
        const unsigned int head = up > 0.0 ? 1 : 0;
        EXPECT_NEAR(volume(extent, head), 1.0, 1e-12);
        EXPECT_NEAR(volume(extent, 1 - head), 0.04, 1e-12);
        // The underside of the head and two sections of the stem, none of it twice.
        EXPECT_NEAR(area(*extent.triExtent()), area(mesh) + 2.0 * 0.04, 1e-12);
        for (const KrDeformationGroup& group : extent.groups()) {
            for (const KrTriangle& triangle : group.triangles()) {
                EXPECT_TRUE(group.piece() == head || std::abs(extent.points()[triangle.vertex(0)].x()) < 0.11);
            }
        }
    }
    MessageRecorder messages;
    for (const double z : {1.0, -1.0}) {
        for (const double up : {1.0, -1.0}) {
            EXPECT_FALSE(whole.cutByPlane(0, KrVector(0.0, 0.0, z), KrVector(0.0, 0.0, up))) << z << " " << up;
        }
    }
    EXPECT_EQ(messages.count(), 4u);
    EXPECT_EQ(whole.numPieces(), 1u);
}

TEST(KrDeformationPhysicalExtent, ACutInterpolatesWhatItSplitsAndOpenSectionsStayOpen)
{
    // A right triangle with the texture coordinates of its corners, cut half way along x.
    KrTriPhysicalExtent mesh;
    KrXmlVectorVector vertices;
    vertices.values() = {KrVector(0, 0, 0), KrVector(2, 0, 0), KrVector(0, 2, 0)};
    KrXmlVectorType<KrPlanarVector> coordinates;
    coordinates.values() = {KrPlanarVector(0, 0), KrPlanarVector(1, 0), KrPlanarVector(0, 1)};
    KrXmlVectorType<KrTriangle> triangles;
    triangles.push_back(KrTriangle(0, 1, 2));
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("sheet"), triangles));
    ASSERT_TRUE(mesh.setMesh(vertices, KrXmlVectorVector(), coordinates, groups));
    Extent extent;
    extent.setMesh(mesh);
    ASSERT_TRUE(extent.cutByPlane(0, KrVector(0.5, 0.0, 0.0), KrVector(1.0, 0.0, 0.0), "cap"));
    EXPECT_EQ(extent.groups().size(), 2u) << "an open sheet has no section to close";
    EXPECT_EQ(extent.points().size(), 5u) << "each crossed edge has one new vertex";
    for (const KrDeformationGroup& group : extent.groups()) {
        for (const KrTriangle& triangle : group.triangles()) {
            for (unsigned int i = 0; i < 3; ++i) {
                const KrPlanarVector& uv = extent.textureCoordinates()[triangle.textureCoordinate(i)];
                EXPECT_NEAR(uv.u(), 0.5 * extent.points()[triangle.vertex(i)].x(), 1e-12);
                EXPECT_NEAR(uv.v(), 0.5 * extent.points()[triangle.vertex(i)].y(), 1e-12);
                EXPECT_NEAR(extent.normals()[triangle.normal(i)].z(), 1.0, 1e-12);
            }
        }
    }
}

TEST(KrDeformationPhysicalExtent, TrianglesAreCutOutAlongTheirEdges)
{
    Extent extent = box();
    ASSERT_TRUE(extent.cutAlongTriangles({3, 0, 3}));
    ASSERT_EQ(extent.groups().size(), 2u);
    EXPECT_EQ(extent.groups()[0].triangles().size(), 10u);
    EXPECT_EQ(extent.groups()[1].piece(), 1u);
    MessageRecorder messages;
    EXPECT_FALSE(extent.cutAlongTriangles({0, 11})) << "of two pieces";
    EXPECT_FALSE(extent.cutAlongTriangles({10, 11})) << "all of one";
    EXPECT_FALSE(extent.cutAlongTriangles({0, 12})) << "one that is not there";
    EXPECT_FALSE(extent.cutAlongTriangles({}));
    EXPECT_EQ(messages.count(), 4u);
    EXPECT_EQ(extent.numPieces(), 2u);
}

TEST(KrDeformationPhysicalExtent, SectionsOfAnyShapeAreClosedAndCutsCanBeUndone)
{
    // A frame: a square bar of 4 x 4 m around a hole of 2 x 2 m, 2 m high. Its section is a square with a hole.
    Extent frame;
    KrTriPhysicalExtent mesh;
    KrXmlVectorVector vertices;
    for (const double half : {2.0, 1.0}) {
        for (const double z : {-1.0, 1.0}) {
            for (const auto& [x, y] : {std::pair(-1, -1), std::pair(1, -1), std::pair(1, 1), std::pair(-1, 1)}) {
                vertices.push_back(KrVector(half * x, half * y, z));
            }
        }
    }
    KrXmlVectorType<KrTriangle> triangles;
    const auto addQuad = [&triangles](std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
        triangles.push_back(KrTriangle(a, b, c));
        triangles.push_back(KrTriangle(a, c, d));
    };
    for (std::uint32_t i = 0; i < 4; ++i) {
        const std::uint32_t j = (i + 1) % 4;
        addQuad(i, j, 4 + j, 4 + i);           // outside
        addQuad(8 + j, 8 + i, 12 + i, 12 + j); // around the hole
        addQuad(4 + i, 4 + j, 12 + j, 12 + i); // top
        addQuad(j, i, 8 + i, 8 + j);           // bottom
    }
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    groups.push_back(KrTriPhysicalExtent::Group(KrXmlBasicType<std::string>("bar"), triangles));
    ASSERT_TRUE(mesh.setMesh(vertices, KrXmlVectorVector(), KrXmlVectorType<KrPlanarVector>(), groups));
    frame.setMesh(mesh);
    const Extent whole = frame;
    ASSERT_NEAR(volume(frame, 0), 24.0, 1e-9);
    ASSERT_TRUE(frame.cutByPlane(0, KrVector(0.0, 0.0, 0.25), KrVector(0.0, 0.0, 1.0), "inside"));
    ASSERT_EQ(frame.groups().size(), 4u) << "closed in spite of the hole";
    EXPECT_NEAR(volume(frame, 0), 15.0, 1e-9);
    EXPECT_NEAR(volume(frame, 1), 9.0, 1e-9);
    // Across the hole: two sections side by side, through the cap as well.
    ASSERT_TRUE(frame.cutByPlane(0, KrVector(0.25, 0.0, 0.0), KrVector(1.0, 0.0, 0.0), "inside"));
    EXPECT_NEAR(volume(frame, 0) + volume(frame, 2), 15.0, 1e-9);

    const Extent::Revision seen = frame.revision();
    frame.clearCuts();
    EXPECT_NE(frame.changesSince(seen) & Extent::CutChanged, 0u);
    EXPECT_TRUE(frame == whole);
    EXPECT_EQ(frame.points().size(), whole.points().size());
}

TEST(KrDeformationPhysicalExtent, ADocumentAsksForCutsByPlanes)
{
    Extent wanted = box();
    std::string text;
    ASSERT_TRUE(wanted.writeBuffer(text));
    ASSERT_TRUE(wanted.cutByPlane(0, KrVector(0.0, 0.0, 0.5), KrVector(0.0, 0.0, 1.0), "inside"));
    ASSERT_TRUE(wanted.cutByPlane(1, KrVector(0.25, 0.0, 0.0), KrVector(1.0, 0.0, 0.0)));
    const auto withCuts = [&text](const std::string& second) {
        std::string document = text;
        const std::size_t end = document.rfind("</");
        const std::string prefix = document.substr(end + 2, document.find("deformation", end) - end - 2);
        const auto tag = [&prefix](const std::string& name, const std::string& content) {
            return "<" + prefix + name + ">" + content + "</" + prefix + name + ">";
        };
        const std::size_t start = document.find("<" + prefix + "cuts");
        const std::size_t close = document.find("/>", start);
        const std::size_t last = document.find("cuts>", start);
        const std::size_t stop = close < last ? close + 2 : document.find("cuts>", last) + 5;
        document.replace(
            start, stop - start,
            tag("cuts", tag("planeCut", tag("point", "0 0 0.5") + tag("normal", "0 0 2") + tag("cap", "inside")) +
                            tag("planeCut", tag("piece", second) + tag("point", "0.25 0 0") + tag("normal", "1 0 0"))));
        return document;
    };
    Extent read;
    const std::string good = withCuts("1");
    ASSERT_TRUE(read.readBuffer(good.data(), good.size()));
    EXPECT_EQ(read.numPieces(), 3u);
    EXPECT_TRUE(read == wanted) << "the same as when cut by a program; nothing waits any more";
    EXPECT_TRUE(read.selfTest());

    MessageRecorder messages;
    const std::string bad = withCuts("7");
    EXPECT_FALSE(read.readBuffer(bad.data(), bad.size()));
    EXPECT_EQ(messages.count(), 1u) << messages.all();
    EXPECT_TRUE(read == wanted);
}

TEST(KrDeformationPhysicalExtent, RefusesWhatDoesNotFit)
{
    Extent extent = box();
    const Extent before = extent;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Extent::Revision seen = extent.revision();
    std::vector<KrVector> vertices = extent.vertices();
    vertices[1].setY(nan);
    MessageRecorder messages;
    EXPECT_FALSE(extent.setVertices(vertices));
    vertices.resize(3);
    EXPECT_FALSE(extent.setPose("short", vertices));
    EXPECT_FALSE(extent.setWeight(0, 1.0));
    EXPECT_FALSE(extent.cutByPlane(1, KrVector(), KrVector(0.0, 0.0, 1.0)));
    EXPECT_FALSE(extent.cutByPlane(0, KrVector(), KrVector()));
    EXPECT_FALSE(extent.cutByPlane(0, KrVector(0.0, 0.0, 1.0), KrVector(0.0, 0.0, 1.0))) << "it touches a face";
    EXPECT_FALSE(extent.setPieceOffset(0, translation(nan, 0.0, 0.0)));
    KrCoordinateSystemTransformation turned;
    turned.setRotation({nan, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0});
    EXPECT_FALSE(extent.setPieceOffset(0, turned));
    EXPECT_EQ(messages.count(), 8u);
    // What single precision makes nothing or infinite of.
    const KrPlanarVector place(0.5, 0.5);
    const KrColor red(1.0, 0.0, 0.0);
    EXPECT_FALSE(extent.addStroke(KrSurfaceStroke({place}, red, 1e-300)));
    EXPECT_FALSE(extent.addStroke(KrSurfaceStroke({place}, red, 1e300)));
    EXPECT_FALSE(extent.addStroke(KrSurfaceStroke({place, KrPlanarVector(0.5, 1e300)}, red, 0.1)));
    EXPECT_FALSE(extent.addStroke(KrSurfaceStroke({place}, KrColor(1.0, nan, 0.0), 0.1)));
    EXPECT_EQ(messages.count(), 12u);
    EXPECT_EQ(extent.changesSince(seen), Extent::NothingChanged);
    EXPECT_TRUE(extent == before);
}

TEST(KrDeformationPhysicalExtent, ComesBackFromAFileCutPosedAndParted)
{
    Extent extent = box();
    ASSERT_TRUE(extent.setPose("shear", sheared(extent)));
    ASSERT_TRUE(extent.setWeight(0, 0.75));
    ASSERT_TRUE(extent.cutByPlane(0, KrVector(0.1, 0.2, 0.3), KrVector(1.0, 2.0, 3.0), "inside"));
    ASSERT_TRUE(extent.setPieceOffset(1, translation(0.0, 0.0, 1.0)));
    EXPECT_TRUE(extent.selfTest());
    std::string text;
    ASSERT_TRUE(extent.writeBuffer(text));
    Extent copy;
    ASSERT_TRUE(copy.readBuffer(text.data(), text.size()));
    EXPECT_TRUE(copy == extent);
    ASSERT_EQ(copy.points().size(), extent.points().size());
    EXPECT_LT((copy.points().back() - extent.points().back()).length(), 1e-12);
    EXPECT_LT((copy.normals().back() - extent.normals().back()).length(), 1e-12);
    const std::unique_ptr<KrBasePhysicalExtent> made(KrBasePhysicalExtent::newFromToken(extent.token()));
    EXPECT_NE(dynamic_cast<Extent*>(made.get()), nullptr);

    // Files that would reach beyond the lists.
    for (const char* const element : {"cutVertices", "pieceOffsets", "cutNormals"}) {
        std::string bad = text;
        const std::size_t start = bad.find('>', bad.find(std::string(element) + ">")) + 1;
        const std::size_t end = bad.find(std::string("</"), bad.find(element, start) - 8);
        bad.replace(start, end - start, "");
        MessageRecorder messages;
        EXPECT_FALSE(copy.readBuffer(bad.data(), bad.size())) << element;
        EXPECT_EQ(messages.count(), 1u) << messages.all();
        EXPECT_TRUE(copy == extent);
    }
}

TEST(KrDeformationPhysicalExtent, AMeshOfItsOwnPiecesKeepsThemWhenCutsAreUndone)
{
    std::string text;
    ASSERT_TRUE(box().writeBuffer(text));
    const std::size_t piece = text.find("piece>0<");
    ASSERT_NE(piece, std::string::npos);
    text.replace(piece, 8, "piece>1<");
    Extent extent;
    {
        MessageRecorder messages;
        EXPECT_FALSE(extent.readBuffer(text.data(), text.size())) << "there is no offset for it";
        EXPECT_EQ(messages.count(), 1u) << messages.all();
    }
    const std::size_t start = text.find('>', text.find("pieceOffsets")) + 1;
    const std::size_t end = text.rfind("</", text.find("pieceOffsets", start));
    text.insert(start, text.substr(start, end - start));
    ASSERT_TRUE(extent.readBuffer(text.data(), text.size()));
    ASSERT_TRUE(extent.cutByPlane(1, KrVector(), KrVector(0.0, 0.0, 1.0)));
    EXPECT_EQ(extent.numPieces(), 3u);
    extent.clearCuts();
    EXPECT_EQ(extent.numPieces(), 2u);
    ASSERT_NE(extent.triExtent(), nullptr);
    EXPECT_NEAR(area(*extent.triExtent()), 24.0, 1e-12);
}
