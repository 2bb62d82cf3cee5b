#include <picture/KrValueText.h>

#include <toolkit/foundation/private/KrText.h>
#include <toolkit/math/KrAngle.h>
#include <toolkit/xml/KrXmlText.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <string_view>

namespace
{

struct NamedColor
{
    const char* name;
    unsigned int rgb;
};

// The values are those of CSS, but for darkgray, which is lighter than gray there.
constexpr NamedColor kColors[] = {
    {"white", 0xFFFFFF},     {"black", 0x000000},     {"gray", 0x808080},     {"grey", 0x808080},
    {"lightgray", 0xD3D3D3}, {"lightgrey", 0xD3D3D3}, {"darkgray", 0x404040}, {"darkgrey", 0x404040},
    {"silver", 0xC0C0C0},    {"slategray", 0x708090}, {"red", 0xFF0000},      {"green", 0x008000},
    {"blue", 0x0000FF},      {"navy", 0x000080},      {"skyblue", 0x87CEEB},  {"lightblue", 0xADD8E6},
    {"cyan", 0x00FFFF},      {"teal", 0x008080},      {"yellow", 0xFFFF00},   {"orange", 0xFFA500},
    {"magenta", 0xFF00FF},   {"purple", 0x800080},    {"brown", 0xA52A2A},    {"beige", 0xF5F5DC},
};

/// Of 0xrrggbb.
KrColor fromRgb(unsigned int rgb)
{
    return {((rgb >> 16) & 0xFFu) / 255.0, ((rgb >> 8) & 0xFFu) / 255.0, (rgb & 0xFFu) / 255.0};
}

/// Without the "#".
bool hexColor(const std::string& digits, KrColor& value)
{
    unsigned int rgb = 0;
    const char* const end = digits.data() + digits.size();
    const std::from_chars_result result = std::from_chars(digits.data(), end, rgb, 16);
    if (result.ec != std::errc() || result.ptr != end || (digits.size() != 3 && digits.size() != 6)) {
        return false;
    }
    // Each of three digits stands for two: #fa0 is #ffaa00.
    if (digits.size() == 3) {
        rgb = ((rgb & 0xF00u) * 0x1100u) | ((rgb & 0x0F0u) * 0x110u) | ((rgb & 0x00Fu) * 0x11u);
    }
    value = fromRgb(rgb);
    return true;
}

/// Insertions, deletions, replacements and swaps of neighbours that turn one word into the other.
std::size_t distance(const std::string& a, const std::string& b)
{
    // Optimal string alignment: no piece is changed twice.
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                // From or to nothing: a letter at a time.
                d[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
            }
        }
    }
    return d[a.size()][b.size()];
}

} // namespace

bool KrValueText::number(const std::string& text, double& value)
{
    std::string_view rest = text;
    if (rest.size() > 1 && rest[0] == '+' && (std::isdigit(static_cast<unsigned char>(rest[1])) || rest[1] == '.')) {
        rest.remove_prefix(1);
    }
    double result = 0.0;
    // Infinity and NaN are values of nothing here.
    if (!KrXmlText::take(rest, result) || !KrXmlText::atEnd(rest) || !std::isfinite(result)) {
        return false;
    }
    value = result;
    return true;
}

bool KrValueText::position(const std::string& text, double& value, Unit& unit)
{
    struct Suffix
    {
        const char* text;
        double factor;
        Unit unit;
    };
    // Longer suffixes first: "m" ends "mm".
    static constexpr Suffix kSuffixes[] = {{"deg", Kr::Angle::radians(1.0), Unit::Angle},
                                           {"rad", 1.0, Unit::Angle},
                                           {"mm", 1e-3, Unit::Length},
                                           {"m", 1.0, Unit::Length},
                                           {"", 1.0, Unit::Plain}};
    // The unit may stand behind a blank.
    const std::string whole(KrText::trimmed(text));
    // The empty suffix fits every text: something always decides.
    for (const Suffix& suffix : kSuffixes) {
        const std::string_view ending = suffix.text;
        if (whole.size() < ending.size() || whole.substr(whole.size() - ending.size()) != ending) {
            continue;
        }
        double plain = 0.0;
        if (!number(std::string(KrText::trimmed(std::string_view(whole).substr(0, whole.size() - ending.size()))),
                    plain)) {
            return false;
        }
        value = plain * suffix.factor;
        unit = suffix.unit;
        return true;
    }
    return false;
}

bool KrValueText::vector(const std::string& text, KrVector& value)
{
    const std::vector<std::string> parts = split(text, ',');
    KrVector result;
    for (unsigned int i = 0; i < 3; ++i) {
        // All three or none: the caller's vector is changed at the end.
        if (parts.size() != 3 || !number(parts[i], result[i])) {
            return false;
        }
    }
    value = result;
    return true;
}

bool KrValueText::size(const std::string& text, unsigned long& width, unsigned long& height)
{
    // A large X is typed as well.
    const std::vector<std::string> parts = split(KrText::lowered(text), 'x');
    if (parts.size() != 2) {
        return false;
    }
    unsigned long numbers[2] = {0, 0};
    for (unsigned int i = 0; i < 2; ++i) {
        const char* const end = parts[i].data() + parts[i].size();
        // Digits only: a sign or a blank is no size.
        const std::from_chars_result result = std::from_chars(parts[i].data(), end, numbers[i]);
        if (result.ec != std::errc() || result.ptr != end) {
            return false;
        }
    }
    width = numbers[0];
    height = numbers[1];
    return true;
}

bool KrValueText::color(const std::string& text, KrColor& value)
{
    const std::string word = KrText::lowered(KrText::trimmed(text));
    if (!word.empty() && word[0] == '#') {
        return hexColor(word.substr(1), value);
    }
    for (const NamedColor& named : kColors) {
        if (word == named.name) {
            value = fromRgb(named.rgb);
            return true;
        }
    }
    KrVector rgb;
    // Three numbers last: a name and a word with "#" are told by their look.
    const auto isChannel = [](double c) { return c >= 0.0 && c <= 1.0; };
    if (!vector(word, rgb) || !isChannel(rgb.x()) || !isChannel(rgb.y()) || !isChannel(rgb.z())) {
        return false;
    }
    value = KrColor(rgb.x(), rgb.y(), rgb.z());
    return true;
}

std::vector<std::string> KrValueText::colorNames()
{
    std::vector<std::string> names;
    for (const NamedColor& named : kColors) {
        names.push_back(named.name);
    }
    return names;
}

std::vector<std::string> KrValueText::split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = text.find(separator, start);
        // Empty parts stay: the caller tells what is wrong with them.
        parts.emplace_back(KrText::trimmed(std::string_view(text).substr(start, end - start)));
        if (end == std::string::npos) {
            return parts;
        }
        start = end + 1;
    }
}

std::vector<std::string> KrValueText::nearest(const std::string& name, const std::vector<std::string>& candidates)
{
    // More would not be read.
    constexpr std::size_t kMostShown = 3;
    constexpr std::size_t kLongestName = 200; // the table of distances grows with the product of the lengths
    // Sizes of letters are the least of slips.
    const std::string wanted = KrText::lowered(name);
    std::vector<std::pair<std::size_t, std::string>> found;
    for (const std::string& candidate : candidates) {
        if (candidate.empty() || candidate.size() > kLongestName || wanted.size() > kLongestName) {
            continue;
        }
        const std::string other = KrText::lowered(candidate);
        // A piece of three letters counts as the name: people type what they remember.
        const bool contains = wanted.size() > 2 && other.find(wanted) != std::string::npos;
        const std::size_t far = distance(wanted, other);
        // Where more than half of the letters differ, it is another word.
        if (contains || 2 * far <= std::max(wanted.size(), other.size())) {
            found.emplace_back(contains ? 0 : far, candidate);
        }
    }
    // Equal ones stay in the order of the candidates.
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> names;
    for (std::size_t i = 0; i < found.size() && i < kMostShown; ++i) {
        names.push_back(found[i].second);
    }
    return names;
}

std::string KrValueText::suggestion(const std::string& name, const std::vector<std::string>& candidates)
{
    const std::vector<std::string> near = nearest(name, candidates);
    std::string words;
    for (std::size_t i = 0; i < near.size(); ++i) {
        words += (i == 0 ? "; did you mean " : i + 1 == near.size() ? " or " : ", ") + near[i];
    }
    // Nothing at all where nothing is near: the sentence ends as it was.
    return words + (near.empty() ? "" : "?");
}
