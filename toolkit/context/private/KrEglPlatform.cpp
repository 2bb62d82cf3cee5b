#include <toolkit/context/private/KrEglPlatform.h>

#include <toolkit/context/private/KrEglDriverLog.h>

#include <EGL/eglext.h>

#include <fcntl.h>
#include <gbm.h>
#include <glob.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace
{

/// "; or unset NAME, which names VALUE" where that variable is set: it sends the search for drivers astray.
std::string unsetRemedy(const char* name)
{
    const char* value = std::getenv(name);
    return value ? std::string("; or unset ") + name + ", which names " + value : std::string();
}

// The packages' names are those of Debian and its descendants.
std::string mesaRemedy()
{
    return "install Mesa's EGL and its drivers (libegl-mesa0, libgl1-mesa-dri)" + unsetRemedy("LIBGL_DRIVERS_PATH");
}

// Whole words only: names of extensions are beginnings of other ones.
bool hasWord(const char* list, const std::string& word)
{
    const std::string padded = list ? " " + std::string(list) + " " : std::string();
    return padded.find(" " + word + " ") != std::string::npos;
}

// Extensions of EGL itself, which can be asked about before there is a display.
bool hasClientExtension(const char* name)
{
    return hasWord(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), name);
}

template <typename Function>
// Functions of extensions are not exported: the library hands them out by name, null for none.
Function eglFunction(const char* name)
{
    return reinterpret_cast<Function>(eglGetProcAddress(name));
}

// A way that is closed before a display is asked for: no call of EGL has failed, so there is no error of the driver.
void addFailure(KrWindowReport& report, const char* backEnd, const std::string& outcome, const std::string& remedy)
{
    report.attempts.push_back({backEnd, false, outcome, std::string(), remedy});
}

// Sorted by name, as glob gives them.
std::vector<std::string> renderNodePaths()
{
    std::vector<std::string> paths;
    glob_t found = {};
    if (glob("/dev/dri/renderD*", 0, nullptr, &found) == 0) {
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    globfree(&found);
    return paths;
}

// Read and write, as the driver opens it.
bool isOpenable(const std::string& path)
{
    return access(path.c_str(), R_OK | W_OK) == 0;
}

// The group that owns the node, so that the user can be told what to join.
std::string permissionRemedy(const std::string& path)
{
    struct stat status = {};
    const group* owner = stat(path.c_str(), &status) == 0 ? getgrgid(status.st_gid) : nullptr;
    return "permission denied on " + path + ": add the user to the group " + (owner ? owner->gr_name : "render");
}

// EGL keeps a display for each GBM device it was ever given, so there is one a node, kept as long as the process.
gbm_device* gbmDevice(const std::string& node)
{
    static std::mutex s_mutex;
    // Never destroyed: displays on these devices live as long as the process.
    static auto& s_devices = *new std::map<std::string, gbm_device*>;
    const std::lock_guard<std::mutex> lock(s_mutex);
    const auto known = s_devices.find(node);
    if (known != s_devices.end()) {
        return known->second;
    }

    // Drivers keep using the descriptor, so it stays open with the device.
    const int file = open(node.c_str(), O_RDWR | O_CLOEXEC);
    if (file < 0) {
        return nullptr;
    }
    gbm_device* device = gbm_create_device(file);
    if (device) {
        s_devices.emplace(node, device);
    } else {
        close(file);
    }
    return device;
}

/// The driver's device node; null when it does not tell or has none.
const char* nodeOf(EGLDeviceEXT device, const char* extensions)
{
    const auto queryString = eglFunction<PFNEGLQUERYDEVICESTRINGEXTPROC>("eglQueryDeviceStringEXT");
    if (hasWord(extensions, "EGL_EXT_device_drm_render_node")) {
        if (const char* node = queryString(device, EGL_DRM_RENDER_NODE_FILE_EXT)) {
            return node;
        }
    }
    return hasWord(extensions, "EGL_EXT_device_drm") ? queryString(device, EGL_DRM_DEVICE_FILE_EXT) : nullptr;
}

KrEglPlatform devicePlatform(EGLDeviceEXT device, int index)
{
    const auto queryString = eglFunction<PFNEGLQUERYDEVICESTRINGEXTPROC>("eglQueryDeviceStringEXT");
    const char* extensions = queryString ? queryString(device, EGL_EXTENSIONS) : nullptr;
    KrEglPlatform platform;
    platform.backEnd = "EGL device " + std::to_string(index);
    // Null displays are told by the attempt itself, together with the others.
    platform.display = eglGetPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr);
    // A device without the extension may be anything.
    platform.maybeHardware = !hasWord(extensions, "EGL_MESA_device_software");
    platform.remedy = platform.maybeHardware ? "install or repair the EGL driver of this device" : mesaRemedy();
    const char* node = extensions ? nodeOf(device, extensions) : nullptr;
    // A node that may not be opened is the commonest cause in containers.
    if (node && !isOpenable(node) && errno == EACCES) {
        platform.remedy = permissionRemedy(node);
    }
    return platform;
}

} // namespace

bool KrEglPlatforms::haveDriver(KrWindowReport& report)
{
    const char* extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (extensions && *extensions) {
        return true;
    }

    KrWindowReport::Attempt attempt;
    attempt.backEnd = "EGL";
    attempt.outcome = "the EGL library finds no driver";
    KrEglDriverLog log;
    // Asked last, since it may try to reach an X server.
    if (eglGetDisplay(EGL_DEFAULT_DISPLAY) != EGL_NO_DISPLAY) {
        return true; // EGL before 1.5 has no client extensions, yet a display
    }
    attempt.driverError = log.takeError();
    attempt.remedy = mesaRemedy() + ", or the EGL library of the graphics hardware's maker" +
                     unsetRemedy("__EGL_VENDOR_LIBRARY_FILENAMES") + unsetRemedy("__EGL_VENDOR_LIBRARY_DIRS");
    report.attempts.push_back(attempt);
    return false;
}

std::vector<KrEglPlatform> KrEglPlatforms::surfaceless(KrWindowReport& report)
{
    constexpr const char* kName = "EGL surfaceless";
    if (!hasClientExtension("EGL_MESA_platform_surfaceless")) {
        addFailure(report, kName, "the driver lacks EGL_MESA_platform_surfaceless", mesaRemedy());
        return {};
    }
    // Mesa only; it picks a hardware driver where it finds one.
    KrEglPlatform platform;
    platform.backEnd = kName;
    platform.display = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    platform.maybeHardware = true;
    platform.remedy = mesaRemedy();
    return {platform};
}

// One attempt for each device, in the driver's order: hardware need not come first.
std::vector<KrEglPlatform> KrEglPlatforms::devices(KrWindowReport& report)
{
    constexpr const char* kName = "EGL device";
    const auto queryDevices = eglFunction<PFNEGLQUERYDEVICESEXTPROC>("eglQueryDevicesEXT");
    if (!hasClientExtension("EGL_EXT_platform_device") || !queryDevices) {
        addFailure(report, kName, "the driver lacks EGL_EXT_platform_device", mesaRemedy());
        return {};
    }
    // A longer list is cut off.
    std::array<EGLDeviceEXT, 32> found = {};
    EGLint number = 0;
    if (!queryDevices(static_cast<EGLint>(found.size()), found.data(), &number) || number == 0) {
        addFailure(report, kName, "the driver knows no device", mesaRemedy());
        return {};
    }
    std::vector<KrEglPlatform> platforms;
    for (int i = 0; i < number; ++i) {
        platforms.push_back(devicePlatform(found[static_cast<std::size_t>(i)], i));
    }
    return platforms;
}

std::vector<KrEglPlatform> KrEglPlatforms::renderNodes(KrWindowReport& report)
{
    constexpr const char* kName = "EGL GBM";
    const std::vector<std::string> nodes = renderNodePaths();
    if (nodes.empty()) {
        addFailure(report, kName, "there is no device node /dev/dri/renderD*",
                   "load the kernel driver of the graphics hardware; give a container the node (--device /dev/dri)");
    }

    std::vector<KrEglPlatform> platforms;
    for (const std::string& node : nodes) {
        gbm_device* device = gbmDevice(node);
        // A node that cannot be opened is told; the next one may be another card.
        if (!device) {
            const std::string reason = std::strerror(errno);
            addFailure(report, kName, "cannot open " + node + ": " + reason,
                       isOpenable(node) ? mesaRemedy() : permissionRemedy(node));
            continue;
        }
        KrEglPlatform platform;
        platform.backEnd = kName;
        platform.display = eglGetPlatformDisplay(EGL_PLATFORM_GBM_KHR, device, nullptr);
        platform.gbm = device;
        platform.maybeHardware = true;
        platform.remedy = "install the EGL driver of " + node;
        platforms.push_back(platform);
    }
    return platforms;
}

// Whatever EGL itself thinks best, where nothing else is left.
std::vector<KrEglPlatform> KrEglPlatforms::defaultDisplay(KrWindowReport&)
{
    KrEglPlatform platform;
    platform.backEnd = "EGL default display";
    platform.display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    platform.remedy = "mend one of the others; this one wants a display";
    return {platform};
}

// Why a software renderer draws, as far as that can be seen from outside the driver.
std::string KrEglPlatforms::softwareHint()
{
    if (isSoftwareWanted()) {
        return "LIBGL_ALWAYS_SOFTWARE asks for the software renderer";
    }
    // The kernel's part is there without the library's: the usual state of a container.
    if (access("/dev/nvidiactl", F_OK) == 0) {
        return "an NVIDIA device is there but its EGL driver is not: install libnvidia-gl, in a container set "
               "NVIDIA_DRIVER_CAPABILITIES to graphics or all";
    }
    const std::vector<std::string> nodes = renderNodePaths();
    if (nodes.empty()) {
        return "no device node /dev/dri/renderD*, so the software renderer is used; in a container, --device /dev/dri "
               "passes a graphics card on";
    }
    for (const std::string& node : nodes) {
        if (!isOpenable(node)) {
            return permissionRemedy(node);
        }
    }
    return "no EGL driver for " + nodes.front() + " was found";
}

bool KrEglPlatforms::isSoftwareWanted()
{
    const char* value = std::getenv("LIBGL_ALWAYS_SOFTWARE");
    // The spellings that Mesa takes for yes.
    const std::string text = value ? value : "";
    return text == "1" || text == "true" || text == "yes" || text == "y";
}
