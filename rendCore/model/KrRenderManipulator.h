#pragma once

#include <rendCore/model/KrRenderLink.h>

#include <toolkit/system/KrIndividualManipulator.h>
#include <toolkit/system/KrShape.h>

#include <osg/MatrixTransform>

#include <memory>

class KrDrawPlan;
class KrPartNumbers;
class KrShapeTable;

/// The scene node of one manipulator: places it in the world and holds the tree of its link nodes.
///
/// Its matrix (manipulator frame in the world frame) is set once; motion is the link nodes'. Scene thread only.
class KrRenderManipulator : public osg::MatrixTransform
{
public:
    using ShapeMap = KrRenderLink::ShapeMap;

    /// Builds the whole tree.
    /// @param manipulator  borrowed for the node's life
    KrRenderManipulator(const KrIndividualManipulator& manipulator, unsigned int manIndex);

    // The order of the virtual operations is part of the interface.
    /// Lets the shape of that key follow its changed extent and tells the extent that it was seen.
    /// An unknown key, a null shape and one without an extent are ignored, here and below.
    virtual void updateDeformation(unsigned int jointIndex, unsigned int shapeIndex, const KrShape* shape);
    /// @param alpha  opacity in [0, 1]
    virtual void updateTransparency(unsigned int jointIndex, unsigned int shapeIndex, const KrShape* shape,
                                    float alpha);
    /// Every shape of the manipulator by (joint index, shape index); a shared one stands under its first owner only.
    virtual const ShapeMap& getMap() const;
    virtual const KrIndividualManipulator* getManipulator() const;
    /// Builds the link nodes below `parent`, numbering them in depth-first pre-order. Nothing for null.
    virtual void processChildren(KrRenderLink* parent);

    /// Which manipulator of the system this is.
    unsigned int getManipulatorIndex() const { return m_manIndex; }
    /// Link nodes without the base.
    unsigned int getNumTotalLinks() const { return m_numTotalLinks; }

    /// Draws the manipulator the short way, see KrDrawPlan, with the shapes of a table that others share.
    void setShapeTable(const osg::ref_ptr<KrShapeTable>& table);

    /// Which labels its parts have in a picture of labels; without any, none is drawn there.
    void setNumbers(const KrPartNumbers& numbers);
    const KrPartNumbers& numbers() const { return *m_numbers; }

    /// Until `renewBound` the bounding sphere is the one that was asked for last, wherever the links go meanwhile.
    void keepBound();
    void renewBound();

    void accept(osg::NodeVisitor& visitor) override;
    void traverse(osg::NodeVisitor& visitor) override;
    void resizeGLObjectBuffers(unsigned int maxSize) override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

    /// Checks this object, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

protected:
    ~KrRenderManipulator() override;

private:
    /// The node of the next joint index.
    osg::ref_ptr<KrRenderLink> makeLink(const KrManipulatorLink& link);
    /// Null when there is none.
    KrRenderShape* renderShape(unsigned int jointIndex, unsigned int shapeIndex) const;

    unsigned int m_numTotalLinks = 0; ///< the joint index to hand out next
    unsigned int m_manIndex;
    const KrIndividualManipulator* m_manipulator;
    ShapeMap m_map;
    std::shared_ptr<KrDrawPlan> m_plan; ///< null: the scene graph does it all
    std::unique_ptr<KrPartNumbers> m_numbers;
    bool m_isBoundKept = false;
};
