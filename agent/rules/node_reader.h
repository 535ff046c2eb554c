// The nodes of a rules file, with an issue at its place for each that is not what it should be. A node
// that was noted already (kFaulty) gets no second issue.
#ifndef AGENT_RULES_NODE_READER_H
#define AGENT_RULES_NODE_READER_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/rules/yaml_tree.h"
#include "agent/text/text_file.h"

namespace rules {

// Vectors, since suggestions are made from them.
using Names = std::vector<std::string>;

// The values of a mapping, by name.
using Values = std::map<std::string, const YamlNode *>;

class NodeReader {
  public:
    //   names  of the files that go together, by their numbers; of a single one they are not needed
    explicit NodeReader(text::IssueList *issues, Names names = {})
        : issues_(issues), names_(std::move(names))
    {
    }

    // A name that is not known, or that stands twice, is an issue. `where` is the name of the mapping
    // in messages: "an event".
    Values ReadMap(const YamlNode &map, const Names &known, const std::string &where);

    // The text of a node; null, and an issue, when it is none. A number is a text here: nobody has
    // asked yet what it means.
    const std::string *TextOf(const YamlNode &node, const std::string &what,
                              const std::string &next_step);

    // "line 5", or of another one of the files "line 5 of disks.yaml".
    [[nodiscard]] std::string PlaceOf(const text::Position &at) const;

    [[nodiscard]] text::IssueList &issues() { return *issues_; }

  private:
    text::IssueList *issues_;
    Names names_;
};

// What is there instead of what should be: "it is a list".
const char *KindText(YamlNode::Kind kind);

// "version, events", for messages.
std::string Listed(const Names &names);

} // namespace rules

#endif // AGENT_RULES_NODE_READER_H
