#pragma once

#include <toolkit/system/KrJointKinematics.h>
#include <toolkit/system/KrMassProperties.h>
#include <toolkit/system/KrShape.h>
#include <toolkit/xml/KrXmlVectorType.h>

#include <string>
#include <vector>

/// A rigid body of a manipulator: shapes, mass, the joint that moves it against its parent, and child links.
///
/// Its shapes are what is seen of it. Its collision shapes are what stands for it where contacts are reckoned: a link
/// may have any number of them, with or without a visible shape. An extent may be in both lists.
///
/// Links may hang under each other as deep as memory allows: nothing here recurses over them.
class KrManipulatorLink : public KrXmlObjectOf<KrManipulatorLink, KrXmlCompoundType>
{
public:
    /// Without a name, shapes or links under it.
    KrManipulatorLink();
    KrManipulatorLink(const KrManipulatorLink& other);
    KrManipulatorLink(KrManipulatorLink&& other) noexcept;
    KrManipulatorLink& operator=(const KrManipulatorLink& other);
    KrManipulatorLink& operator=(KrManipulatorLink&& other) noexcept;
    ~KrManipulatorLink() override;
    /// Without shapes, mass or children, on a fixed joint.
    explicit KrManipulatorLink(const std::string& name);

    /// By which joints, selections and intra-links know the link; links of a manipulator should differ in it.
    const std::string& name() const { return m_name.value(); }
    void setName(const std::string& name) { m_name = name; }

    /// Missing shapes count.
    unsigned int numShapes() const { return m_shapes.size(); }
    /// Null for a missing shape and for an index that is too high.
    const KrShape* shape(unsigned int i) const;
    /// The first shape; null when there is none.
    const KrShape* shape() const { return shape(0); }
    /// The same shape to share; null as `shape`.
    boost::shared_ptr<KrShape> shapePointer(unsigned int i) const;
    /// Appends a shape (null for a missing one) and numbers it.
    void addShape(const boost::shared_ptr<KrShape>& shape);
    /// Appends a new shape of that extent.
    void addShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent);

    /// The number of collision shapes.
    unsigned int numCollisionShapes() const { return m_collisionShapes.size(); }
    /// Null for a missing shape and for an index that is too high.
    const KrShape* collisionShape(unsigned int i) const;
    /// Appends a shape and numbers it; null is not appended.
    void addCollisionShape(const boost::shared_ptr<KrShape>& shape);
    /// Appends a new shape of that extent.
    void addCollisionShape(const boost::shared_ptr<KrBasePhysicalExtent>& extent);
    /// Becomes the owner of the same shapes as `other` has.
    void shareCollisionShapes(const KrManipulatorLink& other) { m_collisionShapes = other.m_collisionShapes; }

    /// The links that this one carries. Changing the list moves them: what was borrowed from them is gone.
    const KrXmlVectorType<KrManipulatorLink>& childLinks() const { return m_childLinks; }
    KrXmlVectorType<KrManipulatorLink>& childLinks() { return m_childLinks; }
    /// Appends a copy; the reference holds until the next one is appended.
    KrManipulatorLink& addChildLink(const KrManipulatorLink& link);

    /// The joint between the parent link and this one; a base's is fixed.
    const KrJointKinematics& jointKinematics() const { return m_jointKinematics; }
    KrJointKinematics& jointKinematics() { return m_jointKinematics; }
    /// Mass, centre of mass and inertia, in the DH frame.
    const KrMassProperties& massProperties() const { return m_massProperties; }
    KrMassProperties& massProperties() { return m_massProperties; }

    /// Whether the link's shapes bend.
    void deformable(bool& flag) const { flag = m_deformable; }
    void setDeformable(bool flag) { m_deformable = flag; }

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    const KrXmlCompoundType* child(unsigned int i) const override;
    KrXmlCompoundType* appendChild() override;

private:
    /// What a link is apart from those under it.
    void copyBody(const KrManipulatorLink& other);

    KrXmlBasicType<std::string> m_name;
    KrXmlVectorType<KrXmlPointerType<KrShape>> m_shapes;
    KrXmlVectorType<KrXmlPointerType<KrShape>> m_collisionShapes;
    KrJointKinematics m_jointKinematics;
    KrMassProperties m_massProperties;
    KrXmlBasicType<bool> m_deformable = false;
    KrXmlVectorType<KrManipulatorLink> m_childLinks;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrManipulatorLink, KrXmlCompoundType>;
extern template class KrXmlObjectOf<KrXmlVectorType<KrManipulatorLink>, KrXmlObject>;
extern template class KrXmlVectorType<KrManipulatorLink>;
extern template class KrXmlObjectOf<KrXmlVectorType<KrXmlPointerType<KrShape>>, KrXmlObject>;
extern template class KrXmlVectorType<KrXmlPointerType<KrShape>>;
extern template class KrXmlObjectOf<KrXmlPointerType<KrShape>, KrXmlObject>;
extern template class KrXmlPointerType<KrShape>;
