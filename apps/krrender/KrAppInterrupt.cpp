#include "KrAppInterrupt.h"

#include <csignal>

namespace
{

volatile std::sig_atomic_t s_requested = 0;

void note(int)
{
    s_requested = 1;
}

} // namespace

KrAppInterrupt::KrAppInterrupt()
{
    s_requested = 0;
    std::signal(SIGINT, note);
    std::signal(SIGTERM, note);
}

KrAppInterrupt::~KrAppInterrupt()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

bool KrAppInterrupt::isRequested() const
{
    return s_requested != 0;
}
