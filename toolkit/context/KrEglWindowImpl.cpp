#include <toolkit/context/KrEglWindowImpl.h>

#include <toolkit/context/private/KrCurrentContext.h>
#include <toolkit/context/private/KrEglDriverLog.h>
#include <toolkit/context/private/KrEglPlatform.h>
#include <toolkit/context/private/KrForkGuard.h>

#include <EGL/eglext.h>
#include <GL/gl.h>

#include <gbm.h>

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

// The owners know the display: EGL takes it with every call.
struct SurfaceDeleter
{
    using pointer = EGLSurface;
    EGLDisplay display = EGL_NO_DISPLAY;
    void operator()(EGLSurface surface) const { eglDestroySurface(display, surface); }
};
using UniqueSurface = std::unique_ptr<void, SurfaceDeleter>;

struct ContextDeleter
{
    using pointer = EGLContext;
    EGLDisplay display = EGL_NO_DISPLAY;
    void operator()(EGLContext context) const { eglDestroyContext(display, context); }
};
using UniqueContext = std::unique_ptr<void, ContextDeleter>;

struct GbmSurfaceDeleter
{
    void operator()(gbm_surface* surface) const { gbm_surface_destroy(surface); }
};
using UniqueGbmSurface = std::unique_ptr<gbm_surface, GbmSurfaceDeleter>;

/// Binds desktop OpenGL for the calls that depend on it, and puts back what the client had bound.
class DesktopOpenGl
{
public:
    DesktopOpenGl()
        : m_before(eglQueryAPI())
        , m_isBound(eglBindAPI(EGL_OPENGL_API) == EGL_TRUE)
    {
    }
    ~DesktopOpenGl() { eglBindAPI(m_before); }
    DesktopOpenGl(const DesktopOpenGl&) = delete;
    DesktopOpenGl& operator=(const DesktopOpenGl&) = delete;
    bool isBound() const { return m_isBound; }

private:
    EGLenum m_before;
    bool m_isBound;
};

// 0 for an attribute that the driver does not know.
EGLint configValue(EGLDisplay display, EGLConfig config, EGLint attribute)
{
    EGLint value = 0;
    eglGetConfigAttrib(display, config, attribute, &value);
    return value;
}

// Drivers offer 10 bits and multisampling too; pixels that are read back would differ.
bool isExact(EGLDisplay display, EGLConfig config)
{
    const EGLint depth = configValue(display, config, EGL_DEPTH_SIZE);
    return configValue(display, config, EGL_RED_SIZE) == 8 && configValue(display, config, EGL_GREEN_SIZE) == 8 &&
           configValue(display, config, EGL_BLUE_SIZE) == 8 && (depth == 32 || depth == 24) &&
           configValue(display, config, EGL_SAMPLES) == 0;
}

/// Smaller is better: a conformant config, 32 bits of depth before 24, no alpha (what is read back is opaque), no
/// stencil.
auto rank(EGLDisplay display, EGLConfig config)
{
    return std::make_tuple(configValue(display, config, EGL_CONFIG_CAVEAT) == EGL_NON_CONFORMANT_CONFIG,
                           -configValue(display, config, EGL_DEPTH_SIZE), configValue(display, config, EGL_ALPHA_SIZE),
                           configValue(display, config, EGL_STENCIL_SIZE),
                           configValue(display, config, EGL_CONFIG_CAVEAT) == EGL_SLOW_CONFIG);
}

/// Null when the display has no exact one. Asking EGL for 8 bits gives configs with 10 first, hence the search.
EGLConfig chooseConfig(EGLDisplay display, EGLint surfaceType)
{
    const EGLint wanted[] = {EGL_SURFACE_TYPE,
                             surfaceType,
                             EGL_RENDERABLE_TYPE,
                             EGL_OPENGL_BIT,
                             EGL_COLOR_BUFFER_TYPE,
                             EGL_RGB_BUFFER,
                             EGL_RED_SIZE,
                             8,
                             EGL_GREEN_SIZE,
                             8,
                             EGL_BLUE_SIZE,
                             8,
                             EGL_DEPTH_SIZE,
                             24,
                             EGL_NONE};
    EGLint number = 0;
    // Twice: for the number first, then for the configs.
    if (!eglChooseConfig(display, wanted, nullptr, 0, &number) || number <= 0) {
        return nullptr;
    }
    std::vector<EGLConfig> configs(static_cast<std::size_t>(number));
    if (!eglChooseConfig(display, wanted, configs.data(), number, &number)) {
        return nullptr;
    }
    configs.resize(static_cast<std::size_t>(number));
    configs.erase(
        std::remove_if(configs.begin(), configs.end(), [=](EGLConfig config) { return !isExact(display, config); }),
        configs.end());
    const auto best = std::min_element(configs.begin(), configs.end(),
                                       [=](EGLConfig a, EGLConfig b) { return rank(display, a) < rank(display, b); });
    return best == configs.end() ? nullptr : *best;
}

/// What a context draws into: a pbuffer, or where the platform has none (GBM), buffers that are never shown.
struct Drawable
{
    UniqueGbmSurface gbmSurface;
    UniqueSurface surface; // goes before the GBM surface under it
    unsigned int width = 0;
    unsigned int height = 0;
};

/// Mesa's pbuffers may be larger than EGL_MAX_PBUFFER_WIDTH says, and even larger than it can draw, so the limit is the
/// renderer's.
Drawable createPbuffer(EGLDisplay display, EGLConfig config, unsigned int width, unsigned int height)
{
    const EGLint size[] = {EGL_WIDTH, static_cast<EGLint>(width), EGL_HEIGHT, static_cast<EGLint>(height), EGL_NONE};
    Drawable drawable;
    drawable.surface = UniqueSurface(eglCreatePbufferSurface(display, config, size), {display});
    return drawable;
}

// GBM has no pbuffers; a surface that is never shown does the same.
Drawable createGbmSurface(const KrEglPlatform& platform, EGLConfig config, unsigned int width, unsigned int height)
{
    // The format of the buffers has to be the config's, or EGL refuses the surface.
    const auto format = static_cast<std::uint32_t>(configValue(platform.display, config, EGL_NATIVE_VISUAL_ID));
    Drawable drawable;
    drawable.gbmSurface.reset(gbm_surface_create(platform.gbm, width, height, format, GBM_BO_USE_RENDERING));
    if (drawable.gbmSurface) {
        drawable.surface =
            UniqueSurface(eglCreatePlatformWindowSurface(platform.display, config, drawable.gbmSurface.get(), nullptr),
                          {platform.display});
    }
    return drawable;
}

// One form for both, so that a window can be resized whatever platform it is on.
Drawable createDrawable(const KrEglPlatform& platform, EGLConfig config, unsigned int width, unsigned int height)
{
    Drawable drawable = platform.gbm ? createGbmSurface(platform, config, width, height)
                                     : createPbuffer(platform.display, config, width, height);
    drawable.width = width;
    drawable.height = height;
    return drawable;
}

/// EGL counts in int.
bool isRepresentable(unsigned int width, unsigned int height)
{
    constexpr unsigned int kLargest = 0x7fffffff;
    return width <= kLargest && height <= kLargest;
}

/// True when what is drawn into the far corner can be read back. For a fresh context, whose state it leaves as it is:
/// there are drivers that open one although they cannot make the buffers for it.
bool doesDraw(unsigned int width, unsigned int height)
{
    GLubyte pixel[3] = {0, 0, 0};
    // A colour that cleared memory does not have; the alpha is not asked about.
    glClearColor(1.0f, 0.0f, 1.0f, 0.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glReadPixels(static_cast<GLint>(width) - 1, static_cast<GLint>(height) - 1, 1, 1, GL_RGB, GL_UNSIGNED_BYTE, pixel);
    glClearColor(0.0f, 0.0f, 0.0f, 0.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    return glGetError() == GL_NO_ERROR && pixel[0] == 255 && pixel[1] == 0 && pixel[2] == 255;
}

/// A context with what it draws into. The display under it stays initialised as long as the process: EGL does not count
/// its users, so terminating it would take the contexts of everybody else with it.
struct OpenContext
{
    KrEglPlatform platform;
    EGLConfig config = nullptr;
    Drawable drawable;
    UniqueContext context; // goes before what it draws into
    bool isSoftware = false;

    // A context that is destroyed while it is current lives on until it is not, and so would its surface.
    ~OpenContext()
    {
        if (context && eglGetCurrentContext() == context.get()) {
            KrCurrentContext::leaveEgl();
        }
    }

    bool isCurrent() const { return eglGetCurrentContext() == context.get(); }

    bool makeCurrent(const Drawable& target) const
    {
        const EGLSurface surface = target.surface.get();
        // Switching costs a flush, so it is left out where nothing changes.
        if (isCurrent() && eglGetCurrentSurface(EGL_DRAW) == surface && eglGetCurrentSurface(EGL_READ) == surface) {
            return true;
        }
        // The other API's context goes first, so that a thread never has one of each.
        KrCurrentContext::leaveGlx();
        return eglMakeCurrent(platform.display, surface, surface, context.get()) == EGL_TRUE;
    }
};
using UniqueOpenContext = std::unique_ptr<OpenContext>;

/// One attempt to open a context: each step says what failed and what would mend it.
/// Its object is gone after the attempt; what it opened has an owner of its own.
class Opening
{
public:
    Opening(const KrWindowImpl::Settings& settings, const KrEglPlatform& platform, const OpenContext* share)
        : m_settings(settings)
        , m_share(share)
        , m_size(settings.sizeText())
        , m_open(std::make_unique<OpenContext>())
    {
        m_open->platform = platform;
        m_attempt.backEnd = platform.backEnd;
    }

    /// The open context, current; null when a step failed. The attempt goes into the report either way.
    /// Moved out on success; otherwise it goes here, with all that the steps have made.
    UniqueOpenContext run(KrWindowReport& report)
    {
        // For all steps, the destruction of a failed attempt included.
        const DesktopOpenGl api;
        m_attempt.succeeded = initialize() && bind(api) && choose() && createContext() && createSurface() && start();
        report.attempts.push_back(m_attempt);
        return m_attempt.succeeded ? std::move(m_open) : nullptr;
    }

private:
    bool fail(const std::string& outcome, const std::string& remedy)
    {
        m_attempt.outcome = outcome;
        // Taken in any case, so that the next attempt does not tell of this one.
        m_attempt.driverError = m_messages.takeError();
        m_attempt.remedy = remedy;
        return false;
    }

    bool initialize()
    {
        if (m_open->platform.display == EGL_NO_DISPLAY) {
            return fail("eglGetPlatformDisplay gives no display", m_open->platform.remedy);
        }
        if (!eglInitialize(m_open->platform.display, nullptr, nullptr)) {
            return fail("eglInitialize fails", m_open->platform.remedy);
        }
        m_messages.takeError(); // Mesa speaks of drivers it passed over even where it succeeds
        return true;
    }

    bool bind(const DesktopOpenGl& api)
    {
        if (!api.isBound() || !hasDesktopOpenGl()) {
            return fail("the driver has no desktop OpenGL", "install a driver that has it (libgl1-mesa-dri)");
        }
        return true;
    }

    // A driver may have OpenGL ES alone.
    bool hasDesktopOpenGl() const
    {
        const char* apis = eglQueryString(m_open->platform.display, EGL_CLIENT_APIS);
        return apis && (" " + std::string(apis) + " ").find(" OpenGL ") != std::string::npos;
    }

    bool choose()
    {
        // Contexts share objects only when their configs are compatible; the same one always is.
        m_open->config =
            m_share ? m_share->config
                    : chooseConfig(m_open->platform.display, m_open->platform.gbm ? EGL_WINDOW_BIT : EGL_PBUFFER_BIT);
        if (!m_open->config) {
            return fail("no configuration with 8/8/8 bits of colour and 32 or 24 of depth",
                        "the software renderer has one (LIBGL_ALWAYS_SOFTWARE=1)");
        }
        return true;
    }

    // Without attributes a compatibility profile of the highest version is made.
    bool createContext()
    {
        // An empty list of attributes: drivers give their newest version with the old functions in it.
        const EGLDisplay display = m_open->platform.display;
        const EGLContext share = m_share ? m_share->context.get() : EGL_NO_CONTEXT;
        m_open->context = UniqueContext(eglCreateContext(display, m_open->config, share, nullptr), {display});
        if (!m_open->context) {
            return fail(m_share ? "eglCreateContext fails for a shared context" : "eglCreateContext fails",
                        "close other contexts, or free memory of the graphics hardware");
        }
        KrForkGuard::noteContext();
        return true;
    }

    // The size is asked about before the surface is made.
    bool createSurface()
    {
        if (!isDrawable()) {
            return fail("the renderer cannot draw " + m_size + " pixels", "ask for a smaller window");
        }
        if (isRepresentable(m_settings.width, m_settings.height)) {
            m_open->drawable = createDrawable(m_open->platform, m_open->config, m_settings.width, m_settings.height);
        }
        if (!m_open->drawable.surface) {
            return fail("there can be no surface of " + m_size + " pixels", "ask for a smaller window");
        }
        return true;
    }

    /// Asked of the context on a surface of one pixel: Mesa makes any surface, gigabytes of it, that is then of no use.
    bool isDrawable()
    {
        constexpr unsigned int kDrawnByAll = 4096;
        // Asking costs a surface and a switch; this much every renderer draws.
        if (m_settings.width <= kDrawnByAll && m_settings.height <= kDrawnByAll) {
            return true;
        }
        const Drawable pixel = createDrawable(m_open->platform, m_open->config, 1, 1);
        const bool isCurrent = pixel.surface && m_open->makeCurrent(pixel);
        const bool isRefused = isCurrent && !KrCurrentContext::canDraw(m_settings.width, m_settings.height);
        if (isCurrent) {
            KrCurrentContext::leaveEgl();
        }
        return !isRefused;
    }

    bool start()
    {
        if (!m_open->makeCurrent(m_open->drawable)) {
            return fail("eglMakeCurrent fails", m_open->platform.remedy);
        }
        // For windows of common size, which isDrawable() has not asked about.
        if (!KrCurrentContext::canDraw(m_settings.width, m_settings.height)) {
            return fail("the renderer cannot draw " + m_size + " pixels", "ask for a smaller window");
        }
        if (!doesDraw(m_settings.width, m_settings.height)) {
            return fail("the context opens, but nothing can be drawn with it", m_open->platform.remedy);
        }
        m_open->isSoftware = describe();
        return true;
    }

    /// True for a software renderer.
    /// The report of the window is read later, when it is known which attempt it keeps.
    bool describe()
    {
        KrWindowReport found;
        found.readCurrentContext();
        m_attempt.outcome = "opened " + m_size + " pixels on " + found.renderer;
        if (found.isSoftware) {
            m_attempt.remedy = KrEglPlatforms::softwareHint();
        }
        return found.isSoftware;
    }

    KrEglDriverLog m_messages;
    const KrWindowImpl::Settings& m_settings;
    const OpenContext* m_share;
    std::string m_size;
    KrWindowReport::Attempt m_attempt;
    UniqueOpenContext m_open;
};

/// The first hardware context, else the first software one. A software renderer found first does not end the search:
/// Mesa offers its own beside another maker's hardware driver.
UniqueOpenContext search(const KrWindowImpl::Settings& settings, KrWindowReport& report)
{
    // Without a driver every platform would fail for the same reason.
    if (!KrEglPlatforms::haveDriver(report)) {
        return nullptr;
    }

    UniqueOpenContext software;
    KrWindowReport skipped;
    // Surfaceless first: it needs neither device nor display. The default display comes last, since it may be an X
    // server's.
    for (const auto platforms : {KrEglPlatforms::surfaceless, KrEglPlatforms::devices, KrEglPlatforms::renderNodes,
                                 KrEglPlatforms::defaultDisplay}) {
        // What is not there matters no more once there is a context.
        for (const KrEglPlatform& platform : platforms(software ? skipped : report)) {
            // With a software renderer at hand only what may be hardware is worth another attempt.
            if (software && (!platform.maybeHardware || KrEglPlatforms::isSoftwareWanted())) {
                continue;
            }
            UniqueOpenContext open = Opening(settings, platform, nullptr).run(report);
            if (open && !open->isSoftware) {
                return open;
            }
            if (open && !software) {
                software = std::move(open);
            }
        }
    }
    return software;
}

} // namespace

struct KrEglWindowImpl::Private
{
    UniqueOpenContext open;
};

KrEglWindowImpl::KrEglWindowImpl()
    : m_private(std::make_unique<Private>())
{
}

KrEglWindowImpl::~KrEglWindowImpl()
{
    KrEglWindowImpl::close();
}

const char* KrEglWindowImpl::kind() const
{
    return "EGL";
}

// On success the context is current when this returns.
bool KrEglWindowImpl::open(const Settings& settings, KrWindowImpl* share, KrWindowReport& report)
{
    // An object can be opened again.
    close();
    // Restored on failure: an attempt switches contexts.
    const KrCurrentContext before;
    const auto* sharing = dynamic_cast<const KrEglWindowImpl*>(share);
    const OpenContext* shared = sharing ? sharing->m_private->open.get() : nullptr;
    // A shared context has to be on the display of the other one; there is nothing to search for.
    m_private->open = shared ? Opening(settings, shared->platform, shared).run(report) : search(settings, report);
    if (!m_private->open || !makeCurrent()) {
        m_private->open.reset();
        before.restore();
        return false;
    }
    report.readCurrentContext();
    return true;
}

// In a forked process nothing is open: contexts are the parent's.
bool KrEglWindowImpl::isOpen() const
{
    return m_private->open && !KrForkGuard::isForked();
}

// What was current before stays current, unless it was this window's context.
void KrEglWindowImpl::close()
{
    if (KrForkGuard::isForked()) {
        static_cast<void>(m_private->open.release()); // the parent's
    }
    if (!isOpen()) {
        return;
    }
    // Deleting the context takes making it current, so that its objects are freed; the client's comes back.
    const KrCurrentContext before;
    const bool wasOwn = before.isEgl(m_private->open->context.get());
    makeCurrent();
    m_private->open.reset();
    if (!wasOwn) {
        before.restore();
    }
}

bool KrEglWindowImpl::makeCurrent()
{
    return isOpen() && m_private->open->makeCurrent(m_private->open->drawable);
}

void KrEglWindowImpl::releaseCurrent()
{
    if (isCurrent()) {
        KrCurrentContext::leaveEgl();
    }
}

bool KrEglWindowImpl::isCurrent() const
{
    return isOpen() && m_private->open->isCurrent();
}

// There is nobody to show a picture to; the frame is only handed to the driver.
void KrEglWindowImpl::swapBuffers()
{
    if (makeCurrent()) {
        glFlush();
    }
}

bool KrEglWindowImpl::setSize(unsigned int width, unsigned int height)
{
    // The limit is asked of the own context, so it is made current first.
    if (!makeCurrent() || !isRepresentable(width, height) || !KrCurrentContext::canDraw(width, height)) {
        return false;
    }
    OpenContext& open = *m_private->open;
    if (width == open.drawable.width && height == open.drawable.height) {
        return true;
    }

    // A pbuffer keeps its size for life, so the context moves to a new one; GL objects belong to the context and stay.
    Drawable drawable = createDrawable(open.platform, open.config, width, height);
    if (!drawable.surface || !open.makeCurrent(drawable)) {
        // The error is the attempt's, and would be taken for a later call's.
        eglGetError();
        open.makeCurrent(open.drawable);
        return false;
    }
    // The old buffers go at the end of this function, when nothing draws into them any more.
    std::swap(open.drawable, drawable);
    return true;
}

// Without a screen these say yes: a program that is written for a window runs as it is.
bool KrEglWindowImpl::setPosition(int, int)
{
    return isOpen();
}

bool KrEglWindowImpl::setHidden(bool)
{
    return isOpen();
}

bool KrEglWindowImpl::setTopMost(bool)
{
    return isOpen();
}

bool KrEglWindowImpl::setTitle(const std::string&)
{
    return isOpen();
}

// Pbuffers have one image.
bool KrEglWindowImpl::isStereoSupported() const
{
    return false;
}

unsigned int KrEglWindowImpl::defaultFramebuffer() const
{
    return 0;
}

void KrEglWindowImpl::size(unsigned int& width, unsigned int& height) const
{
    width = isOpen() ? m_private->open->drawable.width : 0;
    height = isOpen() ? m_private->open->drawable.height : 0;
}
