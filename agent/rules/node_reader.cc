#include "agent/rules/node_reader.h"

#include <algorithm>

#include "agent/text/suggestion.h"

namespace rules {

using Kind = YamlNode::Kind;

std::string Listed(const Names &names)
{
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

namespace {

// A message is read in a terminal: of many names it has the first ones, which are those that are needed
// most.
constexpr size_t kNamesInAMessage = 3;

std::string ListedInShort(const Names &names)
{
    if (names.size() <= kNamesInAMessage)
        return Listed(names);
    return Listed(Names(names.begin(), names.begin() + kNamesInAMessage)) +
           ", or others of syslogmon-rules(5)";
}

} // namespace

const char *KindText(Kind kind)
{
    switch (kind) {
    case Kind::kText:
        return "it is a text";
    case Kind::kList:
        return "it is a list";
    case Kind::kMap:
        return "it is a mapping (name: value)";
    default:
        return "it has no value";
    }
}

Values NodeReader::ReadMap(const YamlNode &map, const Names &known, const std::string &where)
{
    Values values;
    // A key that is no text, such as a list, has an empty one, which is not known.
    for (size_t i = 0; i + 1 < map.children.size(); i += 2) {
        const YamlNode &key = map.children[i];
        if (key.kind == Kind::kFaulty)
            continue;
        if (std::find(known.begin(), known.end(), key.text) == known.end()) {
            issues_->Add(key.offset, "cannot use the key " + text::Shown(key.text),
                         where + " has none of that name",
                         text::Suggestion(key.text, known) + "use " + ListedInShort(known));
        } else if (!values.emplace(key.text, &map.children[i + 1]).second) {
            // YAML forbids it, and its parser does not look: the second one would be lost.
            issues_->Add(key.offset, "cannot use the key " + text::Shown(key.text),
                         "it stands twice in one mapping", "write it once");
        }
    }
    return values;
}

std::string NodeReader::PlaceOf(const text::Position &at) const
{
    const bool is_here = at.file == issues_->At(0).file || at.file >= names_.size();
    return "line " + std::to_string(at.line) + (is_here ? "" : " of " + names_[at.file]);
}

const std::string *NodeReader::TextOf(const YamlNode &node, const std::string &what,
                                      const std::string &next_step)
{
    if (node.kind == Kind::kText)
        return &node.text;
    if (node.kind != Kind::kFaulty)
        issues_->Add(node.offset, "cannot use " + what, KindText(node.kind), next_step);
    return nullptr;
}

} // namespace rules
