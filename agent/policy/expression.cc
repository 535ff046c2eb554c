#include "agent/policy/expression.h"

#include <algorithm>

#include <re2/re2.h>

#include "agent/host/error.h"
#include "agent/policy/summary.h"
#include "agent/text/suggestion.h"
#include "agent/text/utf8.h"

namespace policy {

namespace {

// Of the compiled expression and what it learns of lines. There may be two thousand of them.
constexpr int64_t kMemory = int64_t{1} << 20;

re2::StringPiece Piece(std::string_view text)
{
    return {text.data(), text.size()};
}

// The line as RE2 is to see it, of the same length. `own` has it when it is another one.
std::string_view Seen(std::string_view line, std::string *own)
{
    if (text::IsUtf8(line))
        return line;
    *own = line;
    for (size_t at = 0; at < line.size();) {
        const size_t bytes = text::FirstCharacter(line.substr(at)).bytes;
        if (bytes == 0)
            (*own)[at] = '?';
        at += std::max<size_t>(bytes, 1);
    }
    return *own;
}

} // namespace

Expression::Expression(const std::string &text, Kind kind, bool ignore_case) : text_(text)
{
    re2::RE2::Options options;
    options.set_log_errors(false);
    options.set_literal(kind == Kind::kText);
    options.set_case_sensitive(!ignore_case);
    options.set_max_mem(kMemory);
    compiled_ = std::make_unique<re2::RE2>(text, options);
}

Expression::~Expression() = default;
Expression::Expression(Expression &&other) noexcept = default;
Expression &Expression::operator=(Expression &&other) noexcept = default;

// RE2 tells the part that it cannot use, not where it is: the first place of such a part is taken.
std::optional<ExpressionMistake> Expression::Mistake() const
{
    if (compiled_->ok())
        return std::nullopt;
    const size_t at = text_.find(compiled_->error_arg());
    return ExpressionMistake{at == std::string::npos ? 0 : at, compiled_->error()};
}

bool Expression::Matches(std::string_view line) const
{
    std::string own;
    return re2::RE2::PartialMatch(Piece(Seen(line, &own)), *compiled_);
}

std::optional<std::vector<std::string_view>> Expression::Groups(std::string_view line) const
{
    const int count = compiled_->NumberOfCapturingGroups() + 1;
    std::vector<re2::StringPiece> pieces(static_cast<size_t>(count));
    std::string own;
    const std::string_view seen = Seen(line, &own);
    if (!compiled_->Match(Piece(seen), 0, seen.size(), re2::RE2::UNANCHORED, pieces.data(), count))
        return std::nullopt;
    std::vector<std::string_view> groups;
    for (const re2::StringPiece &piece : pieces)
        groups.push_back(
            piece.empty()
                ? std::string_view()
                : line.substr(static_cast<size_t>(piece.data() - seen.data()), piece.size()));
    return groups;
}

std::vector<Expression::GroupName> Expression::GroupNames() const
{
    std::vector<GroupName> names;
    for (int i = 1; i <= compiled_->NumberOfCapturingGroups(); ++i)
        names.push_back({std::to_string(i), static_cast<size_t>(i)});
    for (const auto &[name, number] : compiled_->NamedCapturingGroups())
        names.push_back({name, static_cast<size_t>(number)});
    return names;
}

void CheckGroups(const events::EventPolicy &policy)
{
    std::vector<std::string> groups;
    if (!policy.regex.empty()) {
        const Expression expression(policy.regex, Expression::Kind::kExpression,
                                    policy.ignore_case);
        for (const auto &group : expression.GroupNames())
            groups.push_back(group.name);
    }
    for (const std::string &name : kTemplateNames) {
        if (std::find(groups.begin(), groups.end(), name) != groups.end())
            throw host::Error("cannot use the group \"" + name + "\" of the expression",
                              "the name stands for that of the line", "choose another name");
    }
    std::vector<std::string> values = {"host", "program"};
    values.insert(values.end(), groups.begin(), groups.end());
    if (!policy.per.empty() &&
        std::find(values.begin(), values.end(), policy.per) == values.end()) {
        std::string names;
        for (const std::string &name : values)
            names += (names.empty() ? "" : ", ") + name;
        throw host::Error("cannot count per \"" + policy.per.substr(0, 60) + "\"",
                          "there is no such thing",
                          text::Suggestion(policy.per, values) + "use " + names +
                              (groups.empty() ? ", or a group of an expression" : ""));
    }
    if (!policy.summary.empty())
        CheckTemplate(policy.summary, groups);
}

} // namespace policy
