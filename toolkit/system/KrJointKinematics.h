#pragma once

#include <toolkit/math/KrCoordinateSystemTransformation.h>
#include <toolkit/math/KrXmlVector.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

#include <string>

/// How a link moves against its parent: one joint with at most one degree of freedom.
///
/// Link frame to parent link frame is `origin * motion(q) * offset`, where motion turns about (or slides along) the
/// axis. The DH frame is fixed in the link frame and carries the link's shapes and mass properties.
class KrJointKinematics : public KrXmlObjectOf<KrJointKinematics, KrXmlCompoundType>
{
public:
    /// A fixed joint at the origin of the parent link, its axis z.
    KrJointKinematics();
    KrJointKinematics(const KrJointKinematics& other);
    KrJointKinematics(KrJointKinematics&& other) noexcept;
    KrJointKinematics& operator=(const KrJointKinematics& other);
    KrJointKinematics& operator=(KrJointKinematics&& other) noexcept;
    ~KrJointKinematics() override;

    enum class Type
    {
        Fixed,
        Revolute,   ///< rad, within limits
        Continuous, ///< rad, without limits
        Prismatic   ///< m, within limits
    };

    /// By which states, trajectories and mimics know the joint.
    const std::string& name() const { return m_name.value(); }
    void setName(const std::string& name) { m_name = name; }

    /// How the joint moves.
    Type type() const;
    /// "fixed", "revolute", "continuous" or "prismatic", as files have it.
    static const char* typeName(Type type);
    void setType(Type type);
    bool isMovable() const { return type() != Type::Fixed; }

    /// Joint frame to parent link frame, at position 0.
    const KrCoordinateSystemTransformation& origin() const { return m_origin; }
    /// Setters of poses and numbers are false, after one message and without a change, for what is no pose and not
    /// finite.
    bool setOrigin(const KrCoordinateSystemTransformation& origin);
    /// In the joint frame; unit length. False, after one message, and no change for a vector without direction.
    bool setAxis(const KrVector& axis);
    const KrVector& axis() const { return m_axis; }
    /// Link frame to moved joint frame. The identity, but for DH parameters.
    const KrCoordinateSystemTransformation& offset() const { return m_offset; }
    bool setOffset(const KrCoordinateSystemTransformation& offset);
    /// DH frame to link frame, whatever the joint does. The identity by default.
    const KrCoordinateSystemTransformation& dhFrame() const { return m_dhFrame; }
    bool setDhFrame(const KrCoordinateSystemTransformation& frame);

    /// Standard Denavit-Hartenberg parameters: link to parent = Rz(theta) Tz(d) Tx(a) Rx(alpha), where a revolute or
    /// continuous joint adds its position to theta and a prismatic one to d. Sets origin, axis and offset.
    bool setDenavitHartenberg(Type type, double theta, double d, double a, double alpha);

    /// Positions of the other types are not limited; the numbers then mean nothing.
    bool hasLimits() const { return type() == Type::Revolute || type() == Type::Prismatic; }
    double lowerLimit() const { return m_lowerLimit; }
    double upperLimit() const { return m_upperLimit; }
    /// rad or m; false, after one message, and no change when no finite position lies between them.
    bool setLimits(double lower, double upper);
    double maximumVelocity() const { return m_maximumVelocity; } ///< rad/s or m/s; 0 when not given
    bool setMaximumVelocity(double velocity);                    ///< may be infinite
    double maximumEffort() const { return m_maximumEffort; }     ///< N m or N; 0 when not given
    bool setMaximumEffort(double effort);                        ///< may be infinite

    /// A joint that follows another one: position = multiplier * master's position + offset.
    bool isMimic() const { return !m_mimicMaster.value().empty(); }
    const std::string& mimicMaster() const { return m_mimicMaster.value(); } ///< the master joint's name
    double mimicMultiplier() const { return m_mimicMultiplier; }
    double mimicOffset() const { return m_mimicOffset; }
    bool setMimic(const std::string& master, double multiplier, double offset);

    /// Link frame to parent link frame for a joint position (rad or m). Limits are not applied.
    void linkTransformation(double position, KrCoordinateSystemTransformation& linkToParent) const;

    bool read(KrXmlReader& reader) override;
    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    /// Makes what was read as the setters would have left it.
    void settle();

    KrXmlBasicType<std::string> m_name;
    KrXmlBasicType<std::string> m_type = std::string("fixed");
    Type m_typeValue = Type::Fixed; ///< of m_type, for the frame loop
    KrCoordinateSystemTransformation m_origin;
    KrXmlVector m_axis = KrVector(0.0, 0.0, 1.0);
    KrCoordinateSystemTransformation m_offset;
    KrCoordinateSystemTransformation m_dhFrame;
    KrXmlBasicType<double> m_lowerLimit = 0.0;
    KrXmlBasicType<double> m_upperLimit = 0.0;
    KrXmlBasicType<double> m_maximumVelocity = 0.0;
    KrXmlBasicType<double> m_maximumEffort = 0.0;
    KrXmlBasicType<std::string> m_mimicMaster;
    KrXmlBasicType<double> m_mimicMultiplier = 1.0;
    KrXmlBasicType<double> m_mimicOffset = 0.0;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrJointKinematics, KrXmlCompoundType>;
