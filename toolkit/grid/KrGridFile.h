#pragma once

#include <toolkit/foundation/KrLimits.h>

#include <string>

class KrGridPhysicalExtent;

/// Reads scalar fields on regular grids from files of other programs.
///
/// NRRD (http://teem.sourceforge.net/nrrd/format.html): three dimensions, one scalar a sample of any integer or
/// floating type, encodings raw, text and gzip (of one or several members), data in the same file or in one beside it,
/// "line skip" and "byte skip". Where the grid lies say "spacings" or "space directions" along the axes, "space origin"
/// or "axis mins", and "axis maxs". Legacy VTK structured points: text or binary, POINT_DATA or CELL_DATA, the first
/// SCALARS of one component; in binary any type but long and unsigned_long, whose size depends on the machine that
/// wrote them.
///
/// Lengths are taken as metres. A sample is the middle of a cell, so that the box is half a spacing larger all around,
/// unless the file says that it stands for a cell itself: CELL_DATA, or "centers" (or "centerings") "cell" for "axis
/// mins" and "axis maxs". A space origin is always the middle of a sample.
class KrGridFile
{
public:
    /// Sets corners, cells and values of `grid`; everything else of it stays. The first bytes tell the format.
    /// @return false, after one message with file and reason, when there is no such field: `grid` is as it was
    static bool read(const std::string& path, KrGridPhysicalExtent& grid);
    /// The same without the message: the reason, or an empty string when `grid` is set.
    static std::string tryRead(const std::string& path, KrGridPhysicalExtent& grid);

    /// More values than this are refused: 2^27, which are 1 GiB.
    static constexpr unsigned int kMaxValues = Kr::Limits::kGridValues;
};
