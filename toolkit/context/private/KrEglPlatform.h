#pragma once

#include <toolkit/context/KrWindowReport.h>

#include <EGL/egl.h>

#include <string>
#include <vector>

struct gbm_device;

/// One way to an EGL display.
struct KrEglPlatform
{
    std::string backEnd; ///< name in a report: "EGL surfaceless", "EGL device 0", ...
    EGLDisplay display = EGL_NO_DISPLAY;
    gbm_device* gbm = nullptr;  ///< set for GBM, whose surfaces are made from it; lives as long as the process
    bool maybeHardware = false; ///< worth a look after a software renderer was found
    std::string remedy;         ///< what to do when this way is closed
};

/// The ways to an EGL display that this machine offers, best first, each kind asked for on its own, since asking has
/// its cost. Ways that are closed from the start go into the report, with what would open them.
namespace KrEglPlatforms
{

/// False, after one entry in the report, when EGL has no driver at all.
bool haveDriver(KrWindowReport& report);

std::vector<KrEglPlatform> surfaceless(KrWindowReport& report);
std::vector<KrEglPlatform> devices(KrWindowReport& report);
/// One for each render node, /dev/dri/renderD*.
std::vector<KrEglPlatform> renderNodes(KrWindowReport& report);
std::vector<KrEglPlatform> defaultDisplay(KrWindowReport& report);

/// Why no graphics hardware draws here and what would change that, one clause, for the report of a software context.
std::string softwareHint();

/// True when the environment asks Mesa for its software renderer (LIBGL_ALWAYS_SOFTWARE).
bool isSoftwareWanted();

} // namespace KrEglPlatforms
