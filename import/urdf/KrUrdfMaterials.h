#pragma once

#include <libxml/tree.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// The materials of a robot description: gives every look a name of its own.
///
/// A visual's own colour or texture counts for that visual, even under a name that stands for another look elsewhere;
/// a name alone means the first look defined under it, wherever in the description. Looks without a name never share
/// one.
class KrUrdfMaterials
{
public:
    /// Receives element and text of a warning.
    using Warn = std::function<void(const std::string&, const std::string&)>;

    /// @param reserved  names that no material gets
    explicit KrUrdfMaterials(Warn warn, std::set<std::string> reserved = {});

    /// Collects what is defined: first the robot's own materials, then those inside visuals.
    void define(const xmlNode& robot);
    /// The name under which the look of a visual's material element is written; empty when it has none.
    std::string use(const xmlNode& material, const std::string& element);
    /// The material elements for all names given out.
    std::string text() const;

private:
    void define(const xmlNode& material, const std::string& element, bool isGlobal);
    std::string lookOf(const xmlNode& material, const std::string& element);
    std::string colorOf(const xmlNode& color, const std::string& element);
    std::string key(const std::string& name, const std::string& look);

    Warn m_warn;
    std::set<std::string> m_taken;
    std::map<std::string, unsigned int> m_numbers;                     ///< the next one to try, by name
    std::map<std::string, std::string> m_defined;                      ///< look by the description's name
    std::map<std::pair<std::string, std::string>, std::string> m_keys; ///< our name by theirs and look
    std::vector<std::pair<std::string, std::string>> m_written;        ///< our name and look, as given out
};
