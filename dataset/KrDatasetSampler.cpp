#include <dataset/KrDatasetSampler.h>

#include <dataset/KrDatasetRandom.h>

#include <picture/KrFraming.h>
#include <picture/KrLighting.h>
#include <picture/KrValueText.h>
#include <rendCore/capture/KrOpticalFrame.h>
#include <toolkit/math/KrAngle.h>

#include <algorithm>
#include <cmath>

namespace
{

using Recipe = KrDatasetRecipe;
using Transformation = KrCoordinateSystemTransformation;

double draw(const KrDatasetRandom& random, const std::string& quantity, const Recipe::Range& range)
{
    return random.uniform(quantity, range.low, range.high);
}

/// The middle of the range where there is no chance.
double draw(const KrDatasetRandom* random, const std::string& quantity, const Recipe::Range& range)
{
    return random != nullptr ? draw(*random, quantity, range) : 0.5 * (range.low + range.high);
}

/// An elevation such that equal areas of a sphere have equal chances: its sine is even.
double drawElevation(const KrDatasetRandom& random, const std::string& quantity, const Recipe::Range& range)
{
    return range.isFixed() ? range.low : std::asin(random.uniform(quantity, std::sin(range.low), std::sin(range.high)));
}

KrColor drawColor(const KrDatasetRandom& random, const std::string& quantity, const Recipe::Colors& colors)
{
    if (!colors.isBetween) {
        const std::size_t count = colors.colors.size();
        return colors.colors[count == 1 ? 0 : random.choice(quantity + "/choice", count)];
    }
    const KrColor& from = colors.colors[0];
    const KrColor& to = colors.colors[1];
    return {random.uniform(quantity + "/red", from.red(), to.red()),
            random.uniform(quantity + "/green", from.green(), to.green()),
            random.uniform(quantity + "/blue", from.blue(), to.blue())};
}

Transformation drawPose(const KrDatasetRandom* random, const std::string& quantity, const Recipe::Pose& pose)
{
    Transformation result;
    result.setRollPitchYaw(draw(random, quantity + "/roll", pose.roll), draw(random, quantity + "/pitch", pose.pitch),
                           draw(random, quantity + "/yaw", pose.yaw));
    result.setTranslation(KrVector(draw(random, quantity + "/x", pose.x), draw(random, quantity + "/y", pose.y),
                                   draw(random, quantity + "/z", pose.z)));
    return result;
}

/// Of length 1: what lies at that place on a sphere, from its middle.
KrVector direction(double azimuth, double elevation)
{
    return {std::cos(elevation) * std::cos(azimuth), std::cos(elevation) * std::sin(azimuth), std::sin(elevation)};
}

std::vector<std::string> linkNames(const KrManipulatorSystem& system, const KrDatasetSampler::Source& source)
{
    std::vector<std::string> names;
    for (unsigned int m = source.first; m < source.first + source.count; ++m) {
        const KrIndividualManipulator& manipulator = system.manipulators()[m];
        names.push_back(manipulator.name());
        for (const KrManipulatorLink* const link : manipulator.links()) {
            names.push_back(link->name());
        }
    }
    return names;
}

} // namespace

bool KrDatasetSampler::prepare(const KrDatasetRecipe& recipe, const KrStatedSystem& system,
                               const std::vector<Source>& sources, std::string& reason)
{
    *this = KrDatasetSampler();
    m_recipe = &recipe;
    m_system = &system;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const bool isRobot = i < recipe.robots.size();
        const Recipe::Pose& pose = isRobot ? recipe.robots[i].pose : recipe.meshes[i - recipe.robots.size()].pose;
        // The manipulators of one file keep together.
        for (unsigned int m = sources[i].first; m < sources[i].first + sources[i].count; ++m) {
            m_bases.push_back({m, pose, "pose/" + sources[i].name});
        }
        if (isRobot && !prepareJoints(recipe.robots[i], sources[i], reason)) {
            return false;
        }
    }
    if (!prepareMaterials(sources, reason) || !prepareMounts(sources, reason)) {
        return false;
    }
    KrManipulatorSystemState rest = system.systemState();
    pose(nullptr, rest);
    KrFraming framing({0.0, 0.0, 1.0}, {0.0, 1.0, 0.0}, 1.0, 1.0); // for the box
    framing.add(system.manipulatorSystem(), rest);
    m_center = framing.center();
    return true;
}

bool KrDatasetSampler::prepareJoints(const Recipe::Robot& robot, const Source& source, std::string& reason)
{
    std::vector<std::string> free;
    std::map<std::string, Recipe::JointRange> unused = robot.joints;
    for (unsigned int m = source.first; m < source.first + source.count; ++m) {
        const std::vector<const KrManipulatorLink*> links = m_system->manipulatorSystem().manipulators()[m].links();
        for (unsigned int i = 0; i < links.size(); ++i) {
            const KrJointKinematics& joint = links[i]->jointKinematics();
            // Joints that follow others do so by themselves.
            if (!joint.isMovable() || joint.isMimic()) {
                continue;
            }
            free.push_back(joint.name());
            Recipe::Range range = joint.hasLimits() ? Recipe::Range{joint.lowerLimit(), joint.upperLimit()}
                                                    : Recipe::Range{-Kr::Angle::kPi, Kr::Angle::kPi};
            const auto given = robot.joints.find(joint.name());
            if (given != robot.joints.end()) {
                const bool slides = joint.type() == KrJointKinematics::Type::Prismatic;
                if (!(slides ? given->second.isLength : given->second.isAngle)) {
                    reason = "robot \"" + robot.name + "\": joint \"" + joint.name() +
                             (slides ? "\" slides, but its range is an angle" : "\" turns, but its range is a length");
                    return false;
                }
                range = given->second;
                unused.erase(joint.name());
            }
            m_joints.push_back({m, i, range, "joint/" + robot.name + "/" + joint.name()});
        }
    }
    if (!unused.empty()) {
        const std::string& name = unused.begin()->first;
        reason = "robot \"" + robot.name + "\" has no joint \"" + name + "\" that moves by itself" +
                 KrValueText::suggestion(name, free);
        return false;
    }
    return true;
}

bool KrDatasetSampler::findLink(const Source& source, const std::string& name, Mount& mount, std::string& reason) const
{
    const KrManipulatorSystem& system = m_system->manipulatorSystem();
    for (unsigned int m = source.first; m < source.first + source.count; ++m) {
        const KrIndividualManipulator& manipulator = system.manipulators()[m];
        if (manipulator.name() == name) {
            mount = {m, 0};
            return true;
        }
        const std::vector<const KrManipulatorLink*> links = manipulator.links();
        const auto found =
            std::find_if(links.begin(), links.end(), [&](const auto* link) { return link->name() == name; });
        if (found != links.end()) {
            mount = {m, 1 + static_cast<unsigned int>(found - links.begin())};
            return true;
        }
    }
    reason = "\"" + source.name + "\" has no link \"" + name + "\"" +
             KrValueText::suggestion(name, linkNames(system, source));
    return false;
}

bool KrDatasetSampler::prepareMaterials(const std::vector<Source>& sources, std::string& reason)
{
    for (const Recipe::Material& material : m_recipe->materials) {
        // The recipe's reader has seen to the name.
        const Source& source = *std::find_if(sources.begin(), sources.end(),
                                             [&](const Source& each) { return each.name == material.robot; });
        const std::vector<std::string> links =
            material.links.empty() ? linkNames(m_system->manipulatorSystem(), source) : material.links;
        for (const std::string& name : links) {
            Mount link;
            if (!findLink(source, name, link, reason)) {
                return false;
            }
            m_looks.push_back({link.manipulator, link.link, material.color, "material/" + material.robot + "/" + name});
        }
    }
    return true;
}

bool KrDatasetSampler::prepareMounts(const std::vector<Source>& sources, std::string& reason)
{
    for (const Recipe::Camera& camera : m_recipe->cameras) {
        m_mounts.emplace_back();
        if (camera.place == Recipe::Camera::Place::Link) {
            const Source& source = *std::find_if(sources.begin(), sources.end(),
                                                 [&](const Source& each) { return each.name == camera.robot; });
            if (!findLink(source, camera.link, m_mounts.back(), reason)) {
                reason = "camera \"" + camera.name + "\": " + reason;
                return false;
            }
        }
    }
    return true;
}

void KrDatasetSampler::pose(const KrDatasetRandom* random, KrManipulatorSystemState& state) const
{
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = m_system->manipulatorSystem().manipulators();
    for (const Base& base : m_bases) {
        KrPositionState& position = state.positionStates()[base.manipulator];
        // In the world, whatever placement a native file gives its manipulators.
        const Transformation& placement = manipulators[base.manipulator].placement();
        position.setBaseTransformation(placement.inverse() * drawPose(random, base.quantity, base.pose) * placement *
                                       position.baseTransformation());
    }
    for (const Joint& joint : m_joints) {
        state.positionStates()[joint.manipulator].jointPositions()[joint.index] =
            draw(random, joint.quantity, joint.range);
    }
    for (unsigned int m = 0; m < manipulators.size(); ++m) {
        manipulators[m].applyMimics(state.positionStates()[m]);
    }
}

void KrDatasetSampler::light(const KrDatasetRandom& random, KrDatasetShot& shot) const
{
    if (!m_recipe->lights) {
        shot.lights = KrLighting::threeLamps(shot.pov);
        shot.ambient = KrLighting::ambientLight();
        return;
    }
    const double ambient = draw(random, "light/ambient", m_recipe->lights->ambient);
    shot.ambient = KrColor(ambient, ambient, ambient);
    for (std::size_t i = 0; i < m_recipe->lights->lamps.size(); ++i) {
        const Recipe::Lamp& lamp = m_recipe->lights->lamps[i];
        const std::string quantity = "light/" + std::to_string(i);
        const double azimuth = draw(random, quantity + "/azimuth", lamp.azimuth);
        const double elevation = drawElevation(random, quantity + "/elevation", lamp.elevation);
        const double brightness = draw(random, quantity + "/brightness", lamp.brightness);
        const KrColor color = drawColor(random, quantity + "/color", lamp.color);
        KrLight light;
        light.setPositional(false);
        light.setPosition(direction(azimuth, elevation));
        light.setAmbient({0.0, 0.0, 0.0});
        const KrColor shown(brightness * color.red(), brightness * color.green(), brightness * color.blue());
        light.setDiffuse(shown);
        light.setSpecular(shown);
        shot.lights.lights().push_back(light);
    }
}

void KrDatasetSampler::place(const KrDatasetRandom& random, unsigned int attempt, KrDatasetShot& shot) const
{
    const Recipe::Camera& camera = m_recipe->cameras[shot.camera];
    // Names of their own for further attempts: the first one stays what it was.
    const std::string suffix = attempt == 0 ? "" : "#" + std::to_string(attempt);
    const std::string quantity = "camera/" + camera.name + suffix;
    const KrVector center = camera.center.value_or(m_center);
    if (camera.place == Recipe::Camera::Place::Shell) {
        const double distance = draw(random, quantity + "/distance", camera.distance);
        const double elevation = drawElevation(random, quantity + "/elevation", camera.elevation);
        const double azimuth = draw(random, quantity + "/azimuth", camera.azimuth);
        const double roll = draw(random, quantity + "/roll", camera.roll);
        // Optical axes: forward to the centre, x to the right, which is level, y downwards. From the azimuth and not
        // from a product with z, so that straight up and down are no exceptions.
        const KrVector forward = -1.0 * direction(azimuth, elevation);
        const KrVector right(-std::sin(azimuth), std::cos(azimuth), 0.0);
        const KrVector down = forward.cross(right);
        const double rotation[9] = {right.x(),   down.x(),  forward.x(), right.y(),  down.y(),
                                    forward.y(), right.z(), down.z(),    forward.z()};
        Transformation level;
        level.setRotation(rotation);
        Transformation turned;
        turned.setAxisAngle(KrVector(0.0, 0.0, 1.0), roll);
        shot.opticalToWorld = level * turned;
        shot.opticalToWorld.setTranslation(center - distance * forward);
    } else {
        shot.opticalToWorld = drawPose(&random, quantity, camera.pose);
        if (camera.place == Recipe::Camera::Place::Link) {
            const Mount& mount = m_mounts[shot.camera];
            shot.opticalToWorld =
                linkToWorld(m_system->manipulatorSystem(), shot.state, mount.manipulator, mount.link) *
                shot.opticalToWorld;
        }
    }
    shot.intrinsics = camera.intrinsics.value_or(
        KrCameraIntrinsics::fromFieldOfView(camera.fieldOfView, m_recipe->width, m_recipe->height));
    // How far the point is that the camera would turn about means nothing for a picture.
    constexpr double kNearest = 0.1; // m
    const double distance = std::max((shot.opticalToWorld.translation() - center).length(), kNearest);
    KrOpticalFrame::toPov(shot.opticalToWorld, distance, shot.pov);
    shot.pov.setFieldOfView(shot.intrinsics.fieldOfView());
}

KrDatasetShot KrDatasetSampler::shot(std::uint64_t number, unsigned int attempt) const
{
    const std::uint64_t numCameras = m_recipe->cameras.size();
    const KrDatasetRandom ofState(m_recipe->seed, number / numCameras);
    const KrDatasetRandom ofImage(m_recipe->seed, number);
    KrDatasetShot shot;
    shot.camera = static_cast<unsigned int>(number % numCameras);
    shot.state = m_system->systemState();
    pose(&ofState, shot.state);
    // Behind the pose, which carries some cameras; before the lights, which stand about the camera if nothing is said.
    place(ofImage, attempt, shot);
    light(ofState, shot);
    if (m_recipe->backgroundPictures.empty()) {
        shot.background = drawColor(ofImage, "background", m_recipe->background);
    } else {
        shot.backgroundPicture = ofImage.choice("background/picture", m_recipe->backgroundPictures.size());
    }
    for (const LinkLook& look : m_looks) {
        shot.colors.push_back({look.manipulator, look.link, drawColor(ofState, look.quantity, look.colors)});
    }
    return shot;
}

Transformation KrDatasetSampler::linkToWorld(const KrManipulatorSystem& system, const KrManipulatorSystemState& state,
                                             unsigned int manipulator, unsigned int link)
{
    const KrIndividualManipulator& of = system.manipulators()[manipulator];
    const KrPositionState& position = state.positionStates()[manipulator];
    Transformation result = position.baseTransformation();
    if (link > 0) {
        std::vector<Transformation> poses;
        of.linkPoses(position, poses);
        result = poses[link - 1];
    }
    return of.placement() * result;
}
