#pragma once

#include <toolkit/context/KrWindowReport.h>
#include <toolkit/math/KrColor.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

class KrWindowImpl;

/// An OpenGL context with something to draw into: an off-screen surface, a window on the screen, or a context of
/// the client's own.
///
/// Constructed cheaply; `init` opens it. Which kind it is decides `setImpl`, or else the environment variable
/// KR_WINDOW ("egl", "glx"), or else: GLX where an X display answers, EGL otherwise. What is asked for by name has no
/// stand-in.
///
/// An open window, its context and everything drawn with it belong to the thread that opened it, and so do windows that
/// share: what is asked for in another one is refused. Once it is closed, any thread may open it. Threads with a window
/// each need no lock. A process that is forked off one that has had a window can have none, and must be started with
/// spawn or exec instead; the windows that it inherits are only good for being destroyed.
class KrWindow
{
public:
    /// Closed, 640 x 480 pixels; `init` opens it.
    KrWindow();
    KrWindow(const KrWindow&) = delete;
    KrWindow& operator=(const KrWindow&) = delete;

    // The order of the virtual operations is part of the interface.
    virtual ~KrWindow();
    /// Pixels. Before `init` only stored. False, and the old size kept, for a surface that cannot have that size.
    /// A width or height of 0 is stored too; the surface then has 1 pixel.
    virtual bool setWindowSize(unsigned int width, unsigned int height);
    /// Upper left corner on the screen, pixels; `move` false only stores it.
    virtual bool setWindowPos(int x, int y, bool move);
    /// `setWindowSize`, then `setWindowPos`; false when either is.
    virtual bool setWindowSizeAndPos(unsigned int width, unsigned int height, int x, int y);
    /// The title on the screen, and the name in messages. UTF-8.
    virtual void setName(const std::string& name);
    virtual const std::string& getName() const;
    /// Whether the window stays above others on the screen. False, after one message, and no change, when it cannot.
    virtual bool setTopMost(bool topMost);
    virtual bool getTopMost() const;
    /// A hidden window draws the same pixels off the screen. False, after one message, and no change, when it cannot.
    virtual bool setHideWindow(bool hide);
    virtual bool getHideWindow() const;
    /// Before `init`: asks for a stereo visual. After: what was got.
    virtual void setStereoSupported(bool supported);
    virtual bool getStereoSupported() const;
    /// Shares GL objects with `window` (null for none) from the next `init` on. False when this window is open
    /// already. If sharing proves impossible, `init` opens a context of its own and says so.
    virtual bool share(KrWindow* window);
    /// The windows whose GL objects this window's context shares at present; empty for none.
    virtual std::vector<KrWindow*> getShare() const;
    /// The window given to `share`; null when none was, or when it is gone.
    virtual KrWindow* getShareWindow() const;
    /// Makes the context current and shows what was drawn. False as for `makeCurrent`.
    virtual bool swapBuffers();
    /// Makes this window's context current and this window `getWindow()`. False when it is not open; false, after one
    /// message, in a thread or a process that the window does not belong to.
    virtual bool makeCurrent();
    /// Releases surface and context, its own being current while that happens. Harmless when not open; can be opened
    /// again with `init`. Where it belongs to another thread, which must not be using it, there is one message and the
    /// context is given up as it is. Always true.
    virtual bool closeWindow();
    /// Takes the implementation to use from the next `init` on; the window is closed first when it is open.
    virtual void setImpl(std::unique_ptr<KrWindowImpl> impl);
    /// Null before the first `init` or `setImpl`.
    virtual KrWindowImpl* getImpl() const;
    /// Opens the window and leaves its context current. True at once when it is open.
    /// @return false after one message that says what was tried; `report` tells more
    virtual bool init();

    /// What the window is cleared to before a frame is drawn. A value only: the window itself draws nothing.
    void setBackgroundColor(const KrColor& color) { m_backgroundColor = color; }
    const KrColor& getBackgroundColor() const { return m_backgroundColor; }

    /// From a successful `init` to `closeWindow`.
    bool isInitialized() const { return m_initialized; }
    /// False for a window that is open in another thread, and in a process that was forked off one that has had a
    /// window.
    bool isUsableHere() const;
    unsigned int windowWidth() const { return m_width; }   ///< pixels
    unsigned int windowHeight() const { return m_height; } ///< pixels
    int windowX() const { return m_x; }                    ///< pixels, upper left corner on the screen
    int windowY() const { return m_y; }

    /// Every back end that the last `init` tried and the context it got.
    const KrWindowReport& report() const { return m_report; }

    /// The window whose context was made current last in this thread; null when it is closed or there is none.
    static KrWindow* getWindow();

protected:
    /// `isUsableHere`, with one message, which begins with `operation` ("KrWindow::init"), when it is not.
    bool demandUsable(const char* operation) const;

private:
    using ShareGroup = std::vector<KrWindow*>;
    using Link = std::shared_ptr<std::atomic<KrWindow*>>;

    static Link& currentLink();
    bool openImpl();
    bool openWith(KrWindowImpl& impl);
    KrWindowImpl* implToShareWith(const KrWindowImpl& impl, std::string& reason) const;

    std::unique_ptr<KrWindowImpl> m_impl;
    bool m_implIsGiven = false; ///< by `setImpl`; else `init` chooses one
    std::string m_name;
    unsigned int m_width = 640;
    unsigned int m_height = 480;
    int m_x = 0;
    int m_y = 0;
    bool m_topMost = false;
    bool m_hidden = false;
    bool m_stereo = false; ///< asked for
    bool m_initialized = false;
    std::thread::id m_thread; ///< that opened it
    Link m_link;              ///< what threads remember of it, null inside once it is closed; null when closed
    KrWindow* m_shareWindow = nullptr;
    std::vector<KrWindow*> m_sharers;         ///< those whose m_shareWindow is this one
    std::shared_ptr<ShareGroup> m_shareGroup; ///< the open windows whose contexts share, this one too; null when closed
    KrColor m_backgroundColor = KrColor(1.0, 1.0, 1.0);
    KrWindowReport m_report;
};
