#pragma once

#include <cstddef>

class KrIndividualManipulator;

/// Whether a kinematic tree can be drawn on this thread's stack: the scene graph's traversals recurse over nodes.
namespace KrTraversalStack
{

/// What a link under another one takes of the stack, bytes, as this library and the scene graph are compiled.
std::size_t bytesPerLink();

/// What is left of this thread's stack, bytes; the greatest number when that is not known.
std::size_t bytesLeft();

/// False, after one message (unless it was told already) that names the stack, for a tree that is too deep for it.
bool holds(const KrIndividualManipulator& manipulator, bool isTold);

} // namespace KrTraversalStack
