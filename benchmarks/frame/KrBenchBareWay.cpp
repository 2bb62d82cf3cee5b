#define GL_GLEXT_PROTOTYPES
#include "KrBenchBareWay.h"

#include "KrBenchRobot.h"

#include <picture/KrLighting.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <unordered_map>

namespace
{

/// By the keys of the toolkit's materials. A colour that is absent is 0, an opacity 1.
void setColor(float (&out)[4], const KrDataMap& map, const std::string& kind)
{
    static const char* const channels[4] = {"Red", "Green", "Blue", "Alpha"};
    for (unsigned int i = 0; i < 4; ++i) {
        double value = i == 3 ? 1.0 : 0.0;
        map.real("kr" + kind + channels[i], value);
        out[i] = static_cast<float>(value);
    }
}

void copyColor(float (&out)[4], const KrColor& color)
{
    const double channels[4] = {color.red(), color.green(), color.blue(), color.alpha()};
    std::copy(std::begin(channels), std::end(channels), out);
}

/// As the scene finds it: the look of the mesh before that of the robot, then the default.
const KrDataMap& materialOf(const KrTriPhysicalExtent& mesh, unsigned int group, const KrIndividualManipulator& owner)
{
    // Both maps go by the names of the mesh's groups.
    const std::string name = mesh.groupName(group);
    if (const KrDataMap* const own = mesh.materialMap().find(name)) {
        return *own;
    }
    const KrDataMap* const shared = owner.materialMap().find(name);
    return shared ? *shared : KrDataMap::defaultManipColor();
}

void setFloats(float (&out)[3], const KrVector& vector)
{
    out[0] = static_cast<float>(vector.x());
    out[1] = static_cast<float>(vector.y());
    out[2] = static_cast<float>(vector.z());
}

/// Tells the driver a colour of the material, unless it knows.
void setMaterial(GLenum name, const float (&value)[4], float (&known)[4])
{
    if (!std::equal(std::begin(value), std::end(value), std::begin(known))) {
        glMaterialfv(GL_FRONT_AND_BACK, name, value);
        std::copy(std::begin(value), std::end(value), std::begin(known));
    }
}

} // namespace

bool KrBenchBareWay::Vertex::operator==(const Vertex& other) const
{
    // Bitwise: a vertex is shared by corners that are the same in every respect.
    return std::memcmp(this, &other, sizeof *this) == 0;
}

std::size_t KrBenchBareWay::VertexHash::operator()(const Vertex& vertex) const
{
    std::uint32_t words[sizeof vertex / sizeof(std::uint32_t)];
    static_assert(sizeof words == sizeof vertex, "a vertex has no padding");
    std::memcpy(words, &vertex, sizeof vertex);
    std::uint64_t hash = 0;
    for (const std::uint32_t word : words) {
        // By the golden ratio: what differs in a few bits goes far apart.
        hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
        hash ^= hash >> 32;
    }
    return static_cast<std::size_t>(hash);
}

KrBenchBareWay::KrBenchBareWay(const KrBenchTask& task, Calls calls)
    : m_task(task)
    , m_calls(calls)
{
}

KrBenchBareWay::~KrBenchBareWay()
{
    // Names belong to the context: without it there is nothing to delete.
    if (m_window.isInitialized() && m_window.makeCurrent()) {
        for (const Mesh& mesh : m_meshes) {
            glDeleteVertexArrays(1, &mesh.arrays);
        }
        glDeleteBuffers(static_cast<GLsizei>(m_buffers.size()), m_buffers.data());
    }
    m_window.closeWindow();
}

void KrBenchBareWay::open(unsigned int width, unsigned int height)
{
    m_window.setHideWindow(true);
    m_window.setWindowSize(width, height);
    if (!m_window.init()) {
        throw KrBenchFailure("no OpenGL context to draw with");
    }
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = m_task.system.manipulatorSystem().manipulators();
    for (unsigned int m = 0; m < manipulators.size(); ++m) {
        // The base by itself: it is no entry of links().
        addLink(m, -1, manipulators[m], manipulators[m].baseDhFrame());
        const std::vector<const KrManipulatorLink*> links = manipulators[m].links();
        for (std::size_t j = 0; j < links.size(); ++j) {
            addLink(m, static_cast<int>(j), *links[j], links[j]->jointKinematics().dhFrame());
        }
    }
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_LIGHTING);
    if (m_task.cull) {
        glEnable(GL_CULL_FACE);
    }
    if (m_calls == Calls::AMesh) {
        // The only parameters that differ from vertex to vertex.
        glColorMaterial(GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE);
        glEnable(GL_COLOR_MATERIAL);
    }
}

void KrBenchBareWay::setSize(unsigned int width, unsigned int height)
{
    if (!m_window.setWindowSize(width, height) || !m_window.makeCurrent()) {
        throw KrBenchFailure("the window does not take its new size");
    }
    m_isFixedStateSet = false;
}

void KrBenchBareWay::addLink(unsigned int manipulator, int joint, const KrManipulatorLink& link,
                             const KrCoordinateSystemTransformation& dhFrame)
{
    const KrIndividualManipulator& owner = m_task.system.manipulatorSystem().manipulators()[manipulator];
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const KrShape* const shape = link.shape(i);
        const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
            shape && shape->physicalExtent() ? shape->physicalExtent()->triExtent() : nullptr;
        if (mesh) {
            m_bodies.push_back({manipulator, joint, meshOf(*mesh, owner), dhFrame});
        }
    }
}

std::size_t KrBenchBareWay::meshOf(const KrTriPhysicalExtent& source, const KrIndividualManipulator& owner)
{
    // What links share is uploaded once, as the scene does it.
    const auto seen =
        std::find_if(m_meshes.begin(), m_meshes.end(), [&source](const Mesh& mesh) { return mesh.source == &source; });
    const auto place = static_cast<std::size_t>(seen - m_meshes.begin());
    if (seen == m_meshes.end()) {
        m_meshes.push_back(upload(source, owner));
    }
    return place;
}

KrBenchBareWay::Mesh KrBenchBareWay::upload(const KrTriPhysicalExtent& source, const KrIndividualManipulator& owner)
{
    Mesh mesh;
    mesh.source = &source;
    // Corners that are alike are one vertex: the least that the driver can be given.
    std::unordered_map<Vertex, std::uint32_t, VertexHash> indexOf;
    indexOf.reserve(source.numTriangles());
    std::vector<Vertex> vertices;
    std::vector<std::uint32_t> indices;
    indices.reserve(3 * source.numTriangles());
    for (unsigned int g = 0; g < source.groups().size(); ++g) {
        Batch batch;
        batch.offset = indices.size();
        batch.look = lookOf(source, g, owner);
        Vertex vertex = {};
        if (m_calls == Calls::AMesh) {
            std::transform(std::begin(batch.look.diffuse), std::end(batch.look.diffuse), std::begin(vertex.color),
                           [](float channel) { return static_cast<std::uint8_t>(std::lround(255.0f * channel)); });
        }
        for (const KrTriangle& triangle : source.groups()[g].second()) {
            for (unsigned int k = 0; k < 3; ++k) {
                setFloats(vertex.position, source.vertices()[triangle.vertex(k)]);
                setFloats(vertex.normal, source.normals()[triangle.normal(k)]);
                const auto [place, isNew] = indexOf.try_emplace(vertex, static_cast<std::uint32_t>(vertices.size()));
                if (isNew) {
                    vertices.push_back(vertex);
                }
                indices.push_back(place->second);
            }
        }
        batch.count = static_cast<int>(indices.size() - batch.offset);
        if (m_calls == Calls::AGroup || mesh.batches.empty()) {
            mesh.batches.push_back(batch);
        } else {
            mesh.batches.front().count += batch.count;
        }
    }
    uploadBuffers(mesh, vertices, indices);
    return mesh;
}

void KrBenchBareWay::uploadBuffers(Mesh& mesh, const std::vector<Vertex>& vertices,
                                   const std::vector<std::uint32_t>& indices)
{
    glGenVertexArrays(1, &mesh.arrays);
    glBindVertexArray(mesh.arrays);
    m_arrays = mesh.arrays;
    uploadBuffer(GL_ARRAY_BUFFER, vertices.data(), vertices.size() * sizeof(Vertex));
    glVertexPointer(3, GL_FLOAT, sizeof(Vertex), reinterpret_cast<const void*>(offsetof(Vertex, position)));
    glEnableClientState(GL_VERTEX_ARRAY);
    glNormalPointer(GL_FLOAT, sizeof(Vertex), reinterpret_cast<const void*>(offsetof(Vertex, normal)));
    glEnableClientState(GL_NORMAL_ARRAY);
    if (m_calls == Calls::AMesh) {
        glColorPointer(4, GL_UNSIGNED_BYTE, sizeof(Vertex), reinterpret_cast<const void*>(offsetof(Vertex, color)));
        glEnableClientState(GL_COLOR_ARRAY);
    }
    const bool isShort = vertices.size() <= 0x10000;
    mesh.indexType = isShort ? GL_UNSIGNED_SHORT : GL_UNSIGNED_INT;
    if (isShort) {
        const std::vector<std::uint16_t> narrow(indices.begin(), indices.end());
        uploadBuffer(GL_ELEMENT_ARRAY_BUFFER, narrow.data(), narrow.size() * sizeof(std::uint16_t));
    } else {
        uploadBuffer(GL_ELEMENT_ARRAY_BUFFER, indices.data(), indices.size() * sizeof(std::uint32_t));
    }
    for (Batch& batch : mesh.batches) {
        batch.offset *= isShort ? sizeof(std::uint16_t) : sizeof(std::uint32_t);
    }
}

void KrBenchBareWay::uploadBuffer(unsigned int target, const void* data, std::size_t size)
{
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(target, buffer);
    glBufferData(target, static_cast<GLsizeiptr>(size), data, GL_STATIC_DRAW);
    m_buffers.push_back(buffer);
}

KrBenchBareWay::Look KrBenchBareWay::lookOf(const KrTriPhysicalExtent& mesh, unsigned int group,
                                            const KrIndividualManipulator& owner)
{
    const KrDataMap& material = materialOf(mesh, group, owner);
    Look look;
    setColor(look.ambient, material, "Ambient");
    setColor(look.diffuse, material, "Diffuse");
    setColor(look.specular, material, "Specular");
    double shininess = 0.0;
    material.real("krShininess", shininess);
    look.shininess = static_cast<float>(shininess);
    return look;
}

// Light and camera of these tasks stand still: what they need is told once.
void KrBenchBareWay::setFixedState()
{
    const KrColor& background = m_task.parameters.renderParameters().backgroundColor();
    glViewport(0, 0, static_cast<GLsizei>(m_window.windowWidth()), static_cast<GLsizei>(m_window.windowHeight()));
    glClearColor(static_cast<float>(background.red()), static_cast<float>(background.green()),
                 static_cast<float>(background.blue()), 1.0f);
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixd(projection().ptr());
    glMatrixMode(GL_MODELVIEW);
    glLoadMatrixd(view().ptr());
    setLights();
    m_isFixedStateSet = true;
}

void KrBenchBareWay::setLights() const
{
    const auto ambient = static_cast<float>(KrLighting::kAmbient);
    // The light of the scene: from everywhere, on both sides, seen from the eye's place.
    const float everywhere[4] = {ambient, ambient, ambient, 1.0f};
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, everywhere);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, 1);
    glLightModeli(GL_LIGHT_MODEL_LOCAL_VIEWER, 1);
    GLenum number = GL_LIGHT0;
    for (const KrLight& light : m_task.parameters.lightParameters().lights()) {
        float color[4];
        copyColor(color, light.diffuse());
        glLightfv(number, GL_DIFFUSE, color);
        copyColor(color, light.specular());
        glLightfv(number, GL_SPECULAR, color);
        copyColor(color, light.ambient());
        glLightfv(number, GL_AMBIENT, color);
        const KrVector& p = light.position();
        // The last number tells a place (1) from a direction (0).
        const float position[4] = {static_cast<float>(p.x()), static_cast<float>(p.y()), static_cast<float>(p.z()),
                                   light.isPositional() ? 1.0f : 0.0f};
        glLightfv(number, GL_POSITION, position);
        glEnable(number++);
    }
}

void KrBenchBareWay::setLook(const Look& look)
{
    if (m_calls == Calls::AGroup) {
        setMaterial(GL_AMBIENT, look.ambient, m_look.ambient);
        setMaterial(GL_DIFFUSE, look.diffuse, m_look.diffuse);
    }
    setMaterial(GL_SPECULAR, look.specular, m_look.specular);
    if (look.shininess != m_look.shininess) {
        glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, look.shininess);
        m_look.shininess = look.shininess;
    }
}

void KrBenchBareWay::drawMesh(const Mesh& mesh)
{
    if (mesh.arrays != m_arrays) {
        glBindVertexArray(mesh.arrays);
        m_arrays = mesh.arrays;
    }
    for (const Batch& batch : mesh.batches) {
        setLook(batch.look);
        glDrawElements(GL_TRIANGLES, batch.count, mesh.indexType, reinterpret_cast<const void*>(batch.offset));
    }
}

void KrBenchBareWay::draw(unsigned int frame, Mode mode)
{
    m_window.makeCurrent();
    if (!m_isFixedStateSet) {
        setFixedState();
    }
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);

    const osg::Matrixd worldToEye = view();
    const KrManipulatorSystemState& state = m_task.stateOf(frame);
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = m_task.system.manipulatorSystem().manipulators();
    const Body* before = nullptr;
    for (const Body& body : m_bodies) {
        const KrIndividualManipulator& manipulator = manipulators[body.manipulator];
        const KrPositionState& position = state.positionStates()[body.manipulator];
        // Bodies of one manipulator follow one another: its poses are computed once.
        if (before == nullptr || before->manipulator != body.manipulator) {
            manipulator.linkPoses(position, m_poses);
            before = nullptr;
        }
        // Those of one link have one matrix.
        if (before == nullptr || before->joint != body.joint) {
            const KrCoordinateSystemTransformation& pose =
                body.joint < 0 ? position.baseTransformation() : m_poses[static_cast<std::size_t>(body.joint)];
            osg::Matrixd matrix;
            (manipulator.placement() * pose * body.dhFrame).assign16(matrix.ptr());
            matrix.postMult(worldToEye);
            // The numbers are in the order that OpenGL takes.
            glLoadMatrixd(matrix.ptr());
        }
        drawMesh(m_meshes[body.mesh]);
        before = &body;
    }
    if (mode != Mode::Render) {
        readBack(mode);
    }
    m_window.swapBuffers();
    // The frame is over when the driver has drawn it.
    glFinish();
}

void KrBenchBareWay::readBack(Mode mode)
{
    const unsigned int width = m_window.windowWidth();
    const unsigned int height = m_window.windowHeight();
    // Three bytes of colour or four of depth.
    m_pixels.resize(std::size_t(width) * height * 4);
    // Rows without padding, as the scene captures them.
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    const bool isColor = mode == Mode::Color;
    glReadPixels(0, 0, static_cast<GLsizei>(width), static_cast<GLsizei>(height), isColor ? GL_RGB : GL_DEPTH_COMPONENT,
                 isColor ? GL_UNSIGNED_BYTE : GL_UNSIGNED_INT, m_pixels.data());
}

// As the window of the scene makes it of the same parameters, before it fits the depths; the program compares the two.
osg::Matrixd KrBenchBareWay::projection() const
{
    const KrPovParameters& pov = m_task.parameters.povParameters();
    const double near = std::max(0.001, 0.125 * pov.viewingDistance());
    const double far = std::max(2.0 * pov.viewingDistance(), m_task.parameters.renderParameters().farClipping());
    const double top = std::tan(0.5 * pov.fieldOfView()) * near;
    const double right = top * m_window.windowWidth() / m_window.windowHeight();
    return osg::Matrixd::frustum(-right, right, -top, top, near, far);
}

osg::Matrixd KrBenchBareWay::view() const
{
    const KrPovParameters& pov = m_task.parameters.povParameters();
    const auto vec3 = [](const KrVector& v) { return osg::Vec3d(v.x(), v.y(), v.z()); };
    return osg::Matrixd::lookAt(vec3(pov.eyepoint()), vec3(pov.centerOfInterest()), vec3(pov.up()));
}
