#include "KrEnduranceScene.h"

#include <import/KrRobotImporter.h>

#include <osg/BoundingSphere>
#include <osg/GL>
#include <osg/Group>

#include <algorithm>
#include <filesystem>

namespace
{

void addKeys(const KrManipulatorLink& link, std::uint32_t manipulator, std::uint32_t joint,
             std::vector<KrShapeStateCacheKey>& keys)
{
    for (std::uint32_t i = 0; i < link.numShapes(); ++i) {
        if (link.shape(i) && link.shape(i)->physicalExtent()) {
            keys.emplace_back(manipulator, joint, i);
        }
    }
}

} // namespace

bool KrEnduranceScene::readSystem()
{
    m_poses.reset();
    if (std::filesystem::path(m_state.system).extension() == ".xml") {
        if (!m_file.readFile(m_state.system)) {
            return false;
        }
    } else {
        KrImportReport report;
        if (!KrRobotImporter::readFile(m_state.system, KrImportOptions(), system(), report)) {
            return false;
        }
        KrLightParameters lamps;
        lamps.lights().resize(1);
        lamps.lights()[0].setAtEye(true);
        lamps.lights()[0].setPositional(true);
        m_file.visualizationParameters().setLightParameters(lamps);
    }
    m_poses = std::make_unique<KrPoseDriver>(system().manipulatorSystem());
    for (const KrShapeStateCacheKey& key : m_poses->shapes()) {
        system().addChangedShape(key);
    }
    return true;
}

bool KrEnduranceScene::open(const KrEnduranceState& state)
{
    m_state = state;
    m_state.positions = state.builtPositions;
    if (!readSystem() || !reopen()) {
        return false;
    }
    m_state.positions = state.positions;
    applyPose();
    return true;
}

bool KrEnduranceScene::load(const std::string& name)
{
    // The window looks at the old system until it gets the new one.
    m_window->deleteContents();
    m_state.system = name;
    m_state.positions.clear();
    m_state.selected.clear();
    m_state.fade = -1.0;
    if (!readSystem()) {
        return false;
    }
    applyAll();
    return true;
}

void KrEnduranceScene::reload()
{
    system().setSelectionChanged(true);
    system().setTransparencyChanged(m_state.fade >= 0.0);
    applyAll();
}

bool KrEnduranceScene::reopen()
{
    m_window->setHideWindow(true);
    m_window->setWindowSize(m_state.width, m_state.height);
    if (!m_window->init()) {
        return false;
    }
    // Kept: of a window's switches a new root does not see that smooth shading and culling are off before they were on.
    // `show` applies these first, in the fresh process as well, whose picture has to be the same byte for byte.
    m_window->setViewerAttribute(KrEnduranceState().attributes, true);
    system().setSelectionChanged(true);
    system().setTransparencyChanged(m_state.fade >= 0.0);
    applyAll();
    return true;
}

void KrEnduranceScene::applyAll()
{
    applyTarget();
    applyPose();
    m_state.builtPositions = m_state.positions;
    show();
    applySize();
    applyLook();
    applyCamera();
    applyPose();
    applySelection();
}

void KrEnduranceScene::show()
{
    m_window->setStatedSystem(system(), m_file.visualizationParameters());
    const osg::BoundingSphere bound = m_window->getNode()->getBound();
    m_radius = bound.valid() && bound.radius() > 0.0f ? double(bound.radius()) : 1.0;
    m_middle = KrVector(bound.center().x(), bound.center().y(), bound.center().z());
}

void KrEnduranceScene::applySize()
{
    m_window->setWindowSize(m_state.width, m_state.height);
}

void KrEnduranceScene::applyLook()
{
    m_window->setViewerAttribute(~m_state.attributes & 0x7fu, false);
    m_window->setViewerAttribute(m_state.attributes & 0x7fu, true);
    m_window->setDisplayMask(~m_state.displayMask, false, false);
    m_window->setDisplayMask(m_state.displayMask, true, false);
    for (const auto marker : {KrRenderTypes::GlobalAxisMarker, KrRenderTypes::CenterOfInterestMarker}) {
        if ((m_state.secondaryMask & marker) != 0) {
            m_window->setGuiMarkerMatrix(marker, osg::Matrixd());
        } else {
            m_window->setDisplayMask(marker, false, true);
        }
    }
    m_window->setBackgroundColor(KrColor(m_state.background[0], m_state.background[1], m_state.background[2]));
}

void KrEnduranceScene::applyCamera()
{
    KrPovParameters pov;
    pov.setEyepoint(m_state.eye);
    pov.setCenterOfInterest(m_state.centre);
    pov.setFieldOfView(m_state.fieldOfView);
    m_window->setPovParameters(pov);
}

void KrEnduranceScene::applyPose()
{
    KrManipulatorSystemState state = system().systemState();
    for (unsigned int m = 0; m < m_state.positions.size() && m < state.positionStates().size(); ++m) {
        for (unsigned int j = 0; j < m_state.positions[m].size(); ++j) {
            state.positionStates()[m].jointPositions()[j] = m_state.positions[m][j];
        }
    }
    system().setSystemState(state);
    m_poses->drive(state);
    m_window->setState(state);
}

void KrEnduranceScene::applySelection()
{
    if (m_state.fade >= 0.0) {
        system().setTransparency(m_state.fade);
    }
    system().clearSelection();
    for (const KrShapeStateCacheKey& key : m_state.selected) {
        system().selectShape(key);
    }
}

KrEnduranceScene::Bytes KrEnduranceScene::picture()
{
    Bytes bytes;
    for (const unsigned int flags : {KrSGWindow::CaptureColor, KrSGWindow::CaptureDepth}) {
        KrImage image;
        if (!m_window->renderSceneAndCaptureImage(image, flags) || !m_window->makeCurrent() ||
            glGetError() != GL_NO_ERROR) {
            return {};
        }
        bytes.insert(bytes.end(), image.data(), image.data() + image.sizeInBytes());
    }
    return bytes;
}

std::vector<KrShapeStateCacheKey> KrEnduranceScene::shapes() const
{
    std::vector<KrShapeStateCacheKey> keys;
    const auto& manipulators = m_file.statedSystem().manipulatorSystem().manipulators();
    for (std::uint32_t m = 0; m < manipulators.size(); ++m) {
        addKeys(manipulators[m], m, KrShapeStateCacheKey::kBaseLink, keys);
        const std::vector<const KrManipulatorLink*> links = manipulators[m].links();
        for (std::uint32_t j = 0; j < links.size(); ++j) {
            addKeys(*links[j], m, j, keys);
        }
    }
    return keys;
}
