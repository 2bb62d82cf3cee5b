#pragma once

#include <cstdint>
#include <memory>
#include <vector>

struct KrGLLimits;

/// The OpenGL state of a context that a client and the library use in turn: each finds its own as it left it.
///
/// Covered is all that the fixed pipeline and shader programs read and a scene can set: switches, matrices, lights,
/// materials, current attributes, fragment operations (per draw buffer, per viewport), rasterisation, hints, pixel
/// store and transfer, vertex arrays, and the bindings of framebuffers, renderbuffers, textures and samplers (every
/// unit up to GL_MAX_TEXTURE_IMAGE_UNITS), buffers, vertex array objects and programs. No attribute stack is used, so
/// none can overflow. Not covered: what OpenGL does not let one put back (the raster position, a begun query, transform
/// feedback or display list), pixel maps, the stipple pattern of polygons, evaluators, the list base, indexed buffer
/// bindings and image units. A value that both have alike costs a query and no change.
///
/// The library's side starts as in a new context. One object serves one context and one user of it.
class KrClientState
{
public:
    /// Asks OpenGL nothing yet: that is for the first `enter`.
    KrClientState();
    ~KrClientState();
    KrClientState(const KrClientState&) = delete;
    KrClientState& operator=(const KrClientState&) = delete;

    /// Puts the client's state aside and the library's in place, with `framebuffer` bound for drawing and reading.
    ///
    /// The context is current. Reading is directed to where the drawing goes, as far as there is one such place.
    void enter(unsigned int framebuffer);
    /// Puts the library's state aside and the client's in place. Nothing when not entered.
    void leave();
    bool isEntered() const { return m_isEntered; }

private:
    /// Which framebuffers a side has bound, and what is chosen in the one that is drawn into.
    struct Framebuffers
    {
        int draw = 0;
        int read = 0;
    };

    Framebuffers boundFramebuffers() const;
    void bindFramebuffers(const Framebuffers& framebuffers) const;
    void readTargetBuffers();
    void restoreTargetBuffers() const;

    std::unique_ptr<const KrGLLimits> m_limits; ///< null before the first `enter`
    std::vector<std::uint32_t> m_client;        ///< values one after another, in the order of KrGLStateTraversal
    std::vector<std::uint32_t> m_library;       ///< the same for the library
    Framebuffers m_clientFramebuffers;
    unsigned int m_target = 0;
    std::vector<unsigned int> m_targetDrawBuffers;
    unsigned int m_targetReadBuffer = 0;
    bool m_isEntered = false;
};
