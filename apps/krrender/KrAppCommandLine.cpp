#include "KrAppCommandLine.h"

#include "KrAppFailure.h"

#include <picture/KrValueText.h>
#include <toolkit/foundation/KrReason.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

namespace
{

using KrAppCommandLine::wrongUsage;

/// Descriptions in lines that a terminal shows whole.
class Help : public CLI::Formatter
{
public:
    // The parser breaks no lines, and terminals break them inside words.
    std::string make_option_desc(const CLI::Option* option) const override
    {
        constexpr std::size_t kLongest = 68; // behind the names
        std::string text;
        std::size_t length = 0;
        for (const std::string& word : KrValueText::split(CLI::Formatter::make_option_desc(option), ' ')) {
            const bool isTooLong = length + 1 + word.size() > kLongest;
            text += (text.empty() ? "" : isTooLong ? "\n" : " ") + word;
            length = isTooLong ? word.size() : length + 1 + word.size();
        }
        return text;
    }
};

/// With the name that was probably meant.
[[noreturn]] void unknownOption(const CLI::App& app, const std::string& word)
{
    // Dashes would count as letters that agree.
    const auto bare = [](const std::string& name) {
        return name.substr(std::min(name.find_first_not_of('-'), name.size()));
    };
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        names.insert(names.end(), option->get_lnames().begin(), option->get_lnames().end());
    }
    // Without a value; the first two letters may be dashes.
    const std::string given = word.substr(0, word.find('=', 2));
    // Known, and still left over: it stood behind "--".
    if (app.get_option_no_throw(given) != nullptr) {
        wrongUsage(given + ": behind -- there are no options");
    }
    const std::vector<std::string> near = KrValueText::nearest(bare(given), names);
    wrongUsage(
        given + ": there is no such option" +
        (near.empty() ? " (" + app.get_name() + " --help lists them)" : "; did you mean --" + near.front() + "?"));
}

/// What is wrong with a command line that the parser refuses.
[[noreturn]] void cannotParse(const CLI::App& app, const std::function<std::string(const std::string&)>& tooMany,
                              const CLI::ParseError& error)
{
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        // What is left over is an option that does not exist, or a word too many.
        const std::vector<std::string> extras = app.remaining();
        for (auto word = extras.rbegin(); word != extras.rend(); ++word) { // the parser has them the other way round
            if (word->size() > 1 && word->front() == '-' && *word != "--") {
                unknownOption(app, *word);
            }
        }
        wrongUsage(tooMany(extras.back()));
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        // The parser tells in its text alone which option is meant.
        const std::string text = error.what();
        const std::string name = text.substr(0, text.find(':'));
        const std::string flag = text.substr(0, text.find(" was given"));
        const CLI::Option* const option = app.get_option_no_throw(name);
        if (flag.size() < text.size()) {
            wrongUsage("--" + flag + " takes no value");
        }
        const std::size_t count = option ? option->count() : 0;
        const std::size_t most = option ? static_cast<std::size_t>(option->get_expected_max()) : 1;
        // Whole sets of values too many: the option stands there more than once.
        if (count > most && count % most == 0) {
            wrongUsage(name + " is given more than once");
        }
        if (option) {
            wrongUsage(name + " needs " + option->get_type_name());
        }
    }
    wrongUsage(KrReason::oneLine(error.what()) + " (" + app.get_name() + " --help lists the options)");
}

} // namespace

void KrAppCommandLine::wrongUsage(const std::string& sentence)
{
    throw KrAppFailure(KrAppFailure::WrongUsage, sentence);
}

bool KrAppCommandLine::parse(CLI::App& app, int argc, const char* const* argv,
                             const std::function<std::string(const std::string&)>& tooMany)
{
    app.formatter(std::make_shared<Help>());
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& done) {
        // It has what is to be printed, the help or the version.
        app.exit(done);
        return false;
    } catch (const CLI::ParseError& error) {
        cannotParse(app, tooMany, error);
    }
    for (const CLI::Option* option : app.get_options()) {
        const std::vector<std::string>& given = option->results();
        if (option->get_expected_min() == 0) {
            continue; // may stand without a value, which reads as an empty one
        }
        // What an unset variable in a script gives: taken for absent, it would do something else than is meant.
        if (std::find(given.begin(), given.end(), std::string()) != given.end()) {
            wrongUsage(option->get_name() + ": its value is empty");
        }
    }
    return true;
}
