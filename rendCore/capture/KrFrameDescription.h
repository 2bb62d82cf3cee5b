#pragma once

#include <rendCore/window/KrCameraIntrinsics.h>

#include <toolkit/visualization/KrPovParameters.h>

#include <osg/Matrixd>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class KrLabelTable;
class KrSGWindow;

/// What one frame shows, in numbers: the picture's layout, the camera it was drawn with, the time and the joints.
///
/// Metres, radians, seconds; world frame. Written as JSON, every number exact.
struct KrFrameDescription
{
    enum class RowOrder
    {
        TopRowFirst,   ///< as picture files are read
        BottomRowFirst ///< as OpenGL stores pictures
    };

    struct Joint
    {
        std::string name;
        std::string type;      ///< "fixed", "revolute", "continuous" or "prismatic"
        double position = 0.0; ///< rad; m for a prismatic joint
    };

    struct Manipulator
    {
        std::string name;
        std::vector<Joint> joints; ///< as in a position state: depth first, parents before children
    };

    /// What a label stands for, see KrLabelTable.
    struct Label
    {
        std::uint32_t id = 0;
        std::string manipulator;
        std::string link;                  ///< empty for a manipulator as a whole
        std::optional<unsigned int> shape; ///< its number among the link's; none for a link
        std::string color{};               ///< "#rrggbb", where the picture shows it instead of the number; else empty
    };

    // The picture. The member functions do not look at the last four: who stores the picture says what it holds.
    unsigned int width = 0; ///< pixels
    unsigned int height = 0;
    unsigned int channels = 3;
    RowOrder rowOrder = RowOrder::BottomRowFirst;
    std::string quantity = "color"; ///< what the channels hold
    std::string unit = "1/255";     ///< of a stored number; "mm" or "m" for depths, "1" for labels and normals
    std::string axes; ///< of normals: "optical" (x right, y down, z forward) or "world"; empty for all else

    // The camera.
    std::optional<KrCameraIntrinsics> intrinsics; ///< for a picture of this size; none for an orthographic one
    osg::Matrixd view;                            ///< world to OpenGL eye axes (x right, y up, z backward)
    osg::Matrixd projection;                      ///< eye axes to clip coordinates
    double near = 0.0; ///< distances of the clipping planes, m: those drawn with, which the window fits to the scene
    double far = 0.0;
    /// The error that simplified meshes may show, in pixels of the picture; 0 where every triangle was drawn.
    double levelOfDetail = 0.0;
    KrPovParameters pov; ///< what the window was told; `view` is what it did

    // The frame.
    unsigned int frameNumber = 0; ///< drawn by the window so far
    double time = 0.0;            ///< of the state, s
    std::vector<Manipulator> manipulators;
    /// What the picture's labels mean; filled by `setLabels` alone, and written only where there are any.
    std::vector<Label> labels;

    /// Describes the latest frame that `window` drew, as one of its own size, colours, bottom row first. Joints and
    /// time are those of a KrRenderWindow's system and state; other windows have none. Ask before anything is changed:
    /// camera and state are the window's present ones.
    /// @return false, after one message, and no change, when no frame was drawn since the window was opened
    bool fill(const KrSGWindow& window);

    /// The same frame as a picture of another size, which shows the same: size, intrinsics and level of detail are
    /// scaled.
    void setPictureSize(unsigned int newWidth, unsigned int newHeight);

    /// The frame as it was drawn once more by itself, with near and far planes of its own: takes `drawn` for its
    /// projection. Intrinsics stay, for nothing but those planes differs.
    void setProjection(const osg::Matrixd& drawn);

    /// Takes over what labels mean.
    void setLabels(const KrLabelTable& table);

    /// World to optical camera axes (x right, y down, z forward).
    osg::Matrixd opticalView() const;
    /// The point of view that gives `view`: `pov` itself where it does, to the last digit but a few, otherwise one made
    /// from `view`.
    KrPovParameters actualPov() const;

    /// One object, several lines, UTF-8. docs/camera.md tells its members.
    std::string json() const;
    /// Writes json() to a file that is complete or as it was before. False, after one message, when that cannot be.
    bool writeFile(const std::string& path) const;
    /// Reads what `writeFile` wrote, from a file or a pipe. What other programs leave out (all but the picture's size
    /// and the camera's view) has the value it has in a new description.
    /// @return false, after one message, and no change, for a file that is not there, is too large, is no JSON or no
    ///         description
    bool readFile(const std::string& path);
    /// The same from the text itself. @param name  where it came from, for the message
    bool readText(const std::string& text, const std::string& name);
};
