#pragma once

#include <tests/support/Folder.h>
#include <tests/support/MessageRecorder.h>

#include <import/KrRobotImporter.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/system/KrStatedSystem.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using Corners = std::array<KrVector, 3>;

/// A robot's files.
using Bundle = Folder;

/// A box with one corner at the origin; counter-clockwise seen from outside.
inline std::vector<Corners> box(double x, double y, double z)
{
    const KrVector p[8] = {{0, 0, 0}, {x, 0, 0}, {x, y, 0}, {0, y, 0}, {0, 0, z}, {x, 0, z}, {x, y, z}, {0, y, z}};
    const int sides[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
    std::vector<Corners> triangles;
    for (const auto& s : sides) {
        triangles.push_back({p[s[0]], p[s[1]], p[s[2]]});
        triangles.push_back({p[s[0]], p[s[2]], p[s[3]]});
    }
    return triangles;
}

inline std::string text(const KrVector& v)
{
    return std::to_string(v.x()) + " " + std::to_string(v.y()) + " " + std::to_string(v.z());
}

/// ASCII STL; every facet claims `normal`.
inline std::string stl(const std::vector<Corners>& triangles, const std::string& normal = "0 0 1")
{
    std::string result = "solid box\n";
    for (const Corners& t : triangles) {
        result += "facet normal " + normal + "\nouter loop\n";
        for (const KrVector& v : t) {
            result += "vertex " + text(v) + "\n";
        }
        result += "endloop\nendfacet\n";
    }
    return result + "endsolid box\n";
}

inline std::string binaryStl(const std::vector<Corners>& triangles)
{
    std::string result(80, ' ');
    const auto append = [&result](const auto& value) {
        result.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    append(static_cast<std::uint32_t>(triangles.size()));
    for (const Corners& t : triangles) {
        append(std::array<float, 3>{0.0f, 0.0f, 0.0f});
        for (const KrVector& v : t) {
            append(
                std::array<float, 3>{static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())});
        }
        append(static_cast<std::uint16_t>(0));
    }
    return result;
}

/// Six times the volume inside, positive when the winding points outwards.
inline double volume(const KrTriPhysicalExtent& mesh)
{
    double sum = 0.0;
    for (const auto& group : mesh.groups()) {
        for (const KrTriangle& t : group.second()) {
            const KrVector& a = mesh.vertices()[t.vertex(0)];
            sum += a.dot(mesh.vertices()[t.vertex(1)].cross(mesh.vertices()[t.vertex(2)]));
        }
    }
    return sum / 6.0;
}

/// The least cosine between a corner's normal and its triangle's; also -2 for a normal that is not of unit length.
inline double worstNormal(const KrTriPhysicalExtent& mesh)
{
    double worst = 1.0;
    for (const auto& group : mesh.groups()) {
        for (const KrTriangle& t : group.second()) {
            const KrVector& a = mesh.vertices()[t.vertex(0)];
            KrVector face = (mesh.vertices()[t.vertex(1)] - a).cross(mesh.vertices()[t.vertex(2)] - a);
            face.normalize();
            for (unsigned int k = 0; k < 3; ++k) {
                const KrVector& normal = mesh.normals()[t.normal(k)];
                worst = std::min(worst, std::abs(normal.length() - 1.0) < 1e-6 ? normal.dot(face) : -2.0);
            }
        }
    }
    return worst;
}

/// What came in from one description.
struct Imported
{
    bool ok = false;
    KrStatedSystem system;
    KrImportReport report;
    std::string printed;

    const KrIndividualManipulator& robot() const { return system.manipulatorSystem().manipulators()[0]; }
    const KrManipulatorLink& link(const std::string& name) const
    {
        static const KrManipulatorLink none;
        if (robot().name() == name) {
            return robot();
        }
        for (const KrManipulatorLink* link : robot().links()) {
            if (link->name() == name) {
                return *link;
            }
        }
        ADD_FAILURE() << "no link " << name;
        return none;
    }
    /// The mesh form of a link's shape; an empty mesh, and a failure, without one.
    const KrTriPhysicalExtent& mesh(const std::string& name, unsigned int shape = 0) const
    {
        static const KrTriPhysicalExtent none;
        const KrShape* const found = link(name).shape(shape);
        if (!found || !found->physicalExtent() || !found->physicalExtent()->triExtent()) {
            ADD_FAILURE() << "no shape " << shape << " in " << name << "\n" << report.text();
            return none;
        }
        return *found->physicalExtent()->triExtent();
    }
    /// The warnings with `element` whose text holds `part`.
    std::size_t warnings(const std::string& element, const std::string& part) const
    {
        std::size_t count = 0;
        for (const KrImportReport::Warning& warning : report.warnings()) {
            count += warning.element == element && warning.text.find(part) != std::string::npos;
        }
        return count;
    }
    KrDataMap look(const std::string& key) const
    {
        const KrDataMap* const found = robot().materialMap().find(key);
        return found ? *found : KrDataMap();
    }
};

inline Imported import(const std::string& path, const KrImportOptions& options = {})
{
    Imported result;
    MessageRecorder messages;
    result.ok = KrRobotImporter::readFile(path, options, result.system, result.report);
    result.printed = messages.all();
    return result;
}

inline std::string robot(const std::string& content)
{
    return "<?xml version=\"1.0\"?>\n<robot name=\"r\">" + content + "</robot>\n";
}

/// A robot of one link "base" with one mesh.
inline std::string meshRobot(const std::string& uri, const std::string& scale = "", const std::string& rest = "")
{
    return robot("<link name=\"base\"><visual><geometry><mesh filename=\"" + uri + "\"" +
                 (scale.empty() ? "" : " scale=\"" + scale + "\"") + "/></geometry>" + rest + "</visual></link>");
}

inline double real(const KrDataMap& look, const std::string& key)
{
    double value = -1.0;
    look.real(key, value);
    return value;
}
