#include <toolkit/window/KrWindow.h>

#include <toolkit/context/KrEglWindowImpl.h>
#include <toolkit/context/KrGlxWindowImpl.h>
#include <toolkit/context/private/KrForkGuard.h>
#include <toolkit/foundation/KrPrint.h>

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace
{

// What KrWindow opens by itself; other ones are given by setImpl.
enum class BackEnd
{
    Glx,
    Egl
};

// One form for all that an open window could not do; the window keeps what it had.
void warn(const char* operation, const std::string& name, const std::string& what)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrWindow::%s - \"%s\" %s.\n", operation, name.c_str(),
                                 what.c_str());
}

// A variable that is not set counts as empty.
std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

// Without a window yet: `open` makes it.
std::unique_ptr<KrWindowImpl> createImpl(BackEnd backEnd)
{
    if (backEnd == BackEnd::Glx) {
        return std::make_unique<KrGlxWindowImpl>();
    }
    return std::make_unique<KrEglWindowImpl>();
}

/// What to try, in this order. A choice of the user's is kept to: nothing else stands in for it.
std::vector<BackEnd> backEnds(const KrWindow* shareWindow)
{
    const std::string wanted = environment("KR_WINDOW");
    if (strcasecmp(wanted.c_str(), "glx") == 0) {
        return {BackEnd::Glx};
    }
    if (strcasecmp(wanted.c_str(), "egl") == 0) {
        return {BackEnd::Egl};
    }
    if (!wanted.empty()) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrWindow::init - KR_WINDOW is \"%s\", not \"glx\" or \"egl\"; it is ignored.\n",
                                     wanted.c_str());
    }
    // GLX and EGL contexts share nothing, so the back end of the other window comes first.
    if (shareWindow && shareWindow->isInitialized() && shareWindow->getImpl()->kind() == std::string("EGL")) {
        return {BackEnd::Egl};
    }
    return {BackEnd::Glx, BackEnd::Egl};
}

/// "GLX: no X display answers (DISPLAY is not set); EGL surfaceless: ..."
/// Only of what failed: the user wants to know what to mend.
std::string failures(const KrWindowReport& report)
{
    std::string text;
    for (const KrWindowReport::Attempt& attempt : report.attempts) {
        if (attempt.succeeded) {
            continue;
        }
        text += (text.empty() ? "" : "; ") + attempt.backEnd + ": " + attempt.outcome;
        if (!attempt.driverError.empty()) {
            text += " (" + attempt.driverError + ")";
        }
    }
    return text;
}

} // namespace

KrWindow::KrWindow() = default;

KrWindow::~KrWindow()
{
    KrWindow::closeWindow();
    // The other window keeps pointers both ways; whichever goes first takes itself out.
    KrWindow::share(nullptr);
    for (KrWindow* sharer : m_sharers) {
        sharer->m_shareWindow = nullptr;
    }
}

// Contexts are current in a thread. One that closes a window of another thread cannot reach what that one remembers.
KrWindow::Link& KrWindow::currentLink()
{
    // Plain memory, which outlives every object of the thread.
    static thread_local bool t_isOver = false;
    struct Current
    {
        ~Current() { t_isOver = true; }
        Link link;
    };
    static thread_local Current t_current;
    // Objects of the main thread end before static windows do, which are closed only then.
    static Link* const s_atExit = new Link;
    return t_isOver ? *s_atExit : t_current.link;
}

// Asked before every call that a driver would not survive.
bool KrWindow::isUsableHere() const
{
    // Before it is open a window belongs to no thread. After a fork not even opening is safe: the driver's locks and
    // connections are the parent's.
    return !KrForkGuard::isForked() && (!m_initialized || m_thread == std::this_thread::get_id());
}

// Two different mistakes, so two messages: each says what to do instead.
bool KrWindow::demandUsable(const char* operation) const
{
    if (isUsableHere()) {
        return true;
    }
    if (KrForkGuard::isForked()) {
        Kr::Print::instance()->write(
            Kr::Print::Error,
            "%s - \"%s\" cannot draw in this process: it was forked after its parent had opened "
            "a window, which graphics drivers do not survive; start it with spawn or exec.\n",
            operation, m_name.c_str());
    } else {
        Kr::Print::instance()->write(
            Kr::Print::Error,
            "%s - \"%s\" belongs to the thread that opened it, which is another one; once that "
            "has closed it, any thread may open it.\n",
            operation, m_name.c_str());
    }
    return false;
}

// A closed window takes any size; whether it can be had is seen when it opens.
bool KrWindow::setWindowSize(unsigned int width, unsigned int height)
{
    if (m_initialized) {
        if (!demandUsable("KrWindow::setWindowSize")) {
            return false;
        }
        // OpenGL has no surface of size 0, while a window may be told to have it.
        if (!m_impl->setSize(std::max(1u, width), std::max(1u, height))) {
            warn("setWindowSize", m_name,
                 "cannot be " + std::to_string(width) + " x " + std::to_string(height) + " pixels; it keeps " +
                     std::to_string(m_width) + " x " + std::to_string(m_height));
            return false;
        }
        // An off-screen window may get a new surface, which makes its context current.
        currentLink() = m_link;
    }
    m_width = width;
    m_height = height;
    return true;
}

// From the upper left corner of the screen, in pixels.
bool KrWindow::setWindowPos(int x, int y, bool move)
{
    // With `move` false the position is only noted: the user has moved the window, and it is there already.
    if (m_initialized && move && !m_impl->setPosition(x, y)) {
        warn("setWindowPos", m_name, "cannot be moved to " + std::to_string(x) + ", " + std::to_string(y));
        return false;
    }
    m_x = x;
    m_y = y;
    return true;
}

bool KrWindow::setWindowSizeAndPos(unsigned int width, unsigned int height, int x, int y)
{
    // Both are tried: a window that cannot be as large can still be moved.
    const bool isSized = setWindowSize(width, height);
    return setWindowPos(x, y, true) && isSized;
}

// A title that cannot be shown is no failure: the name is the window's own.
void KrWindow::setName(const std::string& name)
{
    m_name = name;
    if (m_initialized) {
        m_impl->setTitle(name);
    }
}

const std::string& KrWindow::getName() const
{
    return m_name;
}

// A wish of a closed window, which `init` hands on.
bool KrWindow::setTopMost(bool topMost)
{
    // An attribute that could not be given to the open window is not noted either, so the getter tells the truth.
    if (m_initialized && !m_impl->setTopMost(topMost)) {
        warn("setTopMost", m_name, topMost ? "cannot be kept on top" : "cannot be put back among the others");
        return false;
    }
    m_topMost = topMost;
    return true;
}

bool KrWindow::getTopMost() const
{
    return m_topMost;
}

// Hiding changes what is drawn into, so it is for the window's own thread.
bool KrWindow::setHideWindow(bool hide)
{
    if (m_initialized && !demandUsable("KrWindow::setHideWindow")) {
        return false;
    }
    if (m_initialized && !m_impl->setHidden(hide)) {
        warn("setHideWindow", m_name, hide ? "cannot be hidden" : "cannot be shown");
        return false;
    }
    m_hidden = hide;
    return true;
}

bool KrWindow::getHideWindow() const
{
    return m_hidden;
}

// Only for the next `init`: a window's visual cannot be changed.
void KrWindow::setStereoSupported(bool supported)
{
    m_stereo = supported;
}

bool KrWindow::getStereoSupported() const
{
    return m_initialized ? m_impl->isStereoSupported() : m_stereo;
}

// False for an open window, since contexts share from their making on.
bool KrWindow::share(KrWindow* window)
{
    // The context is made once and shares from the beginning or never; a window has nothing to share with itself.
    if (m_initialized || window == this) {
        return false;
    }
    if (m_shareWindow) {
        std::vector<KrWindow*>& sharers = m_shareWindow->m_sharers;
        sharers.erase(std::remove(sharers.begin(), sharers.end(), this), sharers.end());
    }
    m_shareWindow = window;
    if (window) {
        window->m_sharers.push_back(this);
    }
    return true;
}

// What came of sharing; getShareWindow() is what was asked for.
std::vector<KrWindow*> KrWindow::getShare() const
{
    // Only an open window is in a group; the group lists its open members.
    std::vector<KrWindow*> others;
    if (m_shareGroup) {
        std::copy_if(m_shareGroup->begin(), m_shareGroup->end(), std::back_inserter(others),
                     [this](const KrWindow* window) { return window != this; });
    }
    return others;
}

KrWindow* KrWindow::getShareWindow() const
{
    return m_shareWindow;
}

// Swapping makes the window current, as drawing into it does.
bool KrWindow::swapBuffers()
{
    // Not by the virtual function: a derived class may do more in its own than to switch contexts.
    if (!KrWindow::makeCurrent()) {
        return false;
    }
    m_impl->swapBuffers();
    return true;
}

bool KrWindow::makeCurrent()
{
    if (!m_initialized || !demandUsable("KrWindow::makeCurrent")) {
        return false;
    }
    if (!m_impl->makeCurrent()) {
        warn("makeCurrent", m_name, std::string("cannot make its ") + m_impl->kind() + " context current");
        return false;
    }
    currentLink() = m_link;
    return true;
}

// True also when nothing was open: the window is closed afterwards, which is what was asked for.
bool KrWindow::closeWindow()
{
    if (!m_initialized) {
        return true;
    }
    // A context can be current in one thread only, so this one cannot be destroyed properly from here.
    if (!isUsableHere() && !KrForkGuard::isForked()) {
        warn("closeWindow", m_name, "is closed by another thread than the one that opened it; its context is given up");
    }
    // Before the implementation closes: whoever asks in the meantime finds a window that is not open.
    m_initialized = false;
    m_thread = std::thread::id();
    m_impl->close();
    m_shareGroup->erase(std::find(m_shareGroup->begin(), m_shareGroup->end(), this));
    m_shareGroup.reset();
    // Every thread that remembers this window as its current one reads null from here on.
    m_link->store(nullptr);
    m_link.reset();
    return true;
}

// A given implementation is used for good, until another one is given, or null.
void KrWindow::setImpl(std::unique_ptr<KrWindowImpl> impl)
{
    // The old implementation's context must go before the object that knows how to destroy it.
    closeWindow();
    m_impl = std::move(impl);
    m_implIsGiven = m_impl != nullptr;
}

KrWindowImpl* KrWindow::getImpl() const
{
    return m_impl.get();
}

// Open already is as good as opened, so that callers need not ask.
bool KrWindow::init()
{
    if (!demandUsable("KrWindow::init")) {
        return false;
    }
    if (m_initialized) {
        return true;
    }
    // The report is about the last attempt to open, whether it succeeds or not.
    m_report = KrWindowReport();
    if (!openImpl()) {
        Kr::Print::instance()->write(Kr::Print::Error,
                                     "KrWindow::init - \"%s\" (%u x %u pixels) gets no context: %s.\n", m_name.c_str(),
                                     m_width, m_height, failures(m_report).c_str());
        return false;
    }
    m_shareGroup->push_back(this);
    m_initialized = true;
    m_thread = std::this_thread::get_id();
    m_link = std::make_shared<std::atomic<KrWindow*>>(this);
    currentLink() = m_link;
    return true;
}

bool KrWindow::openImpl()
{
    // An implementation that was given is the caller's choice: nothing else is tried in its place.
    if (m_implIsGiven) {
        return openWith(*m_impl);
    }

    // What was opened before is not used again: another display may answer by now.
    m_impl.reset();
    for (const BackEnd backEnd : backEnds(m_shareWindow)) {
        // Kept in a local until it is open, so that a failed opening leaves none behind.
        std::unique_ptr<KrWindowImpl> impl = createImpl(backEnd);
        if (!openWith(*impl)) {
            continue;
        }
        // Without a display that is what everybody expects; with one, the user is looking for a window.
        if (!m_report.attempts.front().succeeded && backEnd == BackEnd::Egl && !m_hidden &&
            !environment("DISPLAY").empty()) {
            Kr::Print::instance()->write(Kr::Print::Notice, "KrWindow::init - \"%s\" is not shown on the screen: %s.\n",
                                         m_name.c_str(), failures(m_report).c_str());
        }
        m_impl = std::move(impl);
        return true;
    }
    return false;
}

// With sharing first, and without where that fails.
bool KrWindow::openWith(KrWindowImpl& impl)
{
    KrWindowImpl::Settings settings;
    settings.name = m_name;
    settings.x = m_x;
    settings.y = m_y;
    settings.width = std::max(1u, m_width);
    settings.height = std::max(1u, m_height);
    settings.hidden = m_hidden;
    settings.topMost = m_topMost;
    settings.wantsStereo = m_stereo;

    std::string reason;
    // Sharing is a wish: where it cannot be, the window opens with a context of its own and says why.
    KrWindowImpl* share = implToShareWith(impl, reason);
    if (share && impl.open(settings, share, m_report)) {
        m_shareGroup = m_shareWindow->m_shareGroup;
        return true;
    }
    if (share) {
        // The last attempt is the one with sharing; its outcome is the reason that the user reads.
        reason = m_report.attempts.back().outcome;
    }
    if (!impl.open(settings, nullptr, m_report)) {
        return false;
    }
    // A group of its own, which later windows may join.
    m_shareGroup = std::make_shared<ShareGroup>();
    if (m_shareWindow) {
        Kr::Print::instance()->write(
            Kr::Print::Notice, "KrWindow::init - \"%s\" shares nothing with \"%s\", it has a context of its own: %s.\n",
            m_name.c_str(), m_shareWindow->getName().c_str(), reason.c_str());
    }
    return true;
}

/// Null, with the reason, when there is nothing to share with; the reason is empty when nobody asked for sharing.
KrWindowImpl* KrWindow::implToShareWith(const KrWindowImpl& impl, std::string& reason) const
{
    if (!m_shareWindow) {
        return nullptr;
    }
    if (!m_shareWindow->isInitialized()) {
        reason = "that one is not open";
        return nullptr;
    }
    if (!m_shareWindow->isUsableHere()) {
        reason = "that one belongs to another thread";
        return nullptr;
    }
    KrWindowImpl* other = m_shareWindow->getImpl();
    // Names of kinds are compared by content: two libraries may have the same literal twice.
    if (std::string(other->kind()) != impl.kind()) {
        reason = std::string("one context is ") + impl.kind() + ", the other " + other->kind();
        return nullptr;
    }
    return other;
}

// By way of a shared cell, which a closing window empties: no thread is left with a pointer to what has gone.
KrWindow* KrWindow::getWindow()
{
    const Link& current = currentLink();
    return current ? current->load() : nullptr;
}
