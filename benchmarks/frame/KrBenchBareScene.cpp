#define GL_GLEXT_PROTOTYPES
#include "KrBenchBareScene.h"

#include <picture/KrLighting.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <map>

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
const KrDataMap& lookOf(const KrTriPhysicalExtent& mesh, unsigned int group, const KrIndividualManipulator& owner)
{
    // Both maps go by the names of the mesh's groups.
    const std::string name = mesh.groupName(group);
    if (const KrDataMap* const own = mesh.materialMap().find(name)) {
        return *own;
    }
    const KrDataMap* const shared = owner.materialMap().find(name);
    return shared ? *shared : KrDataMap::defaultManipColor();
}

} // namespace

KrBenchBareScene::~KrBenchBareScene()
{
    // Buffers belong to the context: without it there is nothing to delete.
    if (m_window.isInitialized() && m_window.makeCurrent()) {
        glDeleteBuffers(static_cast<GLsizei>(m_buffers.size()), m_buffers.data());
    }
    m_window.closeWindow();
}

bool KrBenchBareScene::open(unsigned int width, unsigned int height, const KrStatedSystem& system)
{
    m_window.setHideWindow(true);
    m_window.setWindowSize(width, height);
    if (!m_window.init()) {
        return false;
    }
    m_system = &system;
    for (unsigned int m = 0; m < system.manipulatorSystem().manipulators().size(); ++m) {
        const KrIndividualManipulator& manipulator = system.manipulatorSystem().manipulators()[m];
        // The base by itself: it is no entry of links().
        addBody(m, -1, manipulator, manipulator);
        const std::vector<const KrManipulatorLink*> links = manipulator.links();
        for (std::size_t j = 0; j < links.size(); ++j) {
            addBody(m, static_cast<int>(j), *links[j], manipulator);
        }
    }
    m_uploaded.clear();
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_LIGHTING);
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_NORMAL_ARRAY);
    return true;
}

bool KrBenchBareScene::setSize(unsigned int width, unsigned int height)
{
    return m_window.setWindowSize(width, height) && m_window.makeCurrent();
}

unsigned int KrBenchBareScene::upload(unsigned int target, const void* data, std::size_t size)
{
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(target, buffer);
    glBufferData(target, static_cast<GLsizeiptr>(size), data, GL_STATIC_DRAW);
    m_buffers.push_back(buffer);
    return buffer;
}

std::vector<KrBenchBareScene::Batch> KrBenchBareScene::uploadMesh(const KrTriPhysicalExtent& mesh,
                                                                  const KrIndividualManipulator& owner)
{
    // Corners with the same position and normal are one vertex: the least that the driver can be given.
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> indexOf;
    std::vector<Vertex> vertices;
    std::vector<std::uint32_t> indices;
    std::vector<Batch> batches;
    // One draw call for each material, as in the scene.
    for (unsigned int g = 0; g < mesh.groups().size(); ++g) {
        Batch batch = batchOf(lookOf(mesh, g, owner));
        batch.first = indices.size();
        for (const KrTriangle& triangle : mesh.groups()[g].second()) {
            for (unsigned int k = 0; k < 3; ++k) {
                const auto [place, isNew] = indexOf.try_emplace({triangle.vertex(k), triangle.normal(k)},
                                                                static_cast<std::uint32_t>(vertices.size()));
                if (isNew) {
                    vertices.push_back(
                        vertexOf(mesh.vertices()[triangle.vertex(k)], mesh.normals()[triangle.normal(k)]));
                }
                indices.push_back(place->second);
            }
        }
        batch.count = static_cast<int>(indices.size() - batch.first);
        batches.push_back(batch);
    }
    const unsigned int vertexBuffer = upload(GL_ARRAY_BUFFER, vertices.data(), vertices.size() * sizeof(Vertex));
    const unsigned int indexBuffer =
        upload(GL_ELEMENT_ARRAY_BUFFER, indices.data(), indices.size() * sizeof(std::uint32_t));
    for (Batch& batch : batches) {
        batch.vertexBuffer = vertexBuffer;
        batch.indexBuffer = indexBuffer;
    }
    return batches;
}

KrBenchBareScene::Vertex KrBenchBareScene::vertexOf(const KrVector& p, const KrVector& n)
{
    return {{static_cast<float>(p.x()), static_cast<float>(p.y()), static_cast<float>(p.z()), static_cast<float>(n.x()),
             static_cast<float>(n.y()), static_cast<float>(n.z())}};
}

KrBenchBareScene::Batch KrBenchBareScene::batchOf(const KrDataMap& look)
{
    Batch batch;
    // What lighting multiplies; emission is left out.
    setColor(batch.ambient, look, "Ambient");
    setColor(batch.diffuse, look, "Diffuse");
    setColor(batch.specular, look, "Specular");
    double shininess = 0.0;
    look.real("krShininess", shininess);
    batch.shininess = static_cast<float>(shininess);
    return batch;
}

void KrBenchBareScene::addBody(unsigned int manipulator, int joint, const KrManipulatorLink& link,
                               const KrIndividualManipulator& owner)
{
    Body body{manipulator, joint, m_batches.size(), 0};
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const KrShape* const shape = link.shape(i);
        const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
            shape && shape->physicalExtent() ? shape->physicalExtent()->triExtent() : nullptr;
        if (!mesh) {
            continue;
        }
        // What links share is uploaded once, as the scene does it.
        const auto seen = std::find_if(m_uploaded.begin(), m_uploaded.end(),
                                       [&mesh](const auto& entry) { return entry.first == mesh.get(); });
        if (seen != m_uploaded.end()) {
            m_batches.insert(m_batches.end(), seen->second.begin(), seen->second.end());
            continue;
        }
        const std::vector<Batch> batches = uploadMesh(*mesh, owner);
        m_batches.insert(m_batches.end(), batches.begin(), batches.end());
        m_uploaded.emplace_back(mesh.get(), batches);
    }
    body.numBatches = m_batches.size() - body.firstBatch;
    if (body.numBatches > 0) {
        m_bodies.push_back(body);
    }
}

void KrBenchBareScene::setLights(const KrVisualizationParameters& parameters) const
{
    const auto ambient = static_cast<float>(KrLighting::kAmbient);
    // The light of the scene: from everywhere, on both sides, seen from the eye's place.
    const float everywhere[4] = {ambient, ambient, ambient, 1.0f};
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, everywhere);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, 1);
    glLightModeli(GL_LIGHT_MODEL_LOCAL_VIEWER, 1);
    GLenum number = GL_LIGHT0;
    for (const KrLight& light : parameters.lightParameters().lights()) {
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

void KrBenchBareScene::drawBody(const Body& body) const
{
    unsigned int bound = 0;
    for (std::size_t i = body.firstBatch; i < body.firstBatch + body.numBatches; ++i) {
        const Batch& batch = m_batches[i];
        glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT, batch.ambient);
        glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, batch.diffuse);
        glMaterialfv(GL_FRONT_AND_BACK, GL_SPECULAR, batch.specular);
        glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, batch.shininess);
        // Groups of one mesh share its buffers: what is bound already costs nothing.
        if (batch.vertexBuffer != bound) {
            bound = batch.vertexBuffer;
            glBindBuffer(GL_ARRAY_BUFFER, bound);
            glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, batch.indexBuffer);
            glVertexPointer(3, GL_FLOAT, sizeof(Vertex), nullptr);
            glNormalPointer(GL_FLOAT, sizeof(Vertex), reinterpret_cast<const void*>(3 * sizeof(float)));
        }
        glDrawElements(GL_TRIANGLES, batch.count, GL_UNSIGNED_INT,
                       reinterpret_cast<const void*>(batch.first * sizeof(std::uint32_t)));
    }
}

void KrBenchBareScene::draw(const KrManipulatorSystemState& state, const KrVisualizationParameters& parameters,
                            const osg::Matrixd& projection, const osg::Matrixd& view, Mode mode)
{
    const unsigned int width = m_window.windowWidth();
    const unsigned int height = m_window.windowHeight();
    const KrColor& background = parameters.renderParameters().backgroundColor();
    m_window.makeCurrent();
    glViewport(0, 0, static_cast<GLsizei>(width), static_cast<GLsizei>(height));
    glClearColor(static_cast<float>(background.red()), static_cast<float>(background.green()),
                 static_cast<float>(background.blue()), 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixd(projection.ptr());
    glMatrixMode(GL_MODELVIEW);
    glLoadMatrixd(view.ptr());
    setLights(parameters);

    const KrXmlVectorType<KrIndividualManipulator>& manipulators = m_system->manipulatorSystem().manipulators();
    for (std::size_t b = 0; b < m_bodies.size(); ++b) {
        const Body& body = m_bodies[b];
        const KrIndividualManipulator& manipulator = manipulators[body.manipulator];
        const KrPositionState& position = state.positionStates()[body.manipulator];
        // Bodies of one manipulator follow one another: its poses are computed once.
        if (b == 0 || m_bodies[b - 1].manipulator != body.manipulator) {
            manipulator.linkPoses(position, m_poses);
        }
        // Shapes of these systems hang in link frames: DH frames other than the identity are the base's alone.
        const KrCoordinateSystemTransformation toWorld =
            manipulator.placement() * (body.joint < 0 ? position.baseTransformation() * manipulator.baseDhFrame()
                                                      : m_poses[static_cast<std::size_t>(body.joint)]);
        double matrix[16];
        toWorld.assign16(matrix);
        glPushMatrix();
        // The toolkit's 16 numbers are in the order that OpenGL takes.
        glMultMatrixd(matrix);
        drawBody(body);
        glPopMatrix();
    }
    if (mode != Mode::Render) {
        // Three bytes of colour or four of depth.
        m_pixels.resize(std::size_t(width) * height * 4);
        // Rows without padding, as the scene captures them.
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        const bool isColor = mode == Mode::Color;
        glReadPixels(0, 0, static_cast<GLsizei>(width), static_cast<GLsizei>(height),
                     isColor ? GL_RGB : GL_DEPTH_COMPONENT, isColor ? GL_UNSIGNED_BYTE : GL_UNSIGNED_INT,
                     m_pixels.data());
    }
    m_window.swapBuffers();
    // The frame is over when the driver has drawn it.
    glFinish();
}

double KrBenchBareScene::coverage(const KrColor& background) const
{
    return coverage(m_pixels.data(), std::size_t(m_window.windowWidth()) * m_window.windowHeight(), background);
}

double KrBenchBareScene::coverage(const unsigned char* rgb, std::size_t numPixels, const KrColor& background)
{
    const double channels[3] = {background.red(), background.green(), background.blue()};
    std::size_t drawn = 0;
    for (std::size_t i = 0; i < numPixels; ++i, rgb += 3) {
        bool differs = false;
        for (unsigned int k = 0; k < 3; ++k) {
            // Drivers round by themselves: what differs by more has been drawn on.
            differs = differs || std::abs(rgb[k] - 255.0 * channels[k]) > 1.5;
        }
        drawn += differs ? 1 : 0;
    }
    return static_cast<double>(drawn) / static_cast<double>(numPixels);
}
