#pragma once

#include <rendCore/capture/KrFrameDescription.h>

#include <string>

class KrAppMessages;
class KrPictureScene;
struct KrAppOptions;

/// The camera as numbers: read from the command line and from files, written beside pictures.
namespace KrAppSidecar
{

/// "FX,FY,CX,CY" in pixels; false, and `camera` as it was, for anything else. The size is left alone.
bool readIntrinsics(const std::string& text, KrCameraIntrinsics& camera);

/// Fills in what the file of --camera says: the point of view, and size and intrinsics where the command line has none.
/// Throws KrAppFailure (CouldNot: no such file, no description in it).
void readCamera(KrAppOptions& options, const KrAppMessages& messages);

/// The angle of view, rad, and aspect ratio of the largest part of the picture that lies evenly around the direction of
/// view; false, and no change, where there is none: the principal point is not in the picture.
bool evenPart(const KrCameraIntrinsics& camera, double& fieldOfView, double& aspectRatio);

/// The frame that `scene` drew last, as a picture file of the size that was asked for.
KrFrameDescription describe(KrPictureScene& scene, const KrAppOptions& options);
/// Where the description of `picture` is written: beside it as `picture`.json, or as the options name it.
std::string fileOf(const std::string& picture, const KrAppOptions& options);
/// Throws KrAppFailure (CouldNot).
void write(const KrFrameDescription& frame, const std::string& path);

} // namespace KrAppSidecar
