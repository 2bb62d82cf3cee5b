#pragma once

#include <toolkit/image/KrImage.h>

#include <functional>
#include <string>
#include <vector>

class KrSGWindow;
class KrSelfTestRun;

/// A sample scene that is drawn and judged: whether pictures come out right on this machine, with this driver.
///
/// A functor: called with a folder it draws its scene in windows of its own, hidden ones, compares small patches,
/// covered areas and depths with what the scene's geometry asks for, and writes the pictures. The scenes are built in
/// code; only the plume reads files, its shaders (KR_TOOLKITS). What the caller has stays as it is: the current
/// context, the scale of link axes, the textures of morph links. On the thread that draws.
class KrSelfTest
{
public:
    struct Result
    {
        bool passed = false;
        std::string message;               ///< the first thing that is wrong, and where; empty when nothing is
        std::vector<std::string> pictures; ///< paths of the files that were written
        double milliseconds = 0.0;         ///< what it took, contexts and files included
    };

    /// Spoils what a test draws: how the tests see that a renderer that draws wrong is found.
    struct Spoiler
    {
        std::function<void(KrSGWindow& window)> window;  ///< called before each frame that is captured
        std::function<void(KrImage& picture)> picture;   ///< called with each picture before it is judged
        std::function<void(std::vector<float>&)> depths; ///< called with depths before they are judged
    };

    /// All three are literals or functions of the library, and outlive the test.
    KrSelfTest(const char* name, const char* checks, void (*scene)(KrSelfTestRun&))
        : m_name(name)
        , m_checks(checks)
        , m_scene(scene)
    {
    }

    const char* name() const { return m_name; }     ///< one word
    const char* checks() const { return m_checks; } ///< a clause for a table

    /// @param folder  where pictures go, `name`-what.png; empty for none. It must exist
    /// Whatever is wrong, a picture that cannot be written too, is in the result; nothing is printed.
    Result operator()(const std::string& folder) const { return (*this)(folder, Spoiler()); }
    /// The same, spoiled, for tests of the self test.
    Result operator()(const std::string& folder, const Spoiler& spoiler) const;

    /// All of them; the order is that of a table.
    static const std::vector<KrSelfTest>& all();
    /// Null when there is none of that name.
    static const KrSelfTest* find(const std::string& name);

private:
    const char* m_name;
    const char* m_checks;
    void (*m_scene)(KrSelfTestRun&);
};
