#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

/// Finds the files that a robot description names.
///
/// Order of the search, each step over all folders before the next step:
/// -# the path as it is, relative to the description;
/// -# a folder above the description that bears the package's name;
/// -# a folder above it whose package.xml gives that name;
/// -# a folder of that name beside one above it;
/// -# package:///name/rest as package://name/rest, by the same steps;
/// -# guesses inside the description's own bundle: a folder of that name deeper inside it, the rest of the path below
///    a folder above, the longest tail of at least folder and file below a folder above, the same name in another mesh
///    format;
/// -# the package folders given, then those of ROS_PACKAGE_PATH.
///
/// The bundle comes before folders elsewhere: those can hold another robot's mesh under the same name.
class KrPathResolver
{
public:
    struct Found
    {
        std::string path;               ///< absolute; empty when nothing was found
        std::string rule;               ///< for a person, one of those that KrImportReport::Mesh lists
        bool isGuess = false;           ///< found by a step that may meet another file of the same name
        std::vector<std::string> tried; ///< paths tried, in that order, each once; the last one is what was found
    };

    /// @param description  the robot description's own path; need not exist
    /// @param packagePaths  folders searched for packages, after the description's own bundle
    /// @param useRosPath    then those of the environment variable ROS_PACKAGE_PATH
    KrPathResolver(const std::string& description, const std::vector<std::string>& packagePaths, bool useRosPath);

    /// @param uri  package://, model://, file://, absolute or relative; a "%20" may stand for a space. One longer than
    ///             Kr::Limits::kPathBytes is not searched for: nothing is found, and nothing tried
    /// @return borrowed until the resolver goes
    const Found& findMesh(const std::string& uri);
    /// The same search without the step to other mesh formats.
    const Found& findImage(const std::string& uri);

private:
    struct Request;
    struct Folder
    {
        std::string path;
        std::string name;
        std::string package; ///< from its package.xml; empty without one
    };
    enum class Kind
    {
        Mesh,
        Image
    };

    const Found& find(const std::string& uri, Kind kind);
    static Request parse(const std::string& uri);
    bool attempt(const std::string& path, const std::string& rule, Found& found);
    bool findPlain(const Request& request, Found& found);
    bool findPackage(const std::string& package, const std::string& rest, Found& found);
    bool findInBundle(const Request& request, Kind kind, Found& found);
    bool findTail(const Request& request, Found& found);
    bool findOtherFormat(Found& found);
    using Listing = std::map<std::string, std::vector<std::string>>; ///< names of files by stem in lower case
    const Listing& listingOf(const std::string& folder);
    bool findElsewhere(const Request& request, Found& found);

    bool isOutside(const std::string& folder) const;
    std::size_t bundleTop(const std::string& package);
    bool isFolder(const std::string& path);
    const std::vector<Folder>& foldersBelow(const std::string& root);
    static std::string packageNameIn(const std::string& folder);

    std::vector<Folder> m_above;     ///< the description's folder and those above it, nearest first
    std::vector<Folder> m_elsewhere; ///< package folders
    std::string m_home;
    std::map<std::string, std::vector<Folder>> m_walked;
    std::map<std::pair<Kind, std::string>, Found> m_found;
    std::map<std::string, Listing> m_listings; ///< by folder
    std::map<std::string, std::size_t> m_tops; ///< of the bundle, by package
    std::map<std::string, bool> m_folders;     ///< whether they are there
    std::set<std::string> m_tried;             ///< for the name in hand
    std::size_t m_triedBytes = 0;              ///< for all names
};
