#pragma once

/// What the current context has. For use inside the library.
struct KrGLLimits
{
    int version = 0; ///< 10 * major + minor
    int lights = 0;
    int clipPlanes = 0;
    int textureUnits = 0; ///< of the fixed pipeline
    int textureCoords = 0;
    int imageUnits = 0;
    int attributes = 0;
    int drawBuffers = 0;
    int viewports = 0;
    bool hasFramebuffers = false;
    bool hasVertexArrays = false;
    bool hasAssemblyPrograms = false;
    bool hasTwoSidedStencil = false;

    /// Asks the current context.
    static KrGLLimits ofContext();
};
