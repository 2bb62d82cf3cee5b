// Runs krrender --view on a virtual screen, as a user does, and looks at the screen.

#include <tests/support/Program.h>

// Before X11: Xlib's macros (None, Bool) break GoogleTest.
#include <gtest/gtest.h>
#include <tests/support/XWindows.h>

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

namespace
{

const char* const kUrdf = R"(<robot name="r"><link name="base">
  <inertial><mass value="1"/><inertia ixx="0.1" iyy="0.1" izz="0.1" ixy="0" ixz="0" iyz="0"/></inertial>
  <visual><geometry><box size="1 1 1"/></geometry><material name="m"><color rgba="0.8 0.1 0.1 1"/></material></visual>
  </link>
  <link name="arm"><visual><origin xyz="0 0 1"/><geometry><box size="0.2 0.2 1"/></geometry></visual>
  <collision><geometry><box size="6 0.3 0.3"/></geometry></collision></link>
  <joint name="j" type="continuous"><origin xyz="0.8 0 0"/><parent link="base"/><child link="arm"/><axis xyz="1 0 0"/></joint></robot>)";

struct DisplayCloser
{
    void operator()(Display* display) const { XCloseDisplay(display); }
};

class KrAppViewTest : public testing::Test
{
protected:
    void SetUp() override
    {
        // One for all tests: with its last client a virtual server starts over, and answers nobody meanwhile.
        static const std::unique_ptr<Display, DisplayCloser> s_display(XOpenDisplay(nullptr));
        XSetErrorHandler([](Display*, XErrorEvent*) { return 0; }); // the window may not be there yet, or no more
        m_display = s_display.get();
        if (!m_display) {
            GTEST_SKIP() << "no X display answers; run under xvfb-run";
        }
        m_folder.write("r.urdf", kUrdf);
    }
    void TearDown() override
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }

    /// Starts it and waits for its first picture.
    void start(const std::vector<std::string>& more = {})
    {
        m_pid = fork();
        if (m_pid == 0) {
            std::vector<std::string> words = {KR_RENDER, "--view", m_folder.path("r.urdf"), "--size", "320x240"};
            words.insert(words.end(), more.begin(), more.end());
            std::vector<char*> arguments;
            for (std::string& word : words) {
                arguments.push_back(&word[0]);
            }
            arguments.push_back(nullptr);
            const int out = open(m_folder.path("out").c_str(), O_CREAT | O_WRONLY, 0600);
            dup2(out, 1);
            execv(KR_RENDER, arguments.data());
            _exit(99);
        }
        for (int i = 0; i < 300 && (m_window == 0 || coloursNow().size() < 3); ++i) {
            usleep(50000);
            m_window = find();
        }
        ASSERT_NE(m_window, 0u);
    }
    Window find() const
    {
        return findWindow(m_display, [](const std::string& name) { return name.rfind("krrender - ", 0) == 0; });
    }
    std::vector<unsigned long> pixels() const
    {
        std::vector<unsigned long> all;
        if (XImage* image = XGetImage(m_display, m_window, 0, 0, 320, 240, AllPlanes, ZPixmap)) {
            for (int i = 0; i < 320 * 240; ++i) {
                all.push_back(XGetPixel(image, i % 320, i / 320) & 0xffffff);
            }
            XDestroyImage(image);
        }
        return all;
    }
    std::set<unsigned long> coloursNow() const
    {
        const std::vector<unsigned long> all = pixels();
        return {all.begin(), all.end()};
    }
    void press(KeySym symbol) const
    {
        XEvent event = {};
        event.type = KeyPress;
        event.xkey.window = m_window;
        event.xkey.keycode = XKeysymToKeycode(m_display, symbol);
        XSendEvent(m_display, m_window, False, NoEventMask, &event);
        XSync(m_display, False);
    }
    /// The left button of the mouse, held over these places one after the other.
    void drag(const std::vector<std::pair<int, int>>& places, Time time) const
    {
        XEvent event = {};
        event.xbutton.window = m_window;
        event.xbutton.button = 1;
        event.xbutton.time = time;
        for (std::size_t i = 0; i <= places.size(); ++i) {
            event.type = i == 0 ? ButtonPress : i < places.size() ? MotionNotify : ButtonRelease;
            const auto [x, y] = places[std::min(i, places.size() - 1)];
            (event.type == MotionNotify ? event.xmotion.x : event.xbutton.x) = x;
            (event.type == MotionNotify ? event.xmotion.y : event.xbutton.y) = y;
            XSendEvent(m_display, m_window, False, NoEventMask, &event);
        }
        XSync(m_display, False);
    }
    /// What the program prints, when it has as many lines as that; as it is after some seconds otherwise.
    std::string told(std::ptrdiff_t numLines) const
    {
        std::string text;
        for (int i = 0; i < 500 && std::count(text.begin(), text.end(), '\n') < numLines; ++i) {
            usleep(10000);
            text = contentOf(m_folder.path("out"));
        }
        return text;
    }
    /// Waits until the picture is as `condition` wants it; false when it does not come to that.
    template <typename Condition>
    bool comesTo(const Condition& condition) const
    {
        for (int i = 0; i < 500; ++i) {
            if (condition(pixels())) {
                return true;
            }
            usleep(10000);
        }
        return false;
    }
    /// The picture that stays as it is for that time; empty when none does.
    std::vector<unsigned long> settled(int milliseconds) const
    {
        std::vector<unsigned long> picture;
        int quiet = 0;
        const bool isQuiet = comesTo([&](const std::vector<unsigned long>& now) {
            quiet = now == picture ? quiet + 10 : 0;
            picture = now;
            return quiet >= milliseconds;
        });
        return isQuiet ? picture : std::vector<unsigned long>();
    }
    /// Presses and waits for another picture; false when it stays as it was.
    bool changes(KeySym symbol) const
    {
        const std::vector<unsigned long> before = pixels();
        press(symbol);
        return comesTo([&](const std::vector<unsigned long>& now) { return now != before; });
    }
    /// s, of the program
    double processorTime() const
    {
        const std::string stat = contentOf("/proc/" + std::to_string(m_pid) + "/stat");
        std::istringstream fields(stat.substr(stat.rfind(')') + 2));
        std::string skipped;
        for (int i = 0; i < 11; ++i) {
            fields >> skipped;
        }
        double user = 0.0, system = 0.0;
        fields >> user >> system;
        return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }
    int end()
    {
        int status = -1;
        waitpid(m_pid, &status, 0);
        m_pid = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    Folder m_folder;
    Display* m_display = nullptr;
    pid_t m_pid = 0;
    Window m_window = 0;
};

TEST_F(KrAppViewTest, TogglesWhatItsKeysSayRestsMeanwhileAndClosesWithEscape)
{
    ASSERT_NO_FATAL_FAILURE(start());
    const std::string told = contentOf(m_folder.path("out"));
    EXPECT_NE(told.find("left drag"), std::string::npos) << told;
    EXPECT_NE(told.find("Escape"), std::string::npos) << told;
    const std::vector<unsigned long> first = settled(200);
    const auto isFirst = [&](const std::vector<unsigned long>& now) { return now == first; };
    for (const KeySym key : {XK_a, XK_v, XK_m, XK_c, XK_s, XK_w}) {
        EXPECT_TRUE(changes(key)) << static_cast<char>(key);
        settled(50);
        press(key);
        EXPECT_TRUE(comesTo(isFirst)) << static_cast<char>(key) << " twice";
    }
    EXPECT_TRUE(changes(XK_3));
    settled(50);
    EXPECT_TRUE(changes(XK_h));

    settled(200);
    const double before = processorTime();
    usleep(600000);
    EXPECT_LT(processorTime() - before, 0.05) << "it works while nothing happens";
    press(XK_Escape);
    EXPECT_EQ(end(), 0);
}

TEST_F(KrAppViewTest, PresetsHoldEverythingThatIsShown)
{
    // A rod towards the eye: seen from its side at the same distance it would stick out.
    ASSERT_NO_FATAL_FAILURE(start({"--azimuth", "0", "--elevation", "0", "--show", "collision,mass", "-q"}));
    for (const KeySym key : {XK_3, XK_7}) {
        EXPECT_TRUE(changes(key));
        const std::vector<unsigned long> picture = settled(100);
        ASSERT_EQ(picture.size(), 320u * 240u);
        for (std::size_t y = 0; y < 240; ++y) {
            ASSERT_EQ(picture[320 * y], picture[0]) << y;
            ASSERT_EQ(picture[320 * y + 319], picture[0]) << y;
        }
    }
    press(XK_Escape);
    EXPECT_EQ(end(), 0);
}

TEST_F(KrAppViewTest, PlaysATrajectoryUntilItIsPaused)
{
    std::string rows = "j\n";
    for (int i = 0; i < 200; ++i) {
        rows += std::to_string(0.03 * i) + "\n";
    }
    const std::string file = m_folder.write("motion.csv", rows);
    ASSERT_NO_FATAL_FAILURE(start({"--trajectory", file, "--fps", "10", "-q"}));
    const std::vector<unsigned long> first = pixels();
    EXPECT_TRUE(comesTo([&](const std::vector<unsigned long>& now) { return now != first; }));
    press(XK_space);
    const std::vector<unsigned long> paused = settled(500); // five rows
    EXPECT_EQ(pixels(), paused);
    EXPECT_TRUE(changes(XK_space));
    kill(m_pid, SIGTERM);
    EXPECT_EQ(end(), 0);
}

TEST_F(KrAppViewTest, PlaysByTheTimesOfATrajectory)
{
    const std::string file = m_folder.write("motion.csv", "time,j\n0,0\n0.2,1\n0.4,2\n600,0.5\n");
    ASSERT_NO_FATAL_FAILURE(start({"--trajectory", file, "-q"}));
    const std::vector<unsigned long> third = settled(600); // it stays for minutes
    const double before = processorTime();
    usleep(600000);
    EXPECT_EQ(pixels(), third);
    EXPECT_LT(processorTime() - before, 0.05);
    press(XK_q);
    EXPECT_EQ(end(), 0);
}

TEST_F(KrAppViewTest, TellsWhatIsClickedAndNothingOfADrag)
{
    // From the front: the box of the base is 1 m across and fills the middle, the arm stands behind and above it.
    ASSERT_NO_FATAL_FAILURE(start({"--eye", "0,-8,0", "--look-at", "0,0,0", "--fov", "30", "--joint", "j=0.5"}));
    const std::vector<unsigned long> first = settled(200);
    const std::string keys = contentOf(m_folder.path("out"));
    const std::ptrdiff_t numKeys = std::count(keys.begin(), keys.end(), '\n');
    EXPECT_NE(keys.find("left click"), std::string::npos);
    // The camera's.
    drag({{160, 120}, {190, 120}}, 1000);
    press(XK_h);
    settled(200);
    drag({{160, 120}, {162, 121}, {160, 120}}, 5000);
    const std::string base = told(numKeys + 1).substr(keys.size());
    EXPECT_EQ(base.rfind("base: world (0.0", 0), 0u) << base;
    EXPECT_NE(base.find(", -0.5000, "), std::string::npos) << base;
    EXPECT_NE(base.find("; distance 7.5"), std::string::npos) << base;
    // The same is in the window, until something else is clicked.
    EXPECT_TRUE(comesTo([&](const std::vector<unsigned long>& now) { return now != first; }));
    drag({{4, 236}}, 9000);
    EXPECT_TRUE(comesTo([&](const std::vector<unsigned long>& now) { return now == first; }));
    // 0.8 m to the right of the base and 1 m up the turned arm, (0, -sin 0.5, cos 0.5).
    const double pixel = 120.0 / (std::tan(0.2618) * (8.0 - std::sin(0.5)));
    drag({{160 + std::lround(0.8 * pixel), 120 - std::lround(std::cos(0.5) * pixel)}}, 13000);
    const std::string arm = told(numKeys + 2).substr(keys.size() + base.size());
    EXPECT_EQ(arm.rfind("arm: j = 0.5 rad (28.65 deg); world (0.", 0), 0u) << arm;
    EXPECT_NE(arm.find("; link ("), std::string::npos) << arm;
    press(XK_q);
    EXPECT_EQ(end(), 0);
}

TEST_F(KrAppViewTest, SaysWhatItNeedsWithoutADisplay)
{
    const Answer answer = runCommand(std::string(KR_RENDER) + " --view '" + m_folder.path("r.urdf") + "'", "DISPLAY=");
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.numErrorLines(), 1u) << answer.err;
    EXPECT_NE(answer.err.find("--view needs a window on a display: no X display answers"), std::string::npos)
        << answer.err;
}

} // namespace
