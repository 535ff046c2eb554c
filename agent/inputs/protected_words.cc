#include "agent/inputs/protected_words.h"

#include <algorithm>

#include "platform/contract.h"

namespace inputs {

namespace {

struct Word {
    std::string_view text;
    size_t break_at; // so that a keyword which is a part of it still has a chance to be found
};
constexpr std::string_view kIdentifierWord = kSyslogIdentifier;
constexpr std::string_view kRepeatWord = "last message repeated";
constexpr Word kWords[] = {{kIdentifierWord, 5}, {kRepeatWord, 4}};
static_assert(kIdentifierWord.size() > 5);

} // namespace

void BreakWords(std::string *text, size_t from)
{
    for (const Word &word : kWords) {
        for (size_t at = text->find(word.text, from); at != std::string::npos;
             at = text->find(word.text, at))
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
