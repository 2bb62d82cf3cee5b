#pragma once

#include <rendCore/model/KrTextureMarker.h>

#include <boost/weak_ptr.hpp>

#include <vector>

class KrBasePhysicalExtent;
class KrManipulatorSystem;
class KrRenderManipulator;
class KrRenderShape;

/// The marks of a scene between the end of its shapes and the next ones that draw the same extents. For use inside the
/// library.
class KrMarkTransfer
{
public:
    /// Takes down the marks of every shape below `manipulator`, null being none.
    void collect(const KrRenderManipulator* manipulator);
    /// Before the shapes of `system` are built: finds out which marks belong to which of its extents, and drops the
    /// others.
    void match(const KrManipulatorSystem& system);
    /// After that: moves the marks to the extents' new shapes, and keeps nothing.
    void giveBack();

private:
    struct Marks
    {
        /// Of a shape that is gone, maybe; as an extent's handle it is known by what it was made for, and by nothing
        /// that another object could have, too.
        boost::weak_ptr<KrRenderShape> shape;
        osg::ref_ptr<KrTextureMarker> marker;
        osg::ref_ptr<KrMarkingCallback> painter;      ///< of the extent's strokes; null where there is none
        const KrBasePhysicalExtent* extent = nullptr; ///< from `match` to `giveBack`
    };

    std::vector<Marks> m_marks;
};
