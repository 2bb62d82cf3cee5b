#pragma once

#include <string>
#include <vector>

/// What happened when a window looked for an OpenGL context.
struct KrWindowReport
{
    struct Attempt
    {
        std::string backEnd; ///< "GLX", "EGL surfaceless", "EGL device 0", "EGL GBM", "external"
        bool succeeded = false;
        std::string outcome;     ///< one clause: what worked, or the step that did not
        std::string driverError; ///< the driver's own words or error name; may be empty
        std::string remedy;      ///< what would mend it: a package, a device node, a permission; may be empty
    };

    std::vector<Attempt> attempts; ///< in the order in which they were made

    // Of the context that was chosen; empty and zero without one.
    std::string vendor;
    std::string renderer;
    std::string version;
    bool isSoftware = false; ///< the renderer draws on the processor
    int redBits = 0;
    int greenBits = 0;
    int blueBits = 0;
    int alphaBits = 0;
    int depthBits = 0;
    int stencilBits = 0;
    int samples = 0; ///< drawn for each pixel to smooth edges; 0 when edges are not smoothed

    /// Whether a context was had; the properties above are its own then.
    bool hasContext() const { return !renderer.empty(); }
    /// Whether a driver of that name (GL_RENDERER) draws on the processor, as far as is known.
    static bool isSoftwareRenderer(const std::string& renderer);
    /// Takes the properties from the context that is current in this thread.
    void readCurrentContext();
    /// Several lines for a person to read: the context that was chosen, then every attempt with what would mend it.
    std::string text() const;
};
