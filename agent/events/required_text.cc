#include "agent/events/required_text.h"

#include <cctype>
#include <optional>
#include <string_view>

#include "platform/monitor_entry.h"

namespace events {

namespace {

constexpr size_t kMaxKeyword = kKeywordSize - 1;
constexpr size_t kShortest = 3;

bool IsLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Goes through an expression once. A run is what stands literally side by side; whatever else comes ends
// it. Gives up, with nothing found, at what could change the meaning of other parts.
class Walk {
  public:
    Walk(std::string_view text, bool ignore_case) : text_(text), ignore_case_(ignore_case) {}

    // Nothing: it gave up.
    std::optional<std::string> Find()
    {
        std::string best = Sequence();
        if (gave_up_ || at_ != text_.size())
            return std::nullopt;
        return best;
    }

  private:
    [[nodiscard]] bool AtEnd() const { return gave_up_ || at_ >= text_.size(); }
    [[nodiscard]] char Now() const { return at_ < text_.size() ? text_[at_] : '\0'; }

    void GiveUp() { gave_up_ = true; }

    // Up to the end or to the bracket that closes the group. Returns the longest run of what must be
    // there; empty with an alternation, of which either side may be missing.
    std::string Sequence()
    {
        std::string best;
        std::string run;
        bool has_choice = false;
        const auto end_run = [&] {
            if (run.size() > best.size())
                best = run;
            run.clear();
        };
        while (!AtEnd() && Now() != ')') {
            if (Now() == '|') {
                has_choice = true;
                ++at_;
                continue;
            }
            std::string piece; // a literal character, or the best run of a group
            const bool is_literal = Atom(&piece);
            if (!is_literal)
                end_run();
            const bool is_repeated = AtQuantifier();
            const bool may_be_missing = is_repeated && Quantifier();
            if (may_be_missing)
                piece.clear();
            if (is_literal)
                run += piece;
            else if (piece.size() > best.size())
                best = piece;
            // Behind "ab+" comes another b, or what follows.
            if (is_repeated)
                end_run();
        }
        end_run();
        return has_choice ? std::string() : best;
    }

    // One of them, with what it holds. True: a character that stands for itself.
    bool Atom(std::string *piece)
    {
        const char c = text_[at_];
        if (c == '(')
            return Group(piece);
        if (c == '[')
            return Class();
        if (c == '\\')
            return Escape(piece);
        ++at_;
        const bool stands_for_itself =
            c > ' ' - 1 && c < 0x7F &&
            std::string_view(".^$*+?{").find(c) == std::string_view::npos;
        return stands_for_itself && Literal(c, piece);
    }

    bool Literal(char c, std::string *piece) const
    {
        if (ignore_case_ && IsLetter(c))
            return false;
        *piece = c;
        return true;
    }

    bool Group(std::string *piece)
    {
        ++at_;
        if (Now() == '?') {
            const std::string_view rest = text_.substr(at_);
            if (rest.starts_with("?:")) {
                at_ += 2;
            } else if (rest.starts_with("?P<")) {
                at_ = text_.find('>', at_);
                at_ = at_ == std::string_view::npos ? text_.size() : at_ + 1;
            } else {
                GiveUp(); // flags, which hold for what follows
            }
        }
        *piece = Sequence();
        if (Now() != ')')
            GiveUp();
        ++at_;
        return false;
    }

    // "[]a]" and "[^]a]" hold a bracket; "[[:alpha:]]" holds a class.
    bool Class()
    {
        ++at_;
        if (Now() == '^')
            ++at_;
        bool is_first = true;
        while (!AtEnd() && (is_first || Now() != ']')) {
            is_first = false;
            if (text_.substr(at_).starts_with("[:")) {
                const size_t end = text_.find(":]", at_ + 2);
                at_ = end == std::string_view::npos ? at_ + 1 : end + 2;
            } else {
                at_ += Now() == '\\' ? size_t{2} : size_t{1};
            }
        }
        if (AtEnd())
            GiveUp();
        ++at_;
        return false;
    }

    bool Escape(std::string *piece)
    {
        if (at_ + 1 >= text_.size()) {
            GiveUp();
            return false;
        }
        const char c = text_[at_ + 1];
        at_ += 2;
        if (!IsLetter(c) && !IsDigit(c) && c > 0 && c < 0x7F)
            return c >= ' ' && Literal(c, piece);
        // Those without an argument; the others could hold anything.
        if (std::string_view("dDwWsSbBAzatnrfv").find(c) == std::string_view::npos)
            GiveUp();
        return false;
    }

    [[nodiscard]] bool AtQuantifier() const
    {
        const char c = Now();
        return c == '*' || c == '+' || c == '?' || (c == '{' && RepeatLength() > 0);
    }

    // Of "{2}", "{2,}" or "{2,3}" at this place; 0: the brace stands for itself.
    [[nodiscard]] size_t RepeatLength() const
    {
        size_t end = at_ + 1;
        while (end < text_.size() && IsDigit(text_[end]))
            ++end;
        if (end == at_ + 1)
            return 0;
        if (end < text_.size() && text_[end] == ',') {
            ++end;
            while (end < text_.size() && IsDigit(text_[end]))
                ++end;
        }
        return end < text_.size() && text_[end] == '}' ? end + 1 - at_ : 0;
    }

    // Passes over it. True: what it belongs to may be missing.
    bool Quantifier()
    {
        bool may_be_missing = Now() != '+';
        if (Now() == '{') {
            may_be_missing = text_[at_ + 1] == '0';
            at_ += RepeatLength();
        } else {
            ++at_;
        }
        if (Now() == '?')
            ++at_; // as few as possible
        if (AtQuantifier())
            GiveUp();
        return may_be_missing;
    }

    std::string_view text_;
    bool ignore_case_;
    size_t at_ = 0;
    bool gave_up_ = false;
};

} // namespace

std::string RequiredText(const std::string &expression, bool ignore_case)
{
    // A part of what is needed is needed, too.
    return Walk(expression, ignore_case).Find().value_or("").substr(0, kMaxKeyword);
}

bool IsUsefulKeyword(const std::string &text)
{
    return text.size() >= kShortest && text.find_first_not_of(' ') != std::string::npos;
}

} // namespace events
