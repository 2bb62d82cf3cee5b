#pragma once

#include <picture/KrAids.h>

#include <string>
#include <vector>

class KrVisualizationParameters;
struct KrAppRobot;

/// The aids that the command line asks for, and what a robot has for them.
namespace KrAppAids
{

/// Adds what a list as "axes,mass" names; the word that names nothing ("," for an empty one), or the empty string.
std::string add(KrAids& aids, const std::string& list);
/// A robot that has collision shapes only is drawn with them, and that is told.
void complete(KrAids& aids, const KrAppRobot& robot, std::vector<std::string>& warnings);
/// Tells of aids that will show nothing. Where masses are not shown, a single line tells of impossible ones, unless the
/// import has.
void tellOfNothing(const KrAids& aids, const KrAppRobot& robot, std::vector<std::string>& warnings);
/// KrAids::prepare; its warnings are messages. Throws KrAppFailure (CouldNot) for a link that is not there.
void prepare(const KrAids& aids, KrAppRobot& robot, KrVisualizationParameters& parameters);

} // namespace KrAppAids
