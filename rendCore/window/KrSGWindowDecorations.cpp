// What a scene window draws besides its scene: lights, overlay text, markers, a picture that fills it.

#include <rendCore/window/KrSGWindow.h>

#include <rendCore/appearance/KrSGTexture.h>
#include <rendCore/window/private/KrScenePlugins.h>

#include <toolkit/foundation/KrPrint.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LightModel>
#include <osg/LightSource>
#include <osg/MatrixTransform>
#include <osgText/Font>
#include <osgText/Text>
#include <osgViewer/Viewer>

#include <cstdint>
#include <mutex>

namespace
{

// Kept: pixels, as the overlay's units are, so that texts are equally high in every window.
constexpr float kOverlayTextSize = 30.0f;

/// Keeps its distance from the window's upper edge.
class OverlayText : public osgText::Text
{
public:
    /// @param x, y  pixels from the upper left corner
    OverlayText(unsigned int x, unsigned int y)
        : m_x(static_cast<float>(x))
        , m_y(static_cast<float>(y))
    {
    }
    /// @param windowHeight  pixels
    void place(unsigned int windowHeight) { setPosition(osg::Vec3(m_x, static_cast<float>(windowHeight) - m_y, 0.0f)); }

protected:
    ~OverlayText() override = default;

private:
    float m_x;
    float m_y;
};

} // namespace

void KrSGWindow::loadLight(const KrLightParameters& lights)
{
    const KrXmlVectorType<KrLight>& list = lights.lights();
    // Kept: the count has 16 bits. `setLights` sees no more lights than that, and of 65536 none.
    const std::uint16_t count = static_cast<std::uint16_t>(list.size());
    // Surplus lights' scene objects stay where they are.
    m_lights.resize(count);
    for (std::uint16_t i = 0; i < count; ++i) {
        // Kept: a light's number is its place in the list, by which `setLights` switches OpenGL's lights.
        m_lights[i].setLightPara(list[i], i);
    }
    m_dirtyFlags |= DirtyLights;
}

void KrSGWindow::setAmbientLight(const KrColor& light)
{
    m_ambientLight = light;
    // A root that a client has put in may have no light model, and keeps what is the driver's then.
    auto* const model = m_sceneRoot ? dynamic_cast<osg::LightModel*>(m_sceneRoot->getOrCreateStateSet()->getAttribute(
                                          osg::StateAttribute::LIGHTMODEL))
                                    : nullptr;
    if (model) {
        model->setAmbientIntensity(osg::Vec4(KrRenderTypes::ec2osg(light)));
    }
}

void KrSGWindow::setLights()
{
    // The point of view that was set last, which the camera takes in the same update.
    const KrVector eye = m_visualizationParameters.povParameters().eyepoint();
    for (KrLightProperties& light : m_lights) {
        // Before `setGL`: headlights have moved when they are applied.
        light.setAtEye(eye.data());
        const osg::ref_ptr<osg::LightSource> source = light.setGL();
        // Kept: only the call that makes a source gives it out, so that it becomes a child of the root once.
        if (source.valid() && m_sceneRoot.valid()) {
            m_sceneRoot->addChild(source);
        }
    }
    if (!m_sceneRoot) {
        return;
    }
    // A light source's own state set reaches only what hangs under it, which is nothing: the root switches the lights.
    // Light 0 is on anyway; it is also the root's own.
    osg::StateSet* const states = m_sceneRoot->getOrCreateStateSet();
    for (unsigned int n = 1; n < KrLightProperties::kNumGLLights; ++n) {
        const bool on = n < m_lights.size() && m_lights[n].isEnabled();
        states->setMode(GL_LIGHT0 + n, on ? osg::StateAttribute::ON : osg::StateAttribute::OFF);
    }
}

void KrSGWindow::setBackgroundColor(const KrColor& color)
{
    // Recorded for a window that opens later, which takes it from there.
    KrWindow::setBackgroundColor(color);
    if (isInitialized() && m_viewer.valid()) {
        m_viewer->getCamera()->setClearColor(osg::Vec4f(KrRenderTypes::ec2osg(color)));
    }
}

void KrSGWindow::setOverlayText(const std::string& text, unsigned int x, unsigned int y, const KrColor& color)
{
    if (!isInitialized() || !m_overlayCamera) {
        return;
    }
    // Fonts, and the shaders that draw them, are read through plugins.
    KrScenePlugins::useAbsoluteFoldersOnly();
    // All texts of a font share its table of state sets, which windows of other threads write to, too.
    static std::mutex s_fontMutex;
    const std::lock_guard<std::mutex> lock(s_fontMutex);
    const osg::ref_ptr<OverlayText> label = new OverlayText(x, y);
    // Without that font the text is drawn in the library's own.
    label->setFont(osgText::readRefFontFile("arialbd.ttf"));
    label->setText(text);
    label->setCharacterSize(kOverlayTextSize, 1.0f);
    label->place(windowHeight());
    label->setColor(osg::Vec4(KrRenderTypes::ec2osg(color)));
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(label);
    m_overlayCamera->addChild(geode);
    m_overlayCamera->getOrCreateStateSet()->setMode(GL_LIGHTING,
                                                    osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
}

void KrSGWindow::placeOverlayTexts()
{
    for (unsigned int i = 0; i < m_overlayCamera->getNumChildren(); ++i) {
        osg::Group* const child = m_overlayCamera->getChild(i)->asGroup();
        for (unsigned int k = 0; child && k < child->getNumChildren(); ++k) {
            if (auto* const text = dynamic_cast<OverlayText*>(child->getChild(k))) {
                text->place(windowHeight());
            }
        }
    }
}

void KrSGWindow::clearAllOverlayText()
{
    if (isInitialized() && m_overlayCamera.valid() && m_overlayCamera->getNumChildren() > 0) {
        m_overlayCamera->removeChildren(0, m_overlayCamera->getNumChildren());
    }
}

void KrSGWindow::setGuiMarkerMatrix(const KrRenderTypes::DisplayAttributes& marker, const osg::Matrixd& matrix)
{
    if (!isInitialized() || !m_coiTransform) {
        return;
    }
    const KrGUIObjectParameters& gui = m_visualizationParameters.GUIObjectParameters();
    osg::MatrixTransform* transform = nullptr;
    // Kept: one of the two exactly; both bits together are refused, since one matrix poses one marker.
    if (marker == KrRenderTypes::GlobalAxisMarker) {
        const double s = gui.globalAxisScale();
        transform = m_globalAxisTransform;
        // Scaled in its own frame, then placed.
        transform->setMatrix(osg::Matrixd::scale(s, s, s) * matrix);
    } else if (marker == KrRenderTypes::CenterOfInterestMarker) {
        const double s = gui.centerOfInterestScale();
        osg::Matrixd scaled = osg::Matrixd::scale(s, s, s);
        // Kept: a sphere has no rotation to show, and who reads this matrix finds scale and place alone.
        scaled.setTrans(matrix.getTrans());
        transform = m_coiTransform;
        transform->setMatrix(scaled);
    } else {
        Kr::Print::instance()->write(Kr::Print::Warning, "Invalid GUI marker\n");
        return;
    }
    transform->dirtyBound();
    // Kept: a marker that is placed is shown, so that clients need no second call.
    setDisplayMask(marker, true, true);
}

bool KrSGWindow::setImageBuffer(const KrImage& image, bool swapBuffers)
{
    if (!image.data()) {
        return false; // Kept: without a word; the answer is all that a client is told.
    }
    if (!demandUsable("KrSGWindow::setImageBuffer")) {
        return false;
    }
    if (image.width() != windowWidth() || image.height() != windowHeight()) {
        // Kept: the window takes the picture's size, so that a pixel of one is a pixel of the other.
        setWindowSize(image.width(), image.height());
    }
    if (!m_viewer && !init()) {
        return false;
    }
    // Shared by all windows of a thread. Its texture object is never replaced: a quad made for an earlier image draws
    // it, too.
    static thread_local KrSGTexture texture;
    texture.loadFromImage(image, KrTextureParameters());
    // Kept: the attribute tells whether the quad was made already, since `createImageQuad` sets it. A window that
    // its client made orthographic gets none.
    if (!(m_viewerAttributes & Orthographic)) {
        createImageQuad(texture);
    } else if (m_imageQuad.valid()) {
        setNode(m_imageQuad); // gone with the contents, maybe
    }
    return renderScene(swapBuffers);
}

void KrSGWindow::createImageQuad(const KrSGTexture& texture)
{
    // Kept: written directly, so that the attributes are not marked for the next update: the root's lighting stays as
    // it was applied last.
    m_viewerAttributes |= Orthographic;
    m_viewerAttributes &= ~std::uint32_t(Lighting);
    KrPovParameters pov;
    pov.setCenterOfInterest(KrVector(0.0, 0.0, 0.0));
    // Kept: clients read this point of view back, though the quad does not take part in it.
    pov.setEyepoint(KrVector(-1.0, 0.0, 0.0));
    pov.setUp(KrVector(0.0, 1.0, 0.0));
    setPovParameters(pov);

    const osg::ref_ptr<osg::Vec3Array> corners = new osg::Vec3Array;
    corners->push_back(osg::Vec3(0.0f, 0.0f, 0.0f));
    corners->push_back(osg::Vec3(1.0f, 0.0f, 0.0f));
    corners->push_back(osg::Vec3(1.0f, 1.0f, 0.0f));
    corners->push_back(osg::Vec3(0.0f, 1.0f, 0.0f));
    const osg::ref_ptr<osg::Geometry> quad = new osg::Geometry;
    quad->setVertexArray(corners);
    // Kept: the same array twice. The corners of the orthographic box are those of the picture, which therefore fills
    // the window.
    quad->setTexCoordArray(0, corners);
    // Without a colour of its own the picture would be multiplied by a material left from before.
    const osg::ref_ptr<osg::Vec4Array> white = new osg::Vec4Array(1);
    white->front().set(1.0f, 1.0f, 1.0f, 1.0f);
    quad->setColorArray(white, osg::Array::BIND_OVERALL);
    quad->addPrimitiveSet(new osg::DrawArrays(GL_QUADS, 0, 4));
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setName("Image Texture Quad");
    geode->addDrawable(quad);
    // Of the texture that all windows share: a new picture needs no new quad.
    geode->setStateSet(texture.getState());

    // Seen from (-1, 0, 0) the quad lies edge-on: it takes no part in the point of view.
    // A transform is a group, which `setNode` hangs under the root.
    const osg::ref_ptr<osg::MatrixTransform> group = new osg::MatrixTransform;
    group->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    group->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    group->addChild(geode);
    m_imageQuad = group;
    setNode(group);
}
