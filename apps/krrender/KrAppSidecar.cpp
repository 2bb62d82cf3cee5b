#include "KrAppSidecar.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppMessages.h"

#include <picture/KrPictureScene.h>
#include <picture/KrValueText.h>
#include <toolkit/foundation/KrLimits.h>

#include <algorithm>
#include <cmath>

bool KrAppSidecar::readIntrinsics(const std::string& text, KrCameraIntrinsics& camera)
{
    const std::vector<std::string> words = KrValueText::split(text, ',');
    double values[4];
    if (words.size() != 4) {
        return false;
    }
    for (unsigned int i = 0; i < 4; ++i) {
        if (!KrValueText::number(words[i], values[i])) {
            return false;
        }
    }
    // The size is the caller's; four good numbers and nothing less change the rest.
    KrCameraIntrinsics read = camera;
    read.fx = values[0];
    read.fy = values[1];
    read.cx = values[2];
    read.cy = values[3];
    // Focal lengths of 0 or less have no picture.
    if (!read.isValid()) {
        return false;
    }
    camera = read;
    return true;
}

KrFrameDescription KrAppSidecar::read(const std::string& path, const KrAppMessages& messages)
{
    KrFrameDescription frame;
    // With a bound of its own: the tree of a JSON text takes many times its bytes.
    const std::string text = KrAppFiles::readText(path, Kr::Limits::kCameraBytes);
    const std::string name = KrAppFiles::spoken(path, KrAppFiles::Standard::Input);
    if (!frame.readText(text, name)) {
        throw KrAppFailure(KrAppFailure::CouldNot, messages.lastReason("cannot read " + name));
    }
    return frame;
}

bool KrAppSidecar::evenPart(const KrCameraIntrinsics& camera, double& fieldOfView, double& aspectRatio)
{
    // The narrower side counts: what is placed around the principal point is seen whole.
    const double across = std::min(camera.cx, camera.width - camera.cx) / camera.fx;
    const double down = std::min(camera.cy, camera.height - camera.cy) / camera.fy;
    // The principal point is at an edge or outside: nothing is even around it.
    if (!(across > 0.0) || !(down > 0.0)) {
        return false;
    }
    fieldOfView = 2.0 * std::atan(down);
    aspectRatio = across / down;
    return true;
}

KrFrameDescription KrAppSidecar::describe(const KrPictureScene& scene,
                                          const std::optional<KrCameraIntrinsics>& intrinsics)
{
    KrFrameDescription frame;
    scene.describe(frame);
    if (intrinsics) {
        frame.intrinsics = intrinsics; // as they were given, not scaled there and back
    }
    // Files begin with the highest row, windows with the lowest.
    frame.rowOrder = KrFrameDescription::RowOrder::TopRowFirst;
    return frame;
}

void KrAppSidecar::write(const KrFrameDescription& frame, const std::string& path)
{
    KrAppFiles::writeBytes(frame.json(), path);
}
