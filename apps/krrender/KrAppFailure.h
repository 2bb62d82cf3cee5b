#pragma once

#include <stdexcept>
#include <string>

/// Ends the program with one sentence: thrown where the reason is known, caught in main.
class KrAppFailure : public std::runtime_error
{
public:
    enum Status : int
    {
        CouldNot = 1,
        WrongUsage = 2
    };

    /// @param sentence  without the program's name, without a line end
    KrAppFailure(Status status, const std::string& sentence)
        : std::runtime_error(sentence)
        , m_status(status)
    {
    }

    Status status() const { return m_status; }

private:
    Status m_status;
};
