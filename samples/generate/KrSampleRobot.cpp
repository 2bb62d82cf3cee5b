#include "KrSampleRobot.h"

#include <toolkit/extent/KrBoxPhysicalExtent.h>
#include <toolkit/extent/KrCylinderPhysicalExtent.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>

#include <boost/make_shared.hpp>

#include <cmath>
#include <functional>
#include <tuple>

namespace
{

constexpr double kPositionStep = 1e-5; // m: a hundredth of a millimetre
constexpr double kNormalStep = 1e-3;
constexpr double kTextureStep = 1e-4;

/// `value` in whole steps, so that what is written is short and the same everywhere.
double inSteps(double value, double step)
{
    // The reciprocal is a whole number: dividing by it gives the double that is nearest to the decimal.
    const double perUnit = std::round(1.0 / step);
    const double rounded = std::round(value * perUnit) / perUnit;
    return rounded == 0.0 ? 0.0 : rounded; // no negative zero
}

KrVector inSteps(const KrVector& v, double step)
{
    return {inSteps(v.x(), step), inSteps(v.y(), step), inSteps(v.z(), step)};
}

/// Gives equal vectors one index.
class VectorPool
{
public:
    std::uint32_t index(const KrVector& v)
    {
        const auto [found, isNew] = m_indices.try_emplace({v.x(), v.y(), v.z()}, m_vectors.size());
        if (isNew) {
            m_vectors.push_back(v);
        }
        return found->second;
    }
    KrXmlVectorVector take() { return std::move(m_vectors); }

private:
    std::map<std::tuple<double, double, double>, std::uint32_t> m_indices;
    KrXmlVectorVector m_vectors;
};

KrDataMap dataMap(const KrSampleMaterial& material)
{
    const KrColor& c = material.color;
    KrDataMap map = KrDataMap::material(c);
    const auto set = [&map](const std::string& kind, double red, double green, double blue) {
        map.setReal("kr" + kind + "Red", red);
        map.setReal("kr" + kind + "Green", green);
        map.setReal("kr" + kind + "Blue", blue);
    };
    // Less light from everywhere than from the lamps: shapes keep their relief.
    constexpr double kAmbient = 0.7;
    set("Ambient", inSteps(kAmbient * c.red(), 1e-4), inSteps(kAmbient * c.green(), 1e-4),
        inSteps(kAmbient * c.blue(), 1e-4));
    set("Specular", material.specular, material.specular, material.specular);
    map.setReal("krShininess", material.shininess);
    if (!material.texture.empty()) {
        map.setString("krTextureFilename", material.texture);
        map.setString("krTextureEnvironmentMode", "GL_MODULATE");
    }
    return map;
}

boost::shared_ptr<KrTriPhysicalExtent> meshOf(const KrSampleLink& link)
{
    VectorPool vertices;
    VectorPool normals;
    VectorPool textures;
    std::map<std::string, std::size_t> groupOf;
    KrXmlVectorType<KrTriPhysicalExtent::Group> groups;
    for (const auto& [material, solid] : link.parts) {
        if (groupOf.try_emplace(material, groups.size()).second) {
            groups.push_back({material, {}});
        }
        KrXmlVectorType<KrTriangle>& list = groups[static_cast<unsigned int>(groupOf[material])].second();
        for (const KrSampleSolid::Triangle& triangle : solid.triangles()) {
            KrTriangle indexed;
            for (unsigned int k = 0; k < 3; ++k) {
                const KrSampleSolid::Corner& corner = triangle[k];
                indexed.setCorner(k, vertices.index(inSteps(corner.position, kPositionStep)),
                                  normals.index(inSteps(corner.normal, kNormalStep)),
                                  textures.index({inSteps(corner.texture.u(), kTextureStep),
                                                  inSteps(corner.texture.v(), kTextureStep), 0.0}));
            }
            // Rounding can close a sliver.
            if (indexed.vertex(0) != indexed.vertex(1) && indexed.vertex(1) != indexed.vertex(2) &&
                indexed.vertex(2) != indexed.vertex(0)) {
                list.push_back(indexed);
            }
        }
    }
    KrXmlVectorType<KrPlanarVector> coordinates;
    const KrXmlVectorVector pairs = textures.take();
    // One coordinate only: nothing in this mesh has a picture.
    for (const KrVector& pair : pairs.size() > 1 ? pairs : KrXmlVectorVector()) {
        coordinates.push_back({pair.x(), pair.y()});
    }
    auto extent = boost::make_shared<KrTriPhysicalExtent>();
    if (!extent->setMesh(vertices.take(), normals.take(), std::move(coordinates), std::move(groups), link.name)) {
        return nullptr;
    }
    return extent;
}

boost::shared_ptr<KrShape> volumeShape(const KrSampleVolume& volume)
{
    boost::shared_ptr<KrBasePhysicalExtent> extent;
    if (volume.kind == KrSampleVolume::Kind::Box) {
        extent = boost::make_shared<KrBoxPhysicalExtent>(volume.size);
    } else {
        extent = boost::make_shared<KrCylinderPhysicalExtent>(volume.size.x(), volume.size.y());
    }
    KrCoordinateSystemTransformation placement;
    placement.setRollPitchYaw(volume.rollPitchYaw.x(), volume.rollPitchYaw.y(), volume.rollPitchYaw.z());
    placement.setTranslation(volume.center);
    extent->setPlacement(placement);
    return boost::make_shared<KrShape>(extent);
}

KrJointKinematics jointOf(const KrSampleLink& link)
{
    KrJointKinematics joint;
    joint.setName(link.joint);
    joint.setType(link.type);
    KrCoordinateSystemTransformation origin;
    origin.setRollPitchYaw(link.originRollPitchYaw.x(), link.originRollPitchYaw.y(), link.originRollPitchYaw.z());
    origin.setTranslation(link.origin);
    joint.setOrigin(origin);
    joint.setAxis(link.axis);
    if (joint.hasLimits()) {
        joint.setLimits(link.lower, link.upper);
    }
    joint.setMaximumVelocity(link.velocity);
    joint.setMaximumEffort(link.effort);
    if (!link.mimicMaster.empty()) {
        joint.setMimic(link.mimicMaster, link.mimicMultiplier, 0.0);
    }
    return joint;
}

void addTetrahedron(KrSampleMass& sum, std::array<double, 6>& second, const KrVector& a, const KrVector& b,
                    const KrVector& c)
{
    const double volume = a.dot(b.cross(c)) / 6.0;
    sum.mass += volume;
    const KrVector corners = a + b + c;
    sum.center += (volume / 4.0) * corners;
    // Second moments of a tetrahedron with one corner at the origin:
    // integral of x_i x_j = V / 20 (s_i s_j + sum over the corners of p_i p_j), s = sum of the corners.
    const auto moment = [&](unsigned int i, unsigned int j) {
        return volume / 20.0 * (corners[i] * corners[j] + a[i] * a[j] + b[i] * b[j] + c[i] * c[j]);
    };
    const unsigned int pairs[6][2] = {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}};
    for (unsigned int k = 0; k < 6; ++k) {
        second[k] += moment(pairs[k][0], pairs[k][1]);
    }
}

} // namespace

int KrSampleRobot::add(const KrSampleLink& link)
{
    links.push_back(link);
    return static_cast<int>(links.size()) - 1;
}

const KrSampleLink& KrSampleRobot::shapeOwner(const KrSampleLink& link) const
{
    return link.sharesShapeOf < 0 ? link : links[static_cast<std::size_t>(link.sharesShapeOf)];
}

KrSampleMass KrSampleRobot::mass(const KrSampleLink& link) const
{
    KrSampleMass result;
    std::array<double, 6> second{};
    for (const auto& part : shapeOwner(link).parts) {
        for (const KrSampleSolid::Triangle& t : part.second.triangles()) {
            addTetrahedron(result, second, t[0].position, t[1].position, t[2].position);
        }
    }
    if (!(result.mass > 0.0)) {
        return {};
    }
    const double density = link.density;
    const double volume = result.mass;
    result.center = result.center * (1.0 / volume);
    const KrVector& c = result.center;
    const double xx = second[0] - volume * c.x() * c.x();
    const double yy = second[1] - volume * c.y() * c.y();
    const double zz = second[2] - volume * c.z() * c.z();
    result.inertia = {density * (yy + zz),
                      density * (xx + zz),
                      density * (xx + yy),
                      -density * (second[3] - volume * c.x() * c.y()),
                      -density * (second[4] - volume * c.x() * c.z()),
                      -density * (second[5] - volume * c.y() * c.z())};
    result.mass = inSteps(density * volume, 1e-3);
    result.center = inSteps(result.center, 1e-4);
    for (double& value : result.inertia) {
        value = inSteps(value, 1e-7);
    }
    return result;
}

KrIndividualManipulator KrSampleRobot::manipulator() const
{
    std::vector<boost::shared_ptr<KrShape>> shapes;
    for (const KrSampleLink& link : links) {
        boost::shared_ptr<KrShape> shape;
        if (link.sharesShapeOf >= 0) {
            const KrShape& owner = *shapes[static_cast<std::size_t>(link.sharesShapeOf)];
            shape = boost::make_shared<KrShape>(owner.extentPointer());
        } else if (!link.parts.empty()) {
            shape = boost::make_shared<KrShape>(meshOf(link));
        }
        for (const KrSampleVolume& volume : link.volumes) {
            if (shape) {
                shape->addBoundingVolume(volumeShape(volume));
            }
        }
        shapes.push_back(shape);
    }

    const auto fill = [&](KrManipulatorLink& out, std::size_t i) {
        out.setName(links[i].name);
        if (shapes[i]) {
            out.addShape(shapes[i]);
        }
        for (const KrSampleVolume& volume : links[i].volumes) {
            out.addCollisionShape(volumeShape(volume));
        }
        const KrSampleMass body = mass(links[i]);
        if (body.mass > 0.0) {
            out.massProperties().setMass(body.mass);
            out.massProperties().setCenterOfMass(body.center);
            out.massProperties().setInertia(body.inertia);
        }
    };
    // Children are complete before they are appended: appending copies.
    const std::function<KrManipulatorLink(std::size_t)> build = [&](std::size_t i) {
        KrManipulatorLink out;
        fill(out, i);
        out.jointKinematics() = jointOf(links[i]);
        for (std::size_t k = i + 1; k < links.size(); ++k) {
            if (links[k].parent == static_cast<int>(i)) {
                out.addChildLink(build(k));
            }
        }
        return out;
    };

    KrIndividualManipulator manipulator(name);
    fill(manipulator, 0);
    for (std::size_t k = 1; k < links.size(); ++k) {
        if (links[k].parent == 0) {
            manipulator.addChildLink(build(k));
        }
    }
    for (const auto& [key, material] : materials) {
        manipulator.materialMap().set(key, dataMap(material));
    }
    return manipulator;
}
