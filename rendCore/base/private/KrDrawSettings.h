#pragma once

#include <memory>
#include <vector>

/// Something in a scene that a frame calls before and after its views are culled and drawn.
class KrFrameParticipant
{
public:
    virtual ~KrFrameParticipant() = default;
    virtual void beginDrawing() = 0;
    virtual void endDrawing() = 0;
};

/// How a window wants its robots drawn. The window's viewer carries it, so that what is culled for one of its cameras
/// finds it there; a scene that several windows show is drawn as each of them wants.
struct KrDrawSettings
{
    virtual ~KrDrawSettings() = default;

    /// Robots take the short way to the driver where nothing needs the general one.
    bool isDirect = true;
    /// The error that simplified meshes may show on the screen, pixels; 0 draws every triangle.
    float levelOfDetail = 0.0f;
    /// Levels change a little late, so that nothing flickers; without, a frame depends on none before it.
    bool areLevelsSteady = true;
    /// Who wants to be called in the next frame: entered anew in each.
    mutable std::vector<std::weak_ptr<KrFrameParticipant>> participants;
};
