#include <toolkit/context/private/KrGlxOpening.h>

#include <toolkit/context/private/KrCurrentContext.h>
#include <toolkit/context/private/KrForkGuard.h>
#include <toolkit/context/private/KrXErrorTrap.h>
#include <toolkit/foundation/KrLimits.h>

#include <GL/gl.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

// 0 for an attribute that the server does not know.
// Also for attributes that a server may be too old for.
int configValue(Display* display, GLXFBConfig config, int attribute)
{
    int value = 0;
    glXGetFBConfigAttrib(display, config, attribute, &value);
    return value;
}

/// How many samples a pixel has more or less than wanted.
int samplesOff(Display* display, GLXFBConfig config, unsigned int samples)
{
    return std::abs(configValue(display, config, GLX_SAMPLES) -
                    static_cast<int>(std::min(samples, Kr::Limits::kWindowSamples)));
}

// Drivers offer 10 bits too; a config without a visual makes no window.
bool isExact(Display* display, GLXFBConfig config)
{
    const int depth = configValue(display, config, GLX_DEPTH_SIZE);
    return configValue(display, config, GLX_RED_SIZE) == 8 && configValue(display, config, GLX_GREEN_SIZE) == 8 &&
           configValue(display, config, GLX_BLUE_SIZE) == 8 && (depth == 32 || depth == 24) &&
           configValue(display, config, GLX_VISUAL_ID) != 0;
}

/// Smaller is better; see the EGL window, which ranks alike. A visual with alpha may shine through on the desktop.
auto rank(Display* display, GLXFBConfig config, unsigned int samples)
{
    return std::make_tuple(configValue(display, config, GLX_CONFIG_CAVEAT) == GLX_NON_CONFORMANT_CONFIG,
                           samplesOff(display, config, samples), -configValue(display, config, GLX_DEPTH_SIZE),
                           configValue(display, config, GLX_ALPHA_SIZE), configValue(display, config, GLX_STENCIL_SIZE),
                           configValue(display, config, GLX_CONFIG_CAVEAT) == GLX_SLOW_CONFIG);
}

/// Good for a window and for a pbuffer, so that both hold the same pixels. Null when there is no exact one.
GLXFBConfig chooseConfig(Display* display, bool stereo, unsigned int samples)
{
    const int wanted[] = {GLX_DRAWABLE_TYPE,
                          GLX_WINDOW_BIT | GLX_PBUFFER_BIT,
                          GLX_RENDER_TYPE,
                          GLX_RGBA_BIT,
                          GLX_X_RENDERABLE,
                          True,
                          GLX_DOUBLEBUFFER,
                          True,
                          GLX_STEREO,
                          stereo ? True : False,
                          GLX_RED_SIZE,
                          8,
                          GLX_GREEN_SIZE,
                          8,
                          GLX_BLUE_SIZE,
                          8,
                          GLX_DEPTH_SIZE,
                          24,
                          None};
    int number = 0;
    const std::unique_ptr<GLXFBConfig, int (*)(void*)> found(
        // The list is Xlib's memory, the configs in it stay valid without.
        glXChooseFBConfig(display, DefaultScreen(display), wanted, &number), &XFree);
    std::vector<GLXFBConfig> configs;
    for (int i = 0; found && i < number; ++i) {
        if (isExact(display, found.get()[i])) {
            configs.push_back(found.get()[i]);
        }
    }
    const auto best = std::min_element(configs.begin(), configs.end(), [=](GLXFBConfig a, GLXFBConfig b) {
        return rank(display, a, samples) < rank(display, b, samples);
    });
    return best == configs.end() ? nullptr : *best;
}

/// One attempt to open a window: each step says what failed and what would mend it.
class Opening
{
public:
    Opening(const KrWindowImpl::Settings& settings, const KrGlxWindow* share, unsigned int samples)
        : m_settings(settings)
        , m_share(share)
        , m_samples(samples)
        , m_size(settings.sizeText())
        , m_open(std::make_unique<KrGlxWindow>())
    {
        m_attempt.backEnd = "GLX";
    }

    std::unique_ptr<KrGlxWindow> run(KrWindowReport& report)
    {
        m_attempt.succeeded = connect() && finish();
        report.attempts.push_back(m_attempt);
        return m_attempt.succeeded ? std::move(m_open) : nullptr;
    }

private:
    static constexpr const char* kHeadless = "draw without a display (KR_WINDOW=egl)";

    bool fail(const std::string& outcome, const std::string& driverError, const std::string& remedy)
    {
        m_attempt.outcome = outcome;
        m_attempt.driverError = driverError;
        m_attempt.remedy = remedy;
        return false;
    }

    bool connect()
    {
        // Shared contexts have to be on one connection.
        m_open->connection = m_share ? m_share->connection : KrXConnection::acquire();
        // XOpenDisplay tells no reason, so the name is all there is to say.
        if (m_open->connection) {
            return true;
        }
        const char* name = std::getenv("DISPLAY");
        return fail("no X display answers", name ? "DISPLAY is \"" + std::string(name) + "\"" : "DISPLAY is not set",
                    std::string("set DISPLAY to a running X server, start one (xvfb-run), or ") + kHeadless);
    }

    bool finish()
    {
        // One trap around all steps: an error of X belongs to the step that asks next.
        KrXErrorTrap trap(m_open->display());
        return haveGlx() && choose() && createContext(trap) && createSurface(trap) && start(trap);
    }

    // A server may be reached and still not know GLX, over a network for example.
    bool haveGlx()
    {
        int major = 0;
        int minor = 0;
        Display* display = m_open->display();
        if (!glXQueryExtension(display, nullptr, nullptr) || !glXQueryVersion(display, &major, &minor)) {
            return fail("the X server has no GLX", DisplayString(display),
                        "start the server with it (+extension GLX), install libglx-mesa0 and libgl1-mesa-dri");
        }
        // Pbuffers and configs came with 1.3.
        if (major == 1 && minor < 3) {
            return fail("the X server's GLX is older than 1.3", std::to_string(major) + "." + std::to_string(minor),
                        std::string("use another server, or ") + kHeadless);
        }
        return true;
    }

    // With stereo where that is wanted and there is such a configuration.
    bool choose()
    {
        Display* display = m_open->display();
        // Contexts share objects only on compatible configs; the same one always is.
        if (m_share) {
            m_open->config = m_share->config;
        } else if (m_settings.wantsStereo) {
            m_open->config = chooseConfig(display, true, m_samples);
        }
        // Stereo is a wish: without such a config the window opens without it.
        if (!m_open->config) {
            m_open->config = chooseConfig(display, false, m_samples);
        }
        if (!m_open->config) {
            return fail("no configuration with 8/8/8 bits of colour and 32 or 24 of depth", DisplayString(display),
                        "start the X server with 24 bits of colour (Xvfb -screen 0 1280x1024x24)");
        }
        m_open->isStereo = configValue(display, m_open->config, GLX_STEREO) != 0;
        return true;
    }

    // Without attributes a compatibility profile of the highest version is made.
    // The trap is asked as well: a context that comes with an error of X is of no use.
    bool createContext(KrXErrorTrap& trap)
    {
        Display* display = m_open->display();
        const GLXContext share = m_share ? m_share->context.get() : nullptr;
        m_open->context =
            // Direct rendering, where the server allows it.
            OwnedContext(display, glXCreateNewContext(display, m_open->config, GLX_RGBA_TYPE, share, True));
        if (!m_open->context || !trap.isClean()) {
            return fail(m_share ? "glXCreateNewContext fails for a shared context" : "glXCreateNewContext fails",
                        trap.error(), "install the driver of the display's graphics hardware, libgl1-mesa-dri");
        }
        KrForkGuard::noteContext();
        return true;
    }

    bool createSurface(KrXErrorTrap& trap)
    {
        // The protocol counts in 16 bits.
        if (m_settings.width > Kr::Limits::kWindowSide || m_settings.height > Kr::Limits::kWindowSide) {
            return fail("X windows have no " + m_size + " pixels", std::string(), "ask for a smaller window");
        }
        m_open->width = m_settings.width;
        m_open->height = m_settings.height;
        if (!m_open->createWindow(m_settings) || !trap.isClean()) {
            return fail("there can be no window of " + m_size + " pixels", trap.error(), "ask for a smaller window");
        }
        // A hidden window has an X window too, for when it is shown.
        if (m_settings.hidden) {
            m_open->pbuffer = m_open->createPbuffer(m_settings.width, m_settings.height);
        }
        if (m_settings.hidden && !m_open->pbuffer) {
            return fail("there can be no pbuffer of " + m_size + " pixels", trap.error(), "ask for a smaller window");
        }
        return true;
    }

    // In this order: what is too large to be drawn must not appear on the screen first.
    bool start(KrXErrorTrap& trap)
    {
        if (!m_open->makeCurrent()) {
            return fail("glXMakeContextCurrent fails", trap.error(), "install libgl1-mesa-dri");
        }
        // Asked when the context is current, since the limit is the renderer's.
        if (!KrCurrentContext::canDraw(m_settings.width, m_settings.height)) {
            return fail("the renderer cannot draw " + m_size + " pixels", std::string(), "ask for a smaller window");
        }
        if (!m_settings.hidden && !m_open->show()) {
            return fail("the window cannot be shown", trap.error(), kHeadless);
        }
        // Written last: the outcome of a failed step is that step's own.
        m_attempt.outcome = "opened " + m_size + " pixels on display " + DisplayString(m_open->display());
        if (m_settings.hidden) {
            m_attempt.outcome += ", hidden";
        }
        if (m_settings.wantsStereo && !m_open->isStereo) {
            m_attempt.remedy = "the display has no stereo visual; the window draws one eye's view";
        }
        return true;
    }

    const KrWindowImpl::Settings& m_settings;
    const KrGlxWindow* m_share;
    unsigned int m_samples;
    std::string m_size;
    KrWindowReport::Attempt m_attempt;
    std::unique_ptr<KrGlxWindow> m_open;
};

} // namespace

std::unique_ptr<KrGlxWindow> KrGlxOpening::run(const KrWindowImpl::Settings& settings, const KrGlxWindow* share,
                                               unsigned int samples, KrWindowReport& report)
{
    return Opening(settings, share, samples).run(report);
}
