#pragma once

#include "KrAppDepth.h"
#include "KrAppLabels.h"

#include <picture/KrPictureScene.h>
#include <picture/KrTiles.h>
#include <rendCore/capture/KrFrameDescription.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class KrAppMessages;
class KrAppVideo;
class KrMotion;
struct KrAppOptions;
struct KrAppRobot;

/// Draws what the command line asks for, and writes it: pictures, depths, labels, normals and their descriptions, of
/// one pose or of each one of a motion.
class KrAppPictures
{
public:
    /// Refuses names and formats that cannot be written, before any work is done. Throws KrAppFailure.
    static void check(const KrAppOptions& options);
    /// What is written of frame `number` (from 1; of the only one, when there is no motion). Throws KrAppFailure.
    static std::vector<std::string> files(const KrAppOptions& options, std::size_t number);

    /// Opens the window and shows the robot. Throws KrAppFailure.
    /// @param options        borrowed, as are robot, motion and messages
    /// @param parameters     as for the picture; the aids' look is added
    /// @param isOwnLighting  the parameters' lights are this program's
    KrAppPictures(const KrAppOptions& options, KrAppRobot& robot, KrVisualizationParameters& parameters,
                  bool isOwnLighting, KrMotion& motion, KrAppMessages& messages);

    ~KrAppPictures();
    KrAppPictures(const KrAppPictures&) = delete;
    KrAppPictures& operator=(const KrAppPictures&) = delete;

    /// Throws KrAppFailure; files that are complete stay, and folders that were made for them.
    void write();
    /// What the pixel of --pick shows, a line without its end (KrAppPick). Throws KrAppFailure (CouldNot), also where
    /// there is no link.
    std::string pick();

private:
    /// What was drawn of a pose; the next one is drawn into another while it is written.
    struct Frame
    {
        KrFrameCapture::Targets targets(const KrAppOptions& options, bool hasDepths);

        std::vector<float> depths; ///< m
        std::vector<std::uint32_t> labels;
        std::vector<float> normals;
        KrImage picture;
    };

    /// The views in tiles, where the options ask for some. Throws KrAppFailure.
    void makeTiles(const KrColor& background);
    void openScene();
    /// The file of state `i` of the motion, whose folder is made if need be; `pattern` itself when there is one file
    /// only. Throws KrAppFailure (CouldNot).
    std::string file(const std::string& pattern, std::size_t i);
    void makeFolder(const std::string& path);
    void writeColor();
    void writeColors();
    /// The video that is to be written; null where single pictures are. Throws KrAppFailure (CouldNot).
    std::unique_ptr<KrAppVideo> openVideo();
    /// Of a video, 1/s. Throws KrAppFailure (CouldNot) where the motion's times make none.
    double videoRate() const;
    /// A frame of writeColors, on the writing thread.
    void writeFrame(const KrImage& picture, std::size_t i);
    /// What is left to do of a frame that has been drawn: it touches nothing that drawing the next one does.
    using Writing = std::function<void()>;
    /// Draws all frames, and writes each while the next one is drawn. Throws KrAppFailure, of either.
    void writeEach(const std::string& what, const std::function<Writing(std::size_t)>& draw);
    Writing drawDepth(std::size_t i);
    Writing drawDepthPreview(std::size_t i);
    /// Labels, normals, and with them colours and depths: all of them show one instant.
    void writeKinds();
    /// @param video  gets the colours; null where they go into files
    Writing drawKinds(std::size_t i, KrAppVideo* video);
    /// Whether depths are among what writeKinds() writes.
    bool areDepthsOfKinds() const;
    /// Makes a frame of writeKinds() ready to be written, on the thread that writes.
    void finish(Frame& frame);
    /// The frame that was drawn last, in numbers.
    KrFrameDescription describe();
    /// What the numbers of a picture are, in the words of its description.
    struct Content
    {
        const char* quantity;
        const char* unit;
        unsigned int channels;
    };
    Content depthContent() const;
    /// Adds the writing of a picture of the frame that was drawn last, and of its description; nothing for no pattern.
    void addStep(std::vector<Writing>& steps, std::size_t i, const std::string& pattern,
                 const KrFrameDescription& description, const Content& content,
                 const std::function<void(const std::string& path)>& write);
    /// The same for all pictures but colours. @param frame  until the steps are done
    void addSurfaces(std::vector<Writing>& steps, std::size_t i, const Frame& frame,
                     const KrFrameDescription& description);
    /// The description of a picture of the frame that was drawn last, where descriptions are asked for.
    Writing sidecar(std::size_t i, const std::string& picture, KrFrameDescription frame, const Content& content);
    /// @param picture  its file
    void writeDescription(KrFrameDescription frame, std::size_t i, const std::string& picture);
    /// Whether there is nothing but the background.
    bool isBlank(const KrImage& picture) const;
    /// Tells of pictures in which nothing is seen, and why, and counts anew.
    void tellBlank(const std::string& path);
    void tellBlank(const std::string& path, std::size_t& count, const std::string& reason);
    std::string whyBlank();

    const KrAppOptions& m_options;
    const KrAppRobot& m_robot;
    KrMotion& m_motion;
    KrAppMessages& m_messages;
    std::optional<KrTiles> m_tiles;
    KrPictureScene m_scene;
    KrImage m_picture;
    Frame m_frames[2];
    KrLabelTable m_labels; ///< empty where none are drawn
    KrAppDepth::Png m_png; ///< of the thread that writes, one output after the other, as is the next one
    KrAppLabels::Kept m_kept;
    int m_background[3] = {};        ///< of pictures, as a pixel
    std::size_t m_numBlank = 0;      ///< frames of the output that is written in which nothing is seen
    std::size_t m_numUnlabelled = 0; ///< frames of writeKinds() without a link
    /// Of frames that are drawn and not yet written, in their order.
    std::deque<KrFrameDescription> m_descriptions;
    std::vector<std::string> m_folders; ///< made for frames
    std::mutex m_mutex;                 ///< of the descriptions: they are made on one thread and written on another
};
