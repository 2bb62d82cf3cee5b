#pragma once

class KrManipulatorLink;
class KrManipulatorSystem;

/// What links share is drawn once: to be told apart, each needs shapes of its own.
class KrOwnShapes
{
public:
    /// Gives `link`, which is one of `system`'s, copies of the extents that other shapes of the system hold, too. The
    /// links keep their addresses. Fields are not shared when they are drawn, and left alone.
    /// @return whether there were any
    static bool give(KrManipulatorSystem& system, KrManipulatorLink& link);
};
