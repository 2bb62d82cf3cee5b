#pragma once

#include "KrAppScene.h"
#include "KrAppTiles.h"

#include <rendCore/KrFrameDescription.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

class KrAppMessages;
class KrAppMotion;
struct KrAppOptions;
struct KrAppRobot;

/// Draws what the command line asks for, and writes it: pictures, depths and their descriptions, of one pose or of each
/// one of a motion.
class KrAppPictures
{
public:
    /// Refuses names and formats that cannot be written, before any work is done. Throws KrAppFailure.
    static void check(const KrAppOptions& options);

    /// Opens the window and shows the robot. Throws KrAppFailure.
    /// @param options        borrowed, as are robot, motion and messages
    /// @param parameters     as for the picture; the aids' look is added
    /// @param isOwnLighting  the parameters' lights are this program's
    KrAppPictures(const KrAppOptions& options, KrAppRobot& robot, KrVisualizationParameters& parameters,
                  bool isOwnLighting, KrAppMotion& motion, KrAppMessages& messages);

    /// Throws KrAppFailure; files that are complete stay.
    void write();

private:
    /// The file of state `i` of the motion; `pattern` itself when there is one pose only.
    std::string file(const std::string& pattern, std::size_t i) const;
    void writeColor();
    void writeColors();
    void writeEach(const std::string& what, const std::function<void(std::size_t)>& writeOne);
    void writeDepth(std::size_t i);
    void writeDepthPreview(std::size_t i);
    /// Of the frame that was drawn last, where descriptions are asked for.
    void writeSidecar(std::size_t i, const std::string& path);
    void writeDepthSidecar(std::size_t i, const std::string& path, const char* quantity, const char* unit);
    void writeDescription(KrFrameDescription frame, std::size_t i, const std::string& path) const;

    const KrAppOptions& m_options;
    KrAppMotion& m_motion;
    KrAppMessages& m_messages;
    std::optional<KrAppTiles> m_tiles;
    std::optional<KrAppScene> m_scene;
    KrImage m_picture;
    std::vector<float> m_depths; ///< m
};
