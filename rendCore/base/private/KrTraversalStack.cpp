#include <rendCore/base/private/KrTraversalStack.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/system/KrIndividualManipulator.h>

#include <cstdint>
#include <limits>
#include <pthread.h>

std::size_t KrTraversalStack::bytesPerLink()
{
    // Unoptimised calls take more, those under a sanitizer several times as much. A client's own flags say nothing
    // about the library's: this cannot stand in a header.
#if defined(KR_SANITIZED) || !defined(__OPTIMIZE__)
    return 2048;
#else
    return 512;
#endif
}

std::size_t KrTraversalStack::bytesLeft()
{
    // Not known means enough: a tree is refused only for a stack that is known to be too small.
    constexpr std::size_t unknown = std::numeric_limits<std::size_t>::max();
    pthread_attr_t attributes;
    // Of the main thread this reads a file of the system: for the loading of a scene, not for every frame.
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return unknown;
    }
    void* lowest = nullptr;
    std::size_t size = 0;
    const bool isKnown = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
    pthread_attr_destroy(&attributes);
    // Stacks grow downwards: what is left lies between the lowest address and this frame.
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    const auto end = reinterpret_cast<std::uintptr_t>(lowest);
    // A coroutine runs on memory of its own.
    return isKnown && here >= end && here - end <= size ? here - end : unknown;
}

bool KrTraversalStack::holds(const KrIndividualManipulator& manipulator, bool isTold)
{
    const std::uint64_t depth = manipulator.depth();
    // The reserve is for what a traversal calls at its deepest link.
    const std::uint64_t needed = depth * bytesPerLink() + Kr::Limits::kStackReserve;
    const std::size_t left = bytesLeft();
    if (needed <= left) {
        return true;
    }
    if (isTold) {
        return false;
    }
    Kr::Print::instance()->write(
        Kr::Print::Warning,
        "KrRenderWindow::loadScene - manipulator \"%.*s\" has links %llu deep: drawing them takes %llu KiB of stack, "
        "and this thread has %llu KiB left (ulimit -s).\n",
        static_cast<int>(Kr::Limits::kMessageName), manipulator.name().c_str(), static_cast<unsigned long long>(depth),
        static_cast<unsigned long long>(needed / 1024), static_cast<unsigned long long>(left / 1024));
    return false;
}
