#include "KrAppTiles.h"

#include "KrAppFailure.h"
#include "KrAppOptions.h"
#include "KrAppRobot.h"
#include "KrAppScene.h"

#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <picture/KrMotion.h>
#include <picture/KrValueText.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{

/// A robot faces +x and has its left at +y.
struct Side
{
    const char* name;
    KrVector towardsEye;
    KrVector up;
};

const KrVector kUp(0.0, 0.0, 1.0);

const std::vector<Side>& sides()
{
    static const std::vector<Side> all = {
        {"front", {1.0, 0.0, 0.0}, kUp},
        {"back", {-1.0, 0.0, 0.0}, kUp},
        {"left", {0.0, 1.0, 0.0}, kUp},
        {"right", {0.0, -1.0, 0.0}, kUp},
        {"side", {0.0, -1.0, 0.0}, kUp},
        {"top", {0.0, 0.0, 1.0}, {0.0, 1.0, 0.0}}, // as on a map: x to the right, y up
        {"bottom", {0.0, 0.0, -1.0}, {0.0, 1.0, 0.0}},
    };
    return all;
}

const char* const kPerspective = "perspective";

Side sideOf(const std::string& name, const KrAppOptions& options)
{
    const auto found =
        std::find_if(sides().begin(), sides().end(), [&](const Side& side) { return name == side.name; });
    return found != sides().end() ? *found : Side{kPerspective, options.towardsEye(), kUp};
}

} // namespace

const std::vector<std::string>& KrAppTiles::names()
{
    static const std::vector<std::string> all = [] {
        std::vector<std::string> list;
        for (const Side& side : sides()) {
            list.emplace_back(side.name);
        }
        list.emplace_back(kPerspective);
        return list;
    }();
    return all;
}

std::vector<std::string> KrAppTiles::parse(const std::string& list)
{
    std::vector<std::string> views = KrValueText::split(list, ',');
    for (const std::string& view : views) {
        if (std::find(names().begin(), names().end(), view) == names().end()) {
            std::string known;
            for (const std::string& name : names()) {
                known += (known.empty() ? "" : ", ") + name;
            }
            const std::vector<std::string> near = KrValueText::nearest(view, names());
            throw KrAppFailure(KrAppFailure::WrongUsage,
                               "--views " + list + ": there is no view \"" + view + "\", but " + known +
                                   (near.empty() ? "" : "; did you mean " + near.front() + "?"));
        }
    }
    return views;
}

KrAppTiles::KrAppTiles(const KrAppOptions& options, const KrAppRobot& robot, KrMotion& motion,
                       const KrColor& background)
    : m_width(options.width)
    , m_height(options.height)
{
    const auto count = static_cast<unsigned int>(options.views.size());
    unsigned int largest = 0;
    for (unsigned int columns = 1; columns <= count; ++columns) {
        const unsigned int rows = (count + columns - 1) / columns;
        const unsigned int shorter = std::min(m_width / columns, m_height / rows);
        if (shorter > largest) {
            largest = shorter;
            m_columns = columns;
            m_rows = rows;
        }
    }
    if (largest == 0) {
        throw KrAppFailure(KrAppFailure::WrongUsage, std::to_string(m_width) + " x " + std::to_string(m_height) +
                                                         " pixels are too few for " + std::to_string(count) + " views");
    }
    const double channels[] = {background.red(), background.green(), background.blue()};
    for (unsigned int i = 0; i < 3; ++i) {
        m_background[i] = static_cast<unsigned char>(std::lround(255.0 * std::clamp(channels[i], 0.0, 1.0)));
    }
    for (const std::string& name : options.views) {
        const Side side = sideOf(name, options);
        KrFraming framing(side.towardsEye, side.up, options.verticalFieldOfView(),
                          static_cast<double>(tileWidth()) / tileHeight());
        options.aids.frame(robot.statedSystem(), framing);
        framing.addMotion(robot.statedSystem().manipulatorSystem(), motion);
        m_povs.push_back(framing.pov());
    }
}

void KrAppTiles::draw(KrAppScene& scene, const KrManipulatorSystemState& state, unsigned char* out)
{
    constexpr unsigned int kChannels = 3;
    const unsigned int factor = scene.factor();
    const std::size_t width = std::size_t(factor) * tileWidth();
    const std::size_t height = std::size_t(factor) * tileHeight();
    const std::size_t wholeWidth = std::size_t(factor) * m_width;
    const std::size_t wholeHeight = std::size_t(factor) * m_height;
    if (m_povs.size() * width * height < wholeWidth * wholeHeight) {
        for (std::size_t i = 0; i < wholeWidth * wholeHeight; ++i) {
            std::memcpy(out + i * kChannels, m_background, kChannels);
        }
    }
    for (std::size_t i = 0; i < m_povs.size(); ++i) {
        scene.window().setPovParameters(m_povs[i]);
        scene.window().loadLight(KrLighting::threeLamps(m_povs[i]));
        scene.drawLarge(state, m_tile);
        const std::size_t left = i % m_columns * width;
        const std::size_t bottom = wholeHeight - (i / m_columns + 1) * height;
        for (std::size_t row = 0; row < height; ++row) {
            std::memcpy(out + ((bottom + row) * wholeWidth + left) * kChannels, m_tile.data() + row * width * kChannels,
                        width * kChannels);
        }
    }
}
