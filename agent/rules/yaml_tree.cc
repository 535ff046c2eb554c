#include "agent/rules/yaml_tree.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>

#include <yaml.h>

#include "agent/text/base64.h"

namespace rules {

namespace {

// Nodes of a document. A full table of events has 30,000; more of them only use up memory: a file
// of the largest size could have millions, each with a text and a list of its own.
constexpr size_t kMaxNodes = 200000;
// Lists and mappings in each other. A rules file needs four levels. The tree is taken down by a
// call of itself per level.
constexpr size_t kMaxLevels = 64;

constexpr std::string_view kTextTag = "tag:yaml.org,2002:str";
constexpr std::string_view kBinaryTag = "tag:yaml.org,2002:binary";

// Bytes where the parser counts characters. Places come in the order of the file, more or less, so
// the search goes on from the last one.
class ByteOffsets {
  public:
    explicit ByteOffsets(std::string_view text) : text_(text) {}

    size_t Of(const yaml_mark_t &mark)
    {
        if (mark.index < characters_)
            characters_ = bytes_ = 0;
        for (; characters_ < mark.index && bytes_ < text_.size(); ++characters_) {
            ++bytes_;
            while (bytes_ < text_.size() &&
                   (static_cast<unsigned char>(text_[bytes_]) & 0xC0U) == 0x80U)
                ++bytes_;
        }
        return bytes_;
    }

  private:
    std::string_view text_;
    size_t characters_ = 0; // before bytes_
    size_t bytes_ = 0;
};

// The parser has null for what is not there.
std::string_view TextOf(const yaml_char_t *text)
{
    return text != nullptr ? reinterpret_cast<const char *>(text) : "";
}

// What a plain text without a tag stands for.
bool IsNothing(std::string_view plain)
{
    return plain.empty() || plain == "~" || plain == "null" || plain == "Null" || plain == "NULL";
}

// Builds the tree from the parser's events, and not from the documents that it can make: in those
// the anchors are resolved already.
class TreeBuilder {
  public:
    TreeBuilder(std::string_view text, text::IssueList *issues) : offsets_(text), issues_(issues) {}

    // False: nothing more of the file is to be read; an issue says why.
    bool Take(const yaml_event_t &event);

    YamlNode root;

  private:
    bool TakeScalar(const yaml_event_t &event);
    // What begins and ends here are lists and mappings. Enter is false when they lie too deep.
    bool Enter(YamlNode::Kind kind, const yaml_event_t &event, const yaml_char_t *tag,
               const yaml_char_t *anchor);
    void Leave();
    // A new node below the one that is open, or the root. Null, with an issue, when there are too
    // many.
    YamlNode *Add(YamlNode::Kind kind, size_t offset);
    // Each notes an issue and goes on: the value is still read.
    void CheckAnchor(size_t offset, const yaml_char_t *anchor);
    void CheckTag(size_t offset, std::string_view tag);
    void CheckQuotes(const yaml_event_t &event, size_t offset);
    // Turns base64 into the bytes; what is none makes the node kFaulty.
    void Decode(YamlNode *node);

    ByteOffsets offsets_;
    text::IssueList *issues_;
    std::vector<YamlNode *> open_; // from the root to where the parser is
    size_t nodes_ = 0;
    // A document has begun that is not empty.
    bool has_root_ = false;
};

bool TreeBuilder::Take(const yaml_event_t &event)
{
    switch (event.type) {
    case YAML_ALIAS_EVENT: {
        const size_t offset = offsets_.Of(event.start_mark);
        issues_->Add(offset, "cannot use an alias (*)", "anchors are not taken here",
                     "write the value out; a text that begins with * needs quotes");
        // A node all the same: in a mapping, keys and values must stay pairs.
        return Add(YamlNode::Kind::kFaulty, offset) != nullptr;
    }
    case YAML_SCALAR_EVENT:
        return TakeScalar(event);
    case YAML_SEQUENCE_START_EVENT:
        return Enter(YamlNode::Kind::kList, event, event.data.sequence_start.tag,
                     event.data.sequence_start.anchor);
    case YAML_MAPPING_START_EVENT:
        return Enter(YamlNode::Kind::kMap, event, event.data.mapping_start.tag,
                     event.data.mapping_start.anchor);
    case YAML_SEQUENCE_END_EVENT:
    case YAML_MAPPING_END_EVENT:
        Leave();
        return true;
    case YAML_DOCUMENT_START_EVENT:
        if (has_root_) {
            issues_->Add(offsets_.Of(event.start_mark), "cannot use a second document (---)",
                         "a rules file is one document", "put its events into the first one");
            return false;
        }
        return true;
    default:
        return true;
    }
}

bool TreeBuilder::TakeScalar(const yaml_event_t &event)
{
    const auto &scalar = event.data.scalar;
    const size_t offset = offsets_.Of(event.start_mark);
    const std::string_view tag = TextOf(scalar.tag);
    const std::string_view text(reinterpret_cast<const char *>(scalar.value), scalar.length);
    const bool is_plain = scalar.style == YAML_PLAIN_SCALAR_STYLE;
    CheckAnchor(offset, scalar.anchor);
    // In quotes, "null" is a text.
    const bool is_nothing = is_plain && tag.empty() && IsNothing(text);
    YamlNode *node = Add(is_nothing ? YamlNode::Kind::kNothing : YamlNode::Kind::kText, offset);
    if (node == nullptr)
        return false;
    if (is_nothing)
        return true;
    node->text = text;
    if (tag == kBinaryTag) {
        Decode(node);
        return true;
    }
    CheckTag(offset, tag);
    CheckQuotes(event, offset);
    return true;
}

// A quote that is not closed would take in the lines below it, up to the next one. No text of a
// rules file has several lines.
void TreeBuilder::CheckQuotes(const yaml_event_t &event, size_t offset)
{
    const auto style = event.data.scalar.style;
    const bool is_quoted =
        style == YAML_SINGLE_QUOTED_SCALAR_STYLE || style == YAML_DOUBLE_QUOTED_SCALAR_STYLE;
    if (is_quoted && event.start_mark.line != event.end_mark.line)
        issues_->Add(offset, "cannot use the text that begins here",
                     "its closing quote is missing in this line",
                     "close the quote where the text ends");
}

bool TreeBuilder::Enter(YamlNode::Kind kind, const yaml_event_t &event, const yaml_char_t *tag,
                        const yaml_char_t *anchor)
{
    const size_t offset = offsets_.Of(event.start_mark);
    CheckAnchor(offset, anchor);
    CheckTag(offset, TextOf(tag));
    YamlNode *node = Add(kind, offset);
    if (node == nullptr)
        return false;
    // The node is there, and closed by nobody: the tree is not used any more.
    if (open_.size() >= kMaxLevels) {
        issues_->Add(offset, "cannot read the file from here on",
                     "its lists and mappings lie too deep in each other",
                     "a rules file needs four levels");
        return false;
    }
    // An open node is the last child of its parent until it is closed, so it does not move.
    open_.push_back(node);
    return true;
}

void TreeBuilder::Leave()
{
    // The parser puts a missing value where the next thing stands; people look at its name.
    std::vector<YamlNode> &nodes = open_.back()->children;
    for (size_t i = 0; open_.back()->kind == YamlNode::Kind::kMap && i + 1 < nodes.size(); i += 2) {
        if (nodes[i + 1].kind == YamlNode::Kind::kNothing)
            nodes[i + 1].offset = nodes[i].offset;
    }
    open_.pop_back();
}

YamlNode *TreeBuilder::Add(YamlNode::Kind kind, size_t offset)
{
    if (++nodes_ > kMaxNodes) {
        issues_->Add(offset, "cannot read the file from here on",
                     "it has more than " + std::to_string(kMaxNodes) + " values",
                     "is this the file that you meant?");
        return nullptr;
    }
    // It is moved into its place; its address is good only from then on.
    YamlNode node;
    node.kind = kind;
    node.offset = offset;
    has_root_ = true;
    if (open_.empty()) {
        root = std::move(node);
        return &root;
    }
    open_.back()->children.push_back(std::move(node));
    return &open_.back()->children.back();
}

void TreeBuilder::CheckAnchor(size_t offset, const yaml_char_t *anchor)
{
    if (anchor != nullptr)
        issues_->Add(offset, "cannot use an anchor (&)", "anchors are not taken here",
                     "write the value out; a text that begins with & needs quotes");
}

void TreeBuilder::CheckTag(size_t offset, std::string_view tag)
{
    if (!tag.empty() && tag != "!" && tag != kTextTag)
        issues_->Add(offset, "cannot use the tag " + text::Shown(tag),
                     "of tags, only !!binary is taken here",
                     "leave it out; a text that begins with ! needs quotes");
}

void TreeBuilder::Decode(YamlNode *node)
{
    const auto bytes = text::DecodeBase64(node->text);
    if (!bytes) {
        issues_->Add(node->offset, "cannot use the !!binary value " + text::Shown(node->text),
                     "it is not in base64", "write base64, or a text without the tag");
        node->kind = YamlNode::Kind::kFaulty;
    }
    // Never the base64 itself: it would be taken for the text.
    node->text = bytes.value_or("");
}

// The text without the tabs that indent comments and empty lines, which the parser would not take:
// blanks stand in their place, so that all offsets stay. Nothing, with an issue for each, when tabs
// indent something else: YAML forbids them, and what a parser says about them helps nobody.
std::optional<std::string> WithoutTabs(std::string_view text, text::IssueList *issues)
{
    std::string clean(text);
    bool good = true;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        const size_t content = std::min(text.find_first_not_of(" \t\r", start), end);
        const size_t tab = text.find('\t', start);
        if (content == end || text[content] == '#') {
            std::replace(clean.begin() + static_cast<ptrdiff_t>(start),
                         clean.begin() + static_cast<ptrdiff_t>(content), '\t', ' ');
        } else if (tab < content) {
            issues->Add(tab, "cannot read the line", "it is indented with a tab",
                        "indent with spaces");
            good = false;
        }
        start = end + 1;
    }
    return good ? std::optional(std::move(clean)) : std::nullopt;
}

// Within one kind of error, only its words tell what the parser has met.
bool Mentions(const char *text, const char *word)
{
    return text != nullptr && std::string_view(text).find(word) != std::string_view::npos;
}

// The place is where the thing begins that is not closed, where the parser knows it: it ends at the
// end of the file.
void NoteSyntaxError(const yaml_parser_t &parser, std::string_view text, text::IssueList *issues)
{
    ByteOffsets offsets(text);
    // What the parser says is in English, for those who know YAML; what people mostly do wrong is
    // said in our own words.
    const std::string cause =
        std::string("it is not YAML (") + (parser.problem != nullptr ? parser.problem : "") + ")";
    const std::string next_step = "look at the indentation and the brackets here and above; a text "
                                  "with special characters needs quotes";
    if (parser.error == YAML_MEMORY_ERROR)
        issues->Add(0, "cannot read the file", "memory is used up", "try again with more of it");
    else if (parser.error == YAML_READER_ERROR)
        // The one error whose place is in bytes; all other marks count characters.
        issues->Add(parser.problem_offset, "cannot read the text", cause,
                    "write special characters as escapes in double quotes, such as \\x7F");
    else if (Mentions(parser.context, "quoted scalar") && Mentions(parser.problem, "end of stream"))
        issues->Add(offsets.Of(parser.context_mark), "cannot read the file from here on",
                    "the closing quote of the text that begins here is missing",
                    "close the quote where the text ends");
    else if (Mentions(parser.context, "anchor") || Mentions(parser.context, "alias"))
        issues->Add(offsets.Of(parser.context_mark), "cannot use an anchor or an alias",
                    "they are not taken here",
                    "write the value out; a text that begins with & or * needs quotes");
    else
        issues->Add(offsets.Of(parser.problem_mark), "cannot read the file from here on", cause,
                    next_step);
}

} // namespace

YamlNode ParseYaml(std::string_view text, text::IssueList *issues)
{
    const auto clean = WithoutTabs(text, issues);
    if (!clean)
        return {};
    // It is on the stack and frees what it holds by `parser`. It does not copy its input, so
    // `clean` must outlive it.
    yaml_parser_t state;
    if (yaml_parser_initialize(&state) == 0)
        throw std::bad_alloc();
    const std::unique_ptr<yaml_parser_t, void (*)(yaml_parser_t *)> parser(&state,
                                                                           yaml_parser_delete);
    // Else it would guess, by a mark that the text has no longer.
    yaml_parser_set_encoding(&state, YAML_UTF8_ENCODING);
    yaml_parser_set_input_string(&state, reinterpret_cast<const unsigned char *>(clean->data()),
                                 clean->size());
    // On the text as it was: the one without tabs has the same offsets.
    TreeBuilder tree(text, issues);
    for (bool at_end = false; !at_end;) {
        yaml_event_t read;
        if (yaml_parser_parse(&state, &read) == 0) {
            NoteSyntaxError(state, text, issues);
            return {};
        }
        const std::unique_ptr<yaml_event_t, void (*)(yaml_event_t *)> event(&read,
                                                                            yaml_event_delete);
        // The last event is taken, too: it has nothing to add, and frees itself like the others.
        at_end = read.type == YAML_STREAM_END_EVENT;
        if (!tree.Take(read))
            return {};
    }
    return std::move(tree.root);
}

} // namespace rules
