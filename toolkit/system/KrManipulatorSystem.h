#pragma once

#include <toolkit/system/KrIndividualManipulator.h>

/// All manipulators of a simulated world.
class KrManipulatorSystem : public KrXmlObjectOf<KrManipulatorSystem, KrXmlCompoundType>
{
public:
    /// Without manipulators.
    KrManipulatorSystem();
    KrManipulatorSystem(const KrManipulatorSystem& other);
    KrManipulatorSystem(KrManipulatorSystem&& other) noexcept;
    KrManipulatorSystem& operator=(const KrManipulatorSystem& other);
    KrManipulatorSystem& operator=(KrManipulatorSystem&& other) noexcept;
    ~KrManipulatorSystem() override;

    /// The manipulators; their places in the list are the numbers by which windows and states know them.
    const KrXmlVectorType<KrIndividualManipulator>& manipulators() const { return m_manipulators; }
    KrXmlVectorType<KrIndividualManipulator>& manipulators() { return m_manipulators; }

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrXmlVectorType<KrIndividualManipulator> m_manipulators;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrManipulatorSystem, KrXmlCompoundType>;
