#pragma once

class KrRenderWindow;

/// How aids look in a picture: the scene has them ready, each with a look for a window of one's own.
namespace KrAidLooks
{

/// Gives the mass ellipsoids and the translucent volumes of a scene a look that is seen among and behind links.
/// @param areCollisionsSolid  collision shapes stand in for the body: they hide what is behind them
void apply(KrRenderWindow& window, bool areCollisionsSolid);
/// Lines that are as thick in a large picture as in a small one, in front of the links.
void applyToAxes(const KrRenderWindow& window);
/// Puts anew what encloses the links that bend.
void renewVolumes(KrRenderWindow& window);

} // namespace KrAidLooks
