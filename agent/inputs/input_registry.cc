#include "agent/inputs/input_registry.h"

#include <algorithm>
#include <strings.h>

#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
#include "agent/inputs/input_store.h"
#include "agent/text/suggestion.h"
#include "platform/registry.h"

namespace inputs {

namespace {

constexpr char kKind[] = "Kind";
constexpr size_t kMaxName = 64;

std::string InputsPath()
{
    return std::string(host::kAgentKey) + "\\INPUTS";
}

std::string Listed(const std::vector<std::string> &names)
{
    std::string list;
    for (const std::string &name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

[[noreturn]] void Refuse(const std::string &option, const std::string &value,
                         const std::string &accepted)
{
    throw host::Error("cannot use " + option + "=" + value, "the value is not accepted",
                      "use " + accepted);
}

// The cursor behind which an input that is added now begins.
std::string BeginOfJournal(const InputConfig &input)
{
    const JournalOptions options = JournalOptionsOf(input, host::kDefaultLogCharset, "");
    return options.from_start ? "" : JournalReader::NewestCursor(options);
}

bool IsOtherJournal(const InputConfig &before, const InputConfig &input)
{
    return input.kind == kJournalKind && (before.Value("namespace") != input.Value("namespace") ||
                                          before.Value("directory") != input.Value("directory"));
}

std::vector<std::string> LinesOf(const std::string &text)
{
    std::vector<std::string> lines;
    size_t begin = 0;
    while (begin < text.size()) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

} // namespace

void CheckInputName(const std::string &name)
{
    const bool ok = !name.empty() && name.size() <= kMaxName &&
                    name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                           "0123456789._-") == std::string::npos;
    if (!ok)
        throw host::Error("cannot use the name \"" + name.substr(0, kMaxName) + "\" for an input",
                          "it is empty, too long, or holds other characters than those of names",
                          "use 1 to 64 letters, digits, \".\", \"_\" and \"-\"");
}

void CheckInputValue(const std::string &option, const std::string &value)
{
    if (value.empty() || value.find('\n') != std::string::npos)
        Refuse(option, value, "a text of one line");
    if (option == "path" && value[0] != '/')
        Refuse(option, value, "a path that begins with /");
    if (option == "format" && !StampFormatOf(value))
        Refuse(option, value, "one of " + StampFormatNames());
    if (option == "join" && value != "indentation" && value != "no")
        Refuse(option, value, "indentation or no");
    if (option == "begin" && value != "now" && value != "start")
        Refuse(option, value, "now or start");
    if (option == "repeats" && value != "yes" && value != "no")
        Refuse(option, value, "yes or no");
    if (option == "priority" && !PriorityOf(value))
        Refuse(option, value, "emerg, alert, crit, err, warning, notice, info or debug");
    if (option == "match" && (value.find('=') == std::string::npos || value[0] == '='))
        Refuse(option, value, "FIELD=VALUE");
}

const std::vector<InputOption> &AllInputOptions()
{
    static const std::vector<InputOption> options = {
        {"path", kFilesKind, true, "files to follow, a path with *, ? and [] as of a shell"},
        {"exclude", kFilesKind, true,
         "files to leave alone, with what was rotated of them: a path, or a name in any folder"},
        {"format", kFilesKind, false,
         "of the time stamps: auto, traditional, rfc3339, rfc5424, epoch or none"},
        {"encoding", kFilesKind, false, "character set of the files, as iconv names it"},
        {"join", kFilesKind, false,
         "indentation: a line that begins with a blank goes on with the one before"},
        {"begins-with", kFilesKind, false,
         "expression: a line in which it finds nothing goes on with the one before"},
        {"identifier", kFilesKind, false, "program of lines that name none"},
        {"repeats", kFilesKind, false,
         "yes, or no: \"message repeated 29 times: [ text]\" counts once, whoever wrote it"},
        {"begin", kFilesKind, false, "now, or start: also what is there when the input is added"},
        {"match", kJournalKind, true, "FIELD=VALUE that entries must have"},
        {"priority", kJournalKind, false, "this priority and more urgent ones"},
        {"namespace", kJournalKind, false, "journal namespace, instead of the host's own"},
        {"directory", kJournalKind, false, "folder with journal files, instead of this host's"},
        {"begin", kJournalKind, false, "now, or start: also what is there when the input is added"},
    };
    return options;
}

const InputOption &FindOption(const std::string &kind, const std::string &name)
{
    std::vector<std::string> known;
    for (const InputOption &option : AllInputOptions()) {
        if (kind != option.kind)
            continue;
        if (name == option.name)
            return option;
        known.emplace_back(option.name);
    }
    throw host::Error("cannot use the option \"" + name + "\"",
                      "an input of the kind " + kind + " has none of that name",
                      text::Suggestion(name, known) + "use one of " + Listed(known));
}

std::string InputConfig::Value(const std::string &option) const
{
    const auto found = options.find(option);
    return found == options.end() || found->second.empty() ? "" : found->second.front();
}

std::vector<std::string> InputConfig::Values(const std::string &option) const
{
    const auto found = options.find(option);
    return found == options.end() ? std::vector<std::string>{} : found->second;
}

void CheckInputKind(const std::string &kind)
{
    if (kind != kFilesKind && kind != kJournalKind)
        throw host::Error(
            "cannot add an input of the kind \"" + kind + "\"", "there is no such kind",
            text::Suggestion(kind, {kFilesKind, kJournalKind}) + "use files or journal");
}

void CheckInput(const InputConfig &input)
{
    CheckInputName(input.name);
    CheckInputKind(input.kind);
    for (const auto &[name, values] : input.options) {
        if (!FindOption(input.kind, name).is_repeated && values.size() > 1)
            throw host::Error("cannot use " + name + " twice", "it has one value", "give it once");
        for (const std::string &value : values)
            CheckInputValue(name, value);
    }
    if (input.kind == kFilesKind && input.Values("path").empty())
        throw host::Error("cannot add the input " + input.name, "it names no files",
                          "give path=/var/log/NAME.log");
    if (input.kind == kFilesKind) // refuses an expression or an encoding that cannot be used
        const FileFollower check(FollowOptionsOf(input, host::kDefaultLogCharset), {});
}

void CheckNewInput(const InputConfig &input)
{
    CheckInput(input);
    if (strcasecmp(input.name.c_str(), kCustomerInput) == 0)
        throw host::Error("cannot add an input of the name " + input.name,
                          "it is that of the customer file",
                          "use syslogmon set customer-file PATH, or choose another name");
}

FollowOptions FollowOptionsOf(const InputConfig &input, const std::string &log_charset)
{
    FollowOptions options;
    options.id = input.key;
    options.name = input.name;
    options.rules.paths = input.Values("path");
    options.rules.excluded = input.Values("exclude");
    options.form.format = StampFormatOf(input.Value("format")).value_or(StampFormat::kAuto);
    options.form.host = host::HostName();
    options.form.identifier = input.Value("identifier");
    options.form.folds_repeats = input.Value("repeats") != "no";
    options.joining.by_indentation = input.Value("join") == "indentation";
    options.joining.begins_with = input.Value("begins-with");
    options.encoding = input.Value("encoding");
    options.log_charset = log_charset;
    options.from_start = input.Value("begin") == "start";
    return options;
}

JournalOptions JournalOptionsOf(const InputConfig &input, const std::string &log_charset,
                                const std::string &own_folder)
{
    JournalOptions options;
    options.id = input.key;
    options.name = input.name;
    options.matches = input.Values("match");
    options.priority = PriorityOf(input.Value("priority"));
    options.journal_namespace = input.Value("namespace");
    options.directory = input.Value("directory");
    options.charset = log_charset;
    options.own_folder = own_folder;
    options.from_start = input.Value("begin") == "start";
    return options;
}

std::vector<InputConfig> InputRegistry::ReadAll()
{
    std::vector<InputConfig> inputs;
    const auto parent = registry_.Find(host::kRootKey, InputsPath());
    if (!parent)
        return inputs;
    for (const std::string &name : registry_.SubKeys(*parent)) {
        const auto key = registry_.Find(*parent, name);
        if (!key)
            continue; // it has gone in between
        InputConfig input;
        input.key = *key;
        input.name = name;
        for (const host::RegValue &value : registry_.Values(*key)) {
            if (strcasecmp(value.name.c_str(), kKind) == 0)
                input.kind = TextOf(value);
            else
                input.options[value.name] = LinesOf(TextOf(value));
        }
        inputs.push_back(std::move(input));
    }
    return inputs;
}

InputConfig InputRegistry::Find(const std::string &name)
{
    std::vector<std::string> known;
    for (InputConfig &input : ReadAll()) {
        if (strcasecmp(input.name.c_str(), name.c_str()) == 0)
            return input;
        known.push_back(input.name);
    }
    throw host::Error("cannot find the input \"" + name + "\"", "there is none of that name",
                      known.empty()
                          ? "add one with syslogmon input add"
                          : text::Suggestion(name, known) + "use one of " + Listed(known));
}

void InputRegistry::Write(const InputConfig &input)
{
    auto set = [&](const std::string &name, const std::string &text) {
        registry_.Set(input.key, name, REG_SZ, std::string_view(text.c_str(), text.size() + 1));
    };
    for (const host::RegValue &value : registry_.Values(input.key)) {
        if (strcasecmp(value.name.c_str(), kKind) != 0 && !input.options.contains(value.name))
            registry_.DeleteValue(input.key, value.name);
    }
    set(kKind, input.kind);
    for (const auto &[name, values] : input.options) {
        std::string text;
        for (const std::string &value : values)
            text += (text.empty() ? "" : "\n") + value;
        set(name, text);
    }
}

InputId InputRegistry::Create(InputConfig input)
{
    input.key = registry_.Create(host::kRootKey, InputsPath() + "\\" + input.name);
    Write(input);
    return input.key;
}

InputConfig InputRegistry::Add(InputConfig input, const std::string &log_charset)
{
    CheckNewInput(input);
    host::Transaction transaction(store_); // two that add one name do so one after the other
    for (const InputConfig &other : ReadAll()) {
        if (strcasecmp(other.name.c_str(), input.name.c_str()) == 0)
            throw host::Error("cannot add the input " + input.name,
                              "there is one of that name already",
                              "choose another name, or change that one with syslogmon input set");
    }
    input.key = Create(input);
    Batch places;
    if (input.kind == kFilesKind) {
        FileFollower follower(FollowOptionsOf(input, log_charset), {});
        follower.Begin();
        follower.StorePlaces(&places);
    } else {
        places.places[{input.key, 0}] = BeginOfJournal(input);
    }
    WritePlaces(store_, places);
    transaction.Commit();
    return input;
}

void InputRegistry::BeginNewFiles(const InputConfig &before, const InputConfig &input)
{
    const auto stored =
        store_.Read([&](host::Database &database) { return ReadPlaces(database, input.key); });
    const PathRules earlier = FollowOptionsOf(before, host::kDefaultLogCharset).rules;
    const FollowOptions options = FollowOptionsOf(input, host::kDefaultLogCharset);
    if (stored.empty() || earlier == options.rules)
        return;
    FileFollower follower(options, stored);
    follower.BeginWhatIsNew(earlier);
    Batch places;
    follower.StorePlaces(&places);
    WritePlaces(store_, places);
}

// Under another key: who reads the other journal still, until he is told, stores his place under the one that is gone.
InputId InputRegistry::CreateAnew(const InputConfig &input)
{
    registry_.DeleteKey(input.key);
    const InputId key = Create(input);
    Batch places;
    places.places[{key, 0}] = BeginOfJournal(input);
    WritePlaces(store_, places);
    return key;
}

void InputRegistry::Change(InputConfig input)
{
    CheckInput(input);
    host::Transaction transaction(store_);
    const InputConfig before = Find(input.name);
    if (IsOtherJournal(before, input)) {
        input.key = CreateAnew(input);
    } else {
        Write(input);
        if (input.kind == kFilesKind)
            BeginNewFiles(before, input);
    }
    transaction.Commit();
}

void InputRegistry::Remove(const std::string &name)
{
    const InputConfig input = Find(name);
    host::Transaction transaction(store_);
    registry_.DeleteKey(input.key);
    const auto agent = registry_.Find(host::kRootKey, host::kAgentKey);
    if (input.name == kCustomerInput && agent)
        registry_.DeleteValue(*agent, host::kCustomerFile);
    transaction.Commit();
}

} // namespace inputs
