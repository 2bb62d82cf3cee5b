#pragma once

#include <toolkit/math/KrColor.h>
#include <toolkit/visualization/KrLightParameters.h>
#include <toolkit/visualization/KrPovParameters.h>

class KrSGWindow;

/// The light in which a robot is drawn when nothing else is asked for: lamps, and light from everywhere that goes with
/// them. A white surface that faces the strongest lamp is just not white in the picture.
namespace KrLighting
{

/// Brightness of the light from everywhere.
constexpr double kAmbient = 0.36;
inline KrColor ambientLight()
{
    return {kAmbient, kAmbient, kAmbient};
}

/// A very light grey, which sets off dark and light robots alike.
inline KrColor background()
{
    return {0xEE / 255.0, 0xF0 / 255.0, 0xF4 / 255.0};
}

/// Three lamps far away, placed about the viewer: a strong one over the left shoulder, a weak one from the right that
/// opens the shadows, and one from behind above that draws the edges.
KrLightParameters threeLamps(const KrPovParameters& pov);

/// Lights what the window shows, seen from where its camera stands now. After the system was given: a new one drops the
/// lamps.
void light(KrSGWindow& window);

} // namespace KrLighting
