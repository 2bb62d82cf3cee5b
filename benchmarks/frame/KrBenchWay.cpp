#include "KrBenchWay.h"

#include "KrBenchBareWay.h"
#include "KrBenchOwnWay.h"
#include "KrBenchRobot.h"

const std::vector<std::string>& KrBenchWay::names()
{
    static const std::vector<std::string> all = {"ours", "graph", "levels", "groups", "merged"};
    return all;
}

std::unique_ptr<KrBenchWay> KrBenchWay::make(const std::string& name, const KrBenchTask& task)
{
    if (name == "ours") {
        return std::make_unique<KrBenchOwnWay>(task);
    }
    if (name == "graph") {
        return std::make_unique<KrBenchOwnWay>(task, 0.0f, false);
    }
    if (name == "levels") {
        return std::make_unique<KrBenchOwnWay>(task, task.levelPixels);
    }
    if (name == "groups") {
        return std::make_unique<KrBenchBareWay>(task, KrBenchBareWay::Calls::AGroup);
    }
    if (name == "merged") {
        return std::make_unique<KrBenchBareWay>(task, KrBenchBareWay::Calls::AMesh);
    }
    throw KrBenchFailure("there is no way of drawing of the name " + name);
}
