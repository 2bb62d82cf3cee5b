#include "KrBenchReport.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <functional>

namespace
{

using nlohmann::json;
using Values = std::vector<double>;
using Way = KrBenchReport::Way;

/// One figure of a way: what its rounds, or its processes, gave.
struct Figure
{
    const char* name; ///< in the table
    const char* key;  ///< among the ratios of the JSON object
    const char* unit;
    double factor; ///< from the figure to the unit
    std::function<Values(const Way&)> values;
};

/// An only value, which is missing where nothing was measured.
Values single(double value)
{
    return value > 0.0 ? Values{value} : Values{};
}

const std::vector<Figure>& figures()
{
    static const std::vector<Figure> all = {
        {"frame", "frame", "ms", 1e3, [](const Way& w) { return w.frames.seconds; }},
        {"  nine of ten are faster than", "slow_tenth", "ms", 1e3,
         [](const Way& w) { return single(w.frames.slowTenthSeconds); }},
        {"  processor time", "processor", "ms", 1e3, [](const Way& w) { return w.frames.processorSeconds; }},
        {"  allocations with new", "allocations_new", "", 1.0,
         [](const Way& w) { return single(w.frames.allocationsWithNew); }},
        {"  all, the driver's too", "allocations_malloc", "", 1.0,
         [](const Way& w) { return single(w.frames.allocationsWithMalloc); }},
        {"processor time at 16 x 16 pixels", "processor_small", "ms", 1e3,
         [](const Way& w) { return w.small.processorSeconds; }},
        {"instructions of a frame", "instructions", "M", 1e-6, [](const Way& w) { return single(w.instructions); }},
        {"opening and first frame", "first_frame", "ms", 1e3, [](const Way& w) { return w.firstFrameSeconds; }},
        {"  with reading the system before", "start", "ms", 1e3, [](const Way& w) { return w.startSeconds; }},
        {"most memory held", "peak_memory", "MiB", 1.0, [](const Way& w) { return w.peakMemoryMiB; }},
        {"  as the system was read", "loaded_memory", "MiB", 1.0, [](const Way& w) { return w.loadedMemoryMiB; }},
    };
    return all;
}

template <typename... Arguments>
std::string format(const char* pattern, Arguments... arguments)
{
    char buffer[512];
    std::snprintf(buffer, sizeof buffer, pattern, arguments...);
    return buffer;
}

json asJson(const KrBenchMeasure::Frames& frames)
{
    return {{"median_s", KrBenchMeasure::median(frames.seconds)},
            {"fastest_s", frames.fastestSeconds},
            {"slow_tenth_s", frames.slowTenthSeconds},
            {"processor_s", KrBenchMeasure::median(frames.processorSeconds)},
            {"allocations_new", frames.allocationsWithNew},
            {"allocations_malloc", frames.allocationsWithMalloc}};
}

} // namespace

std::string KrBenchReport::table() const
{
    std::string text =
        system + ": " +
        format("%u x %u pixels, %u %s, %s%s, %zu triangles in %zu meshes and %zu groups%s%s\n", width, height, copies,
               copies == 1 ? "copy" : "copies", mode.c_str(), isCulled ? ", back faces culled" : "", triangles, meshes,
               groups, isOneTriangle ? ", one triangle each" : "", isStill ? ", standing still" : "");
    // Instructions are counted by other processes; this one has drawn nothing.
    text += renderer.empty() ? format("counted over %u frames", frames)
                             : renderer + (isSoftware ? " (software)" : "") +
                                   format(", medians of %u rounds of %u frames", rounds, frames);
    text += format("; read in %.4g s\n\n", loadSeconds);

    text += format("%-34s", "");
    for (const Way& way : ways) {
        text += format(" %11s", way.name.c_str());
    }
    text += "    ";
    for (std::size_t i = 1; i < ways.size(); ++i) {
        text += format(" %15s", (ways.front().name + "/" + ways[i].name).c_str());
    }
    text += "\n";
    for (const Figure& figure : figures()) {
        const Values first = figure.values(ways.front());
        if (first.empty()) {
            continue;
        }
        text += format("%-34s", figure.name);
        for (const Way& way : ways) {
            text += format(" %11.4g", figure.factor * KrBenchMeasure::median(figure.values(way)));
        }
        text += format(" %-3s", figure.unit);
        for (std::size_t i = 1; i < ways.size(); ++i) {
            const Values other = figure.values(ways[i]);
            text += other.empty() ? std::string(16, ' ') : format(" %15.2f", KrBenchMeasure::medianRatio(first, other));
        }
        text += "\n";
    }
    return text;
}

std::string KrBenchReport::json() const
{
    nlohmann::json report = {{"system", system},       {"renderer", renderer},
                             {"software", isSoftware}, {"mode", mode},
                             {"width", width},         {"height", height},
                             {"copies", copies},       {"rounds", rounds},
                             {"frames", frames},       {"one_triangle", isOneTriangle},
                             {"still", isStill},       {"culled", isCulled},
                             {"triangles", triangles}, {"meshes", meshes},
                             {"groups", groups},       {"load_s", loadSeconds}};
    for (const Way& way : ways) {
        nlohmann::json& entry = report["ways"][way.name];
        entry = {{"frame", asJson(way.frames)},
                 {"small", asJson(way.small)},
                 {"coverage", way.coverage},
                 {"instructions", way.instructions},
                 {"first_frame_s", KrBenchMeasure::median(way.firstFrameSeconds)},
                 {"start_s", KrBenchMeasure::median(way.startSeconds)},
                 {"loaded_memory_mib", KrBenchMeasure::median(way.loadedMemoryMiB)},
                 {"peak_memory_mib", KrBenchMeasure::median(way.peakMemoryMiB)}};
        for (const Figure& figure : figures()) {
            const Values first = figure.values(ways.front());
            const Values other = figure.values(way);
            if (&way != &ways.front() && !first.empty() && !other.empty()) {
                report["ratios"][way.name][figure.key] = KrBenchMeasure::medianRatio(first, other);
            }
        }
    }
    return report.dump(1) + "\n";
}
