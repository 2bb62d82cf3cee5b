#include <picture/KrTiles.h>

#include <picture/KrDownscale.h>
#include <picture/KrLighting.h>
#include <picture/KrMotion.h>
#include <picture/KrPictureScene.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{

constexpr unsigned int kChannels = 3;

struct NamedSide
{
    const char* name;
    KrViewSide side;
};

const std::vector<NamedSide>& sides()
{
    static const KrVector s_up(0.0, 0.0, 1.0);
    // A robot has its front at +x and its left at +y.
    static const std::vector<NamedSide> s_sides = {
        {"front", {{1.0, 0.0, 0.0}, s_up}},
        {"back", {{-1.0, 0.0, 0.0}, s_up}},
        {"left", {{0.0, 1.0, 0.0}, s_up}},
        {"right", {{0.0, -1.0, 0.0}, s_up}},
        // Another word for the right one.
        {"side", {{0.0, -1.0, 0.0}, s_up}},
        {"top", {{0.0, 0.0, 1.0}, {0.0, 1.0, 0.0}}}, // as on a map: x to the right, y up
        {"bottom", {{0.0, 0.0, -1.0}, {0.0, 1.0, 0.0}}},
        {"perspective", {KrFraming::towardsEye(), s_up}},
    };
    return s_sides;
}

} // namespace

const std::vector<std::string>& KrViewSide::names()
{
    static const std::vector<std::string> s_names = [] {
        std::vector<std::string> names;
        for (const NamedSide& named : sides()) {
            names.emplace_back(named.name);
        }
        return names;
    }();
    return s_names;
}

bool KrViewSide::find(const std::string& name, KrViewSide& side)
{
    for (const NamedSide& named : sides()) {
        if (name == named.name) {
            side = named.side;
            return true;
        }
    }
    return false;
}

KrTiles::KrTiles(unsigned int width, unsigned int height, const KrColor& background)
    : m_width(width)
    , m_height(height)
{
    // Pixels that no tile covers are written here: rounded as a driver rounds its background.
    const double channels[] = {background.red(), background.green(), background.blue()};
    for (unsigned int i = 0; i < kChannels; ++i) {
        m_background[i] = static_cast<unsigned char>(std::lround(255.0 * std::clamp(channels[i], 0.0, 1.0)));
    }
}

bool KrTiles::frame(const std::vector<KrViewSide>& sides, double fieldOfView, const KrFraming::Shown& shown,
                    const KrManipulatorSystem& system, KrMotion& motion, std::string& reason)
{
    // All views in one size, as large as the picture allows.
    const KrTileGrid grid = KrTileGrid::largest(static_cast<unsigned int>(sides.size()), m_width, m_height);
    if (grid.numPlaces() == 0) {
        reason = std::to_string(m_width) + " x " + std::to_string(m_height) + " pixels are too few for " +
                 std::to_string(sides.size()) + " views";
        return false;
    }
    // Only now: a picture that is too small changes nothing.
    m_grid = grid;
    // One for each view, in its order.
    m_povs.clear();
    for (const KrViewSide& side : sides) {
        KrFraming framing(side.towardsEye, side.up, fieldOfView, static_cast<double>(grid.width) / grid.height);
        framing.setShown(shown);
        framing.addMotion(system, motion);
        m_povs.push_back(framing.pov());
    }
    return true;
}

bool KrTiles::draw(KrPictureScene& scene, const KrManipulatorSystemState& state, unsigned char* out,
                   std::string& reason)
{
    // The scene is of one tile's size, and draws it so many times larger for its samples.
    const std::size_t factor = scene.factor();
    const std::size_t wholeWidth = factor * m_width;
    const std::size_t wholeHeight = factor * m_height;
    const std::size_t width = factor * m_grid.width;
    const std::size_t height = factor * m_grid.height;
    // What no tile covers shows the background.
    if (m_povs.size() * width * height < wholeWidth * wholeHeight) {
        for (std::size_t i = 0; i < wholeWidth * wholeHeight; ++i) {
            std::memcpy(out + i * kChannels, m_background, kChannels);
        }
    }
    const std::size_t below = wholeHeight - m_grid.rows * height; // pixels that no tile has
    for (std::size_t i = 0; i < m_povs.size(); ++i) {
        scene.window().setPovParameters(m_povs[i]);
        // Lamps stand by the camera: every view is lit alike.
        scene.window().loadLight(KrLighting::threeLamps(m_povs[i]));
        if (!scene.drawLarge(state, m_tile, reason)) {
            return false;
        }
        // Rows are copied into a place of this size; another one would write beside it.
        if (m_tile.width() != width || m_tile.height() != height) {
            reason = "the scene is not of a tile's size";
            return false;
        }
        const std::size_t left = factor * m_grid.left(i);
        const std::size_t bottom = below + factor * m_grid.bottom(i);
        for (std::size_t row = 0; row < height; ++row) {
            std::memcpy(out + ((bottom + row) * wholeWidth + left) * kChannels, m_tile.data() + row * width * kChannels,
                        width * kChannels);
        }
    }
    return true;
}

bool KrTiles::draw(KrPictureScene& scene, const KrManipulatorSystemState& state, KrImage& picture, std::string& reason)
{
    // Put together as large as it is drawn; samples are averaged over the whole.
    m_large.allocate(kChannels, 0, m_width * scene.factor(), m_height * scene.factor());
    if (m_large.empty()) {
        reason = "there is not enough memory for this";
        return false;
    }
    if (!draw(scene, state, m_large.data(), reason)) {
        return false;
    }
    KrDownscale::average(m_large, scene.factor(), picture);
    return true;
}
