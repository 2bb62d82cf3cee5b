#include <toolkit/context/KrExternalWindowImpl.h>

#include <toolkit/context/private/KrCurrentContext.h>
#include <toolkit/context/private/KrForkGuard.h>

#include <GL/gl.h>
#include <GL/glext.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace
{

// A client's exception must not pass through OSG or a destructor.
/// What `callback` returns; `withoutOne` when it is empty, `onThrow` when it throws.
template <typename Result>
Result call(const std::function<Result()>& callback, Result withoutOne, Result onThrow)
{
    try {
        return callback ? callback() : withoutOne;
    } catch (...) {
        return onThrow;
    }
}

void call(const std::function<void()>& callback)
{
    try {
        if (callback) {
            callback();
        }
    } catch (...) {
        // The client's own; there is nobody here to tell.
    }
}

/// Empty when the current context will do, else why not.
/// The fixed pipeline is drawn with, which neither OpenGL ES nor the core profile has.
std::string unfitness()
{
    if (!KrCurrentContext::exists()) {
        return "no OpenGL context is current";
    }
    const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    if (!version) {
        return "the current context is not one of OpenGL";
    }
    if (std::strncmp(version, "OpenGL ES", 9) == 0) {
        return "the current context is one of OpenGL ES";
    }
    int major = 0;
    int minor = 0;
    if (std::sscanf(version, "%d.%d", &major, &minor) != 2 || major < 3 || (major == 3 && minor < 2)) {
        return std::string(); // profiles came with 3.2
    }
    GLint profile = 0;
    glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &profile);
    return profile & GL_CONTEXT_CORE_PROFILE_BIT ? "the current context has the core profile" : std::string();
}

// Drawing into a framebuffer of the client's takes OpenGL 3.0 or the extension of the same functions.
// Read from strings: asking for a binding that a context does not know is an error of OpenGL.
bool hasFramebuffers()
{
    const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    const auto* extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    return (version && std::atoi(version) >= 3) || (extensions && std::strstr(extensions, "GL_ARB_framebuffer_object"));
}

// The client's binding is put back: its code may rely on it.
GLuint createTexture()
{
    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture); // a name becomes a texture when it is bound first
    glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(bound));
    return texture;
}

} // namespace

KrExternalWindowImpl::KrExternalWindowImpl(Callbacks callbacks)
    : m_callbacks(std::move(callbacks))
{
}

// Compared with the other window's before sharing is tried.
const char* KrExternalWindowImpl::kind() const
{
    return "external";
}

// Opens nothing: it checks that the client's context will do, and says why where it will not.
bool KrExternalWindowImpl::open(const Settings& settings, KrWindowImpl* share, KrWindowReport& report)
{
    KrWindowReport::Attempt attempt;
    attempt.backEnd = kind();
    // It answers no before the window is open.
    m_open = true; // for makeCurrent
    if (!makeCurrent()) {
        attempt.outcome = "the client's make-current callback fails";
        attempt.remedy = "open the window where the client's context can be made current";
    } else if (const std::string reason = unfitness(); !reason.empty()) {
        attempt.outcome = reason;
        attempt.remedy = "make a desktop OpenGL context with the compatibility profile current before";
    } else if (share && !sharesObjectsWith(*share)) {
        attempt.outcome = "the client's contexts do not share their objects";
        attempt.remedy = "create the client's second context with the first one as its share context";
    } else {
        attempt.succeeded = true;
        KrForkGuard::noteContext();
        report.readCurrentContext();
        attempt.outcome = "wraps the client's context on " + report.renderer;
        // Asked of the context: the client has chosen the visual.
        GLboolean stereo = GL_FALSE;
        glGetBooleanv(GL_STEREO, &stereo);
        m_stereo = stereo == GL_TRUE;
        m_hasFramebuffers = hasFramebuffers();
        // Only the client knows how large its surface is.
        m_width = settings.width;
        m_height = settings.height;
    }
    m_open = attempt.succeeded;
    report.attempts.push_back(attempt);
    return m_open;
}

// A texture of this context that is known in the other one may be another of the same name, so it must vanish there
// too.
bool KrExternalWindowImpl::sharesObjectsWith(KrWindowImpl& other)
{
    const GLuint texture = createTexture();
    // The other one stays current for the question alone.
    const bool wasSeen = other.makeCurrent() && glIsTexture(texture);
    makeCurrent();
    glDeleteTextures(1, &texture);
    // Commands of one context are seen by the other one when they are done.
    glFinish();
    const bool isGone = other.makeCurrent() && !glIsTexture(texture);
    return makeCurrent() && wasSeen && isGone;
}

bool KrExternalWindowImpl::isOpen() const
{
    return m_open;
}

// The context is the client's and stays.
void KrExternalWindowImpl::close()
{
    m_open = false;
}

bool KrExternalWindowImpl::makeCurrent()
{
    return m_open && call(m_callbacks.makeCurrent, true, false);
}

// Only a context that is current is let go of: the client may have made another one current.
void KrExternalWindowImpl::releaseCurrent()
{
    if (isCurrent()) {
        call(m_callbacks.doneCurrent);
    }
}

bool KrExternalWindowImpl::isCurrent() const
{
    return m_open && call(m_callbacks.isCurrent, true, false);
}

void KrExternalWindowImpl::swapBuffers()
{
    if (m_open) {
        call(m_callbacks.swapBuffers);
    }
}

// The client has resized its surface already, or is about to; here the size is only noted.
bool KrExternalWindowImpl::setSize(unsigned int width, unsigned int height)
{
    if (!makeCurrent()) {
        return false;
    }
    m_width = width;
    m_height = height;
    return true;
}

// Where the window stands and how it looks is the client's affair.
bool KrExternalWindowImpl::setPosition(int, int)
{
    return m_open;
}

bool KrExternalWindowImpl::setHidden(bool)
{
    return m_open;
}

bool KrExternalWindowImpl::setTopMost(bool)
{
    return m_open;
}

bool KrExternalWindowImpl::setTitle(const std::string&)
{
    return m_open;
}

// As it was when the window opened; a context does not change in that.
bool KrExternalWindowImpl::isStereoSupported() const
{
    return m_open && m_stereo;
}

unsigned int KrExternalWindowImpl::defaultFramebuffer() const
{
    if (!m_open) {
        return 0;
    }
    // A toolkit that draws into a framebuffer of its own may have another one in every frame, so it is asked each time.
    if (m_callbacks.defaultFramebuffer) {
        return call(m_callbacks.defaultFramebuffer, 0u, 0u);
    }
    GLint bound = 0;
    if (m_hasFramebuffers) {
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &bound);
    }
    return static_cast<unsigned int>(bound);
}

void KrExternalWindowImpl::size(unsigned int& width, unsigned int& height) const
{
    width = m_width;
    height = m_height;
}
