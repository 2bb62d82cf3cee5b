#include "KrAppAids.h"

#include "KrAppFailure.h"
#include "KrAppRobot.h"

#include <picture/KrValueText.h>
#include <toolkit/foundation/KrPrint.h>

#include <algorithm>
#include <utility>

std::string KrAppAids::add(KrAids& aids, const std::string& list)
{
    // Up to the first word that is unknown: the caller refuses the list.
    for (const std::string& word : KrValueText::split(list, ',')) {
        if (!aids.add(word)) {
            // An empty word is shown by the comma that makes it.
            return word.empty() ? "," : word;
        }
    }
    return std::string();
}

void KrAppAids::complete(KrAids& aids, const KrAppRobot& robot, std::vector<std::string>& warnings)
{
    // Something to see is there, nothing is to be had, or the user has hidden the body: nothing to complete.
    if (robot.hasVisibleShape() || robot.numCollisionShapes() == 0 || !aids.shapes) {
        return;
    }
    if (!aids.collisions) {
        aids.collisions = aids.areCollisionsSolid = true;
        warnings.push_back("no link has a visible shape: the collision shapes are drawn");
    }
}

void KrAppAids::tellOfNothing(const KrAids& aids, const KrAppRobot& robot, std::vector<std::string>& warnings)
{
    if (aids.collisions && robot.numCollisionShapes() == 0) {
        warnings.push_back("--show collision shows nothing: no link has a collision shape");
    }
    // Nothing is told of links without mass: most bases have none.
    std::vector<std::pair<std::string, const KrMassProperties*>> given;
    for (const KrIndividualManipulator& manipulator : robot.manipulators()) {
        std::vector<const KrManipulatorLink*> links = manipulator.links();
        // The base first: a warning names the first link that it is about.
        links.insert(links.begin(), &manipulator);
        for (const KrManipulatorLink* const link : links) {
            if (link->massProperties().isGiven()) {
                given.emplace_back(link->name(), &link->massProperties());
            }
        }
    }
    // Drawing the ellipsoids tells of each that cannot be.
    if (aids.mass) {
        if (given.empty()) {
            warnings.push_back("--show mass shows nothing: no link has a mass");
        }
        return;
    }
    // What is left are those that would have no ellipsoid.
    given.erase(std::remove_if(given.begin(), given.end(),
                               [](const auto& link) { return link.second->whyImpossible().empty(); }),
                given.end());
    if (given.empty()) {
        return;
    }
    if (robot.report.warnings().empty()) { // an import has told
        warnings.push_back(
            "no body has the mass properties of link \"" + given.front().first + "\"" +
            (given.size() > 1 ? ", nor those of " + std::to_string(given.size() - 1) + " more links" : std::string()) +
            "; --show mass tells why");
    }
}

void KrAppAids::prepare(const KrAids& aids, KrAppRobot& robot, KrVisualizationParameters& parameters)
{
    std::vector<std::string> warnings;
    std::string reason;
    if (!aids.prepare(robot.statedSystem(), parameters, reason, warnings)) {
        // A name that resembles one has got a suggestion, which says more than a list.
        const bool isSuggested = reason.back() == '?';
        throw KrAppFailure(KrAppFailure::CouldNot, reason + (isSuggested ? "" : " (--info lists the links)"));
    }
    for (const std::string& warning : warnings) {
        // By the libraries' way, so that each is told once, among theirs.
        Kr::Print::instance()->write(Kr::Print::Warning, "KrAppAids::prepare - %s.\n", warning.c_str());
    }
}
