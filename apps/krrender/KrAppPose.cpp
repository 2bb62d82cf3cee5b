#include "KrAppPose.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppMessages.h"

#include <picture/KrValueText.h>
#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <cstdio>
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
    const std::vector<std::string> near = KrValueText::nearest(name, joints);
    std::string sentence = "there is no joint \"" + KrText::oneLine(name) + "\"";
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

bool fits(KrValueText::Unit unit, Type type)
{
    return unit == KrValueText::Unit::Plain || (unit == KrValueText::Unit::Length) == (type == Type::Prismatic);
}

/// A position typed for `joint`; `where` begins the sentence of a failure.
double jointPosition(const Joint& joint, const std::string& word, const std::string& where, KrAppFailure::Status status)
{
    double position = 0.0;
    KrValueText::Unit unit = KrValueText::Unit::Plain;
    if (!KrValueText::position(word, position, unit)) {
        throw KrAppFailure(status, where + ": \"" + KrText::oneLine(word) + "\" is no number");
    }
    if (!fits(unit, joint.kinematics->type())) {
        const char* const needs =
            joint.kinematics->type() == Type::Prismatic ? "a length (m, mm)" : "an angle (rad, deg)";
        throw KrAppFailure(status,
                           where + ": \"" + KrText::oneLine(word) + "\" has the wrong unit, this joint takes " + needs);
    }
    return position;
}

bool isBeyond(const Joint& joint, double position)
{
    constexpr double kRounding = 1e-9; // a limit typed in degrees is not beyond itself
    const KrJointKinematics& k = *joint.kinematics;
    return k.hasLimits() && (position < k.lowerLimit() - kRounding || position > k.upperLimit() + kRounding);
}

std::string beyondText(const Joint& joint, double position, const std::string& where)
{
    const KrJointKinematics& k = *joint.kinematics;
    return where + ": " + text(position) + " is outside the limits " + text(k.lowerLimit()) + " to " +
           text(k.upperLimit()) + " of joint \"" + joint.name + "\"";
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
    // Positions outside the joint's limits: of many, one is told.
    std::size_t numBeyond = 0;
    std::string firstBeyond;
};

/// The cells of a line; a cell may stand in quotation marks.
std::vector<std::string> cellsOf(const std::string& line)
{
    std::vector<std::string> cells = KrValueText::split(line, ',');
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
            result.push_back({Column::Time, {}, 0, {}});
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
            result.push_back({Column::Ignored, joint, 0, {}});
            continue;
        }
        if (!seen.insert({joint.manipulator, joint.kinematics}).second) {
            couldNot(where + ": joint \"" + name + "\" has two columns");
        }
        result.push_back({Column::Position, joint, 0, {}});
    }
    if (!followers.empty()) {
        warnings.push_back(where +
                           ": columns of joints that follow another are not read: " + KrText::oneLine(followers));
    }
    return result;
}

/// The lines of a text that hold something: not blank, no comment.
class Lines
{
public:
    explicit Lines(const std::string& path)
        : m_name(KrAppFiles::spoken(path, KrAppFiles::Standard::Input))
        , m_file(Kr::Limits::kTextBytes)
    {
        KrAppFiles::open(m_file, path);
    }

    /// False at the end.
    bool next(std::string& line)
    {
        while (m_file.readLine(line, Kr::Limits::kTextLine)) {
            if (++m_number == 1 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) {
                line.erase(0, 3); // a byte order mark
            }
            if (line.find('\0') != std::string::npos) {
                couldNot(m_name + " is binary, not a CSV file");
            }
            const std::size_t first = line.find_first_not_of(" \t\r");
            if (first != std::string::npos && line[first] != '#') {
                return true;
            }
        }
        if (!m_file.reason().empty()) {
            couldNot(m_name + ": " + m_file.reason());
        }
        return false;
    }
    const std::string& name() const { return m_name; }
    /// Where the last line stands, to begin a sentence.
    std::string where() const { return m_name + ", line " + std::to_string(m_number); }

private:
    std::string m_name;
    KrInputFile m_file;
    std::size_t m_number = 0;
};

/// Reads a row into the positions of the joints that move, and the time. @param isFirst  no time is before this one
void readRow(const std::string& line, const std::string& where, bool isFirst, std::vector<Column>& header, double& time,
             std::vector<double>& positions)
{
    const double timeBefore = time;
    const std::vector<std::string> words = cellsOf(line);
    if (words.size() != header.size()) {
        couldNot(where + ": " + std::to_string(words.size()) + " values for " + std::to_string(header.size()) +
                 " columns");
    }
    positions.clear();
    for (std::size_t k = 0; k < words.size(); ++k) {
        Column& column = header[k];
        if (column.kind == Column::Time && !KrValueText::number(words[k], time)) {
            couldNot(where + ": \"" + KrText::oneLine(words[k]) + "\" is no number");
        }
        if (column.kind == Column::Time && !isFirst && !(time > timeBefore)) {
            couldNot(where + ": the time " + KrText::oneLine(words[k]) + " is not later than that of the row before");
        }
        if (column.kind == Column::Position) {
            positions.push_back(jointPosition(column.joint, words[k], where, KrAppFailure::CouldNot));
            if (isBeyond(column.joint, positions.back()) && column.numBeyond++ == 0) {
                column.firstBeyond = beyondText(column.joint, positions.back(), where);
            }
        }
    }
}

} // namespace

void KrAppPose::setJoints(KrStatedSystem& system, const std::vector<std::pair<std::string, std::string>>& joints,
                          std::vector<std::string>& warnings)
{
    for (const auto& [name, word] : joints) {
        const Joint joint = jointByName(system, name);
        const std::string where = "--joint " + name;
        const double position = jointPosition(joint, word, where, KrAppFailure::WrongUsage);
        if (isBeyond(joint, position)) {
            warnings.push_back(beyondText(joint, position, where));
        }
        system.setJointPosition(joint.manipulator, joint.name, position);
    }
}

void KrAppPose::readState(KrStatedSystem& system, const std::string& path, KrAppMessages& messages)
{
    const std::string text = KrAppFiles::readText(path, Kr::Limits::kStateBytes);
    const std::string name = KrAppFiles::spoken(path, KrAppFiles::Standard::Input);
    KrManipulatorSystemState state;
    if (!state.readBuffer(text.data(), text.size(), name) || !system.setSystemState(state)) {
        couldNot(messages.lastReason(name + " cannot be read"));
    }
}

KrMotion KrAppPose::readTrajectory(const KrStatedSystem& system, const std::string& path,
                                   std::vector<std::string>& warnings)
{
    Lines lines(path);
    std::string line;
    if (!lines.next(line)) {
        couldNot(lines.name() + " is empty: a header that names joints is expected");
    }
    std::vector<Column> header = columns(system, cellsOf(line), lines.where(), warnings);
    std::vector<KrMotion::Joint> joints;
    for (const Column& column : header) {
        if (column.kind == Column::Position) {
            joints.push_back({column.joint.manipulator, column.joint.name});
        }
    }
    const std::size_t mostRows =
        std::min(Kr::Limits::kTrajectoryRows, Kr::Limits::kTrajectoryNumbers / (1 + joints.size()));
    KrMotion motion(system, std::move(joints));
    std::vector<double> positions;
    double time = 0.0;
    while (lines.next(line)) {
        if (motion.size() == mostRows) {
            couldNot(lines.name() + ": it has more than " + std::to_string(mostRows) + " rows");
        }
        readRow(line, lines.where(), motion.size() == 0, header, time, positions);
        motion.add(time, positions);
    }
    if (motion.size() == 0) {
        couldNot(lines.name() + " has a header but no row");
    }
    for (const Column& column : header) {
        if (column.numBeyond > 0) {
            const std::string more =
                column.numBeyond > 1 ? ", and " + std::to_string(column.numBeyond - 1) + " more" : "";
            warnings.push_back(column.firstBeyond + more);
        }
    }
    return motion;
}
