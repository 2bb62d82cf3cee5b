#include <picture/KrLighting.h>

#include <rendCore/window/KrSGWindow.h>

namespace
{

/// @param towards  camera axes: x right, y up, z to the viewer
KrLight lamp(const KrVector& towards, const KrVector& right, const KrVector& up, const KrVector& back,
             const KrColor& color, double highlight)
{
    KrLight light;
    // From far away: the position is a direction then.
    light.setPositional(false);
    light.setPosition(towards.x() * right + towards.y() * up + towards.z() * back);
    light.setAmbient({0.0, 0.0, 0.0});
    light.setDiffuse(color);
    light.setSpecular({highlight, highlight, highlight});
    return light;
}

} // namespace

KrLightParameters KrLighting::threeLamps(const KrPovParameters& pov)
{
    KrVector back = pov.eyepoint() - pov.centerOfInterest();
    back.normalize();
    KrVector right = pov.up().cross(back);
    right.normalize();
    const KrVector up = back.cross(right);

    KrLightParameters lights;
    // One from above on the left, one from the right, and one from behind for the outlines.
    // The strong lamp is a little warm, the weak one a little cool.
    lights.lights().push_back(lamp({-0.55, 0.85, 0.75}, right, up, back, {0.67, 0.66, 0.64}, 0.70));
    lights.lights().push_back(lamp({0.95, 0.15, 0.60}, right, up, back, {0.26, 0.27, 0.29}, 0.10));
    lights.lights().push_back(lamp({0.30, 0.70, -0.90}, right, up, back, {0.30, 0.30, 0.31}, 0.35));
    return lights;
}

void KrLighting::light(KrSGWindow& window)
{
    window.loadLight(threeLamps(window.getPovParameters()));
    window.setAmbientLight(ambientLight());
}
