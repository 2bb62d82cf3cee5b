#pragma once

#include "KrPyFailure.h"

#include <pybind11/pybind11.h>

/// Takes the libraries' messages to Python's logger "krrendcore".
///
/// Messages come from any thread, with Python's lock or without, and while the interpreter ends. They wait in a list,
/// which whoever called the library empties when he holds the lock again: no message waits for the lock, and none is
/// lost but those of the very end.
class KrPyMessages
{
public:
    /// From the first call on messages come here; importing the module changes nothing.
    static void listen();
    /// Hands on what waits. For a thread that holds Python's lock.
    /// @param told  a failure's sentence: the messages that it repeats are left out
    static void handOn(const std::string& told = std::string());
};

/// Calls the libraries from Python: without Python's lock, so that other threads run meanwhile; then hands on what they
/// said.
template <typename Work>
void krPyRun(Work&& work)
{
    KrPyMessages::listen();
    try {
        const pybind11::gil_scoped_release release;
        work();
    } catch (const KrPyFailure& failure) {
        KrPyMessages::handOn(failure.what());
        throw;
    }
    KrPyMessages::handOn();
}
