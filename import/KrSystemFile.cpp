#include <import/KrSystemFile.h>

#include <import/KrRobotImporter.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrReason.h>
#include <toolkit/foundation/private/KrInputFile.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>

namespace
{

namespace fs = std::filesystem;

/// The beginning of the file, enough to find its first element in.
bool readBeginning(const std::string& path, std::string& text, std::string& reason)
{
    // Comments before the first element, a licence for one, may be long.
    constexpr std::size_t kLongestProlog = 65536;
    KrInputFile file(std::numeric_limits<std::uint64_t>::max()); // whoever reads all of it has a limit
    text.assign(kLongestProlog, '\0');
    std::size_t size = 0;
    bool isRead = file.open(path);
    for (std::size_t count = 1; isRead && count > 0 && size < text.size(); size += count) {
        isRead = file.read(&text[size], text.size() - size, count);
    }
    if (!isRead) {
        reason = path + ": " + file.reason();
        return false;
    }
    text.resize(size);
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        reason = path + " is empty";
        return false;
    }
    return true;
}

/// Of visible shapes, which an import counts alone.
std::size_t trianglesOf(const KrManipulatorLink& link)
{
    std::size_t sum = 0;
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        const KrShape* const shape = link.shape(i);
        const KrBasePhysicalExtent* const extent = shape ? shape->physicalExtent() : nullptr;
        const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent ? extent->triExtent() : nullptr;
        sum += mesh ? mesh->numTriangles() : 0;
    }
    return sum;
}

} // namespace

std::string KrSystemFile::rootElement(const std::string& text)
{
    // By hand: the file may be anything, and which parser is to have it is the question.
    std::size_t at = 0;
    while ((at = text.find('<', at)) != std::string::npos) {
        const auto startsWith = [&](const char* word) { return text.compare(at, std::strlen(word), word) == 0; };
        // A comment may hold anything, tags too.
        if (startsWith("<!--")) {
            at = text.find("-->", at);
        } else if (startsWith("<?") || startsWith("<!")) {
            at = text.find('>', at);
        } else {
            const std::size_t end = text.find_first_of(" \t\r\n/>", at);
            const std::string name = text.substr(at + 1, end == std::string::npos ? end : end - at - 1);
            return name.substr(name.find(':') + 1); // npos + 1 is 0
        }
        if (at == std::string::npos) {
            break;
        }
    }
    return std::string();
}

bool KrSystemFile::read(const std::string& path, const KrImportOptions& options, Accept accept, std::string& reason)
{
    // A pipe can be read but once: it is the importer's.
    std::error_code error;
    std::string text;
    const bool isPipe = fs::is_fifo(path, error);
    if (!isPipe && !readBeginning(path, text, reason)) {
        return false;
    }
    // XML that begins in UTF-8 has no such byte.
    const bool isBinary = text.find('\0') != std::string::npos;
    const std::string root = isPipe ? "robot" : isBinary ? std::string() : rootElement(text);
    const KrReason said;
    if (root == "robot") {
        if (!KrRobotImporter::readFile(path, options, system.statedSystem(), report)) {
            reason = said.text(path + " holds no robot that can be read");
            return false;
        }
        return true;
    }
    const bool isNative = root == system.token().name || root == system.statedSystem().token().name ||
                          root == system.statedSystem().manipulatorSystem().token().name;
    if (isNative) {
        kind = Kind::Native;
        return readNative(path, root, reason);
    }
    // Of the meshes only COLLADA is XML; anything else in angle brackets is meant to be something else.
    if (accept == Accept::SystemsAndMeshes && (root.empty() || root == "COLLADA")) {
        kind = Kind::Mesh;
        if (!KrRobotImporter::readMesh(path, options, system.statedSystem(), report)) {
            reason = said.text(path + " holds no mesh that can be read");
            return false;
        }
        return true;
    }
    const std::string neither =
        std::string("neither a URDF") +
        (accept == Accept::Systems ? " nor a native system file" : ", a native system file nor a mesh");
    reason = path + (isBinary       ? " is binary, " + neither
                     : root.empty() ? " is no XML file"
                                    : " begins with <" + root + ">, which is " + neither);
    return false;
}

/// Native files go by the names that their objects are written under.
bool KrSystemFile::readNative(const std::string& path, const std::string& root, std::string& reason)
{
    const KrReason said;
    KrStatedSystem& stated = system.statedSystem();
    bool ok = false;
    if (root == system.token().name) {
        ok = hasView = system.readFile(path);
    } else if (root == stated.token().name) {
        ok = stated.readFile(path);
    } else {
        // Without a state: all joints stand at their defaults.
        KrManipulatorSystem bare;
        ok = bare.readFile(path);
        stated = KrStatedSystem(bare);
    }
    if (!ok) {
        reason = said.text(path + " cannot be read");
        return false;
    }
    countNative(path);
    return true;
}

/// A native file has no report of its own: what an import would have counted is filled in.
void KrSystemFile::countNative(const std::string& path)
{
    report.setFile(path);
    // A native file may hold several robots, and has no name for them together.
    report.setRobot(fs::path(path).stem().string());
    KrImportReport::Counts& counts = report.counts();
    for (const KrIndividualManipulator& manipulator : system.statedSystem().manipulatorSystem().manipulators()) {
        const auto countLink = [&counts](const KrManipulatorLink& link) {
            ++counts.links;
            counts.visuals += link.numShapes();
            counts.collisions += link.numCollisionShapes();
            counts.triangles += trianglesOf(link);
        };
        countLink(manipulator);
        for (const KrManipulatorLink* link : manipulator.links()) {
            countLink(*link);
            ++counts.joints;
            counts.movableJoints += link->jointKinematics().isMovable() ? 1 : 0;
            counts.mimicJoints += link->jointKinematics().isMimic() ? 1 : 0;
        }
        // Those of the robot; what its meshes bring along is not counted.
        counts.materials += manipulator.materialMap().size();
    }
}
