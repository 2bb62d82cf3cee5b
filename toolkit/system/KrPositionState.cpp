#include <toolkit/system/KrPositionState.h>

#include <toolkit/xml/KrXmlRefusal.h>

#include <cmath>

template class KrXmlObjectOf<KrPositionState, KrXmlCompoundType>;
template class KrXmlObjectOf<KrXmlVectorType<KrPositionState>, KrXmlObject>;
template class KrXmlVectorType<KrPositionState>;
template class KrXmlObjectOf<KrXmlVectorType<KrXmlBasicType<double>>, KrXmlObject>;
template class KrXmlVectorType<KrXmlBasicType<double>>;

// Copies are compiled here, once, and not in every file that includes the header.
KrPositionState::KrPositionState() = default;
KrPositionState::KrPositionState(const KrPositionState& other) = default;
KrPositionState::KrPositionState(KrPositionState&& other) noexcept = default;
KrPositionState& KrPositionState::operator=(const KrPositionState& other) = default;
KrPositionState& KrPositionState::operator=(KrPositionState&& other) noexcept = default;
KrPositionState::~KrPositionState() = default;

// From the manipulator's frame to the world's; refused alike with the poses of joints.
bool KrPositionState::setBaseTransformation(const KrCoordinateSystemTransformation& base)
{
    return base.checkPose("KrPositionState::setBaseTransformation") && (m_base = base, true);
}

bool KrPositionState::validate(KrXmlRefusal& refusal) const
{
    // Poses judge themselves when they are read; a position is a number like any other.
    for (unsigned int i = 0; i < m_jointPositions.size(); ++i) {
        if (!std::isfinite(m_jointPositions[i].value())) {
            return refusal.fail("the position of joint %u is not finite", i);
        }
    }
    return true;
}

KrXmlToken KrPositionState::token() const
{
    return {KrXmlNamespace::system(), "positionState"};
}

void KrPositionState::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "baseTransformation"}, m_base, Presence::Optional);
    registerComponent({uri, "jointPositions"}, m_jointPositions, Presence::Optional);
}
