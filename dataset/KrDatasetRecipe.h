#pragma once

#include <dataset/KrDatasetInfo.h>

#include <rendCore/window/KrCameraIntrinsics.h>
#include <toolkit/math/KrColor.h>
#include <toolkit/math/KrVector.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What a data set is made of and what varies in it, as a JSON file says it: docs/dataset.md tells its members, the
/// file recipe.schema.json beside this header their types.
///
/// Metres, radians; world frame where nothing else is said. What was read is complete: names are unique, files are
/// named in full, ranges go upwards. Whether the files are there, and what joints and links they have, is found out by
/// a KrDatasetScene.
struct KrDatasetRecipe
{
    // What is beyond these is refused.
    static constexpr std::uint64_t kMostBytes = std::uint64_t{4} << 20; ///< of the recipe
    static constexpr std::uint64_t kMostSamples = std::uint64_t{1} << 40;
    static constexpr std::uint64_t kMostShards = 1000000;
    static constexpr std::size_t kMostRobots = 1000; ///< and as many plain meshes
    static constexpr std::size_t kMostCameras = 1000;
    static constexpr std::size_t kMostLamps = 8; ///< as many as OpenGL has
    static constexpr std::size_t kMostPictures = 100000;
    static constexpr std::size_t kMostColors = 1000;    ///< of one list
    static constexpr unsigned int kLargestSize = 16384; ///< of a picture, either way, pixels

    /// Every value between both has the same chance; a fixed value has it twice.
    struct Range
    {
        double low = 0.0;
        double high = 0.0;

        bool isFixed() const { return low == high; }
    };

    /// Of a joint; texts tell whether they mean an angle or a length.
    struct JointRange : Range
    {
        bool isAngle = true;  ///< may be meant for a joint that turns
        bool isLength = true; ///< may be meant for one that slides
    };

    /// One colour, one of several, or any between two, each channel by itself.
    struct Colors
    {
        std::vector<KrColor> colors;
        bool isBetween = false;
    };

    /// A frame in another one: R = Rz(yaw) Ry(pitch) Rx(roll), then the translation.
    struct Pose
    {
        Range x, y, z;
        Range roll, pitch, yaw;

        bool isFixed() const;
    };

    struct Robot
    {
        std::string name;      ///< unique among robots and meshes
        std::string className; ///< those of one class have the same categories
        std::string file;      ///< in full; anything that KrSystemFile reads
        std::vector<std::string> packagePaths;
        Pose pose;                                ///< of the robot in the world
        std::map<std::string, JointRange> joints; ///< others have what their limits allow, or -pi to pi
    };

    /// A mesh file that is one link without joints.
    struct Mesh
    {
        std::string name;
        std::string className;
        std::string file;
        Pose pose;
        double scale = 1.0;
    };

    struct Camera
    {
        enum class Place
        {
            World, ///< `pose` of its optical frame in the world
            Link,  ///< `pose` in that link's frame
            Shell  ///< on a shell about `center`, at which it looks
        };

        std::string name;
        double fieldOfView = 0.0;                     ///< full vertical angle, rad; where there are no intrinsics
        std::optional<KrCameraIntrinsics> intrinsics; ///< for pictures of this size
        Place place = Place::Shell;
        Pose pose;
        std::string robot; ///< that carries it
        std::string link;
        std::optional<KrVector> center; ///< by default that of the scene with every range at its middle
        Range distance;                 ///< from the centre to the eye
        Range elevation;                ///< of the eye above the horizon: evenly over the sphere's area, not its angle
        Range azimuth;                  ///< of the eye about z from +x
        Range roll;                     ///< about the direction of view; 0: z is upwards in the picture

        /// Whether each of its pictures is seen from another place.
        bool isFixed() const;
    };

    struct Lamp
    {
        Range azimuth; ///< of the direction to the lamp, which is far away
        Range elevation;
        Range brightness; ///< 0 to 1
        Colors color;
    };

    struct Lights
    {
        Range ambient; ///< brightness of the light from everywhere, 0 to 1
        std::vector<Lamp> lamps;
    };

    /// Colours that links get in place of their own.
    struct Material
    {
        std::string robot;              ///< or mesh
        std::vector<std::string> links; ///< each with a colour of its own; empty for all
        Colors color;
    };

    enum class LabelLevel
    {
        Manipulator,
        Link,
        Shape
    };

    std::string name = "dataset";
    std::uint64_t seed = 0;
    std::uint64_t count = 0; ///< of samples: images, not states
    std::uint64_t samplesPerShard = 1000;
    std::string format = "folders"; ///< a KrDatasetFormat's
    unsigned int width = 640;       ///< pixels
    unsigned int height = 480;
    unsigned int samplesPerPixel = 4; ///< 1, 4, 9 or 16
    double levelOfDetail = 0.0;       ///< error that meshes may show, pixels
    KrDatasetKinds kinds;
    LabelLevel labelLevel = LabelLevel::Link;
    double leastCovered = 0.001; ///< share of an image's pixels that show a part
    std::vector<Robot> robots;
    std::vector<Mesh> meshes;
    std::vector<Camera> cameras;
    std::optional<Lights> lights; ///< none: the lamps of KrLighting about each camera
    Colors background;
    std::vector<std::string> backgroundPictures; ///< in full; in place of the colours where there are some
    std::vector<Material> materials;

    std::string text; ///< the recipe itself, byte for byte

    /// Reads a recipe; paths in it are relative to its folder.
    /// @return false, with a sentence that names the file and the place in it, and no change, for what is no recipe
    bool readFile(const std::string& path, std::string& reason);
    /// The same from text. @param folder  that paths in it are relative to  @param source  for the sentence
    bool readText(const std::string& json, const std::string& folder, const std::string& source, std::string& reason);

    std::uint64_t numShards() const { return count / samplesPerShard + (count % samplesPerShard == 0 ? 0 : 1); }
    KrDatasetShard shard(std::uint64_t number) const;
};
