#pragma once

/// Contexts do not survive a fork: the driver's threads stay behind in the parent, and whoever waits for one of them in
/// the child waits for ever. Sockets and buffers are the parent's as well. For use inside the libraries.
namespace KrForkGuard
{

/// This process has a context from now on.
void noteContext();
/// True in a process that was forked off one that had a context by then, even a closed one: no call of EGL, GLX or
/// OpenGL may be made here.
bool isForked();

} // namespace KrForkGuard
