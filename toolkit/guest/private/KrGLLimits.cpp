#define GL_GLEXT_PROTOTYPES

#include <toolkit/guest/private/KrGLLimits.h>

#include <toolkit/guest/private/KrGLCalls.h>

#include <cstdio>
#include <string>

using KrGLCalls::integer;

namespace
{

// Whole words only: names of extensions are beginnings of other ones (GL_EXT_texture, GL_EXT_texture3D).
bool hasExtension(const std::string& name)
{
    const auto* list = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    return list && (" " + std::string(list) + " ").find(" " + name + " ") != std::string::npos;
}

} // namespace

// Numbers of the fixed pipeline are 0 where a context has none, and its loops then do nothing.
KrGLLimits KrGLLimits::ofContext()
{
    KrGLLimits limits;
    int major = 1;
    int minor = 1;
    // The string begins with "major.minor" for every driver; GL_MAJOR_VERSION is known from 3.0 on only.
    const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    if (version) {
        std::sscanf(version, "%d.%d", &major, &minor);
    }
    limits.version = 10 * major + minor;
    limits.lights = integer(GL_MAX_LIGHTS);
    limits.clipPlanes = integer(GL_MAX_CLIP_PLANES);
    limits.textureUnits = integer(GL_MAX_TEXTURE_UNITS);
    limits.textureCoords = integer(GL_MAX_TEXTURE_COORDS);
    limits.imageUnits = integer(GL_MAX_TEXTURE_IMAGE_UNITS);
    limits.attributes = integer(GL_MAX_VERTEX_ATTRIBS);
    limits.drawBuffers = integer(GL_MAX_DRAW_BUFFERS);
    // Indexed viewports came with 4.1; asking an older context for their number is an error.
    limits.viewports = limits.version >= 41 ? integer(GL_MAX_VIEWPORTS) : 1;
    limits.hasFramebuffers = limits.version >= 30 || hasExtension("GL_ARB_framebuffer_object");
    limits.hasVertexArrays = limits.version >= 30 || hasExtension("GL_ARB_vertex_array_object");
    limits.hasAssemblyPrograms = hasExtension("GL_ARB_vertex_program") && hasExtension("GL_ARB_fragment_program");
    limits.hasTwoSidedStencil = hasExtension("GL_EXT_stencil_two_side");
    return limits;
}
