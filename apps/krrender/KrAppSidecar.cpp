#include "KrAppSidecar.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppMessages.h"
#include "KrAppOptions.h"

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
    KrCameraIntrinsics read = camera;
    read.fx = values[0];
    read.fy = values[1];
    read.cx = values[2];
    read.cy = values[3];
    if (!read.isValid()) {
        return false;
    }
    camera = read;
    return true;
}

void KrAppSidecar::readCamera(KrAppOptions& options, const KrAppMessages& messages)
{
    if (options.camera.empty()) {
        return;
    }
    KrFrameDescription frame;
    const std::string text = KrAppFiles::readText(options.camera, Kr::Limits::kCameraBytes);
    const std::string name = KrAppFiles::spoken(options.camera, KrAppFiles::Standard::Input);
    if (!frame.readText(text, name)) {
        throw KrAppFailure(KrAppFailure::CouldNot, messages.lastReason("cannot read " + name));
    }
    const bool isDrawable = frame.width <= KrAppOptions::kLargestSize && frame.height <= KrAppOptions::kLargestSize;
    if (!frame.intrinsics || !isDrawable) {
        throw KrAppFailure(KrAppFailure::CouldNot,
                           name + (isDrawable ? " tells no intrinsics" : " tells too large a picture"));
    }
    options.pov = frame.actualPov();
    if (!options.isSizeGiven) {
        options.width = frame.width;
        options.height = frame.height;
    }
    if (options.intrinsics) {
        options.intrinsics->width = options.width;
        options.intrinsics->height = options.height;
    } else if (frame.width != options.width || frame.height != options.height) {
        options.intrinsics = frame.intrinsics->scaledTo(options.width, options.height);
    } else {
        options.intrinsics = frame.intrinsics;
    }
}

bool KrAppSidecar::evenPart(const KrCameraIntrinsics& camera, double& fieldOfView, double& aspectRatio)
{
    const double across = std::min(camera.cx, camera.width - camera.cx) / camera.fx;
    const double down = std::min(camera.cy, camera.height - camera.cy) / camera.fy;
    if (!(across > 0.0) || !(down > 0.0)) {
        return false;
    }
    fieldOfView = 2.0 * std::atan(down);
    aspectRatio = across / down;
    return true;
}

KrFrameDescription KrAppSidecar::describe(KrPictureScene& scene, const KrAppOptions& options)
{
    KrFrameDescription frame;
    frame.fill(scene.window());
    if (options.width != frame.width || options.height != frame.height) {
        frame.setPictureSize(options.width, options.height);
    }
    if (options.intrinsics) {
        frame.intrinsics = options.intrinsics; // as they were given, not scaled there and back
    }
    frame.rowOrder = KrFrameDescription::RowOrder::TopRowFirst;
    return frame;
}

std::string KrAppSidecar::fileOf(const std::string& picture, const KrAppOptions& options)
{
    return options.sidecarPath.empty() ? picture + ".json" : options.sidecarPath;
}

void KrAppSidecar::write(const KrFrameDescription& frame, const std::string& path)
{
    KrAppFiles::writeBytes(frame.json(), path);
}
