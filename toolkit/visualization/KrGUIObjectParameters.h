#pragma once

#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>

/// Sizes of the markers that a window draws, in metres.
///
/// A size that is negative or not finite is refused with one message; the old one stays.
class KrGUIObjectParameters : public KrXmlObjectOf<KrGUIObjectParameters, KrXmlCompoundType>
{
public:
    /// Length of a link's axes.
    double axisScale() const { return m_axisScale; }
    void setAxisScale(double scale);
    /// Length of the world's axes.
    double globalAxisScale() const { return m_globalAxisScale; }
    void setGlobalAxisScale(double scale);
    /// Radius of the ball at the centre of interest.
    double centerOfInterestScale() const { return m_centerOfInterestScale; }
    void setCenterOfInterestScale(double scale);

    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;

private:
    KrXmlBasicType<double> m_axisScale = 0.2;
    KrXmlBasicType<double> m_globalAxisScale = 1.0;
    KrXmlBasicType<double> m_centerOfInterestScale = 0.05;
};
