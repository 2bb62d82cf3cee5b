#include "KrBenchReport.h"

#include <cstdio>

namespace
{

template <typename... Values>
std::string format(const char* pattern, Values... values)
{
    char buffer[512];
    std::snprintf(buffer, sizeof buffer, pattern, values...);
    return buffer;
}

/// A ratio only where plain OpenGL has a figure.
std::string row(const char* name, double scene, double bare, const char* unit, double factor)
{
    std::string text = format("%-34s %12.4g %12.4g %-4s", name, factor * scene, factor * bare, unit);
    if (bare > 0.0) {
        text += format(" %8.2f", scene / bare);
    }
    return text + "\n";
}

/// As the text of a JSON string.
std::string escaped(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        if (static_cast<unsigned char>(c) < 0x20) {
            out += format("\\u%04x", static_cast<unsigned int>(static_cast<unsigned char>(c)));
        } else {
            out += c;
        }
    }
    return out;
}

std::string json(const KrBenchMeasure::Frames& f)
{
    return format("{\"median_s\": %.9g, \"fastest_s\": %.9g, \"slow_tenth_s\": %.9g, \"processor_s\": %.9g, "
                  "\"allocations_new\": %.6g, \"allocations_malloc\": %.6g}",
                  f.medianSeconds, f.fastestSeconds, f.slowTenthSeconds, f.processorSeconds, f.allocationsWithNew,
                  f.allocationsWithMalloc);
}

std::string json(const KrBenchReport::Way& way)
{
    return format("{\"first_frame_s\": %.9g, \"frames\": ", way.firstFrameSeconds) + json(way.frames) +
           ", \"small\": " + json(way.small) + "}";
}

} // namespace

// For a person: milliseconds, and the two ways side by side.
std::string KrBenchReport::table() const
{
    std::string text = system + ": " +
                       format("%u x %u pixels, %u %s, %s, %zu triangles in %zu groups%s%s\n", width, height, copies,
                              copies == 1 ? "copy" : "copies", mode.c_str(), triangles, drawCalls,
                              isOneTriangle ? ", one triangle each" : "", isStill ? ", standing still" : "");
    text += renderer + (isSoftware ? " (software)" : "") + format(", %u frames\n\n", frames);
    text += format("%-34s %12s %12s %-4s %8s\n", "", "scene", "bare", "", "ratio");
    text += row("first frame", scene.firstFrameSeconds, bare.firstFrameSeconds, "ms", 1e3);
    text += row("frame, median", scene.frames.medianSeconds, bare.frames.medianSeconds, "ms", 1e3);
    text += row("frame, fastest", scene.frames.fastestSeconds, bare.frames.fastestSeconds, "ms", 1e3);
    text +=
        row("frame, nine of ten are faster", scene.frames.slowTenthSeconds, bare.frames.slowTenthSeconds, "ms", 1e3);
    text +=
        row("processor time at 16 x 16 pixels", scene.small.processorSeconds, bare.small.processorSeconds, "ms", 1e3);
    text += row("allocations a frame (new)", scene.frames.allocationsWithNew, bare.frames.allocationsWithNew, "", 1.0);
    text += row("allocations a frame (all, driver's)", scene.frames.allocationsWithMalloc,
                bare.frames.allocationsWithMalloc, "", 1.0);
    text += row("part of the picture drawn on", sceneCoverage, bareCoverage, "%", 100.0);
    text += format("\nloaded in %.4g s, peak memory %.4g MiB\n", loadSeconds, peakMemoryMiB);
    return text;
}

// For programs: seconds, and nothing that follows from the rest.
std::string KrBenchReport::json() const
{
    std::string text = "{\"system\": \"" + escaped(system) + "\", \"renderer\": \"" + escaped(renderer) + "\", ";
    text +=
        format("\"software\": %s, \"mode\": \"%s\", \"width\": %u, \"height\": %u, \"copies\": %u, \"frames\": %u, ",
               isSoftware ? "true" : "false", mode.c_str(), width, height, copies, frames);
    text += format("\"one_triangle\": %s, \"still\": %s, \"triangles\": %zu, \"draw_calls\": %zu, \"load_s\": %.9g, "
                   "\"peak_memory_mib\": %.6g, \"scene_coverage\": %.6g, \"bare_coverage\": %.6g, ",
                   isOneTriangle ? "true" : "false", isStill ? "true" : "false", triangles, drawCalls, loadSeconds,
                   peakMemoryMiB, sceneCoverage, bareCoverage);
    return text + "\"scene\": " + ::json(scene) + ", \"bare\": " + ::json(bare) + "}\n";
}
