#include <toolkit/context/private/KrEglDriverLog.h>

#include <EGL/eglext.h>

#include <array>
#include <cstdio>
#include <mutex>

namespace
{

// The callback carries no user pointer; it runs in the thread whose call it speaks of.
thread_local KrEglDriverLog* t_listener = nullptr;

/// EGL has one callback in a process: the first listener of all threads puts ours in, the last one takes it out.
struct Installation
{
    std::mutex mutex;
    unsigned int numListeners = 0;
    EGLAttrib clientWarnings = 0; ///< whether the client hears warnings
    EGLDEBUGPROCKHR clientCallback = nullptr;
};

// Made on first use, from whatever thread.
Installation& installation()
{
    static auto& s_installation = *new Installation; // windows may be opened until the very end of the process
    return s_installation;
}

struct ErrorName
{
    EGLint error;
    const char* name;
};

constexpr std::array<ErrorName, 15> kErrorNames = {{
    {EGL_SUCCESS, "EGL_SUCCESS"},
    {EGL_NOT_INITIALIZED, "EGL_NOT_INITIALIZED"},
    {EGL_BAD_ACCESS, "EGL_BAD_ACCESS"},
    {EGL_BAD_ALLOC, "EGL_BAD_ALLOC"},
    {EGL_BAD_ATTRIBUTE, "EGL_BAD_ATTRIBUTE"},
    {EGL_BAD_CONFIG, "EGL_BAD_CONFIG"},
    {EGL_BAD_CONTEXT, "EGL_BAD_CONTEXT"},
    {EGL_BAD_CURRENT_SURFACE, "EGL_BAD_CURRENT_SURFACE"},
    {EGL_BAD_DISPLAY, "EGL_BAD_DISPLAY"},
    {EGL_BAD_MATCH, "EGL_BAD_MATCH"},
    {EGL_BAD_NATIVE_PIXMAP, "EGL_BAD_NATIVE_PIXMAP"},
    {EGL_BAD_NATIVE_WINDOW, "EGL_BAD_NATIVE_WINDOW"},
    {EGL_BAD_PARAMETER, "EGL_BAD_PARAMETER"},
    {EGL_BAD_SURFACE, "EGL_BAD_SURFACE"},
    {EGL_CONTEXT_LOST, "EGL_CONTEXT_LOST"},
}};

// Null where EGL lacks EGL_KHR_debug; then only error numbers are told.
PFNEGLDEBUGMESSAGECONTROLKHRPROC debugMessageControl()
{
    return reinterpret_cast<PFNEGLDEBUGMESSAGECONTROLKHRPROC>(eglGetProcAddress("eglDebugMessageControlKHR"));
}

PFNEGLQUERYDEBUGKHRPROC queryDebug()
{
    return reinterpret_cast<PFNEGLQUERYDEBUGKHRPROC>(eglGetProcAddress("eglQueryDebugKHR"));
}

// What the client has set comes back afterwards, so it is asked for before it is replaced.
bool install(Installation& ours, EGLDEBUGPROCKHR callback)
{
    EGLAttrib clientCallback = 0;
    if (!debugMessageControl() || !queryDebug() || !queryDebug()(EGL_DEBUG_CALLBACK_KHR, &clientCallback) ||
        !queryDebug()(EGL_DEBUG_MSG_WARN_KHR, &ours.clientWarnings)) {
        return false;
    }
    ours.clientCallback = reinterpret_cast<EGLDEBUGPROCKHR>(clientCallback);
    // Warnings are on: that is where drivers tell which file or server they missed.
    const EGLAttrib levels[] = {EGL_DEBUG_MSG_WARN_KHR, EGL_TRUE, EGL_NONE};
    return debugMessageControl()(callback, levels) == EGL_SUCCESS;
}

} // namespace

KrEglDriverLog::KrEglDriverLog()
{
    // An outer listener of this thread hears already, and the callback knows one for each thread.
    if (t_listener) {
        return;
    }
    Installation& ours = installation();
    const std::lock_guard<std::mutex> lock(ours.mutex);
    m_isInstalled = ours.numListeners > 0 || install(ours, heard);
    if (m_isInstalled) {
        ++ours.numListeners;
        t_listener = this;
    }
}

KrEglDriverLog::~KrEglDriverLog()
{
    if (!m_isInstalled) {
        return;
    }
    t_listener = nullptr;
    Installation& ours = installation();
    const std::lock_guard<std::mutex> lock(ours.mutex);
    // Other threads may still be listening.
    if (--ours.numListeners > 0) {
        return;
    }
    // The client's callback and its wish about warnings, as they were found.
    const EGLAttrib levels[] = {EGL_DEBUG_MSG_WARN_KHR, ours.clientWarnings, EGL_NONE};
    debugMessageControl()(ours.clientCallback, levels);
}

// Called by the driver, in the middle of a call to EGL: it only takes notes.
void EGLAPIENTRY KrEglDriverLog::heard(EGLenum, const char*, EGLint, void*, void*, const char* message)
{
    if (t_listener && message) {
        t_listener->hear(message);
    }
}

void KrEglDriverLog::hear(const char* message)
{
    std::string words = message;
    while (!words.empty() && (words.back() == '\n' || words.back() == '.')) {
        words.pop_back();
    }
    // Mesa closes with the bare name of the function, and repeats itself for every driver file it tries.
    if (words.empty() || words.compare(0, 3, "egl") == 0 || m_messages.find(words) != std::string::npos) {
        return;
    }
    m_messages += (m_messages.empty() ? "" : ", ") + words;
}

std::string KrEglDriverLog::takeError()
{
    // Reading the error clears it, so it is asked for in any case.
    const EGLint error = eglGetError();
    std::string text = error == EGL_SUCCESS ? std::string() : errorName(error);
    if (!m_messages.empty()) {
        text += (text.empty() ? "" : ": ") + m_messages;
    }
    m_messages.clear();
    return text;
}

// The names as EGL's documents have them, for users to search for.
std::string KrEglDriverLog::errorName(EGLint error)
{
    for (const ErrorName& known : kErrorNames) {
        if (known.error == error) {
            return known.name;
        }
    }
    char number[32];
    std::snprintf(number, sizeof number, "EGL error 0x%x", static_cast<unsigned int>(error));
    return number;
}
