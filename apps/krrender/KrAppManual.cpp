#include "KrAppManual.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <utility>
#include <vector>

namespace
{

/// `text` for roff: a hyphen stays the character that is typed, and no line becomes a request.
std::string escaped(const std::string& text)
{
    std::string out = text.empty() || (text.front() != '.' && text.front() != '\'') ? "" : "\\&";
    for (const char c : text) {
        switch (c) {
        case '\\':
            out += "\\e";
            break;
        case '-':
            out += "\\-";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string upperCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
    return text;
}

/// "-o", "--output"
/// With dashes, short ones first.
std::vector<std::string> names(const CLI::Option& option)
{
    std::vector<std::string> all;
    for (const std::string& name : option.get_snames()) {
        all.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        all.push_back("--" + name);
    }
    return all;
}

/// Those of a line, without the positional ones.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

/// A flag takes none.
bool takesValue(const CLI::Option& option)
{
    return option.get_items_expected_max() > 0;
}

/// Bold names, and the value in italics.
std::string heading(const CLI::Option& option)
{
    std::string text;
    for (const std::string& name : names(option)) {
        text += (text.empty() ? "\\fB" : ", \\fB") + escaped(name) + "\\fR";
    }
    return takesValue(option) ? text + " \\fI" + escaped(option.get_type_name()) + "\\fR" : text;
}

/// The groups in the order in which their first options stand.
/// Like the help, so that both can be read side by side.
std::vector<std::string> groupsOf(const CLI::App& app)
{
    std::vector<std::string> groups;
    for (const CLI::Option* option : optionsOf(app)) {
        if (std::find(groups.begin(), groups.end(), option->get_group()) == groups.end()) {
            groups.push_back(option->get_group());
        }
    }
    return groups;
}

/// The footer of the help as sections.
std::string sections(const std::string& footer)
{
    std::string text;
    std::string section;
    bool isExample = false;
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        // Lines that begin with two blanks are examples, which keep their line ends.
        const bool wasExample = std::exchange(isExample, line.compare(0, 2, "  ") == 0);
        // Examples stand as they are typed.
        text += isExample == wasExample ? "" : isExample ? ".EX\n" : ".EE\n";
        if (isExample) {
            text += escaped(line.substr(2)) + "\n";
            continue;
        }
        const std::size_t colon = line.find(':');
        // A colon before any full stop or comma names a section; lines without one are notes.
        const bool hasName = colon != std::string::npos && line.find_first_of(".,") > colon;
        const std::string name = hasName ? upperCase(line.substr(0, colon)) : "NOTES";
        if (name != std::exchange(section, name)) {
            text += ".SH " + name + "\n";
        }
        const std::size_t begin = hasName ? line.find_first_not_of(' ', colon + 1) : 0;
        text += begin == std::string::npos ? "" : escaped(line.substr(begin)) + "\n";
    }
    return text + (isExample ? ".EE\n" : "");
}

/// What is typed behind a program's or a command's name.
std::string optionsText(const CLI::App& app)
{
    std::string text;
    for (const CLI::Option* option : app.get_options([](const CLI::Option* each) { return each->get_positional(); })) {
        text += ".TP\n\\fI" + escaped(option->get_name(true)) + "\\fR\n" + escaped(option->get_description()) + "\n";
    }
    for (const std::string& group : groupsOf(app)) {
        text += ".SS " + group + "\n";
        for (const CLI::Option* option : optionsOf(app)) {
            if (option->get_group() == group) {
                text += ".TP\n" + heading(*option) + "\n" + escaped(option->get_description()) + "\n";
            }
        }
    }
    return text;
}

/// Of a footer the indented lines alone: the sections are the program's.
std::string examples(const std::string& footer)
{
    std::string text = ".PP\nExamples:\n.EX\n";
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        text += line.compare(0, 2, "  ") == 0 ? escaped(line.substr(2)) + "\n" : "";
    }
    return text + ".EE\n";
}

/// The values that a type's name tells; empty where it tells none.
std::vector<std::string> wordsOf(const std::string& type)
{
    std::vector<std::string> words(1);
    for (const char c : type) {
        if (c == '|' || c == ',') {
            words.emplace_back();
        } else if (std::islower(static_cast<unsigned char>(c)) != 0) {
            words.back() += c;
            // Words in capitals are placeholders.
        } else {
            return {};
        }
    }
    return words;
}

/// What bash does for the value of an option.
std::string completionOf(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    if (type.find("DIR") != std::string::npos) {
        return "_krrender_paths -d \"$cur\"";
    }
    if (type.find("FILE") != std::string::npos) {
        return "_krrender_paths -f \"$cur\"";
    }
    const std::vector<std::string> words = wordsOf(type);
    std::string list;
    for (const std::string& word : words) {
        list += (list.empty() ? "" : " ") + word;
    }
    if (list.empty()) {
        return ":"; // a number, or a name from a file
    }
    // A comma in the type is for several of the words at a time.
    const char* const kind = type.find(',') != std::string::npos ? "_krrender_list" : "_krrender_words";
    return std::string(kind) + " \"" + list + "\" \"$cur\"";
}

/// Completes values behind options, then options, then files.
std::string completionOf(const CLI::App& app)
{
    std::string text = "    case \"$option\" in\n";
    // Offered where a word begins with a dash.
    std::string all;
    for (const CLI::Option* option : optionsOf(app)) {
        std::string pattern;
        for (const std::string& name : names(*option)) {
            pattern += (pattern.empty() ? "" : " | ") + name;
            all += (all.empty() ? "" : " ") + name;
        }
        // One whose value may be left out is followed by whatever follows.
        if (takesValue(*option) && option->get_expected_min() > 0) {
            text += "    " + pattern + ")\n        " + completionOf(*option) + "\n        return\n        ;;\n";
        }
    }
    return text + "    esac\n    if [[ \"$cur\" == -* ]]; then\n        _krrender_words \"" + all +
           "\" \"$cur\"\n    else\n        _krrender_paths -f \"$cur\"\n    fi\n";
}

constexpr const char* kCompletionHead = R"(# Completion for bash. Made from the program's options.

_krrender_words()
{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

# The last of several words with commas between them.
_krrender_list()
{
    local before=
    [[ "$2" == *,* ]] && before="${2%,*},"
    mapfile -t COMPREPLY < <(compgen -P "$before" -W "$1" -- "${2##*,}")
    compopt -o nospace 2>/dev/null
}

_krrender_paths()
{
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$1" -- "$2")
}

_krrender()
{
    local cur="${COMP_WORDS[COMP_CWORD]}" option="${COMP_WORDS[COMP_CWORD - 1]}"
    # bash takes --name=value for three words.
    if [ "$cur" = = ]; then
        cur=
    elif [ "$option" = = ] && [ "$COMP_CWORD" -gt 1 ]; then
        option="${COMP_WORDS[COMP_CWORD - 2]}"
    fi
    COMPREPLY=()
)";

} // namespace

std::string KrAppManual::page(const CLI::App& app, const std::vector<const CLI::App*>& commands)
{
    // Indexes of pages show the description as a clause: a small letter, and no full stop.
    std::string what = app.get_description();
    if (!what.empty()) {
        what.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(what.front())));
    }
    while (!what.empty() && what.back() == '.') {
        what.pop_back();
    }
    std::string robot;
    for (const CLI::Option* option : app.get_options([](const CLI::Option* each) { return each->get_positional(); })) {
        robot += " [\\fI" + escaped(option->get_name(true)) + "\\fR]";
    }
    // No date: the same sources make the same page.
    std::string text = ".TH " + upperCase(app.get_name()) + " 1 \"\" \"" + app.version() + "\" \"User Commands\"\n" +
                       ".SH NAME\n" + app.get_name() + " \\- " + escaped(what) + "\n" + ".SH SYNOPSIS\n\\fB" +
                       app.get_name() + "\\fR [\\fIOPTION\\fR]..." + robot + "\n.SH OPTIONS\n";
    text += optionsText(app);
    for (const CLI::App* command : commands) {
        text += ".SH " + upperCase(command->get_name()) + "\n" + escaped(command->get_description()) + "\n" +
                optionsText(*command) + examples(command->get_footer());
    }
    return text + sections(app.get_footer());
}

std::string KrAppManual::bashCompletion(const CLI::App& app, const std::vector<const CLI::App*>& commands)
{
    std::string text = kCompletionHead;
    std::string names;
    for (const CLI::App* command : commands) {
        // "krrender dataset": the last word is what is typed.
        const std::string name = command->get_name().substr(command->get_name().rfind(' ') + 1);
        names += (names.empty() ? "" : " ") + name;
        text += "    if [ \"$COMP_CWORD\" -gt 1 ] && [ \"${COMP_WORDS[1]}\" = " + name + " ]; then\n" +
                completionOf(*command) + "        return\n    fi\n";
    }
    text += completionOf(app);
    // A command stands first or not at all.
    return text +
           "    if [ \"$COMP_CWORD\" = 1 ] && [[ \"$cur\" != -* ]]; then\n        mapfile -t -O ${#COMPREPLY[@]} "
           "COMPREPLY < <(compgen -W \"" +
           names + "\" -- \"$cur\")\n    fi\n}\n\ncomplete -F _krrender " + app.get_name() + "\n";
}
