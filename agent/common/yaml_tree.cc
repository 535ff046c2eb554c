#include "agent/common/yaml_tree.h"

#include <algorithm>
#include <istream>
#include <streambuf>

#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include "agent/common/base64.h"

namespace agent {

namespace {

// Nodes of a document. A full table of events has 30,000; more of them only use up memory.
constexpr size_t kMaxNodes = 200000;

constexpr char kPlainTag[] = "?";
constexpr char kQuotedTag[] = "!";
constexpr char kTextTag[] = "tag:yaml.org,2002:str";
constexpr char kBinaryTag[] = "tag:yaml.org,2002:binary";

struct TooManyNodes {};

// Builds the tree from the parser's events.
class TreeBuilder : public YAML::EventHandler {
  public:
    explicit TreeBuilder(IssueList *issues) : issues_(issues) {}

    void OnDocumentStart(const YAML::Mark & /*mark*/) override {}
    void OnDocumentEnd() override {}

    void OnNull(const YAML::Mark &mark, YAML::anchor_t anchor) override
    {
        CheckAnchor(mark, anchor);
        Add(YamlNode::Kind::kNothing, mark);
    }
    void OnAlias(const YAML::Mark &mark, YAML::anchor_t /*anchor*/) override
    {
        issues_->Add(Offset(mark), "cannot use an alias (*)", "anchors are not taken here",
                     "write the value out; a text that begins with * needs quotes");
        Add(YamlNode::Kind::kFaulty, mark);
    }
    void OnScalar(const YAML::Mark &mark, const std::string &tag, YAML::anchor_t anchor,
                  const std::string &value) override
    {
        CheckAnchor(mark, anchor);
        YamlNode &node = Add(YamlNode::Kind::kText, mark);
        node.text = value;
        if (tag == kBinaryTag)
            Decode(&node);
        else
            CheckTag(mark, tag == kTextTag ? kPlainTag : tag);
    }
    void OnSequenceStart(const YAML::Mark &mark, const std::string &tag, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value /*style*/) override
    {
        Enter(YamlNode::Kind::kList, mark, tag, anchor);
    }
    void OnSequenceEnd() override { open_.pop_back(); }
    void OnMapStart(const YAML::Mark &mark, const std::string &tag, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value /*style*/) override
    {
        Enter(YamlNode::Kind::kMap, mark, tag, anchor);
    }
    void OnMapEnd() override
    {
        // The parser puts a missing value where the next thing stands; people look at its name.
        std::vector<YamlNode> &nodes = open_.back()->children;
        for (size_t i = 0; i + 1 < nodes.size(); i += 2) {
            if (nodes[i + 1].kind == YamlNode::Kind::kNothing)
                nodes[i + 1].offset = nodes[i].offset;
        }
        open_.pop_back();
    }

    YamlNode root;

  private:
    static size_t Offset(const YAML::Mark &mark) { return static_cast<size_t>(mark.pos); }

    void CheckAnchor(const YAML::Mark &mark, YAML::anchor_t anchor)
    {
        if (anchor != YAML::NullAnchor)
            issues_->Add(Offset(mark), "cannot use an anchor (&)", "anchors are not taken here",
                         "write the value out; a text that begins with & needs quotes");
    }
    void CheckTag(const YAML::Mark &mark, const std::string &tag)
    {
        if (tag != kPlainTag && tag != kQuotedTag && !tag.empty())
            issues_->Add(Offset(mark), "cannot use the tag " + Shown(tag),
                         "of tags, only !!binary is taken here",
                         "leave it out; a text that begins with ! needs quotes");
    }
    void Decode(YamlNode *node)
    {
        const auto bytes = DecodeBase64(node->text);
        if (!bytes) {
            issues_->Add(node->offset, "cannot use the !!binary value " + Shown(node->text),
                         "it is not in base64", "write base64, or a text without the tag");
            node->kind = YamlNode::Kind::kFaulty;
        }
        node->text = bytes.value_or("");
    }
    YamlNode &Add(YamlNode::Kind kind, const YAML::Mark &mark)
    {
        if (++nodes_ > kMaxNodes)
            throw TooManyNodes();
        YamlNode node;
        node.kind = kind;
        node.offset = Offset(mark);
        if (open_.empty()) {
            root = std::move(node);
            return root;
        }
        open_.back()->children.push_back(std::move(node));
        return open_.back()->children.back();
    }
    // An open node is the last child of its parent until it is closed, so it does not move.
    void Enter(YamlNode::Kind kind, const YAML::Mark &mark, const std::string &tag,
               YAML::anchor_t anchor)
    {
        CheckAnchor(mark, anchor);
        CheckTag(mark, tag);
        open_.push_back(&Add(kind, mark));
    }

    IssueList *issues_;
    std::vector<YamlNode *> open_; // from the root to where the parser is
    size_t nodes_ = 0;
};

// The text itself as a stream: no copy of it is made.
class TextBuffer : public std::streambuf {
  public:
    explicit TextBuffer(std::string_view text)
    {
        char *begin = const_cast<char *>(text.data()); // a stream that is only read
        setg(begin, begin, begin + text.size());
    }
};

// Notes tabs that indent, and tells whether there are some. YAML forbids them, and what a parser
// says about them helps nobody.
bool NoteTabs(std::string_view text, IssueList *issues)
{
    bool found = false;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        const size_t content = text.find_first_not_of(" \t\r", start);
        const size_t tab = text.find('\t', start);
        if (content < end && tab < content && text[content] != '#') {
            issues->Add(tab, "cannot read the line", "it is indented with a tab",
                        "indent with spaces");
            found = true;
        }
        start = end + 1;
    }
    return found;
}

void NoteSyntaxError(const YAML::ParserException &error, IssueList *issues)
{
    const size_t offset = error.mark.is_null() ? 0 : static_cast<size_t>(error.mark.pos);
    if (error.msg.find("anchor") != std::string::npos ||
        error.msg.find("alias") != std::string::npos)
        issues->Add(offset, "cannot use an anchor or an alias", "they are not taken here",
                    "write the value out; a text that begins with & or * needs quotes");
    else
        issues->Add(offset, "cannot read the file from here on",
                    "it is not YAML (" + error.msg + ")",
                    "look at the indentation and the brackets here and above; a text with "
                    "special characters needs quotes");
}

} // namespace

YamlNode ParseYaml(std::string_view text, IssueList *issues)
{
    TreeBuilder tree(issues);
    if (NoteTabs(text, issues))
        return {};
    TextBuffer buffer(text);
    std::istream stream(&buffer);
    try {
        YAML::Parser parser(stream);
        if (!parser.HandleNextDocument(tree))
            return {};
        TreeBuilder second(issues);
        if (parser.HandleNextDocument(second))
            issues->Add(second.root.offset, "cannot use a second document (---)",
                        "a rules file is one document", "put its events into the first one");
    } catch (const YAML::DeepRecursion &error) {
        issues->Add(static_cast<size_t>(error.mark.pos), "cannot read the file from here on",
                    "its lists and mappings lie too deep in each other",
                    "a rules file needs four levels");
        return {};
    } catch (const YAML::ParserException &error) {
        NoteSyntaxError(error, issues);
        return {};
    } catch (const TooManyNodes &) {
        issues->Add(text.size(), "cannot read the file",
                    "it has more than " + std::to_string(kMaxNodes) + " values",
                    "is this the file that you meant?");
        return {};
    }
    return std::move(tree.root);
}

} // namespace agent
