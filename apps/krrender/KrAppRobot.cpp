#include "KrAppRobot.h"

#include "KrAppFailure.h"
#include "KrAppFiles.h"
#include "KrAppMessages.h"

#include <import/KrRobotImporter.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/private/KrInputFile.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>

namespace
{

namespace fs = std::filesystem;

/// For files: what is wrong with them is no slip of the command line.
[[noreturn]] void couldNot(const std::string& sentence)
{
    throw KrAppFailure(KrAppFailure::CouldNot, sentence);
}

/// The beginning of the file, enough to find its first element in.
std::string beginningOf(const std::string& path)
{
    // Comments before the first element, a licence for one, may be long.
    constexpr std::size_t kLongestProlog = 65536;
    KrInputFile file(std::numeric_limits<std::uint64_t>::max()); // whoever reads all of it has a limit
    std::string text(kLongestProlog, '\0');
    std::size_t size = 0;
    bool isRead = file.open(path);
    for (std::size_t count = 1; isRead && count > 0 && size < text.size(); size += count) {
        isRead = file.read(&text[size], text.size() - size, count);
    }
    if (!isRead) {
        couldNot(path + ": " + file.reason());
    }
    text.resize(size);
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        couldNot(path + " is empty");
    }
    // XML that begins in UTF-8 has no such byte.
    if (text.find('\0') != std::string::npos) {
        couldNot(path + " is binary, neither a URDF nor a native system file");
    }
    return text;
}

/// Whether there is something to draw.
bool isVisible(const KrShape* shape)
{
    const KrBasePhysicalExtent* const extent = shape ? shape->physicalExtent() : nullptr;
    if (extent == nullptr) {
        return false;
    }
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh = extent->triExtent();
    // A field is seen without a triangle.
    return mesh ? mesh->numTriangles() > 0 : dynamic_cast<const KrGridPhysicalExtent*>(extent) != nullptr;
}

bool isVisible(const KrManipulatorLink& link)
{
    for (unsigned int i = 0; i < link.numShapes(); ++i) {
        if (isVisible(link.shape(i))) {
            return true;
        }
    }
    return false;
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

/// What an import would have counted.
void countNative(const KrAppRobot& robot, KrImportReport::Counts& counts)
{
    for (const KrIndividualManipulator& manipulator : robot.manipulators()) {
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

} // namespace

std::string KrAppRobot::rootElement(const std::string& text)
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

void KrAppRobot::read(const std::string& file, const KrImportOptions& options, KrAppMessages& messages)
{
    // The readers take paths, and the system has one for the stream.
    const std::string path = KrAppFiles::isStandard(file) ? "/dev/stdin" : file;
    // A pipe can be read but once: it is the importer's.
    std::error_code error;
    const bool isPipe = fs::is_fifo(path, error);
    const std::string root = isPipe ? "robot" : rootElement(beginningOf(path));

    // An importer's messages are in its report; the native readers print theirs.
    if (root == "robot") {
        if (!KrRobotImporter::readFile(path, options, statedSystem(), report)) {
            couldNot(messages.lastReason(path + " holds no robot that can be read"));
        }
        messages.clear(); // the report has them
        return;
    }

    bool ok = false;
    // Native files go by the names that their objects are written under.
    if (root == system.token().name) {
        ok = hasView = system.readFile(path);
    } else if (root == statedSystem().token().name) {
        ok = statedSystem().readFile(path);
    } else if (root == statedSystem().manipulatorSystem().token().name) {
        // Without a state: all joints stand at their defaults.
        KrManipulatorSystem bare;
        ok = bare.readFile(path);
        statedSystem() = KrStatedSystem(bare);
    } else if (root.empty()) {
        couldNot(path + " is no XML file");
    } else {
        couldNot(path + " begins with <" + root + ">, which is neither a URDF nor a native system file");
    }
    if (!ok) {
        couldNot(messages.lastReason(path + " cannot be read"));
    }
    // A native file has no report of its own: what the summary and --info need is filled in.
    report.setFile(path);
    // A native file may hold several robots, and has no name for them together.
    report.setRobot(fs::path(path).stem().string());
    countNative(*this, report.counts());
}

bool KrAppRobot::hasVisibleShape() const
{
    for (const KrIndividualManipulator& manipulator : manipulators()) {
        const std::vector<const KrManipulatorLink*> links = manipulator.links();
        if (isVisible(manipulator) ||
            std::any_of(links.begin(), links.end(), [](const auto* link) { return isVisible(*link); })) {
            return true;
        }
        // Bodies between links belong to none of them.
        for (unsigned int i = 0; i < manipulator.intraLinks().count(); ++i) {
            if (isVisible(manipulator.intraLinks().intraLink(i).shape())) {
                return true;
            }
        }
    }
    return false;
}

std::size_t KrAppRobot::numCollisionShapes() const
{
    std::size_t count = 0;
    for (const KrIndividualManipulator& manipulator : manipulators()) {
        // The base by itself: links() does not list it.
        count += manipulator.numCollisionShapes();
        for (const KrManipulatorLink* const link : manipulator.links()) {
            count += link->numCollisionShapes();
        }
    }
    return count;
}

std::size_t KrAppRobot::numTriangles() const
{
    return report.counts().triangles;
}
