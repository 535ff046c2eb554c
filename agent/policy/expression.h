// Expressions of policies, by RE2: the time that one takes is linear in the line, whatever the line holds.
#ifndef AGENT_POLICY_EXPRESSION_H
#define AGENT_POLICY_EXPRESSION_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/events/event_policy.h"

namespace re2 {
class RE2;
}

namespace policy {

// What is wrong with an expression, and at which byte of it.
struct ExpressionMistake {
    size_t at = 0;
    std::string what;
};

class Expression {
  public:
    // Of a plain text, each character stands for itself.
    enum class Kind { kExpression, kText };

    Expression(const std::string &text, Kind kind, bool ignore_case);
    ~Expression();
    Expression(Expression &&other) noexcept;
    Expression &operator=(Expression &&other) noexcept;

    // Nothing: it can be used.
    [[nodiscard]] std::optional<ExpressionMistake> Mistake() const;

    // Does it match anywhere in the line? A byte that is not UTF-8 is taken for a question mark: for none at all, and
    // whoever can write one into a line could hide it from "." and from "not a digit".
    [[nodiscard]] bool Matches(std::string_view line) const;
    // What the groups have matched, the whole first; empty where one took no part. Nothing: no match.
    [[nodiscard]] std::optional<std::vector<std::string_view>> Groups(std::string_view line) const;

    // Of the groups, by number: "1", "2", and where they have one by name, too.
    struct GroupName {
        std::string name;
        size_t number;
    };
    [[nodiscard]] std::vector<GroupName> GroupNames() const;

  private:
    std::string text_;
    std::unique_ptr<re2::RE2> compiled_;
};

// Throws host::Error for the first of the policy's terms that cannot be used with its expression: a count
// for a group that it does not have, a group with a name that has another meaning, a summary with an
// unknown name. The expressions themselves are sound.
void CheckGroups(const events::EventPolicy &policy);

} // namespace policy

#endif // AGENT_POLICY_EXPRESSION_H
