// A YAML document as a tree that knows where everything stands. Texts stay texts: what a plain 10
// or yes means is the business of whoever reads the tree.
#ifndef AGENT_RULES_YAML_TREE_H
#define AGENT_RULES_YAML_TREE_H

#include <string>
#include <string_view>
#include <vector>

#include "agent/text/text_file.h"

namespace rules {

struct YamlNode {
    enum class Kind {
        kNothing, // no value, or ~ or null
        kText,
        kList,
        kMap,    // the children are key, value, key, value ...
        kFaulty, // an issue was noted already
    };

    Kind kind = Kind::kNothing;
    size_t offset = 0; // into the text
    std::string text;
    std::vector<YamlNode> children;
};

// Reads a document. Notes an issue for anchors, aliases, tags, a second document, a tab as
// indentation, a text in quotes that goes on in the next line, and for what is no YAML. A text
// without anything in it is kNothing.
YamlNode ParseYaml(std::string_view text, text::IssueList *issues);

} // namespace rules

#endif // AGENT_RULES_YAML_TREE_H
