#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>
#include <toolkit/math/KrXmlVector.h>

/// A box about the origin of the extent frame, its edges along the axes. A size of zero along two axes has no surface.
class KrBoxPhysicalExtent : public KrXmlObjectOf<KrBoxPhysicalExtent, KrBasePhysicalExtent>
{
public:
    KrBoxPhysicalExtent() = default;
    /// Edge lengths, m. One that is negative or not finite gives, after one message, an extent without a surface.
    explicit KrBoxPhysicalExtent(const KrVector& size);

    /// Full edge lengths, m.
    const KrVector& size() const { return m_size; }
    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override;

private:
    KrXmlVector m_size = KrVector(1.0, 1.0, 1.0);
};
