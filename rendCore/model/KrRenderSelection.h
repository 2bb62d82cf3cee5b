#pragma once

#include <toolkit/system/KrShapeStateCacheKey.h>

#include <osg/ref_ptr>

#include <vector>

class KrRenderManipulator;

/// Shows chosen shapes of a manipulator as they are and all others faded.
///
/// A pass calls `setSelected` for every chosen shape and then `setNonselected` for every manipulator. Shapes are
/// wrapped in groups of their own with an overriding state set, which a restoring pass takes out again. Scene thread
/// only, outside any traversal. Static operations only.
class KrRenderSelection
{
public:
    /// Marks the shape of that key (its link and shape index) as selected until the next pass of `setNonselected`.
    /// One message when the manipulator has no such shape. Nothing for a null manipulator.
    static void setSelected(KrRenderManipulator* manipulator, const KrShapeStateCacheKey& key);
    /// The same for each of the keys in turn, each with the manipulator of its number, if there is one; in time that
    /// grows with the keys and the shapes beside theirs.
    static void setSelected(const std::vector<osg::ref_ptr<KrRenderManipulator>>& manipulators,
                            const std::vector<KrShapeStateCacheKey>& keys);

    /// Fades the shapes that are not selected, or takes all wrappers out.
    /// @param alpha    opacity of faded shapes, in [0, 1]; 1 shows them as they are
    /// @param restore  true takes out the wrappers. One whose shape is still marked as selected only loses its mark,
    ///                 and the next restoring pass takes it out
    static void setNonselected(KrRenderManipulator* manipulator, float alpha, bool restore);

    /// Draws and judges in windows of its own, see KrSelfTest. False, after one message, when something is wrong.
    static bool selfTest();
};
