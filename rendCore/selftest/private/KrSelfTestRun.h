#pragma once

#include <rendCore/selftest/KrSelfTest.h>
#include <rendCore/system/KrRenderWindow.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/visualization/KrLightParameters.h>

#include <array>
#include <string>
#include <vector>

/// The camera of most self tests: before the origin on the -y axis, x to the right and z upwards in the picture.
/// What it shows where is reckoned here by hand, without the window's matrices.
struct KrSelfTestView
{
    unsigned int width = 320; ///< pixels
    unsigned int height = 240;
    double distance = 20.0;  ///< of the eye from the plane y = 0, m
    double metresHigh = 4.8; ///< what the picture shows of that plane, m

    struct Pixel
    {
        double column = 0.0;
        double row = 0.0; ///< 0 at the bottom
    };

    /// The point of view of this camera, for a window of its size.
    KrPovParameters pov() const;
    /// Pixels for a metre in the plane at `y`.
    double scale(double y = 0.0) const { return height / metresHigh * distance / (distance + y); }
    Pixel at(const KrVector& point) const;
    Pixel at(double x, double z, double y = 0.0) const { return at(KrVector(x, y, z)); }
    /// The part of the picture that `area` square metres in the plane at `y` cover.
    double coverage(double area, double y = 0.0) const { return area * scale(y) * scale(y) / (width * height); }
};

/// One run of a self test: draws, judges and keeps the first thing that is wrong. For use inside the library.
///
/// Pictures are RGB with row 0 at the bottom. A frame that cannot be drawn gives an empty picture, about which nothing
/// more is said. Colours are red, green and blue in [0, 1].
class KrSelfTestRun
{
public:
    using Colour = std::array<double, 3>;
    /// Of what is drawn in one colour: 5 of 255, for rounding on both ways.
    static constexpr double kColourTolerance = 0.02;

    /// @param folder   where pictures go; empty for none
    /// @param spoiler  borrowed until the run ends, during which warnings come here and not to the caller's sink
    KrSelfTestRun(const char* name, const std::string& folder, const KrSelfTest::Spoiler& spoiler);
    ~KrSelfTestRun();
    KrSelfTestRun(const KrSelfTestRun&) = delete;
    KrSelfTestRun& operator=(const KrSelfTestRun&) = delete;

    /// Opens `window`, hidden, on a black background.
    bool open(KrSGWindow& window, const KrSelfTestView& view);
    /// The same with a system.
    bool open(KrRenderWindow& window, const KrStatedSystem& system, const KrSelfTestView& view);
    void light(KrSGWindow& window, const KrVector& towardsLamp);

    /// One frame, written to the folder as `what` says.
    KrImage capture(KrSGWindow& window, const char* what, unsigned int flags = KrSGWindow::CaptureColor);
    /// Writes a picture that was drawn some other way, and hands it to the spoiler.
    void keep(KrImage& picture, const char* what);
    void spoilWindow(KrSGWindow& window);
    void spoilDepths(std::vector<float>& depths);
    /// False, and a finding, when the current context reports an error.
    bool checkGL(const char* what);

    /// Keeps the first finding, of at most 399 characters, with the first warning that was printed before it.
    void fail(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// `what` says what should be.
    bool expect(bool isTrue, const char* what);
    bool expectNear(double value, double wanted, double tolerance, const char* what);
    /// The mean of 5 x 5 pixels.
    bool expectColour(const KrImage& picture, KrSelfTestView::Pixel pixel, const Colour& wanted, double tolerance,
                      const char* what);
    /// The part of the picture that is not black.
    bool expectCoverage(const KrImage& picture, double wanted, double tolerance, const char* what);
    bool expectSame(const KrImage& a, const KrImage& b, const char* what);

    /// The mean about `pixel`, of (2 radius + 1) squared pixels, fewer at the picture's edge; -1 without a picture.
    static Colour colourAt(const KrImage& picture, KrSelfTestView::Pixel pixel, unsigned int radius = 2);
    /// The part of `picture` that is not black, in [0, 1]; 0 without a picture.
    static double coverage(const KrImage& picture);

    /// A file for the test's own use; the path is valid until the run ends.
    std::string scratchFile(const char* name);

    /// Whether nothing was found so far.
    bool passed() const { return m_result.message.empty(); }
    /// The end of the run: a warning that nothing has explained is a finding, too.
    KrSelfTest::Result result();

    // What the scenes are made of.
    static KrDataMap glow(const Colour& colour); ///< that colour whatever the light
    /// `extent` itself, moved to `centre` (m) with the material of that name; empty for none.
    static boost::shared_ptr<KrBasePhysicalExtent> place(const boost::shared_ptr<KrBasePhysicalExtent>& extent,
                                                         const KrVector& centre, const char* material);
    /// A box along the axes, `size` its edges, m.
    static boost::shared_ptr<KrBasePhysicalExtent> box(const KrVector& size, const KrVector& centre,
                                                       const char* material);
    /// A rectangle in the plane at `y`, seen from the eye; u along x, v along z. Finely divided, so that lamps and
    /// bending show.
    static boost::shared_ptr<KrTriPhysicalExtent> sheet(double x0, double x1, double z0, double z1, double y,
                                                        const KrDataMap& material, unsigned int columns = 1);
    /// With the materials "red", "green", "blue", "white", "yellow" and "grey", all of them glowing.
    static KrIndividualManipulator robot();
    static KrStatedSystem systemOf(const KrIndividualManipulator& robot);

private:
    std::string pathOf(const std::string& what) const;

    std::string m_name;
    std::string m_folder;
    std::string m_scratchFolder;
    const KrSelfTest::Spoiler& m_spoiler;
    KrSelfTest::Result m_result;
    std::string m_said; ///< the first warning that was printed meanwhile
    Kr::Print::Sink m_previous;
};
