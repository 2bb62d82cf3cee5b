#pragma once

#include <rendCore/capture/KrFrameDescription.h>

#include <optional>
#include <string>

class KrAppMessages;
class KrPictureScene;

/// The camera as numbers: read from the command line and from files, written beside pictures.
namespace KrAppSidecar
{

/// "FX,FY,CX,CY" in pixels; false, and `camera` as it was, for anything else. The size is left alone.
bool readIntrinsics(const std::string& text, KrCameraIntrinsics& camera);

/// Reads the description of a picture. Throws KrAppFailure (CouldNot: no such file, no description in it).
KrFrameDescription read(const std::string& path, const KrAppMessages& messages);

/// The angle of view, rad, and aspect ratio of the largest part of the picture that lies evenly around the direction of
/// view; false, and no change, where there is none: the principal point is not in the picture.
bool evenPart(const KrCameraIntrinsics& camera, double& fieldOfView, double& aspectRatio);

/// The frame that `scene` drew last, as a picture file of the scene's size.
/// @param intrinsics  as they were asked for
KrFrameDescription describe(const KrPictureScene& scene, const std::optional<KrCameraIntrinsics>& intrinsics);
/// Throws KrAppFailure (CouldNot).
void write(const KrFrameDescription& frame, const std::string& path);

} // namespace KrAppSidecar
