#include <toolkit/context/KrWindowReport.h>

#include <toolkit/foundation/private/KrText.h>

#include <GL/gl.h>

#include <algorithm>
#include <array>
#include <sstream>

namespace
{

// Empty where there is no context, instead of null.
std::string glString(GLenum name)
{
    const GLubyte* text = glGetString(name);
    return text ? reinterpret_cast<const char*>(text) : std::string();
}

// 0 where the name is unknown to the context: asking for it leaves the value alone.
int glInteger(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

// Columns of the list of attempts.
std::string padded(const std::string& text, std::size_t width)
{
    return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

// What was had, for people: one property a line.
std::string contextText(const KrWindowReport& report)
{
    std::string text = "OpenGL context: " + report.renderer;
    text += report.isSoftware ? " (software: draws on the processor)\n" : " (hardware)\n";
    text += "  vendor   " + report.vendor + "\n";
    text += "  version  " + report.version + "\n";
    text += "  colour   " + std::to_string(report.redBits) + "/" + std::to_string(report.greenBits) + "/" +
            std::to_string(report.blueBits) + " bits red/green/blue, " + std::to_string(report.alphaBits) +
            " bits alpha\n";
    text += "  depth    " + std::to_string(report.depthBits) + " bits, stencil " + std::to_string(report.stencilBits) +
            " bits\n";
    // Without smoothing there is nothing to tell.
    if (report.samples > 0) {
        text += "  samples  " + std::to_string(report.samples) + " for each pixel\n";
    }
    return text;
}

/// Breaks `text` between words so that no line passes `kLineWidth` where that can be had; later lines are indented.
std::string wrapped(const std::string& text, std::size_t column, std::size_t indent)
{
    constexpr std::size_t kLineWidth = 110;
    std::istringstream words(text);
    std::string lines;
    for (std::string word; words >> word; column += word.size()) {
        if (!lines.empty() && column + 1 + word.size() > kLineWidth) {
            lines += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (!lines.empty()) {
            lines += ' ';
            ++column;
        }
        lines += word;
    }
    return lines + "\n";
}

// One attempt: its name, how it ended, then what the driver said and what would mend it, indented.
std::string attemptText(const KrWindowReport::Attempt& attempt, std::size_t nameWidth)
{
    // Two blanks, the name, two blanks, and the eight characters of the outcome.
    const std::size_t indent = nameWidth + 12;
    std::string text = "  " + padded(attempt.backEnd, nameWidth) + (attempt.succeeded ? "  ok      " : "  failed  ");
    text += wrapped(attempt.outcome, indent, indent);
    const auto addDetail = [&](const std::string& title, const std::string& detail) {
        if (!detail.empty()) {
            text += std::string(indent, ' ') + title + wrapped(detail, indent + title.size(), indent + 2);
        }
    };
    addDetail("reason: ", attempt.driverError);
    addDetail(attempt.succeeded ? "hint: " : "to mend it: ", attempt.remedy);
    return text;
}

} // namespace

// The names by which Mesa's processor renderers are known, and the word that the others use of themselves.
// In small letters, since drivers write their names as they like.
bool KrWindowReport::isSoftwareRenderer(const std::string& renderer)
{
    static constexpr std::array<const char*, 5> kNames = {"llvmpipe", "softpipe", "swrast", "lavapipe", "software"};
    const std::string small = KrText::lowered(renderer);
    return std::any_of(kNames.begin(), kNames.end(),
                       [&](const char* name) { return small.find(name) != std::string::npos; });
}

// Of the context, not of the configuration that was asked for: drivers may give more.
void KrWindowReport::readCurrentContext()
{
    vendor = glString(GL_VENDOR);
    renderer = glString(GL_RENDERER);
    version = glString(GL_VERSION);
    isSoftware = isSoftwareRenderer(renderer);
    redBits = glInteger(GL_RED_BITS);
    greenBits = glInteger(GL_GREEN_BITS);
    blueBits = glInteger(GL_BLUE_BITS);
    alphaBits = glInteger(GL_ALPHA_BITS);
    depthBits = glInteger(GL_DEPTH_BITS);
    stencilBits = glInteger(GL_STENCIL_BITS);
    samples = glInteger(GL_SAMPLES);
}

// For people; programs read the members.
std::string KrWindowReport::text() const
{
    // A window that wraps a client's context, or was never opened, has no list.
    if (attempts.empty()) {
        return hasContext() ? contextText(*this) : "OpenGL context: none was looked for yet\n";
    }

    std::string text = hasContext() ? contextText(*this) : "OpenGL context: none could be had\n";
    text += "Tried, in this order:\n";
    std::size_t nameWidth = 0;
    for (const Attempt& attempt : attempts) {
        nameWidth = std::max(nameWidth, attempt.backEnd.size());
    }
    for (const Attempt& attempt : attempts) {
        text += attemptText(attempt, nameWidth);
    }
    return text;
}
