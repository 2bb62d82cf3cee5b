#pragma once

#include <rendCore/window/KrSGWindow.h>

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/system/KrManipulatorSystemState.h>
#include <toolkit/system/KrShapeStateCacheKey.h>
#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <osg/ref_ptr>

#include <cstdint>
#include <memory>
#include <vector>

class KrMarkTransfer;
class KrRenderManipulator;

/// The window that shows a stated system.
///
/// Give it a system once and then, frame after frame, a state. One window at a time looks at a stated system: the
/// change flags that it resets are the system's own.
class KrRenderWindow : public KrSGWindow
{
public:
    /// Shows nothing before `setStatedSystem`.
    KrRenderWindow();
    ~KrRenderWindow() override;

    using KrSGWindow::loadScene;

    /// Forgets system, state and lights, too: a window that is opened again is empty until the next `setStatedSystem`.
    bool closeWindow() override;
    bool init() override;
    /// Forgets system and state, too.
    void deleteContents() override;
    /// Builds the scene of a new system, poses it, forwards its changes; then as the base class.
    /// @return false when there is no context, or, after one message, no scene
    bool updateScene() override;
    bool selfTest() const override;
    /// As the base class; collision shapes are built when they are shown for the first time.
    void setDisplayMask(unsigned int mask, bool on, bool secondary) override;

    // The order of the virtual operations is part of the interface.
    /// The stated system and then its visualization parameters.
    virtual bool setVisualizableStatedSystem(const KrVisualizableStatedSystem& system);
    /// Shows `system` in place of the one before; lights are dropped. Always true.
    /// @param system  borrowed: lives until another one is set or the window is closed
    virtual bool setStatedSystem(const KrStatedSystem& system);
    virtual bool setStatedSystem(const KrStatedSystem& system, const KrVisualizationParameters& parameters);
    /// Null when there is none.
    virtual const KrStatedSystem* statedSystem() const;
    /// Copies the state; the next frame shows it.
    virtual void setState(const KrManipulatorSystemState& state);
    /// Null before the first state.
    virtual const KrManipulatorSystemState* state() const;
    virtual const std::vector<std::vector<KrCoordinateSystemTransformation>>& vvTrans() const;
    virtual std::vector<std::vector<KrCoordinateSystemTransformation>>& vvTrans();
    virtual void setSystemReady(bool ready);
    virtual bool systemReady() const;
    /// Builds the scene of `system`. False, after one message, for null, when the window is not open, and for links
    /// that lie deeper under each other than this thread's stack lets the scene graph walk.
    virtual bool loadScene(const KrStatedSystem* system);

    /// Element [i][j] of vvTrans; null outside it.
    KrCoordinateSystemTransformation* getGuideTrans(unsigned int i, unsigned int j);

protected:
    bool m_systemReady = false;
    const KrStatedSystem* m_statedSystem = nullptr;
    std::vector<osg::ref_ptr<KrRenderManipulator>> m_renderManipulators;
    std::unique_ptr<KrManipulatorSystemState> m_state;
    std::vector<std::vector<KrCoordinateSystemTransformation>> m_vvTrans;
    KrShapeStateCacheKey m_workKey;

private:
    bool fitsStack(const KrXmlVectorType<KrIndividualManipulator>& manipulators);
    void detachManipulators();
    void buildShownCollisionShapes();
    void tellOfImpossibleBodies();
    void updateDeformations();
    void updateSelection();
    void updateTransparency();
    KrRenderManipulator* renderManipulator(std::uint32_t index) const;
    void collectMarks();

    bool m_isSceneNew = false; ///< built since the last update
    std::unique_ptr<KrMarkTransfer> m_markTransfer;
    /// The scene has all but its collision shapes: nobody has looked at them yet.
    bool m_lacksCollisionShapes = false;
    bool m_isDepthTold = false;
    bool m_areBodiesTold = false;
};
