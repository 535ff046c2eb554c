#include "agent/sinks/sink.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/stat.h>

#include "agent/host/error.h"
#include "agent/sinks/delivery_store.h"
#include "agent/text/suggestion.h"

namespace sinks {

namespace {

// A wrong name, such as that of a log, shows here and not as a request of many megabytes.
constexpr size_t kMaxSecret = 64 * size_t{1024}; // bytes of a secret file
// So many bytes of a secret stand in no other text by accident.
constexpr size_t kNoAccident = 8;
// In place of a secret that a trial cannot read: a URL, and long enough for a key.
constexpr char kUnread[] = "https://unread.invalid/";

int64_t SteadyMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// How many bytes at the end of the text are the beginning of the secret; 0 when so few may be an accident.
size_t CutOff(const std::string &text, const std::string &secret)
{
    const std::string_view end(text);
    for (size_t size = std::min(secret.size(), end.size()); size >= kNoAccident; --size) {
        if (secret.starts_with(end.substr(end.size() - size)))
            return size;
    }
    return 0;
}

// "header." stands for header.X-Team and all the like.
bool IsPrefix(const SinkOption &option)
{
    return option.name[strlen(option.name) - 1] == '.';
}

bool Matches(const SinkOption &option, const std::string &name)
{
    if (IsPrefix(option))
        return name.starts_with(option.name) && name.size() > strlen(option.name);
    return name == option.name;
}

std::string OptionNames(const SinkKind &kind)
{
    std::string names;
    for (const SinkOption &option : kind.options)
        names += (names.empty() ? "" : ", ") + std::string(option.name) +
                 (IsPrefix(option) ? "NAME" : "") + "=" + option.form;
    return names.empty() ? "nothing: it has no options" : names;
}

} // namespace

Outcome AllTaken(std::span<const Message> messages, std::string answer)
{
    return {Outcome::Result::kTaken, messages.size(), std::move(answer), {}};
}

Outcome Failed(std::string why, size_t taken)
{
    return {Outcome::Result::kFailed, taken, std::move(why), {}};
}

Outcome Refused(std::string why, size_t taken)
{
    return {Outcome::Result::kRefused, taken, std::move(why), {}};
}

int64_t Sink::LastTaken(host::Database &, const Delivery &noted)
{
    return noted.last_id;
}

// One number, so that no lock is needed: the sink's thread asks often.
void Interrupt::Raise(std::chrono::milliseconds grace)
{
    deadline_ms_ = SteadyMs() + grace.count();
}

bool Interrupt::IsRaised() const
{
    return SteadyMs() >= deadline_ms_;
}

std::string Secrets::Read(const std::string &path)
{
    // Not looked at for its rights here: SecretWarnings does, and warns, because the alert is worth
    // more.
    std::ifstream file(path, std::ios::binary);
    if (!file && Excuses(path, errno))
        return kUnread;
    if (!file)
        throw host::Error("cannot read the secret in " + path, strerror(errno),
                          "create the file, readable by the daemon's user only");
    std::string secret(kMaxSecret + 1, '\0');
    file.read(secret.data(), static_cast<std::streamsize>(secret.size()));
    secret.resize(static_cast<size_t>(file.gcount()));
    // The first line alone: an editor adds a line end, and Windows two characters.
    secret.erase(std::min(secret.find_first_of("\r\n"), secret.size()));
    if (secret.empty() || secret.size() > kMaxSecret || secret.find('\0') != std::string::npos)
        throw host::Error("cannot use the secret in " + path,
                          "its first line is empty, too long, or holds a zero byte",
                          "write the secret into the first line");
    Add(secret);
    return secret;
}

// Known by its text, so one that is read from two files is hidden once.
void Secrets::Add(const std::string &secret)
{
    if (std::find(known_.begin(), known_.end(), secret) != known_.end())
        return;
    const auto shorter = std::find_if(known_.begin(), known_.end(), [&](const std::string &known) {
        return known.size() < secret.size();
    });
    known_.insert(shorter, secret);
}

void Secrets::AddPart(const std::string &part, const char *separators)
{
    if (part.size() > 1) // the path "/" is in every URL
        Add(part);
    for (size_t begin = 0; begin < part.size();) {
        const size_t end = std::min(part.find_first_of(separators, begin), part.size());
        if (end - begin >= kNoAccident)
            Add(part.substr(begin, end - begin));
        begin = end + 1;
    }
}

bool Secrets::Excuses(const std::string &path, int failure)
{
    if (unread_ == nullptr || (failure != EACCES && failure != ENOENT))
        return false;
    unread_->push_back(
        "the secret in " + path + " cannot be read here (" + strerror(failure) +
        "), so it was not looked at; apply refuses a sink whose secret it cannot read");
    return true;
}

std::string Secrets::Hide(std::string text) const
{
    constexpr char kHidden[] = "***";
    for (const std::string &secret : known_) {
        for (size_t at = text.find(secret); at != std::string::npos;
             // On behind the stars, so that a secret of stars comes to an end.
             at = text.find(secret, at + strlen(kHidden)))
            text.replace(at, secret.size(), kHidden);
        if (const size_t size = CutOff(text, secret); size > 0)
            text.replace(text.size() - size, size, kHidden);
    }
    return text;
}

std::string SinkConfig::Get(const std::string &option) const
{
    // As it was given, even when that is empty; then the standard one.
    const auto given = options.find(option);
    if (given != options.end())
        return given->second;
    for (const SinkOption &known : kind->options) {
        if (option == known.name)
            return known.standard != nullptr ? known.standard : "";
    }
    return {};
}

int64_t SinkConfig::Number(const std::string &option) const
{
    return strtoll(Get(option).c_str(), nullptr, 10);
}

std::map<std::string, std::string> SinkConfig::All(const std::string &prefix) const
{
    std::map<std::string, std::string> found;
    for (const auto &[option, value] : options) {
        if (option.starts_with(prefix))
            found[option.substr(prefix.size())] = value;
    }
    return found;
}

std::string SinkConfig::WrittenFile() const
{
    return kind != nullptr && kind->written != nullptr ? Get(kind->written) : "";
}

std::vector<std::string> SinkConfig::Peers() const
{
    return kind->peers != nullptr ? kind->peers(*this) : std::vector<std::string>{""};
}

const SinkKind &FindKind(const std::string &name)
{
    std::string known;
    std::vector<std::string> names;
    for (const SinkKind &kind : AllKinds()) {
        if (name == kind.name)
            return kind;
        known += (known.empty() ? "" : ", ") + std::string(kind.name);
        names.emplace_back(kind.name);
    }
    throw host::Error("cannot use the kind of sink \"" + name + "\"", "there is none of that name",
                      text::Suggestion(name, names) + "use one of " + known);
}

const SinkOption &FindOption(const SinkKind &kind, const std::string &name)
{
    std::vector<std::string> names;
    for (const SinkOption &option : kind.options) {
        if (Matches(option, name))
            return option;
        names.emplace_back(option.name);
    }
    throw host::Error("cannot use the option \"" + name + "\"",
                      std::string("a sink of kind ") + kind.name + " has none of that name",
                      text::Suggestion(name, names) + "it takes " + OptionNames(kind));
}

void CheckOptions(const SinkConfig &config)
{
    // Option by option, then whether all are there: the first is what a person sees first.
    for (const auto &[name, value] : config.options) {
        const std::string allowed = FindOption(*config.kind, name).check(value);
        if (!allowed.empty())
            throw host::Error("cannot set " + name + " to \"" + value + "\"",
                              "the value is not accepted", "use " + allowed);
    }
    for (const SinkOption &option : config.kind->options) {
        if (option.standard == nullptr && !config.options.contains(option.name))
            // What no sink is opened of is a work of its own: "cannot collect".
            throw host::Error(std::string("cannot ") +
                                  (config.kind->open != nullptr ? "make a sink of kind " : "") +
                                  config.kind->name,
                              std::string("it has no ") + option.name,
                              std::string("add ") + option.name + "=" + option.form);
    }
}

// Whether they go together comes last.
void CheckSink(const SinkConfig &config, std::vector<std::string> *unread)
{
    CheckOptions(config);
    std::vector<std::string> notes;
    for (const std::string &peer : config.Peers()) {
        notes.clear(); // those of one stand for all: each reads the same files
        Secrets secrets = unread != nullptr ? Secrets(&notes) : Secrets();
        // Made and thrown away: a kind checks here what no single option shows. It connects to
        // nothing.
        config.kind->open(config, peer, secrets);
    }
    if (unread != nullptr)
        unread->insert(unread->end(), notes.begin(), notes.end());
}

std::vector<std::string> SecretWarnings(const SinkConfig &config)
{
    std::vector<std::string> warnings;
    for (const auto &[name, path] : config.options) {
        if (!FindOption(*config.kind, name).is_secret_file)
            continue;
        struct stat status {};
        // A warning, not an error: the file may come later, or be readable for the daemon alone.
        if (stat(path.c_str(), &status) != 0)
            warnings.push_back("the file " + path + " cannot be read: " + strerror(errno));
        else if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
            warnings.push_back("the secret in " + path +
                               " is open to others than its owner; run chmod 600 " + path);
    }
    if (config.kind->warnings != nullptr) {
        for (std::string &warning : config.kind->warnings(config))
            warnings.push_back(std::move(warning));
    }
    return warnings;
}

} // namespace sinks
