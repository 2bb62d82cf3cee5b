#pragma once

#include <toolkit/context/KrWindowReport.h>

#include <string>

/// The platform's side of a window: an OpenGL context and what it draws into.
///
/// A KrWindow owns one and is its only caller. Every operation that touches GL objects makes its own context
/// current first; `close` puts back the context that was current before, unless it was its own.
class KrWindowImpl
{
public:
    struct Settings
    {
        std::string name;
        int x = 0; ///< upper left corner on the screen, pixels
        int y = 0;
        unsigned int width = 1; ///< pixels, at least 1
        unsigned int height = 1;
        bool hidden = false;
        bool topMost = false;
        bool wantsStereo = false;

        /// "640 x 480", for messages.
        std::string sizeText() const { return std::to_string(width) + " x " + std::to_string(height); }
    };

    virtual ~KrWindowImpl() = default;

    /// "EGL", "GLX" or "external".
    virtual const char* kind() const = 0;
    /// Opens the context and its surface and leaves it current.
    ///
    /// @param share   shares GL objects with that one, which is open and of the same kind; may be null
    /// @param report  every attempt is appended; filled with the context's properties on success
    /// @return false when there is no context; nothing is printed then, the report tells all
    virtual bool open(const Settings& settings, KrWindowImpl* share, KrWindowReport& report) = 0;
    virtual bool isOpen() const = 0;
    /// Releases surface and context. Harmless when not open.
    virtual void close() = 0;
    virtual bool makeCurrent() = 0;
    /// Leaves no context current if this one is.
    virtual void releaseCurrent() = 0;
    virtual bool isCurrent() const = 0;
    virtual void swapBuffers() = 0;
    /// A new size on the same context, which is current afterwards. False leaves the old size.
    virtual bool setSize(unsigned int width, unsigned int height) = 0;
    virtual bool setPosition(int x, int y) = 0;
    virtual bool setHidden(bool hidden) = 0;
    virtual bool setTopMost(bool topMost) = 0;
    virtual bool setTitle(const std::string& name) = 0;
    virtual bool isStereoSupported() const = 0;
    /// The framebuffer object that stands for the window's own: 0 but for an external context.
    virtual unsigned int defaultFramebuffer() const = 0;
    /// The pixels' row order and format are OpenGL's; what the window system reports as size, pixels.
    virtual void size(unsigned int& width, unsigned int& height) const = 0;
};
