#include "agent/rules/rules_file.h"

#include <algorithm>
#include <filesystem>

#include "agent/host/error.h"
#include "agent/rules/policy_text.h"
#include "agent/rules/yaml_text.h"
#include "agent/rules/yaml_tree.h"

namespace rules {

namespace {

using Kind = YamlNode::Kind;

constexpr char kVersion[] = "version";
constexpr char kEvents[] = "events";

// Of the rules file. A file may leave it out; another number is refused, because its names may mean
// something else.
constexpr char kFormVersion[] = "1";

} // namespace

Names FileKeys()
{
    Names names = {kVersion, kEvents};
    names.insert(names.end(), kSectionKeys.begin(), kSectionKeys.end());
    return names;
}

// ---- reading ----

namespace {

// Reads the trees of files that go together.
class RulesReader {
  public:
    explicit RulesReader(ParsedRules *parsed) : parsed_(parsed) {}

    void ReadFile(const YamlNode &file, NodeReader *nodes);

  private:
    void ReadVersion(const YamlNode &version, NodeReader *nodes);

    ParsedRules *parsed_;
    SeenEvents seen_events_;
    SeenNames seen_names_;
};

void RulesReader::ReadFile(const YamlNode &file, NodeReader *nodes)
{
    const std::string form = "begin with \"events:\" and list the events below it";
    // Not the same as no events: with --prune it would remove everything, and whoever wants that
    // says so.
    if (file.kind == Kind::kNothing) {
        nodes->issues().Add(0, "cannot use the file", "it is empty",
                            form + ", or write \"events: []\" for none");
        return;
    }
    if (file.kind != Kind::kMap) {
        if (file.kind != Kind::kFaulty)
            nodes->issues().Add(file.offset, "cannot use the file", KindText(file.kind), form);
        return;
    }
    const Values values = nodes->ReadMap(file, FileKeys(), "a rules file");
    if (values.contains(kVersion))
        ReadVersion(*values.at(kVersion), nodes);
    if (values.contains(kEvents)) {
        parsed_->has_events = true;
        ReadEvents(*values.at(kEvents), nodes, &seen_events_, &parsed_->rules);
    }
    for (const std::string &section : kSectionKeys) {
        if (!values.contains(section))
            continue;
        parsed_->sections_at.emplace_back(section, nodes->issues().At(values.at(section)->offset));
        ReadSection(section, *values.at(section), nodes, &seen_names_, &parsed_->sections);
    }
    const bool has_any = std::any_of(values.begin(), values.end(),
                                     [](const auto &value) { return value.first != kVersion; });
    if (!has_any)
        nodes->issues().Add(file.offset, "cannot use the file", "it has no \"events:\"",
                            form + ", or write \"events: []\" for none");
}

// A version is no reason to stop: what else is wrong is told of as well.
void RulesReader::ReadVersion(const YamlNode &version, NodeReader *nodes)
{
    const std::string next_step =
        std::string("write \"version: ") + kFormVersion + "\", or leave it out";
    const std::string *text = nodes->TextOf(version, "the version", next_step);
    if (text != nullptr && *text != kFormVersion)
        nodes->issues().Add(version.offset, "cannot use the version " + text::Shown(*text),
                            "this program does not know it", next_step);
}

void Append(std::vector<text::Issue> more, std::vector<text::Issue> *issues)
{
    issues->insert(issues->end(), std::make_move_iterator(more.begin()),
                   std::make_move_iterator(more.end()));
}

} // namespace

ParsedRules ParseRules(std::string_view bytes)
{
    return ParseRulesFiles({{"", std::string(bytes)}});
}

ParsedRules ParseRulesFiles(const std::vector<SourceText> &files)
{
    ParsedRules parsed;
    RulesReader reader(&parsed);
    Names names;
    for (const SourceText &file : files)
        names.push_back(file.name);
    for (size_t i = 0; i < files.size(); ++i) {
        text::DecodedText decoded = text::DecodeText(files[i].bytes, i);
        if (!decoded.issues.empty()) {
            Append(std::move(decoded.issues), &parsed.issues);
            continue;
        }
        text::IssueList issues(decoded.text, i);
        const YamlNode file = ParseYaml(decoded.text, &issues);
        NodeReader nodes(&issues, names);
        // After a fault in the YAML itself there is no tree: that the file is empty would be said on
        // top, and be wrong.
        // One of several may have nothing yet but comments.
        const bool is_empty = file.kind == Kind::kNothing;
        if (!is_empty || (issues.empty() && files.size() == 1))
            reader.ReadFile(file, &nodes);
        Append(issues.Take(), &parsed.issues);
    }
    return parsed;
}

std::vector<SourceText> ReadRulesFiles(const std::string &path)
{
    namespace fs = std::filesystem;
    std::error_code failed;
    if (path == "-" || !fs::is_directory(path, failed))
        return {{text::ShownName(path), text::ReadWholeFile(path, kMaxRulesFile)}};
    std::vector<std::string> names;
    for (auto entry = fs::directory_iterator(path, failed);
         !failed && entry != fs::directory_iterator(); entry.increment(failed)) {
        // As editors and packages leave them behind, and as others hide them: no rules.
        const std::string name = entry->path().filename();
        if (name.ends_with(".yaml") && !name.starts_with('.'))
            names.push_back(entry->path());
    }
    if (failed)
        throw host::Error("cannot read " + path, failed.message(),
                          "name a folder that you may read");
    if (names.empty())
        throw host::Error("cannot read " + path, "there is no file NAME.yaml in this folder",
                          "put one there, or name a file");
    std::sort(names.begin(), names.end());
    std::vector<SourceText> files;
    files.reserve(names.size());
    for (const std::string &name : names)
        files.push_back({name, text::ReadWholeFile(name, kMaxRulesFile)});
    return files;
}

// ---- writing ----

namespace {

// The ID is in quotes, or 0012 and 1E5 would be numbers to other readers of YAML.
std::string FormatEvent(const events::EventRecord &event)
{
    // Those that are derived from an expression are not written.
    const bool has_keywords = event.HasKeywords();
    std::string text = "  - source: " + Quoted(event.key.source) + "\n    id: \"" +
                       events::FormatEventId(event.key.id) + "\"" +
                       (has_keywords ? "\n    keywords: " + FormatKeywords(event.keywords) : "") +
                       "\n    report_count: " + std::to_string(event.report_count) +
                       "\n    hours: " + events::FormatHours(event.hours) + "\n";
    for (const ShownValue &value : ShownPolicy(event.policy))
        text += "    " + value.name + ": " + value.text + "\n";
    return text;
}

} // namespace

std::string FormatKeywords(const std::array<std::string, 3> &keywords)
{
    // Only those at the end: an empty one before others keeps their places.
    size_t count = keywords.size();
    while (count > 0 && keywords[count - 1].empty())
        --count;
    std::string text = "[";
    for (size_t k = 0; k < count; ++k)
        text += (k > 0 ? ", " : "") + Quoted(keywords[k]);
    return text + "]";
}

// The heading is for whoever opens the file without knowing what it is.
std::string FormatRules(const std::vector<events::EventRecord> &events, const RulesFileNotes &notes)
{
    std::string text;
    if (!notes.schema.empty())
        text += "# yaml-language-server: $schema=" + notes.schema + "\n";
    text += std::string(notes.has_sections ? "# What is set up on this host."
                                           : "# The events that are registered.") +
            " Change them here and hand the file back:\n"
            "#     syslogmon apply FILE --dry-run     shows what would change\n"
            "#     syslogmon apply FILE               changes it\n";
    for (const std::string &left_out : notes.left_out)
        text += Comment("Left out: " + left_out);
    text += "version: " + std::string(kFormVersion) + "\nevents:" + (events.empty() ? " []" : "") +
            "\n";
    for (const events::EventRecord &event : events)
        text += FormatEvent(event);
    return text;
}

} // namespace rules
