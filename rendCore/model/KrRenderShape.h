#pragma once

#include <rendCore/base/KrRenderTypes.h>

#include <toolkit/extent/KrTriangle.h>
#include <toolkit/material/KrMaterialMap.h>
#include <toolkit/xml/KrXmlVectorType.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/ref_ptr>

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <vector>

class KrBasePhysicalExtent;
class KrIndexedMesh;
class KrManipulatorLink;
class KrTriPhysicalExtent;

/// The scene's leaf that draws one shape of a link: one osg::Geometry per triangle group of the extent's mesh form.
///
/// Lives by its scene-graph reference count. Extents are read during the call only.
class KrRenderShape : public osg::Geode
{
public:
    /// Draws `extent`; each group takes its material from the mesh's own materials, else from `materialMap`, else
    /// the default colour. A null extent (after one message) and one without a mesh form leave the shape empty.
    KrRenderShape(const KrBasePhysicalExtent* extent, const KrMaterialMap& materialMap);
    /// Copies the geode; attributes start afresh.
    KrRenderShape(const osg::Geode& other, const osg::CopyOp& copyOp);
    KrRenderShape(const KrRenderShape& other);

    /// A deforming shape for a deformable link, else an ordinary one. The caller takes it into an osg::ref_ptr.
    static KrRenderShape* newKrRenderShape(const KrManipulatorLink& link, const KrBasePhysicalExtent* extent,
                                           const KrMaterialMap& materialMap);

    /// One drawable for one triangle group: vertices and normals per corner, triangle after triangle, colour and state
    /// from `material`. Null for a null mesh; empty, after one message, when a corner's index is out of range.
    static osg::ref_ptr<osg::Geometry> addGroup(const KrTriPhysicalExtent* mesh,
                                                const KrXmlVectorType<KrTriangle>& given, const KrDataMap& material);
    /// A plain geode with every group of `extent` in the toolkit's blue; null without an extent or a mesh form.
    static osg::ref_ptr<osg::Geode> createGeometry(const KrBasePhysicalExtent* extent);

    // The order of the virtual operations is part of the interface.
    /// The bits of KrRenderTypes::Attributes, and operations that set and clear some of them; all are 0 at first.
    virtual unsigned int getAttributes() const;
    virtual void setAttribute(KrRenderTypes::Attributes attribute);
    virtual void clearAttribute(KrRenderTypes::Attributes attribute);
    /// True when any bit of `attribute` is set.
    virtual bool isAttributeSet(KrRenderTypes::Attributes attribute) const;
    /// Follows a changed extent; nothing here.
    virtual void update(KrBasePhysicalExtent* extent);
    /// Takes a new transparency, 1 being opaque; nothing here.
    virtual void updateAlpha(float alpha);

    /// Marks a shape that is a cloud and has no surface: it is in no picture of labels.
    void setVolume() { m_isVolume = true; }

    void traverse(osg::NodeVisitor& visitor) override;

    /// A pointer that owns nothing: keep it as a boost::weak_ptr only, which then expires with the shape.
    boost::shared_ptr<KrRenderShape> getSharedPtr() const;

    /// The mesh that the drawables were made of, for those who draw it from indices: drawable i is group i of it as
    /// long as it is `groupVersion(i)`. With coarser levels if they are asked for. Null for a shape without a mesh, a
    /// copy, and one whose mesh was set anew since.
    std::shared_ptr<const KrIndexedMesh> indexedMesh(bool withLevels) const;
    std::uint64_t groupVersion(unsigned int i) const { return m_groupVersions[i]; }

    /// Checks this object, and draws and judges in windows of its own, see KrSelfTest. False, after one message, when
    /// something is wrong.
    bool selfTest() const;

protected:
    ~KrRenderShape() override;

    /// Adds a drawable for every group of `mesh` that has a name.
    void addGroups(const KrTriPhysicalExtent& mesh, const KrMaterialMap& materialMap);
    /// The number of groups of `mesh` that are drawn.
    static unsigned int numDrawnGroups(const KrTriPhysicalExtent& mesh);
    /// Writes the vertex and the normal of each corner, triangle after triangle: 3 entries per triangle each.
    static void fillCorners(const KrTriPhysicalExtent& mesh, const KrXmlVectorType<KrTriangle>& triangles,
                            osg::Vec3* vertices, osg::Vec3* normals);

private:
    unsigned int m_attributes = 0;
    bool m_isVolume = false;
    boost::shared_ptr<const KrTriPhysicalExtent> m_mesh; ///< that of the groups; null for none
    std::shared_ptr<const KrIndexedMesh> m_indexedMesh;  ///< what it was when the groups were made
    std::vector<std::uint64_t> m_groupVersions;          ///< of the drawables as they were made
    boost::shared_ptr<KrRenderShape> m_self;
};
