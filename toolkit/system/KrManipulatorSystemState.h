#pragma once

#include <toolkit/system/KrPositionState.h>

/// The state of all manipulators of a system at one time.
class KrManipulatorSystemState : public KrXmlObjectOf<KrManipulatorSystemState, KrXmlCompoundType>
{
public:
    /// At time 0, without positions.
    KrManipulatorSystemState();
    KrManipulatorSystemState(const KrManipulatorSystemState& other);
    KrManipulatorSystemState(KrManipulatorSystemState&& other) noexcept;
    KrManipulatorSystemState& operator=(const KrManipulatorSystemState& other);
    KrManipulatorSystemState& operator=(KrManipulatorSystemState&& other) noexcept;
    ~KrManipulatorSystemState() override;

    double time() const { return m_time; } ///< s
    /// False, after one message, and no change for what is not finite.
    bool setTime(double time);
    /// One for each manipulator, in their order.
    const KrXmlVectorType<KrPositionState>& positionStates() const { return m_positionStates; }
    KrXmlVectorType<KrPositionState>& positionStates() { return m_positionStates; }

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    KrXmlBasicType<double> m_time = 0.0;
    KrXmlVectorType<KrPositionState> m_positionStates;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrManipulatorSystemState, KrXmlCompoundType>;
