#include "agent/inputs/protected_words.h"

#include <algorithm>
#include <cstring>

#include "platform/contract.h"

namespace inputs {

namespace {

struct Word {
    std::string_view text;
    size_t break_at; // so that a keyword which is a part of it still has a chance to be found
    size_t rare_at;  // of its letters, the one that other lines have most seldom
};
constexpr std::string_view kIdentifierWord = kSyslogIdentifier;
constexpr std::string_view kRepeatWord = "last message repeated";
constexpr Word kWords[] = {{kIdentifierWord, 5, 4}, {kRepeatWord, 4, 10}};
static_assert(kIdentifierWord.size() <= kLongestWord && kRepeatWord.size() <= kLongestWord);
static_assert(kIdentifierWord.size() > 5 && kIdentifierWord[4] == 'K' && kRepeatWord[10] == 'g');

// As std::string::find, which stops at each byte that is the word's first.
size_t Find(const std::string &text, const Word &word, size_t from)
{
    const char *end = text.data() + text.size();
    const char *at = text.data() + std::min(text.size(), from + word.rare_at);
    for (;;) {
        at = static_cast<const char *>(
            memchr(at, word.text[word.rare_at], static_cast<size_t>(end - at)));
        if (at == nullptr)
            return std::string::npos;
        const auto begin = static_cast<size_t>(at - text.data()) - word.rare_at;
        if (text.compare(begin, word.text.size(), word.text) == 0)
            return begin;
        ++at;
    }
}

} // namespace

void BreakWords(std::string *text, size_t from)
{
    for (const Word &word : kWords) {
        for (size_t at = Find(*text, word, from); at != std::string::npos;
             at = Find(*text, word, at))
            text->insert(at + word.break_at, 1, kBreak);
    }
}

std::string WithWholeWords(std::string_view text)
{
    std::string whole(text);
    std::erase(whole, kBreak);
    return whole;
}

} // namespace inputs
