#include <toolkit/deformation/KrDeformationPhysicalExtent.h>
#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCapsulePhysicalExtent.h>
#include <toolkit/extent/KrConePhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrEllipsoidPhysicalExtent.h>
#include <toolkit/extent/KrSpherePhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <memory>

namespace
{

/// The token says which class it is, and only an object knows its token.
template <typename Extent>
KrBasePhysicalExtent* newIfNamed(const KrXmlToken& token)
{
    std::unique_ptr<Extent> extent(new Extent);
    return extent->token() == token ? extent.release() : nullptr;
}

} // namespace

// The base class declares this, and a file above all extents defines it: grids and deforming bodies are extents that
// stand on extents, so that no room below could name every kind. The linker joins the two. Registering each kind in a
// static object would depend on the order in which files are initialised.
KrBasePhysicalExtent* KrBasePhysicalExtent::newFromToken(const KrXmlToken& token)
{
    using Maker = KrBasePhysicalExtent* (*)(const KrXmlToken&);
    constexpr Maker makers[] = {newIfNamed<KrTriPhysicalExtent>,        newIfNamed<KrSpherePhysicalExtent>,
                                newIfNamed<KrBoxPhysicalExtent>,        newIfNamed<KrCylinderPhysicalExtent>,
                                newIfNamed<KrCapsulePhysicalExtent>,    newIfNamed<KrConePhysicalExtent>,
                                newIfNamed<KrEllipsoidPhysicalExtent>,  newIfNamed<KrGridPhysicalExtent>,
                                newIfNamed<KrDeformationPhysicalExtent>};
    for (const Maker make : makers) {
        KrBasePhysicalExtent* const extent = make(token);
        if (extent != nullptr) {
            return extent;
        }
    }
    return nullptr;
}
