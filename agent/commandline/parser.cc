#include "agent/commandline/parser.h"

#include <charconv>
#include <sstream>

#include <CLI/CLI.hpp>

#include "agent/host/error.h"
#include "agent/text/suggestion.h"

namespace commandline {

// ---- options ----

Option &Option::Required()
{
    option_->required();
    return *this;
}

Option &Option::TypeName(const char *name)
{
    option_->type_name(name);
    return *this;
}

Option &Option::ShowDefault()
{
    option_->capture_default_str();
    return *this;
}

Option &Option::OneOf(std::initializer_list<std::string> words)
{
    option_->check(CLI::IsMember(std::vector<std::string>(words)));
    return *this;
}

Option &Option::NotNegative()
{
    return Check([](const std::string &word) {
        uint64_t number = 0;
        const char *const end = word.data() + word.size();
        const auto read = std::from_chars(word.data(), end, number);
        const bool is_good = read.ec == std::errc() && read.ptr == end;
        return is_good ? std::string() : "\"" + word + "\" is no number from 0 on";
    });
}

Option &Option::Check(WordCheck check)
{
    option_->check(std::move(check));
    return *this;
}

Option &Option::OneWordEach()
{
    // A list would take further words up to the next option otherwise.
    option_->expected(1)->allow_extra_args(false)->take_all();
    return *this;
}

Option &Option::MayLackItsValue()
{
    option_->expected(0, 1);
    return *this;
}

// ---- one command ----

Option Parser::Add(const std::string &names, std::string &value, const std::string &help)
{
    return Option(app_->add_option(names, value, help));
}

Option Parser::Add(const std::string &names, std::optional<std::string> &value,
                   const std::string &help)
{
    // The library itself would take an empty word for none.
    const auto take = [&value](const std::string &word) { value = word; };
    return Option(app_->add_option_function<std::string>(names, take, help));
}

Option Parser::Add(const std::string &names, std::vector<std::string> &value,
                   const std::string &help)
{
    return Option(app_->add_option(names, value, help));
}

Option Parser::Add(const std::string &names, std::vector<int64_t> &value, const std::string &help)
{
    return Option(app_->add_option(names, value, help));
}

Option Parser::Add(const std::string &names, int64_t &value, const std::string &help)
{
    return Option(app_->add_option(names, value, help));
}

Option Parser::Add(const std::string &names, std::optional<int64_t> &value, const std::string &help)
{
    return Option(app_->add_option(names, value, help));
}

Option Parser::Add(const std::string &names, double &value, const std::string &help)
{
    return Option(app_->add_option(names, value, help));
}

Option Parser::AddFlag(const std::string &names, bool &value, const std::string &help)
{
    return Option(app_->add_flag(names, value, help));
}

void Parser::Footer(const std::string &text)
{
    app_->footer(text);
}

void Parser::Footer(std::function<std::string()> text)
{
    app_->footer(std::move(text));
}

void Parser::Runs(Action action)
{
    app_->callback([chosen = chosen_, action = std::move(action)] { *chosen = action; });
}

void Parser::Runs(Action action, std::function<std::string()> check)
{
    app_->callback([chosen = chosen_, action = std::move(action), check = std::move(check)] {
        const std::string wrong = check();
        if (!wrong.empty())
            throw CLI::ValidationError(wrong);
        *chosen = action;
    });
}

// ---- a command line that is wrong ----

namespace {

// The command that was meant, as far as it was understood.
const CLI::App &DeepestParser(const CLI::App &app)
{
    const auto below = app.get_subcommands();
    return below.empty() ? app : DeepestParser(*below.front());
}

// "event add"; the program's name for none.
std::string WordsOf(const CLI::App &parser)
{
    // Without the name of the program, which stands before all of them.
    const CLI::App *parent = parser.get_parent();
    if (parent == nullptr)
        return parser.get_name();
    return (parent->get_parent() == nullptr ? "" : WordsOf(*parent) + " ") + parser.get_name();
}

std::vector<std::string> NamesBelow(const CLI::App &parser)
{
    std::vector<std::string> names;
    for (const CLI::App *below : parser.get_subcommands(nullptr))
        names.push_back(below->get_name());
    return names;
}

// With those of the parsers above: the program's own may stand anywhere.
std::vector<std::string> OptionsOf(const CLI::App &parser)
{
    std::vector<std::string> names;
    for (const CLI::App *of = &parser; of != nullptr; of = of->get_parent()) {
        for (const CLI::Option *option : of->get_options()) {
            for (const std::string &name : option->get_lnames())
                names.push_back("--" + name);
        }
    }
    return names;
}

// The first word that means nothing where it stands.
std::string WhatIsUnknown(const CLI::App &parser, const std::string &word, const std::string &help)
{
    const std::vector<std::string> commands = NamesBelow(parser);
    // A single - is a file name for the commands that take one.
    if (word.size() > 1 && word[0] == '-')
        return host::Error("cannot use the option " + word,
                           WordsOf(parser) + " has none of that name",
                           text::Suggestion(word, OptionsOf(parser)) + help)
            .what();
    if (!commands.empty())
        return host::Error("cannot find the command \"" + word + "\"", "there is none of that name",
                           text::Suggestion(word, commands) + help)
            .what();
    return host::Error("cannot use the word \"" + word + "\"",
                       WordsOf(parser) + " takes no further word", help)
        .what();
}

std::string WhatIsWrong(const CLI::App &app, const CLI::ParseError &error)
{
    const CLI::App &parser = DeepestParser(app);
    const std::string words = WordsOf(parser);
    const std::string help = "see " + app.get_name() + " " +
                             (parser.get_parent() == nullptr ? "" : words + " ") + "--help";
    const bool is_incomplete = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
    // What is there and not known says more than what is missing for it.
    const std::vector<std::string> unknown = app.remaining(true);
    if (!unknown.empty() &&
        (is_incomplete || dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr))
        return WhatIsUnknown(parser, unknown.front(), help);
    // The parser would name all the commands, on a line of its own making.
    if (is_incomplete && !NamesBelow(parser).empty())
        return host::Error("cannot run " + words, "it needs a command behind it", help).what();
    return host::Error("cannot run " + words, error.what(), help).what();
}

} // namespace

// ---- all of it ----

CommandLine::CommandLine(const std::string &program, const std::string &description,
                         const char *version)
    : app_(std::make_unique<CLI::App>(description, program)), version_(version)
{
    app_->fallthrough();
}

CommandLine::~CommandLine() = default;

Parser CommandLine::Program()
{
    return {app_.get(), chosen_};
}

Parser CommandLine::Command(const std::string &words, const std::string &help)
{
    app_->require_subcommand(1);
    CLI::App *parser = app_.get();
    std::istringstream each(words);
    std::string word;
    while (each >> word)
        parser = Below(parser, word);
    parser->description(help);
    return {parser, chosen_};
}

void CommandLine::Group(const std::string &word, const std::string &help)
{
    groups_[word] = help;
}

CLI::App *CommandLine::Below(CLI::App *parser, const std::string &word)
{
    // Commands of one first word share its parser, wherever they are described.
    for (CLI::App *known : parser->get_subcommands(nullptr)) {
        if (known->get_name() == word)
            return known;
    }
    CLI::App *added = parser->add_subcommand(word);
    const auto group = groups_.find(word);
    if (group != groups_.end())
        // A group does nothing by itself: without a second word it is a mistake, and not a silent
        // success.
        added->description(group->second)->require_subcommand(1);
    return added;
}

bool CommandLine::Parse(int argc, const char *const *argv)
{
    // Behind all the options in the help.
    app_->set_version_flag("--version", app_->get_name() + " " + version_);
    try {
        app_->parse(argc, argv);
    } catch (const CLI::Success &asked) { // --help, --version
        app_->exit(asked);
        return false;
    } catch (const CLI::ParseError &error) {
        throw UsageError(WhatIsWrong(*app_, error));
    }
    return true;
}

} // namespace commandline
