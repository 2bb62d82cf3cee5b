#pragma once

#include <import/description/KrRobotDescription.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// Gives every look of a robot description a name of its own.
///
/// A shape's own colour or texture counts for that shape, even under a name that stands for another look elsewhere; a
/// name alone means the first look defined under it, wherever in the description. Looks without a name never share one.
class KrMaterialNames
{
public:
    /// The material of the shape that stands in for a missing mesh; no other gets the name.
    static constexpr const char* kStandIn = "missing mesh";
    /// The material of collision geometry, in the manipulator's data maps.
    static constexpr const char* kCollision = "collision";

    /// Receives place, element and text of a warning.
    using Warn = std::function<void(const KrRobotDescription::Place&, const std::string&, const std::string&)>;

    explicit KrMaterialNames(Warn warn);

    /// Collects what is defined; of several looks under one name the first counts, with a warning for a global one.
    void define(const std::vector<KrRobotDescription::Material>& materials);
    /// Makes a shape's material the name of a look in materials(); empty when it has none.
    /// @param place, element  of the shape, for a warning
    void resolve(KrRobotDescription::MaterialUse& material, const KrRobotDescription::Place& place,
                 const std::string& element);
    /// The looks of all names given out, in the order of these.
    std::vector<KrRobotDescription::Material> materials() const;

private:
    using Look = KrRobotDescription::Look;
    std::string nameOf(const std::string& given, const Look& look, const KrRobotDescription::Place& place);

    Warn m_warn;
    std::set<std::string> m_taken;
    std::map<std::string, unsigned int> m_numbers;                               ///< the next one to try, by name
    std::map<std::string, KrRobotDescription::Material> m_defined;               ///< by the description's name
    std::map<std::pair<std::string, Look>, KrRobotDescription::Material> m_used; ///< by the description's name and look
};
