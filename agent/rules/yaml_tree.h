// A YAML document as a tree that knows where everything stands. Texts stay texts: what a plain 10
// or yes means is the business of whoever reads the tree.
//
// Only what a rules file needs is taken. What is left out, anchors above all, is told of at its
// place, because it would make a small file stand for a large tree, or a value depend on a distant
// line.
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
    // In bytes, into the text that was parsed: where the node begins. Of a missing value, where its
    // name stands.
    size_t offset = 0;
    // Of kText, without quotes and escapes; of !!binary, the bytes. Otherwise empty.
    std::string text;
    std::vector<YamlNode> children;
};

// Reads a document. Notes an issue for anchors, aliases, tags, a second document, a tab as
// indentation, a text in quotes that goes on in the next line, and for what is no YAML. A text
// without anything in it is kNothing, and so is, with an issue, one of which nothing more can be
// read.
//   text   UTF-8, without a byte-order mark
YamlNode ParseYaml(std::string_view text, text::IssueList *issues);

} // namespace rules

#endif // AGENT_RULES_YAML_TREE_H
