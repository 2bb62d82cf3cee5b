#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>
#include <toolkit/xml/KrXmlVectorType.h>

/// Where a manipulator is: its base and its joints.
class KrPositionState : public KrXmlObjectOf<KrPositionState, KrXmlCompoundType>
{
public:
    /// The base at the origin, without joints.
    KrPositionState();
    KrPositionState(const KrPositionState& other);
    KrPositionState(KrPositionState&& other) noexcept;
    KrPositionState& operator=(const KrPositionState& other);
    KrPositionState& operator=(KrPositionState&& other) noexcept;
    ~KrPositionState() override;

    using JointPositions = KrXmlVectorType<KrXmlBasicType<double>>;

    /// Base link frame to manipulator frame (the manipulator's placement stands above it).
    const KrCoordinateSystemTransformation& baseTransformation() const { return m_base; }
    /// False, after one message, and no change for what is no pose.
    bool setBaseTransformation(const KrCoordinateSystemTransformation& base);
    /// One for every link but the base, in depth-first pre-order (fixed joints have one, too); rad or m.
    const JointPositions& jointPositions() const { return m_jointPositions; }
    JointPositions& jointPositions() { return m_jointPositions; }

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    KrCoordinateSystemTransformation m_base;
    JointPositions m_jointPositions;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrPositionState, KrXmlCompoundType>;
extern template class KrXmlObjectOf<KrXmlVectorType<KrPositionState>, KrXmlObject>;
extern template class KrXmlVectorType<KrPositionState>;
extern template class KrXmlObjectOf<KrXmlVectorType<KrXmlBasicType<double>>, KrXmlObject>;
extern template class KrXmlVectorType<KrXmlBasicType<double>>;
