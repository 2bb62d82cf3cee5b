#include <toolkit/system/KrManipulatorSystem.h>

KrXmlToken KrManipulatorSystem::token() const
{
    return {KrXmlNamespace::system(), "manipulatorSystem"};
}

void KrManipulatorSystem::registerComponents()
{
    registerComponent({KrXmlNamespace::system(), "manipulators"}, m_manipulators);
}
