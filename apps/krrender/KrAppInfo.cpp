#include "KrAppInfo.h"

#include "KrAppMessages.h"
#include "KrAppRobot.h"

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>
#include <toolkit/math/KrAngle.h>

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

namespace
{

/// With the digits that a person reads.
std::string number(double value)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.4g", value);
    return buffer;
}

/// With a comma after each three digits.
std::string grouped(std::size_t value)
{
    std::string digits = std::to_string(value);
    for (std::size_t at = digits.size(); at > 3; at -= 3) {
        digits.insert(at - 3, ",");
    }
    return digits;
}

std::string counted(std::size_t count, const std::string& one)
{
    return grouped(count) + " " + one + (count == 1 ? "" : "s");
}

/// What one needs to know to set it.
std::string jointText(const KrJointKinematics& joint)
{
    using Type = KrJointKinematics::Type;
    std::string text;
    switch (joint.type()) {
    case Type::Fixed:
        return "fixed";
    case Type::Continuous:
        text = "continuous";
        break;
    case Type::Revolute:
        // In degrees, as --joint takes them.
        text = "revolute " + number(Kr::Angle::degrees(joint.lowerLimit())) + " to " +
               number(Kr::Angle::degrees(joint.upperLimit())) + " deg";
        break;
    case Type::Prismatic:
        text = "prismatic " + number(joint.lowerLimit()) + " to " + number(joint.upperLimit()) + " m";
        break;
    }
    if (joint.isMimic()) {
        text += ", follows " + KrAppMessages::printable(joint.mimicMaster()) + " x " + number(joint.mimicMultiplier());
        if (joint.mimicOffset() != 0.0) {
            text += (joint.mimicOffset() < 0.0 ? " - " : " + ") + number(std::abs(joint.mimicOffset()));
        }
    }
    return text;
}

/// What a picture of the link costs, and what a collision check has.
std::string shapeText(const KrManipulatorLink& link)
{
    std::size_t triangles = 0;
    std::size_t fields = 0;
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const KrShape* const shape = link.shape(i);
        // A field has no triangles and is counted by itself.
        const KrBasePhysicalExtent* const extent = shape ? shape->physicalExtent() : nullptr;
        fields += dynamic_cast<const KrGridPhysicalExtent*>(extent) ? 1 : 0;
        const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent ? extent->triExtent() : nullptr;
        triangles += mesh ? mesh->numTriangles() : 0;
    }
    const std::string collisions =
        link.numCollisionShapes() > 0 ? ", " + counted(link.numCollisionShapes(), "collision shape") : "";
    if (link.numShapes() == 0) {
        return "no shape" + collisions;
    }
    std::string text = link.numShapes() > 1 ? counted(link.numShapes(), "shape") + ", " : "";
    text += fields < link.numShapes() ? counted(triangles, "triangle") : "";
    text += fields > 0 ? (fields < link.numShapes() ? ", " : "") + counted(fields, "field") : "";
    return text + collisions;
}

/// A line of the tree: what stands on the left and what is told about it.
struct Row
{
    std::string tree;
    std::size_t width = 0; ///< columns that `tree` takes
    std::string joint;
    std::string kind;
    std::string shapes;
};

/// Columns of a UTF-8 text, one for each character.
std::size_t columnsOf(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0u) != 0x80u; }));
}

/// The links of a manipulator in depth-first pre-order, one under the other.
std::vector<Row> rowsOf(const KrManipulatorLink& base)
{
    struct Open
    {
        const KrManipulatorLink* link;
        std::string indent;
        std::string branch;
    };
    std::vector<Row> rows;
    // Without recursion: a chain may be longer than a small stack bears.
    std::vector<Open> stack = {{&base, "", ""}};
    while (!stack.empty()) {
        const Open open = std::move(stack.back());
        stack.pop_back();
        const KrManipulatorLink& link = *open.link;
        const bool isBase = open.link == &base;
        Row row;
        row.tree = open.indent + open.branch + KrAppMessages::printable(link.name());
        row.width = columnsOf(row.tree);
        row.joint = isBase ? "" : KrAppMessages::printable(link.jointKinematics().name());
        row.kind = isBase ? "" : jointText(link.jointKinematics());
        row.shapes = shapeText(link);
        rows.push_back(row);
        const KrXmlVectorType<KrManipulatorLink>& children = link.childLinks();
        // Below the last child no line goes on.
        const std::string below = isBase ? "" : open.indent + (open.branch == "└─ " ? "   " : "│  ");
        // Backwards onto the stack: children come off in their order.
        for (unsigned int i = children.size(); i-- > 0;) {
            stack.push_back({&children[i], below, i + 1 == children.size() ? "└─ " : "├─ "});
        }
    }
    return rows;
}

/// Filled up to a width in columns: a letter may have several bytes.
std::string padded(const std::string& text, std::size_t columns, std::size_t width)
{
    return text + std::string(width > columns ? width - columns : 0, ' ');
}

} // namespace

std::string krAppInfo(const KrAppRobot& robot)
{
    // Of an import, or counted from a native file when it was read.
    const KrImportReport::Counts& counts = robot.report.counts();
    std::string text = KrAppMessages::printable(robot.report.robot() + " (" + robot.report.file() + ")") + "\n\n";
    for (const KrIndividualManipulator& manipulator : robot.manipulators()) {
        const std::vector<Row> rows = rowsOf(manipulator);
        // Each manipulator has columns of its own width.
        std::size_t treeWidth = 0;
        std::size_t jointWidth = 0;
        std::size_t kindWidth = 0;
        // The base is no entry of links(), and has a mass of its own.
        double mass = manipulator.massProperties().mass();
        for (const Row& row : rows) {
            treeWidth = std::max(treeWidth, row.width);
            jointWidth = std::max(jointWidth, columnsOf(row.joint));
            kindWidth = std::max(kindWidth, columnsOf(row.kind));
        }
        for (const KrManipulatorLink* link : manipulator.links()) {
            mass += link->massProperties().mass();
        }
        // Nothing is told of mass where no link has one.
        text += KrAppMessages::printable(manipulator.name()) + ": " + counted(rows.size(), "link") +
                (mass > 0.0 ? ", " + number(mass) + " kg" : "") + "\n";
        for (const Row& row : rows) {
            std::string line = "  " + padded(row.tree, row.width, treeWidth) + "  " +
                               padded(row.joint, columnsOf(row.joint), jointWidth) + "  " +
                               padded(row.kind, columnsOf(row.kind), kindWidth) + "  " + row.shapes;
            text += line + "\n";
        }
        text += "\n";
    }
    text += "In all: " + counted(counts.links, "link") + ", " + counted(counts.joints, "joint") + " (" +
            grouped(counts.movableJoints) + " move, " + grouped(counts.mimicJoints) + " of them follow another), " +
            counted(counts.visuals, "shape") + ", " + counted(robot.numTriangles(), "triangle");
    text += robot.numCollisionShapes() > 0 ? ", " + counted(robot.numCollisionShapes(), "collision shape") : "";
    text += counts.missingMeshes > 0 ? ", " + counted(counts.missingMeshes, "missing mesh") + "\n" : "\n";
    return text;
}
