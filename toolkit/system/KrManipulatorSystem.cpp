#include <toolkit/system/KrManipulatorSystem.h>

template class KrXmlObjectOf<KrManipulatorSystem, KrXmlCompoundType>;

// Copies are compiled here, once, and not in every file that includes the header.
KrManipulatorSystem::KrManipulatorSystem() = default;
KrManipulatorSystem::KrManipulatorSystem(const KrManipulatorSystem& other) = default;
KrManipulatorSystem::KrManipulatorSystem(KrManipulatorSystem&& other) noexcept = default;
KrManipulatorSystem& KrManipulatorSystem::operator=(const KrManipulatorSystem& other) = default;
KrManipulatorSystem& KrManipulatorSystem::operator=(KrManipulatorSystem&& other) noexcept = default;
KrManipulatorSystem::~KrManipulatorSystem() = default;

KrXmlToken KrManipulatorSystem::token() const
{
    return {KrXmlNamespace::system(), "manipulatorSystem"};
}

void KrManipulatorSystem::registerComponents()
{
    // Required: without manipulators a document is no system.
    registerComponent({KrXmlNamespace::system(), "manipulators"}, m_manipulators);
}
