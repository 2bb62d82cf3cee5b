#pragma once

/// A deleter that does nothing: for shared pointers that only observe.
struct KrNullDeleter
{
    template <typename T>
    void operator()(T*) const
    {
    }
};
