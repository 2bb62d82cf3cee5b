// The URDF form of a sample robot.

#include "KrSampleRobot.h"

#include <toolkit/xml/KrXmlText.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

namespace
{

std::string text(double value, double step = 1e-6)
{
    std::string out;
    const double perUnit = std::round(1.0 / step);
    const double rounded = std::round(value * perUnit) / perUnit;
    KrXmlText::append(out, rounded == 0.0 ? 0.0 : rounded);
    return out;
}

std::string text(const KrVector& v, double step = 1e-6)
{
    return text(v.x(), step) + " " + text(v.y(), step) + " " + text(v.z(), step);
}

std::string originElement(const KrVector& xyz, const KrVector& rpy)
{
    return "<origin xyz=\"" + text(xyz) + "\" rpy=\"" + text(rpy) + "\"/>";
}

/// Numbers equal lines of one kind, so that each is written once.
class LinePool
{
public:
    explicit LinePool(std::string tag)
        : m_tag(std::move(tag))
    {
    }
    std::size_t index(std::ostream& file, const std::string& values)
    {
        const auto [found, isNew] = m_indices.try_emplace(values, m_indices.size() + 1);
        if (isNew) {
            file << m_tag << ' ' << values << '\n';
        }
        return found->second;
    }

private:
    std::string m_tag;
    std::map<std::string, std::size_t> m_indices;
};

bool writeObj(const std::filesystem::path& path, const KrSampleLink& link)
{
    std::ofstream file(path, std::ios::binary);
    file << "mtllib materials.mtl\n";
    LinePool vertices("v");
    LinePool normals("vn");
    for (const auto& [material, solid] : link.parts) {
        file << "usemtl " << material << '\n';
        for (const KrSampleSolid::Triangle& triangle : solid.triangles()) {
            std::string face = "f";
            for (const KrSampleSolid::Corner& corner : triangle) {
                face += ' ' + std::to_string(vertices.index(file, text(corner.position, 1e-5))) + "//" +
                        std::to_string(normals.index(file, text(corner.normal, 1e-3)));
            }
            file << face << '\n';
        }
    }
    return file.good();
}

bool writeMtl(const std::filesystem::path& path, const std::map<std::string, KrSampleMaterial>& materials)
{
    std::ofstream file(path, std::ios::binary);
    for (const auto& [name, material] : materials) {
        const KrVector color(material.color.red(), material.color.green(), material.color.blue());
        file << "newmtl " << name << "\nKa " << text(0.7 * color, 1e-4) << "\nKd " << text(color, 1e-4) << "\nKs "
             << text(KrVector(1, 1, 1) * material.specular, 1e-4) << "\nNs " << text(material.shininess) << "\n\n";
    }
    return file.good();
}

void writeLink(std::ostream& file, const KrSampleRobot& robot, const KrSampleLink& link, const std::string& meshes)
{
    file << "  <link name=\"" << link.name << "\">\n";
    const KrSampleMass body = robot.mass(link);
    if (body.mass > 0.0) {
        const auto& i = body.inertia;
        file << "    <inertial>\n      " << originElement(body.center, {}) << "\n      <mass value=\""
             << text(body.mass) << "\"/>\n      <inertia ixx=\"" << text(i[0], 1e-7) << "\" iyy=\"" << text(i[1], 1e-7)
             << "\" izz=\"" << text(i[2], 1e-7) << "\" ixy=\"" << text(i[3], 1e-7) << "\" ixz=\"" << text(i[4], 1e-7)
             << "\" iyz=\"" << text(i[5], 1e-7) << "\"/>\n    </inertial>\n";
    }
    const KrSampleLink& owner = robot.shapeOwner(link);
    if (!owner.parts.empty()) {
        file << "    <visual>\n      <geometry><mesh filename=\"" << meshes << '/' << owner.name
             << ".obj\"/></geometry>\n    </visual>\n";
    }
    for (const KrSampleVolume& volume : link.volumes) {
        file << "    <collision>\n      " << originElement(volume.center, volume.rollPitchYaw) << "\n      <geometry>";
        if (volume.kind == KrSampleVolume::Kind::Box) {
            file << "<box size=\"" << text(volume.size) << "\"/>";
        } else {
            file << "<cylinder radius=\"" << text(volume.size.x()) << "\" length=\"" << text(volume.size.y()) << "\"/>";
        }
        file << "</geometry>\n    </collision>\n";
    }
    file << "  </link>\n";
}

void writeJoint(std::ostream& file, const KrSampleRobot& robot, const KrSampleLink& link)
{
    file << "  <joint name=\"" << link.joint << "\" type=\"" << KrJointKinematics::typeName(link.type) << "\">\n    "
         << originElement(link.origin, link.originRollPitchYaw) << "\n    <parent link=\""
         << robot.links[static_cast<std::size_t>(link.parent)].name << "\"/>\n    <child link=\"" << link.name
         << "\"/>\n";
    if (link.type != KrJointKinematics::Type::Fixed) {
        file << "    <axis xyz=\"" << text(link.axis) << "\"/>\n    <limit";
        if (link.type != KrJointKinematics::Type::Continuous) {
            file << " lower=\"" << text(link.lower) << "\" upper=\"" << text(link.upper) << '"';
        }
        file << " velocity=\"" << text(link.velocity) << "\" effort=\"" << text(link.effort) << "\"/>\n";
    }
    if (!link.mimicMaster.empty()) {
        file << "    <mimic joint=\"" << link.mimicMaster << "\" multiplier=\"" << text(link.mimicMultiplier)
             << "\"/>\n";
    }
    file << "  </joint>\n";
}

} // namespace

bool KrSampleRobot::writeUrdf(const std::string& folder, const std::string& file, const std::string& meshes) const
{
    const std::filesystem::path meshFolder = std::filesystem::path(folder) / meshes;
    std::error_code error;
    std::filesystem::create_directories(meshFolder, error);
    bool ok = writeMtl(meshFolder / "materials.mtl", materials);
    for (const KrSampleLink& link : links) {
        ok = ok && (link.parts.empty() || writeObj(meshFolder / (link.name + ".obj"), link));
    }

    std::ofstream urdf(std::filesystem::path(folder) / file, std::ios::binary);
    urdf << "<?xml version=\"1.0\"?>\n<robot name=\"" << name << "\">\n";
    for (const KrSampleLink& link : links) {
        writeLink(urdf, *this, link, meshes);
    }
    for (const KrSampleLink& link : links) {
        if (link.parent >= 0) {
            writeJoint(urdf, *this, link);
        }
    }
    urdf << "</robot>\n";
    return ok && urdf.good();
}
