// Reads as much of both languages of rsyslog as it takes to see how a log is written: settings on a
// line of their own ($RepeatedMsgReduction on), objects (action(...), include(...)), and file names
// that stand alone, which are actions of the old form. The rest is passed over word by word.
#include "agent/cli/rsyslog_config.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <glob.h>
#include <iterator>
#include <map>
#include <string_view>

namespace cli {

namespace {

namespace fs = std::filesystem;

// Files in files. Those that include each other end here.
constexpr int kMaxDepth = 16;

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return text;
}

bool IsSpace(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

bool IsOfAName(char c)
{
    return isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '_';
}

// ---- words and strings of a file ----

// Steps through the text of one file and counts its lines. Nothing can be wrong for it: what ends
// too early ends at the end of the text.
class Cursor {
  public:
    explicit Cursor(std::string text) : text_(std::move(text)) {}

    [[nodiscard]] bool AtEnd() const { return at_ >= text_.size(); }
    [[nodiscard]] char Now() const { return text_[at_]; }
    [[nodiscard]] int line() const { return line_; }
    void Step()
    {
        line_ += text_[at_] == '\n' ? 1 : 0;
        ++at_;
    }
    // To the next character that is no blank, line end or comment.
    void SkipSpace()
    {
        while (!AtEnd()) {
            if (Now() == '#')
                SkipTo("\n");
            else if (Begins("/*"))
                SkipTo("*/");
            else if (!IsSpace(Now()))
                return;
            else
                Step();
        }
    }
    // Up to a blank, a quote or a bracket.
    std::string Word()
    {
        const size_t begin = at_;
        while (!AtEnd() && !IsSpace(Now()) &&
               std::string_view("\"'(){}").find(Now()) == std::string_view::npos)
            Step();
        return text_.substr(begin, at_ - begin);
    }
    // Of a parameter.
    std::string Name()
    {
        const size_t begin = at_;
        while (!AtEnd() && IsOfAName(Now()))
            Step();
        return text_.substr(begin, at_ - begin);
    }
    // The next word of this line; empty: there is none.
    std::string WordOfLine()
    {
        while (!AtEnd() && (Now() == ' ' || Now() == '\t'))
            Step();
        return AtEnd() || Now() == '#' ? "" : Word();
    }
    // A string from quote to quote, without them.
    std::string Quoted()
    {
        const char quote = Now();
        std::string value;
        for (Step(); !AtEnd() && Now() != quote; Step()) {
            // An escaped quote does not end it. What other escapes stand for does not matter to any
            // name or value that is looked for.
            if (Now() == '\\' && at_ + 1 < text_.size())
                Step();
            value += Now();
        }
        if (!AtEnd())
            Step();
        return value;
    }

  private:
    [[nodiscard]] bool Begins(std::string_view part) const
    {
        return text_.compare(at_, part.size(), part) == 0;
    }
    // Behind the next one.
    void SkipTo(std::string_view end)
    {
        while (!AtEnd() && !Begins(end))
            Step();
        for (size_t i = 0; i < end.size() && !AtEnd(); ++i)
            Step();
    }

    std::string text_;
    size_t at_ = 0;
    int line_ = 1;
};

using Parameters = std::map<std::string, std::string>; // names in small letters

// From an opening bracket to the closing one: name="value" name="value".
Parameters ReadParameters(Cursor *cursor)
{
    Parameters parameters;
    std::string name;
    // The opening bracket.
    cursor->Step();
    for (cursor->SkipSpace(); !cursor->AtEnd() && cursor->Now() != ')'; cursor->SkipSpace()) {
        if (cursor->Now() == '"')
            parameters[name] = cursor->Quoted();
        // What stands between name and value, = and blanks, is stepped over below.
        else if (IsOfAName(cursor->Now()))
            // rsyslog takes the names of parameters in any case.
            name = Lower(cursor->Name());
        else
            cursor->Step();
    }
    return parameters;
}

// ---- what it says ----

// The settings on a line of their own. Each holds until the next one: the first for all of rsyslog,
// and so the last one counts; the others for the actions of the old form behind them, and for no
// action(...).
enum Switch { kReduction, kAsynchronous, kFlush, kSwitches };
// The name as its manual writes it, and the two words that rsyslog takes.
struct SwitchRow {
    const char *name;
    const char *harmful;
    const char *harmless;
};
constexpr SwitchRow kSwitchRows[kSwitches] = {
    {"$RepeatedMsgReduction", "on", "off"},
    {"$OMFileAsyncWriting", "on", "off"},
    {"$OMFileFlushOnTXEnd", "off", "on"},
};

class ConfigReader {
  public:
    ConfigReader(fs::path root, const std::vector<fs::path> &logs, RsyslogConfig *config)
        : root_(std::move(root)), logs_(logs), config_(config)
    {
    }
    // `path` as the host calls it; it is read below the root.
    void ReadFile(const fs::path &path, int depth);
    [[nodiscard]] const std::optional<RsyslogSetting> &reduction() const
    {
        return set_[kReduction];
    }

  private:
    void ReadStatements(Cursor *cursor, const fs::path &path, int depth);
    // `place` is where the object begins; it is filled in and noted for each setting that does
    // harm.
    void ReadObject(const std::string &name, Cursor *cursor, RsyslogSetting place, int depth);
    bool ReadSetting(const std::string &name, Cursor *cursor, RsyslogSetting place, int depth);
    void ReadAction(const Parameters &parameters, const RsyslogSetting &place);
    void ReadOldAction(const std::string &word);
    // A pattern that matches nothing includes nothing, and is no fault.
    void Include(const std::string &pattern, int depth);
    [[nodiscard]] bool IsWatched(const fs::path &log) const
    {
        return std::find(logs_.begin(), logs_.end(), log.lexically_normal()) != logs_.end();
    }

    fs::path root_;
    const std::vector<fs::path> &logs_;
    RsyslogConfig *config_;
    std::array<std::optional<RsyslogSetting>, kSwitches> set_; // where it is set to harm
};

void ConfigReader::ReadFile(const fs::path &path, int depth)
{
    const fs::path file = root_ / path.relative_path();
    std::error_code failed;
    // A file that is not there is none of the configuration; a pipe would be waited for.
    if (depth > kMaxDepth || !fs::is_regular_file(file, failed))
        return;
    std::ifstream stream(file, std::ios::binary);
    // It is there and may not be read: that has to be told of.
    if (!stream) {
        config_->unreadable.push_back(path);
        return;
    }
    Cursor cursor(std::string(std::istreambuf_iterator<char>(stream), {}));
    ReadStatements(&cursor, path, depth);
}

void ConfigReader::ReadStatements(Cursor *cursor, const fs::path &path, int depth)
{
    for (cursor->SkipSpace(); !cursor->AtEnd(); cursor->SkipSpace()) {
        // A string in an expression: it may hold anything, and is no action.
        if (cursor->Now() == '"' || cursor->Now() == '\'') {
            cursor->Quoted();
            continue;
        }
        // Taken before the word, so an object that goes over several lines has the line of its
        // head.
        const RsyslogSetting place = {path, cursor->line(), "", ""};
        const std::string word = cursor->Word();
        const std::string name = Lower(word);
        if (word.empty())
            cursor->Step(); // a bracket
        else if (name == "action" || name == "include")
            ReadObject(name, cursor, place, depth);
        else if (word[0] != '$' || !ReadSetting(name, cursor, place, depth))
            ReadOldAction(word);
    }
}

void ConfigReader::ReadObject(const std::string &name, Cursor *cursor, RsyslogSetting place,
                              int depth)
{
    cursor->SkipSpace();
    if (cursor->AtEnd() || cursor->Now() != '(')
        return;
    Parameters parameters = ReadParameters(cursor);
    place.log = parameters["file"];
    // Its parameter has the same name as that of an action.
    if (name == "include")
        return Include(place.log, depth);
    // Other modules have a parameter "file" of another meaning.
    if (parameters["type"] != "omfile" || !IsWatched(place.log))
        return;
    for (const auto &[setting, harmful] :
         {std::pair("asyncWriting", "on"), std::pair("flushOnTXEnd", "off")}) {
        place.text = setting + ("=\"" + std::string(harmful) + "\"");
        if (parameters[Lower(setting)] == harmful)
            config_->buffered.push_back(place);
    }
}

// False: it is another setting, or a property in an expression.
bool ConfigReader::ReadSetting(const std::string &name, Cursor *cursor, RsyslogSetting place,
                               int depth)
{
    if (name == "$includeconfig") {
        Include(cursor->WordOfLine(), depth);
        return true;
    }
    const auto *row = std::find_if(std::begin(kSwitchRows), std::end(kSwitchRows),
                                   [&](const SwitchRow &r) { return Lower(r.name) == name; });
    if (row == std::end(kSwitchRows))
        return false;
    // Any other word is refused by rsyslog, and what was set before goes on.
    const std::string value = cursor->WordOfLine();
    auto &setting = set_[static_cast<size_t>(row - std::begin(kSwitchRows))];
    place.text = std::string(row->name) + " " + row->harmful;
    if (value == row->harmful)
        setting = place;
    else if (value == row->harmless)
        setting.reset();
    return true;
}

// /var/log/messages, -/var/log/messages;Template, :omfile:/var/log/messages
void ConfigReader::ReadOldAction(const std::string &word)
{
    constexpr std::string_view kModule = ":omfile:";
    std::string name = word.substr(0, word.find(';'));
    if (name.rfind(kModule, 0) == 0)
        name.erase(0, kModule.size());
    if (!name.empty() && name[0] == '-')
        name.erase(0, 1);
    // Most words that get here are no actions at all; none of them is the path of a watched log by
    // chance.
    if (!IsWatched(name))
        return;
    // The place is that of the setting: there it has to be mended.
    for (const Switch buffering : {kAsynchronous, kFlush}) {
        if (const auto &setting = set_[buffering])
            config_->buffered.push_back({setting->file, setting->line, setting->text, name});
    }
}

void ConfigReader::Include(const std::string &pattern, int depth)
{
    if (pattern.empty())
        return;
    const fs::path files = root_ / fs::path(pattern).relative_path();
    // A folder stands for all that is in it.
    const std::string all = files.string() + (pattern.back() == '/' ? "*" : "");
    glob_t found{};
    // Sorted: the order decides which setting is the last one.
    if (glob(all.c_str(), 0, nullptr, &found) == 0) {
        for (size_t i = 0; i < found.gl_pathc; ++i)
            ReadFile("/" / fs::path(found.gl_pathv[i]).lexically_relative(root_), depth + 1);
    }
    globfree(&found);
}

} // namespace

RsyslogConfig ReadRsyslogConfig(const fs::path &root, const std::vector<fs::path> &logs)
{
    const fs::path main = "/etc/rsyslog.conf";
    RsyslogConfig config;
    std::error_code failed;
    config.is_there = fs::exists(root / main.relative_path(), failed);
    ConfigReader reader(root, logs, &config);
    reader.ReadFile(main, 0);
    // What holds at the end of all files.
    config.reduction = reader.reduction();
    return config;
}

} // namespace cli
