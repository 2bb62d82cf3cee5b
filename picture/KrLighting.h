#pragma once

#include <toolkit/visualization/KrLightParameters.h>
#include <toolkit/visualization/KrPovParameters.h>

/// The light in which a robot is drawn when nothing else is asked for.
namespace KrLighting
{

/// Brightness of the light from everywhere, for the window's light model. With the lamps below a white surface that
/// faces the strongest one is just not white in the picture.
constexpr double kAmbient = 0.36;

/// Three lamps far away, placed about the viewer: a strong one over the left shoulder, a weak one from the right that
/// opens the shadows, and one from behind above that draws the edges.
KrLightParameters threeLamps(const KrPovParameters& pov);

} // namespace KrLighting
