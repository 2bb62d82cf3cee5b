#include <import/files/KrPathResolver.h>

#include <import/files/KrImportPath.h>
#include <import/files/KrImportXml.h>

#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/private/KrText.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace
{

// A description's meshes lie a few folders away from it; further up everything belongs to somebody else.
constexpr std::size_t kGuessLevels = 6;
// A path of thousands of folders is nobody's.
constexpr std::size_t kMaxLevels = 64;
// Two bounds on walks below a folder that somebody names: it may be a whole disk.
constexpr std::size_t kMaxWalkDepth = 8;
constexpr std::size_t kMaxWalkEntries = 20000;
// Folders whose names are kept at a time.
constexpr std::size_t kMaxListings = 200;
// Folders that are known to be there, or not to be, at a time.
constexpr std::size_t kMaxFolders = 10000;
// The last parts of a path that are tried; longer ones cost more and tell no more.
constexpr std::size_t kMaxTails = 16;
// Of the paths that are kept for the report, over all names of a description.
constexpr std::size_t kMaxTriedBytes = std::size_t{16} << 20;
// A manifest is a page of text.
constexpr std::uintmax_t kMaxManifestBytes = 1u << 20;

// Best first: formats with materials before those without.
const char* const kMeshFormats[] = {"dae", "obj", "glb", "gltf", "stl", "ply", "off"};
// Folders of these names hold one kind of file of a description that begins above them.
const char* const kInnerFolders[] = {"urdf", "urdfs", "robot", "robots", "xacro", "sdf", "description"};
const char* const kMeshFolders[] = {"meshes", "mesh", "visual", "collision"};

/// The index of `word`; N for a word that is not in the list, so that it sorts behind all others.
template <std::size_t N>
std::size_t placeIn(const char* const (&list)[N], const std::string& word)
{
    return static_cast<std::size_t>(std::find(list, list + N, word) - list);
}

/// 0 for the wanted format in another spelling, then the formats in their order; above them for what is no mesh.
std::size_t formatPlace(const std::string& extension, const std::string& wanted)
{
    return extension == wanted ? 0 : 1 + placeIn(kMeshFormats, extension);
}

/// `parts` from `first` on, with slashes between.
std::string joined(const std::vector<std::string>& parts, std::size_t first)
{
    std::string path;
    for (std::size_t i = first; i < parts.size(); ++i) {
        path += (path.empty() ? "" : "/") + parts[i];
    }
    return path;
}

} // namespace

struct KrPathResolver::Request
{
    std::string package; ///< empty for a plain path
    std::string path;    ///< below the package, or the plain path
    bool isShifted = false;
    bool isElsewhere = false; ///< http and the like: only its tail can be of use
};

KrPathResolver::KrPathResolver(const std::string& description, const std::vector<std::string>& packagePaths,
                               bool useRosPath)
{
    // With error codes throughout: a folder that cannot be read is as good as absent.
    std::error_code error;
    // What comes through a pipe counts as a file in the current folder.
    const std::string given = KrImportPath::absolute(fs::is_fifo(description, error) ? "description" : description);
    const std::string real = fs::weakly_canonical(given, error).string();
    // A description may be a link into another bundle: folders above the link come first, then those above its target.
    for (const std::string& start : {given, error ? given : real}) {
        std::string folder = KrImportPath::directoryOf(start);
        // Nearest first: that the nearest folder wins, all rules below owe to this order.
        for (std::size_t level = 0; level < kMaxLevels && !folder.empty(); ++level) {
            // The two ways up soon meet; a folder counts at its first place.
            const auto same = [&folder](const Folder& known) { return known.path == folder; };
            if (std::none_of(m_above.begin(), m_above.end(), same)) {
                m_above.push_back({folder, KrImportPath::nameOf(folder), packageNameIn(folder)});
            }
            const std::string parent = KrImportPath::directoryOf(folder);
            folder = parent == folder ? "" : parent;
        }
    }

    // Those of the caller come before those of the environment, which may be set for another robot.
    std::vector<std::string> paths = packagePaths;
    const char* const ros = useRosPath ? std::getenv("ROS_PACKAGE_PATH") : nullptr;
    for (std::string rest = ros ? ros : ""; !rest.empty();) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        paths.push_back(rest.substr(0, end));
        rest.erase(0, end + 1);
    }
    for (const std::string& path : paths) {
        // Two colons in a row, or one at the end, name no folder.
        if (!path.empty()) {
            // Without a slash at the end, behind which the folder would have no name of its own.
            const std::string folder = KrImportPath::join(KrImportPath::absolute(path), "");
            const std::string plain =
                folder.size() > 1 && folder.back() == '/' ? folder.substr(0, folder.size() - 1) : folder;
            m_elsewhere.push_back({plain, KrImportPath::nameOf(plain), packageNameIn(plain)});
        }
    }
    const char* const home = std::getenv("HOME");
    m_home = home ? home : "";
}

const KrPathResolver::Found& KrPathResolver::findMesh(const std::string& uri)
{
    return find(uri, Kind::Mesh);
}

const KrPathResolver::Found& KrPathResolver::findImage(const std::string& uri)
{
    return find(uri, Kind::Image);
}

const KrPathResolver::Found& KrPathResolver::find(const std::string& uri, Kind kind)
{
    static const Found none;
    // No file has such a name, and a search would take ever longer.
    if (uri.size() > Kr::Limits::kPathBytes || uri.find('\0') != std::string::npos) {
        return none;
    }
    // Found or not, a name is searched for once: hundreds of shapes may share it.
    const auto [place, isNew] = m_found.emplace(std::make_pair(kind, uri), Found());
    Found& found = place->second;
    const Request request = parse(uri);
    if (!isNew || (request.package.empty() && request.path.empty())) {
        return found;
    }
    // These steps go by the whole name; all that come after are guesses, or other people's folders.
    const bool direct =
        request.package.empty() ? findPlain(request, found) : findPackage(request.package, request.path, found);
    if (direct && request.isShifted) {
        found.rule += ", the third slash of package:/// left out";
    }
    // The bundle before folders elsewhere: those may hold another robot's mesh under the same name.
    if (!direct && !findInBundle(request, kind, found)) {
        findElsewhere(request, found);
    }
    // For this name alone: under the next one the same places may rightly be tried again.
    m_tried.clear();
    return found;
}

KrPathResolver::Request KrPathResolver::parse(const std::string& uri)
{
    Request request;
    const std::string text = KrImportPath::withSlashes(uri);
    const std::size_t colon = text.find("://");
    if (colon == std::string::npos) {
        request.path = text;
        // A few exporters write "file:" without slashes.
        if (KrText::lowered(text.substr(0, 5)) == "file:") {
            request.path = text.substr(5);
        }
        return request;
    }
    const std::string scheme = KrText::lowered(text.substr(0, colon));
    const std::string body = text.substr(colon + 3);
    // "model://" is what simulators write for a package. Nothing is ever fetched: of an address elsewhere only the
    // last parts can be of use.
    if (scheme != "package" && scheme != "model") {
        request.path = body;
        request.isElsewhere = scheme != "file";
        return request;
    }
    // By the letter of it the package of "package:///name/rest" is empty; components() drops the empty part.
    request.isShifted = !body.empty() && body[0] == '/';
    const std::vector<std::string> parts = KrImportPath::components(body);
    if (!parts.empty()) {
        request.package = parts[0];
        request.path = joined(parts, 1);
    }
    return request;
}

bool KrPathResolver::attempt(const std::string& path, const std::string& rule, Found& found)
{
    // As it stands first: files whose names hold a percent sign exist.
    const bool isEncoded = path.find('%') != std::string::npos;
    for (const std::string& candidate : {path, isEncoded ? KrImportPath::percentDecoded(path) : std::string()}) {
        // The same place may come up under several rules: the first one is told.
        if (candidate.empty() || !m_tried.insert(candidate).second) {
            continue;
        }
        m_triedBytes += candidate.size();
        // Beyond the bound the search goes on; only the list for the report ends.
        if (m_triedBytes <= kMaxTriedBytes) {
            found.tried.push_back(candidate);
        }
        if (isFolder(candidate.substr(0, candidate.rfind('/'))) && KrImportPath::isFile(candidate)) {
            found.path = candidate;
            found.rule = rule;
            return true;
        }
    }
    return false;
}

/// The meshes of a robot are looked for in the same folders, most of which are not there.
bool KrPathResolver::isFolder(const std::string& path)
{
    if (m_folders.size() > kMaxFolders) {
        m_folders.clear();
    }
    const auto [place, isNew] = m_folders.emplace(path, false);
    if (isNew) {
        // The part of a path before its first slash may be empty: the root, or the current folder.
        place->second = path.empty() || path.find('/') == std::string::npos || KrImportPath::isDirectory(path);
    }
    return place->second;
}

bool KrPathResolver::findPlain(const Request& request, Found& found)
{
    // An absolute path on another machine means nothing here.
    if (request.isElsewhere) {
        return false;
    }
    // Not empty here: find() has turned away names with neither package nor path.
    if (request.path[0] == '/') {
        return attempt(KrImportPath::join("/", request.path), "the absolute path", found);
    }
    return !m_above.empty() &&
           attempt(KrImportPath::join(m_above[0].path, request.path), "relative to the description", found);
}

bool KrPathResolver::findPackage(const std::string& package, const std::string& rest, Found& found)
{
    // Name before manifest: the folder's name is what most checkouts keep, and needs no file to be read.
    for (const Folder& folder : m_above) {
        if (folder.name == package &&
            attempt(KrImportPath::join(folder.path, rest), "a folder above that bears the package's name", found)) {
            return true;
        }
    }
    for (const Folder& folder : m_above) {
        if (folder.package == package &&
            attempt(KrImportPath::join(folder.path, rest), "a folder above whose package.xml gives the name", found)) {
            return true;
        }
    }
    for (const Folder& folder : m_above) {
        // Workspaces keep packages side by side: a description may name another one's meshes.
        if (attempt(KrImportPath::join(folder.path, package + "/" + rest), "a folder beside one above", found)) {
            return true;
        }
    }
    return false;
}

bool KrPathResolver::findInBundle(const Request& request, Kind kind, Found& found)
{
    // Set for all attempts below, so that whichever finds the file leaves it marked as a guess.
    found.isGuess = true;
    // A package may lie deeper in the bundle than the description: a workspace keeps one folder for each.
    if (!request.package.empty() && !m_above.empty()) {
        for (const Folder& folder : foldersBelow(m_above[bundleTop(request.package)].path)) {
            if ((folder.name == request.package || folder.package == request.package) &&
                attempt(KrImportPath::join(folder.path, request.path),
                        "a folder of the package's name inside the description's own folders", found)) {
                return true;
            }
        }
    }
    if (findTail(request, found) || (kind == Kind::Mesh && findOtherFormat(found))) {
        return true;
    }
    found.isGuess = false;
    return false;
}

bool KrPathResolver::findTail(const Request& request, Found& found)
{
    std::vector<std::string> parts = KrImportPath::components(request.path);
    const bool isRest = !request.package.empty() || (!request.isElsewhere && request.path[0] != '/');
    for (std::size_t first = 0; first < parts.size(); ++first) {
        // The whole path is always tried, then its last parts only.
        if (first > 0 && parts.size() - first > kMaxTails) {
            continue;
        }
        // The whole rest of a path may be a bare file name; a shorter tail is folder and file at least.
        const bool whole = first == 0 && isRest;
        if (!whole && parts.size() - first < 2) {
            break;
        }
        const char* const rule =
            whole ? "the rest of the path below a folder above" : "the last parts of the path below a folder above";
        for (std::size_t level = 0; level < std::min(m_above.size(), kGuessLevels); ++level) {
            // Everything further up is outside as well.
            if (isOutside(m_above[level].path)) {
                break;
            }
            if (attempt(KrImportPath::join(m_above[level].path, joined(parts, first)), rule, found)) {
                return true;
            }
        }
    }
    return false;
}

bool KrPathResolver::findOtherFormat(Found& found)
{
    // A copy: attempt() adds to the list while it is walked.
    const std::vector<std::string> tried = found.tried;
    for (const std::string& path : tried) {
        const Listing& listing = listingOf(KrImportPath::directoryOf(path));
        const auto names = listing.find(KrText::lowered(KrImportPath::stemOf(path)));
        if (names == listing.end()) {
            continue;
        }
        const std::string wanted = KrImportPath::extensionOf(path);
        // Exporters change formats, and file systems that ignore letters' sizes hide wrong ones: the nearest name wins.
        std::string best;
        // One behind the last format: a name that is no mesh never wins.
        std::size_t bestPlace = std::size(kMeshFormats) + 1;
        for (const std::string& name : names->second) {
            const std::size_t place = formatPlace(KrImportPath::extensionOf(name), wanted);
            if (place < bestPlace) {
                best = name;
                bestPlace = place;
            }
        }
        if (!best.empty() && attempt(KrImportPath::join(KrImportPath::directoryOf(path), best),
                                     "the same name in another mesh format or spelling", found)) {
            return true;
        }
    }
    return false;
}

const KrPathResolver::Listing& KrPathResolver::listingOf(const std::string& folder)
{
    // References into the listings last until the next call; no caller keeps one longer.
    if (m_listings.size() > kMaxListings) {
        m_listings.clear();
    }
    // A robot names hundreds of meshes in a few folders: each is listed once.
    const auto [place, isNew] = m_listings.emplace(folder, Listing());
    if (isNew) {
        for (const std::string& name : KrImportPath::entries(folder, kMaxWalkEntries)) {
            place->second[KrText::lowered(KrImportPath::stemOf(name))].push_back(name);
        }
    }
    return place->second;
}

bool KrPathResolver::findElsewhere(const Request& request, Found& found)
{
    const std::string rule = "a package folder";
    for (const Folder& root : m_elsewhere) {
        // A relative path may be meant from a package folder. An absolute one, or one elsewhere, was tried by its
        // last parts.
        if (request.package.empty()) {
            if (!request.isElsewhere && request.path[0] != '/' &&
                attempt(KrImportPath::join(root.path, request.path), rule, found)) {
                return true;
            }
            continue;
        }
        // The given folder may hold the package, be the package, or be a workspace with it somewhere below: likeliest
        // first.
        if (attempt(KrImportPath::join(root.path, request.package + "/" + request.path), rule, found)) {
            return true;
        }
        if ((root.name == request.package || root.package == request.package) &&
            attempt(KrImportPath::join(root.path, request.path), rule, found)) {
            return true;
        }
        for (const Folder& folder : foldersBelow(root.path)) {
            if ((folder.name == request.package || folder.package == request.package) &&
                attempt(KrImportPath::join(folder.path, request.path), rule, found)) {
                return true;
            }
        }
    }
    return false;
}

bool KrPathResolver::isOutside(const std::string& folder) const
{
    std::error_code error;
    const fs::path path(folder);
    const std::string home = m_home.empty() ? "" : fs::path(m_home).lexically_normal().string();
    // Above these live other people's files: a guess there could find another robot's mesh.
    return path == path.root_path() || path == fs::temp_directory_path(error) ||
           // Slashes at both ends make it a comparison of whole names: /home/a is not above /home/ab.
           (!home.empty() && (home + "/").compare(0, folder.size() + 1, folder + "/") == 0);
}

std::size_t KrPathResolver::bundleTop(const std::string& package)
{
    const auto known = m_tops.find(package);
    if (known != m_tops.end()) {
        return known->second;
    }
    // At least the description's own folder; then the topmost of the next few that still looks like a part of it.
    std::size_t top = 0;
    for (std::size_t level = 1; level < std::min(m_above.size(), kGuessLevels); ++level) {
        const Folder& folder = m_above[level];
        if (isOutside(folder.path)) {
            break;
        }
        const auto holds = [&folder](const char* name) {
            return KrImportPath::isDirectory(KrImportPath::join(folder.path, name));
        };
        const bool belongs =
            !folder.package.empty() || folder.name == package ||
            placeIn(kInnerFolders, KrText::lowered(m_above[level - 1].name)) < std::size(kInnerFolders) ||
            std::any_of(std::begin(kMeshFolders), std::end(kMeshFolders), holds);
        // A folder without a sign may lie between two that have one: the walk goes on past it.
        top = belongs ? level : top;
    }
    m_tops.emplace(package, top);
    return top;
}

const std::vector<KrPathResolver::Folder>& KrPathResolver::foldersBelow(const std::string& root)
{
    const auto [place, isNew] = m_walked.emplace(root, std::vector<Folder>());
    std::vector<Folder>& folders = place->second;
    if (!isNew) {
        return folders;
    }
    // Breadth first, so that the folder nearest to the root wins; links are not followed, so that the walk ends.
    std::vector<std::pair<std::string, std::size_t>> queue{{root, 0}};
    std::size_t seen = 0;
    for (std::size_t next = 0; next < queue.size() && seen < kMaxWalkEntries; ++next) {
        const auto [parent, depth] = queue[next];
        std::size_t numEntries = 0;
        // Hidden folders hold what version control and caches keep.
        for (const std::string& name : KrImportPath::folders(parent, kMaxWalkEntries - seen, numEntries)) {
            const std::string path = KrImportPath::join(parent, name);
            folders.push_back({path, name, packageNameIn(path)});
            if (depth + 1 < kMaxWalkDepth) {
                queue.emplace_back(path, depth + 1);
            }
        }
        seen += numEntries;
    }
    return folders;
}

std::string KrPathResolver::packageNameIn(const std::string& folder)
{
    // The name in a manifest is a hint: a manifest that is absent, or cannot be read, is none, and no reason to warn.
    const std::string manifest = KrImportPath::join(folder, "package.xml");
    std::string why;
    const KrImportXml::UniqueDocument document =
        KrImportXml::read(manifest, KrInputFile::Accept::Files, kMaxManifestBytes, why);
    xmlNode* const root = document ? xmlDocGetRootElement(document.get()) : nullptr;
    xmlNode* const name = root ? KrImportXml::child(*root, "name") : nullptr;
    return name ? KrImportXml::textOf(*name) : "";
}
