// The words of a command line: commands, options and what is wrong with them.
//
// The parser is a library whose header alone costs ten seconds of compiling, so nothing but parser.cc
// includes it: whoever has options describes them by the few functions below.
#ifndef AGENT_COMMANDLINE_PARSER_H
#define AGENT_COMMANDLINE_PARSER_H

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace commandline {

// The words on the command line are wrong. Its text is a whole message, with the help to look into.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What a command does, run after all words were understood. Returns the exit status.
using Action = std::function<int()>;
// Called with a word that was given; says what is wrong with it, or nothing.
using WordCheck = std::function<std::string(const std::string &word)>;

// One option, or one word in its place. A handle: it is valid as long as its command line.
class Option {
  public:
    explicit Option(CLI::Option *option) : option_(option) {}

    Option &Required();
    // What stands for its value in the help; the parser's own word unless given.
    Option &TypeName(const char *name);
    // The help shows the value that it has now.
    Option &ShowDefault();
    Option &OneOf(std::initializer_list<std::string> words);
    // For a number: 0 or more.
    Option &NotNegative();
    Option &Check(WordCheck check);
    // For a list: one word each time it is given. Else it takes all words up to the next option.
    Option &OneWordEach();
    // It may stand without its value, which is the empty word then.
    Option &MayLackItsValue();

  private:
    CLI::Option *option_;
};

// What one command takes and does. A handle, as Option.
class Parser {
  public:
    Parser(CLI::App *app, std::shared_ptr<Action> chosen) : app_(app), chosen_(std::move(chosen)) {}

    // Reads into the variable what is given under these names: "-n,--lines", or "file" for a word in its
    // place. The variable outlives the parsing; one that is not given keeps its value.
    Option Add(const std::string &names, std::string &value, const std::string &help);
    // An empty word is one, too.
    Option Add(const std::string &names, std::optional<std::string> &value,
               const std::string &help);
    Option Add(const std::string &names, std::vector<std::string> &value, const std::string &help);
    Option Add(const std::string &names, std::vector<int64_t> &value, const std::string &help);
    Option Add(const std::string &names, int64_t &value, const std::string &help);
    Option Add(const std::string &names, std::optional<int64_t> &value, const std::string &help);
    Option Add(const std::string &names, double &value, const std::string &help);
    Option AddFlag(const std::string &names, bool &value, const std::string &help);
    // Stands below the options in the help. The function is called when help is asked for, and not at
    // each start.
    void Footer(const std::string &text);
    void Footer(std::function<std::string()> text);
    // What is done when the words name this command.
    void Runs(Action action);
    // The same, where words that are right one by one can be wrong together: the check says what is
    // wrong, or nothing.
    void Runs(Action action, std::function<std::string()> check);

  private:
    CLI::App *app_;
    std::shared_ptr<Action> chosen_; // of the whole command line
};

// The command line of a program.
class CommandLine {
  public:
    CommandLine(const std::string &program, const std::string &description, const char *version);
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;
    ~CommandLine();

    // For options of the program itself, which may stand behind the words of a command, too.
    Parser Program();
    // For a command: "status", "event add". From the first one on the program needs one. What the first
    // word of several stands for is said by Group, before the commands of the group.
    Parser Command(const std::string &words, const std::string &help);
    void Group(const std::string &word, const std::string &help);

    // Reads the words. False when they asked for help or version, which is printed then: nothing else is
    // to be done. Throws UsageError.
    bool Parse(int argc, const char *const *argv);
    // Of the command that the words name. To be called once Parse returned true.
    [[nodiscard]] const Action &Chosen() const { return *chosen_; }

  private:
    // The parser of a word below another, made when it is not there yet.
    CLI::App *Below(CLI::App *parser, const std::string &word);

    std::unique_ptr<CLI::App> app_;
    const char *version_;
    std::map<std::string, std::string> groups_; // help by word
    std::shared_ptr<Action> chosen_ = std::make_shared<Action>();
};

} // namespace commandline

#endif // AGENT_COMMANDLINE_PARSER_H
