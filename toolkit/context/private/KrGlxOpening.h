#pragma once

#include <toolkit/context/KrWindowImpl.h>
#include <toolkit/context/KrWindowReport.h>
#include <toolkit/context/private/KrGlxWindow.h>

#include <memory>

/// How a window on an X display comes to be. For use inside the library.
namespace KrGlxOpening
{

/// @param share    whose objects the context shares, null for none
/// @param samples  to draw for each pixel, as far as the server has them
/// @return the open window, its context current; null when a step failed. The attempt goes into the report either way.
std::unique_ptr<KrGlxWindow> run(const KrWindowImpl::Settings& settings, const KrGlxWindow* share, unsigned int samples,
                                 KrWindowReport& report);

} // namespace KrGlxOpening
