#pragma once

#include <EGL/egl.h>

#include <string>

/// Collects what the EGL library and its driver say while one of these is alive in this thread, where they can speak
/// (EGL_KHR_debug); the client's own debug callback is back in place afterwards.
class KrEglDriverLog
{
public:
    KrEglDriverLog();
    ~KrEglDriverLog();
    KrEglDriverLog(const KrEglDriverLog&) = delete;
    KrEglDriverLog& operator=(const KrEglDriverLog&) = delete;

    /// The name of the last EGL error in this thread, which is cleared, and the messages since the last call.
    std::string takeError();

    /// "EGL_BAD_MATCH"; the number in hexadecimal when it is none of EGL's.
    static std::string errorName(EGLint error);

private:
    void hear(const char* message);
    static void EGLAPIENTRY heard(EGLenum error, const char* command, EGLint type, void* threadLabel, void* objectLabel,
                                  const char* message);

    std::string m_messages;
    bool m_isInstalled = false;
};
