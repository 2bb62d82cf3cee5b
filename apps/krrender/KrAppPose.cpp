#include "KrAppPose.h"

#include "KrAppFailure.h"
#include "KrAppMessages.h"
#include "KrAppValue.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

namespace
{

using Type = KrJointKinematics::Type;

[[noreturn]] void couldNot(const std::string& sentence)
{
    throw KrAppFailure(KrAppFailure::CouldNot, sentence);
}

std::string text(double value)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.6g", value);
    return buffer;
}

/// A joint that can be set.
struct Joint
{
    unsigned int manipulator = 0;
    const KrJointKinematics* kinematics = nullptr;
    std::string name;
};

/// The joint (or, failing that, the link) of that name among the manipulator's links; null when there is none.
const KrJointKinematics* findJoint(const KrIndividualManipulator& manipulator, const std::string& name)
{
    const int index = manipulator.jointIndex(name);
    return index < 0 ? nullptr : &manipulator.links()[static_cast<std::size_t>(index)]->jointKinematics();
}

std::vector<std::string> movableJoints(const KrStatedSystem& system)
{
    std::vector<std::string> names;
    for (const KrIndividualManipulator& manipulator : system.manipulatorSystem().manipulators()) {
        for (const KrManipulatorLink* link : manipulator.links()) {
            if (link->jointKinematics().isMovable() && !link->jointKinematics().isMimic()) {
                names.push_back(link->jointKinematics().name());
            }
        }
    }
    return names;
}

[[noreturn]] void unknownJoint(const KrStatedSystem& system, const std::string& name)
{
    const std::vector<std::string> joints = movableJoints(system);
    const std::vector<std::string> near = KrAppValue::nearest(name, joints);
    std::string sentence = "there is no joint \"" + name + "\"";
    if (joints.empty()) {
        couldNot(sentence + ": nothing in this system moves");
    }
    if (near.empty()) {
        couldNot(sentence + " (--info lists the joints)");
    }
    sentence += "; did you mean ";
    for (std::size_t i = 0; i < near.size(); ++i) {
        sentence += (i == 0 ? "" : i + 1 == near.size() ? " or " : ", ") + near[i];
    }
    couldNot(sentence + "?");
}

/// Refuses joints that are not there, or not unique.
Joint findUnique(const KrStatedSystem& system, const std::string& name)
{
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = system.manipulatorSystem().manipulators();
    std::vector<Joint> found;
    for (unsigned int i = 0; i < manipulators.size(); ++i) {
        const std::string prefix = manipulators[i].name() + "/";
        std::string inside = name;
        const KrJointKinematics* kinematics = findJoint(manipulators[i], name);
        if (!kinematics && name.compare(0, prefix.size(), prefix) == 0) {
            inside = name.substr(prefix.size());
            kinematics = findJoint(manipulators[i], inside);
        }
        if (kinematics) {
            found.push_back({i, kinematics, inside});
        }
    }
    if (found.empty()) {
        unknownJoint(system, name);
    }
    if (found.size() > 1) {
        couldNot("joint \"" + name + "\" is in " + std::to_string(found.size()) + " manipulators; write " +
                 manipulators[found[0].manipulator].name() + "/" + name + " for the first one");
    }
    return found.front();
}

/// Refuses also those that are not free to move.
Joint jointByName(const KrStatedSystem& system, const std::string& name)
{
    const Joint joint = findUnique(system, name);
    if (!joint.kinematics->isMovable()) {
        couldNot("joint \"" + name + "\" is fixed");
    }
    if (joint.kinematics->isMimic()) {
        couldNot("joint \"" + name + "\" follows joint \"" + joint.kinematics->mimicMaster() + "\": set that one");
    }
    return joint;
}

bool fits(KrAppValue::Unit unit, Type type)
{
    return unit == KrAppValue::Unit::Plain || (unit == KrAppValue::Unit::Length) == (type == Type::Prismatic);
}

/// A position typed for `joint`; `where` begins the sentence of a failure.
double jointPosition(const Joint& joint, const std::string& word, const std::string& where, KrAppFailure::Status status)
{
    double position = 0.0;
    KrAppValue::Unit unit = KrAppValue::Unit::Plain;
    if (!KrAppValue::position(word, position, unit)) {
        throw KrAppFailure(status, where + ": \"" + word + "\" is no number");
    }
    if (!fits(unit, joint.kinematics->type())) {
        const char* const needs =
            joint.kinematics->type() == Type::Prismatic ? "a length (m, mm)" : "an angle (rad, deg)";
        throw KrAppFailure(status, where + ": \"" + word + "\" has the wrong unit, this joint takes " + needs);
    }
    return position;
}

void checkLimits(const Joint& joint, double position, const std::string& where, std::vector<std::string>& warnings)
{
    constexpr double kRounding = 1e-9; // a limit typed in degrees is not beyond itself
    const KrJointKinematics& k = *joint.kinematics;
    if (k.hasLimits() && (position < k.lowerLimit() - kRounding || position > k.upperLimit() + kRounding)) {
        warnings.push_back(where + ": " + text(position) + " is outside the limits " + text(k.lowerLimit()) + " to " +
                           text(k.upperLimit()) + " of joint \"" + joint.name + "\"");
    }
}

/// A column of a trajectory.
struct Column
{
    enum Kind
    {
        Time,
        Position, ///< of `joint`
        Ignored
    };
    Kind kind = Ignored;
    Joint joint;
};

/// The cells of a line; a cell may stand in quotation marks.
std::vector<std::string> cellsOf(const std::string& line)
{
    std::vector<std::string> cells = KrAppValue::split(line, ',');
    for (std::string& cell : cells) {
        if (cell.size() > 1 && cell.front() == '"' && cell.back() == '"') {
            cell = cell.substr(1, cell.size() - 2);
        }
    }
    return cells;
}

std::vector<Column> columns(const KrStatedSystem& system, const std::vector<std::string>& header,
                            const std::string& where, std::vector<std::string>& warnings)
{
    std::string followers;
    std::vector<Column> result;
    std::set<std::pair<unsigned int, const KrJointKinematics*>> seen;
    for (const std::string& name : header) {
        if (name.empty()) {
            couldNot(where + ": a column has no name");
        }
        const bool isJoint = [&] {
            for (const KrIndividualManipulator& manipulator : system.manipulatorSystem().manipulators()) {
                if (manipulator.jointIndex(name) >= 0) {
                    return true;
                }
            }
            return false;
        }();
        if (!isJoint && (name == "time" || name == "t")) {
            if (std::any_of(result.begin(), result.end(), [](const Column& c) { return c.kind == Column::Time; })) {
                couldNot(where + ": there are two columns of times");
            }
            result.push_back({Column::Time, {}});
            continue;
        }
        const Joint joint = [&] {
            try {
                const Joint found = findUnique(system, name);
                return found.kinematics->isMimic() ? found : jointByName(system, name);
            } catch (const KrAppFailure& failure) {
                couldNot(where + ": " + failure.what());
            }
        }();
        if (joint.kinematics->isMimic()) {
            // Logs of joint states have them. What they follow says where they are.
            followers += (followers.empty() ? "" : ", ") + name;
            result.push_back({Column::Ignored, joint});
            continue;
        }
        if (!seen.insert({joint.manipulator, joint.kinematics}).second) {
            couldNot(where + ": joint \"" + name + "\" has two columns");
        }
        result.push_back({Column::Position, joint});
    }
    if (!followers.empty()) {
        warnings.push_back(where + ": columns of joints that follow another are not read: " + followers);
    }
    return result;
}

/// The lines of a text file that hold something, with their numbers.
std::vector<std::pair<std::size_t, std::string>> linesOf(const std::string& path)
{
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        couldNot(path + " is a folder, not a file");
    }
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        couldNot(path + ": " + std::strerror(errno ? errno : ENOENT));
    }
    std::vector<std::pair<std::size_t, std::string>> lines;
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        if (number == 1 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            line.erase(0, 3); // a byte order mark
        }
        if (line.find('\0') != std::string::npos) {
            couldNot(path + " is binary, not a CSV file");
        }
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first != std::string::npos && line[first] != '#') {
            lines.emplace_back(number, line);
        }
    }
    return lines;
}

} // namespace

void KrAppPose::setJoints(KrStatedSystem& system, const std::vector<std::pair<std::string, std::string>>& joints,
                          std::vector<std::string>& warnings)
{
    for (const auto& [name, word] : joints) {
        const Joint joint = jointByName(system, name);
        const std::string where = "--joint " + name;
        const double position = jointPosition(joint, word, where, KrAppFailure::WrongUsage);
        checkLimits(joint, position, where, warnings);
        system.setJointPosition(joint.manipulator, joint.name, position);
    }
}

void KrAppPose::readState(KrStatedSystem& system, const std::string& path, KrAppMessages& messages)
{
    KrManipulatorSystemState state;
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        couldNot(path + " is a folder, not a file");
    }
    if (!std::filesystem::exists(path, error)) {
        couldNot(path + ": no such file");
    }
    if (!state.readFile(path) || !system.setSystemState(state)) {
        couldNot(messages.lastReason(path + " cannot be read"));
    }
}

KrAppMotion KrAppPose::readTrajectory(const KrStatedSystem& system, const std::string& path,
                                      std::vector<std::string>& warnings)
{
    const std::vector<std::pair<std::size_t, std::string>> lines = linesOf(path);
    if (lines.empty()) {
        couldNot(path + " is empty: a header that names joints is expected");
    }
    const std::vector<Column> header =
        columns(system, cellsOf(lines[0].second), path + ", line " + std::to_string(lines[0].first), warnings);
    if (lines.size() == 1) {
        couldNot(path + " has a header but no row");
    }

    std::vector<KrAppMotion::Joint> joints;
    for (const Column& column : header) {
        if (column.kind == Column::Position) {
            joints.push_back({column.joint.manipulator, column.joint.name});
        }
    }
    KrAppMotion motion(system, std::move(joints));
    std::vector<double> positions;
    double time = 0.0;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::string where = path + ", line " + std::to_string(lines[i].first);
        const std::vector<std::string> words = cellsOf(lines[i].second);
        if (words.size() != header.size()) {
            couldNot(where + ": " + std::to_string(words.size()) + " values for " + std::to_string(header.size()) +
                     " columns");
        }
        const double timeBefore = time;
        positions.clear();
        for (std::size_t k = 0; k < words.size(); ++k) {
            const Joint& joint = header[k].joint;
            if (header[k].kind == Column::Time && !KrAppValue::number(words[k], time)) {
                couldNot(where + ": \"" + words[k] + "\" is no number");
            }
            if (header[k].kind == Column::Time && i > 1 && !(time > timeBefore)) {
                couldNot(where + ": the time " + words[k] + " is not later than that of the row before");
            }
            if (header[k].kind != Column::Position) {
                continue;
            }
            const double position = jointPosition(joint, words[k], where, KrAppFailure::CouldNot);
            checkLimits(joint, position, where, warnings);
            positions.push_back(position);
        }
        motion.add(time, positions);
    }
    return motion;
}
