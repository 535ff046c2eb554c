#include "agent/rules/sections.h"

#include <algorithm>

#include "agent/events/events.h"
#include "agent/host/error.h"
#include "agent/sinks/sink_registry.h"
#include "agent/text/times.h"

namespace rules {

using Kind = YamlNode::Kind;

const Names kSectionKeys = {"settings", "inputs", "sinks", "silences"};
const Names kSilenceKeys = {"source", "host",  "event",   "labels",  "every",
                            "from",   "until", "summary", "comment", "author"};

namespace {

constexpr char kSinks[] = "sinks";
constexpr char kInputs[] = "inputs";
constexpr char kSilences[] = "silences";

// What `check` throws becomes an issue at this place.
template <typename Check>
bool Passes(size_t offset, NodeReader *nodes, const Check &check)
{
    try {
        check();
    } catch (const host::Error &error) {
        nodes->issues().Add(offset, error.what());
        return false;
    }
    return true;
}

// An option of a sink or an input, by the nodes of its name and its value.
struct OptionNodes {
    const YamlNode *name;
    const YamlNode *value;
};

// A sink or an input as it is written: a mapping of name, kind and options.
struct NamedEntry {
    std::string name;
    std::string kind;
    size_t kind_offset = 0;
    std::vector<OptionNodes> options;
    bool is_good = true; // its name and kind can be used; its options are looked at in any case
};

int64_t MomentOf(const std::string &text)
{
    const auto moment = text::ParseDate(text);
    if (!moment || *moment <= 0 || *moment > UINT32_MAX)
        throw host::Error("cannot use the time " + text::Shown(text), "its form is not known",
                          "write it as \"2026-12-24 18:00\", or 2026-12-24T17:00:00Z");
    return *moment;
}

// Reads the sections of one file.
class SectionReader {
  public:
    SectionReader(NodeReader *nodes, SeenNames *seen, Sections *sections)
        : nodes_(nodes), seen_(seen), sections_(sections)
    {
    }

    void ReadSinks(const YamlNode &node);
    void ReadInputs(const YamlNode &node);
    void ReadSilences(const YamlNode &node);
    void ReadSettings(const YamlNode &node);

  private:
    // The entries of a list; none, and an issue, when it is no list.
    const std::vector<YamlNode> &Entries(const YamlNode &node, const char *section,
                                         const std::string &form);
    // Nothing, and issues, when it has no kind by which its options could be looked at.
    std::optional<NamedEntry> ReadNamed(const YamlNode &node, const char *what, const char *section,
                                        void (*check_name)(const std::string &));
    // False, and an issue, when one of this name stands already.
    bool IsFirst(const std::string &section, const std::string &name, const YamlNode &node);
    bool ReadSinkOption(const OptionNodes &option, sinks::SinkConfig *sink);
    bool ReadInputOption(const OptionNodes &option, inputs::InputConfig *input);
    void ReadSilence(const YamlNode &node);
    bool ReadSilenceValue(const std::string &name, const YamlNode &node, policy::Silence *silence);

    NodeReader *nodes_;
    SeenNames *seen_;
    Sections *sections_;
};

const std::vector<YamlNode> &SectionReader::Entries(const YamlNode &node, const char *section,
                                                    const std::string &form)
{
    static const std::vector<YamlNode> none;
    if (node.kind == Kind::kList)
        return node.children;
    if (node.kind != Kind::kFaulty)
        nodes_->issues().Add(node.offset, std::string("cannot use \"") + section + "\"",
                             KindText(node.kind),
                             form + ", or write \"" + section + ": []\" for none");
    return none;
}

bool SectionReader::IsFirst(const std::string &section, const std::string &name,
                            const YamlNode &node)
{
    std::string comparable = name; // names in the registry have no case
    std::transform(comparable.begin(), comparable.end(), comparable.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    const auto [twin, is_first] =
        seen_->emplace(std::pair(section, comparable), nodes_->issues().At(node.offset));
    if (!is_first)
        nodes_->issues().Add(node.offset, "cannot use " + text::Shown(name) + " of " + section,
                             "it stands already in " + nodes_->PlaceOf(twin->second),
                             "write it once");
    return is_first;
}

std::optional<NamedEntry> SectionReader::ReadNamed(const YamlNode &node, const char *what,
                                                   const char *section,
                                                   void (*check_name)(const std::string &))
{
    const std::string thing = std::string("cannot use ") + what;
    const std::string form = "write its name, its kind and its options, each as \"name: value\"";
    if (node.kind != Kind::kMap) {
        if (node.kind != Kind::kFaulty)
            nodes_->issues().Add(node.offset, thing, KindText(node.kind), form);
        return std::nullopt;
    }
    NamedEntry entry;
    const YamlNode *name = nullptr;
    bool has_kind = false;
    std::map<std::string, size_t> known;
    for (size_t i = 0; i + 1 < node.children.size(); i += 2) {
        const YamlNode &key = node.children[i];
        const YamlNode &value = node.children[i + 1];
        if (key.kind == Kind::kFaulty)
            continue;
        if (!known.emplace(key.text, key.offset).second) {
            nodes_->issues().Add(key.offset, "cannot use the key " + text::Shown(key.text),
                                 "it stands twice in one mapping", "write it once");
            entry.is_good = false;
        } else if (key.text == "name" || key.text == "kind") {
            const bool is_name = key.text == "name";
            const std::string *given = nodes_->TextOf(
                value, std::string(is_name ? "the name of " : "the kind of ") + what, form);
            entry.is_good = given != nullptr && entry.is_good;
            if (given == nullptr)
                continue;
            (is_name ? entry.name : entry.kind) = *given;
            if (is_name)
                name = &value;
            else
                entry.kind_offset = value.offset;
            has_kind = has_kind || !is_name;
        } else {
            entry.options.push_back({&key, &value});
        }
    }
    for (const char *needed : {"name", "kind"}) {
        if (!known.contains(needed)) {
            nodes_->issues().Add(node.offset, thing, std::string("it has no \"") + needed + ":\"",
                                 form);
            entry.is_good = false;
        }
    }
    if (name != nullptr)
        entry.is_good = Passes(name->offset, nodes_, [&] { check_name(entry.name); }) &&
                        IsFirst(section, entry.name, *name) && entry.is_good;
    return has_kind ? std::optional(entry) : std::nullopt;
}

bool SectionReader::ReadSinkOption(const OptionNodes &option, sinks::SinkConfig *sink)
{
    const std::string &name = option.name->text;
    const sinks::SinkOption *row = nullptr;
    if (!Passes(option.name->offset, nodes_, [&] { row = &sinks::FindOption(*sink->kind, name); }))
        return false;
    const std::string *value =
        nodes_->TextOf(*option.value, "the option " + text::Shown(name), "write a text");
    if (value == nullptr)
        return false;
    const std::string allowed = row->check(*value);
    if (!allowed.empty()) {
        nodes_->issues().Add(option.value->offset,
                             "cannot set " + name + " to " + text::Shown(*value),
                             "the value is not accepted", "use " + allowed);
        return false;
    }
    sink->options[name] = *value;
    return true;
}

void SectionReader::ReadSinks(const YamlNode &node)
{
    std::vector<SinkEntry> &all = sections_->sinks ? *sections_->sinks : sections_->sinks.emplace();
    for (const YamlNode &child : Entries(node, kSinks, "begin each sink with \"- name: NAME\"")) {
        const auto entry = ReadNamed(child, "a sink", kSinks, sinks::CheckSinkName);
        SinkEntry sink;
        if (!entry || !Passes(entry->kind_offset, nodes_,
                              [&] { sink.config.kind = &sinks::FindKind(entry->kind); }))
            continue;
        sink.config.name = entry->name;
        sink.at = nodes_->issues().At(child.offset);
        bool good = entry->is_good;
        for (const OptionNodes &option : entry->options)
            good = ReadSinkOption(option, &sink.config) && good;
        if (good)
            all.push_back(std::move(sink));
    }
}

// A single text stands for a list of one.
bool SectionReader::ReadInputOption(const OptionNodes &option, inputs::InputConfig *input)
{
    const std::string &name = option.name->text;
    bool is_repeated = false;
    if (!Passes(option.name->offset, nodes_,
                [&] { is_repeated = inputs::FindOption(input->kind, name).is_repeated; }))
        return false;
    const bool is_list = is_repeated && option.value->kind == Kind::kList;
    const YamlNode *first = is_list ? option.value->children.data() : option.value;
    bool good = true;
    for (size_t i = 0; i < (is_list ? option.value->children.size() : 1); ++i) {
        const std::string *value =
            nodes_->TextOf(first[i], "the option " + text::Shown(name),
                           is_repeated ? "write a text, or a list of texts" : "write a text");
        good = value != nullptr && good &&
               Passes(first[i].offset, nodes_, [&] { inputs::CheckInputValue(name, *value); });
        if (good)
            input->options[name].push_back(*value);
    }
    return good;
}

void SectionReader::ReadInputs(const YamlNode &node)
{
    std::vector<InputEntry> &all =
        sections_->inputs ? *sections_->inputs : sections_->inputs.emplace();
    for (const YamlNode &child : Entries(node, kInputs, "begin each input with \"- name: NAME\"")) {
        const auto entry = ReadNamed(child, "an input", kInputs, inputs::CheckInputName);
        if (!entry)
            continue;
        InputEntry input{{0, entry->name, entry->kind, {}}, nodes_->issues().At(child.offset)};
        if (!Passes(entry->kind_offset, nodes_, [&] { inputs::CheckInputKind(entry->kind); }))
            continue;
        bool good = entry->is_good;
        for (const OptionNodes &option : entry->options)
            good = ReadInputOption(option, &input.config) && good;
        if (good && Passes(child.offset, nodes_, [&] { inputs::CheckInput(input.config); }))
            all.push_back(std::move(input));
    }
}

bool SectionReader::ReadSilenceValue(const std::string &name, const YamlNode &node,
                                     policy::Silence *silence)
{
    const std::string *text = nodes_->TextOf(node, "the " + name + " of a silence", "write a text");
    if (text == nullptr)
        return false;
    return Passes(node.offset, nodes_, [&] {
        if (name == "source" || name == "host") {
            policy::CheckPattern(*text);
            (name == "source" ? silence->source : silence->host) = *text;
        } else if (name == "event") {
            silence->event_id = events::ParseEventId(*text);
        } else if (name == "labels") {
            silence->labels = policy::ParseLabels(*text);
        } else if (name == "every") {
            silence->window = policy::ParseWindow(*text);
        } else if (name == "from") {
            silence->begin_s = MomentOf(*text);
        } else if (name == "until") {
            silence->end_s = MomentOf(*text);
        } else if (name == "summary") {
            if (*text != "true" && *text != "false")
                throw host::Error("cannot use summary " + text::Shown(*text),
                                  "it is neither true nor false", "use true or false");
            silence->wants_summary = *text == "true";
        } else {
            policy::CheckComment(*text);
            (name == "comment" ? silence->comment : silence->author) = *text;
        }
    });
}

void SectionReader::ReadSilence(const YamlNode &node)
{
    if (node.kind != Kind::kMap) {
        if (node.kind != Kind::kFaulty)
            nodes_->issues().Add(node.offset, "cannot use a silence", KindText(node.kind),
                                 "write its source and its hours, each as \"name: value\"");
        return;
    }
    SilenceEntry entry;
    entry.at = nodes_->issues().At(node.offset);
    bool good = true;
    const Values values = nodes_->ReadMap(node, kSilenceKeys, "a silence");
    for (const auto &[name, value] : values)
        good = ReadSilenceValue(name, *value, &entry.silence) && good;
    if (good && !entry.silence.window && entry.silence.end_s == 0) {
        nodes_->issues().Add(node.offset, "cannot use a silence", "it has no end",
                             "say until when with \"until:\", or when with \"every:\"");
        return;
    }
    if (good)
        sections_->silences->push_back(std::move(entry));
}

void SectionReader::ReadSilences(const YamlNode &node)
{
    if (!sections_->silences)
        sections_->silences.emplace();
    for (const YamlNode &child :
         Entries(node, kSilences, "begin each silence with \"- source: PATTERN\""))
        ReadSilence(child);
}

void SectionReader::ReadSettings(const YamlNode &node)
{
    std::vector<SettingEntry> &all =
        sections_->settings ? *sections_->settings : sections_->settings.emplace();
    if (node.kind != Kind::kMap) {
        if (node.kind != Kind::kFaulty)
            nodes_->issues().Add(node.offset, "cannot use \"settings\"", KindText(node.kind),
                                 "write each setting as \"name: value\", or \"settings: {}\" for "
                                 "the defaults");
        return;
    }
    for (size_t i = 0; i + 1 < node.children.size(); i += 2) {
        const YamlNode &key = node.children[i];
        const YamlNode &value = node.children[i + 1];
        SettingEntry entry;
        if (key.kind == Kind::kFaulty ||
            !Passes(key.offset, nodes_,
                    [&] { entry.setting = &settings::FindSetting(key.text); }) ||
            !IsFirst("settings", key.text, key))
            continue;
        const std::string *text =
            nodes_->TextOf(value, "the setting " + key.text,
                           std::string("use ") + entry.setting->accepted + ", or default");
        if (text == nullptr || !Passes(value.offset, nodes_, [&] {
                if (*text != settings::kDefaultWord)
                    entry.setting->parse(*text);
            }))
            continue;
        entry.value = *text;
        entry.at = nodes_->issues().At(key.offset);
        all.push_back(std::move(entry));
    }
}

} // namespace

void ReadSection(const std::string &name, const YamlNode &node, NodeReader *nodes, SeenNames *seen,
                 Sections *sections)
{
    SectionReader reader(nodes, seen, sections);
    if (name == kSinks)
        reader.ReadSinks(node);
    else if (name == kInputs)
        reader.ReadInputs(node);
    else if (name == kSilences)
        reader.ReadSilences(node);
    else
        reader.ReadSettings(node);
}

} // namespace rules
