#include <toolkit/system/KrPositionState.h>

template class KrXmlObjectOf<KrPositionState, KrXmlCompoundType>;
template class KrXmlObjectOf<KrXmlVectorType<KrPositionState>, KrXmlObject>;
template class KrXmlVectorType<KrPositionState>;
template class KrXmlObjectOf<KrXmlVectorType<KrXmlBasicType<double>>, KrXmlObject>;
template class KrXmlVectorType<KrXmlBasicType<double>>;

KrPositionState::KrPositionState() = default;
KrPositionState::KrPositionState(const KrPositionState& other) = default;
KrPositionState::KrPositionState(KrPositionState&& other) noexcept = default;
KrPositionState& KrPositionState::operator=(const KrPositionState& other) = default;
KrPositionState& KrPositionState::operator=(KrPositionState&& other) noexcept = default;
KrPositionState::~KrPositionState() = default;

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
