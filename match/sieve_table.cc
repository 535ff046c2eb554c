#include "match/sieve_table.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "match/index.h"
#include "match/table_data.h"

SieveEntry sieve_entries[kMaxEntries];
int sieve_entry_count = 0;
SieveKeyword sieve_keywords[kKeywordsOfEntry * kMaxEntries];
int sieve_keyword_count = 0;

namespace {

// Copies of the texts, one behind the other: in the table they lie kilobytes apart, so that a look at one would mostly wait
// for memory. Those for which there is no room are read in the table.
constexpr size_t kRoomForTexts = size_t{1} << 16;
char copied_texts[kRoomForTexts + 1]; // of the last text, a pair of bytes may be read
size_t copied_length = 0;

const char *CopyOf(const char *text, size_t length)
{
    if (length > kRoomForTexts - copied_length)
        return text;
    char *const copy = copied_texts + copied_length;
    memcpy(copy, text, length);
    copied_length += length;
    return copy;
}

// 1 + the keyword of a text's hash, or of one before; 0: none.
uint16_t slots[size_t{1} << 13];
static_assert(std::size(slots) > std::size(sieve_keywords));

uint32_t HashText(const char *text, size_t length)
{
    uint32_t hash = 2166136261U; // FNV-1a
    for (size_t i = 0; i < length; ++i)
        hash = (hash ^ static_cast<unsigned char>(text[i])) * 16777619U;
    return hash;
}

uint16_t AddKeyword(const char *text, size_t length)
{
    size_t slot = HashText(text, length) % std::size(slots);
    for (; slots[slot] != 0; slot = (slot + 1) % std::size(slots)) {
        const auto id = static_cast<uint16_t>(slots[slot] - 1);
        if (sieve_keywords[id].length == length &&
            memcmp(sieve_keywords[id].text, text, length) == 0)
            return id;
    }
    sieve_keywords[sieve_keyword_count] = {CopyOf(text, length), static_cast<uint16_t>(length), 0,
                                           kNoneSieved};
    slots[slot] = static_cast<uint16_t>(++sieve_keyword_count);
    return static_cast<uint16_t>(sieve_keyword_count - 1);
}

bool CanMatch(const VKVMon &entry)
{
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        if (strchr(KeywordOf(entry, k), '\n') != nullptr)
            return false;
    }
    return true;
}

void CollectKeywords(int index)
{
    const VKVMon &entry = *lpVKVMon[index];
    SieveEntry &known = sieve_entries[sieve_entry_count++];
    known = {static_cast<uint16_t>(index), {kNoneSieved, kNoneSieved, kNoneSieved}, 0, kNoneSieved};
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        const char *text = KeywordOf(entry, k);
        const size_t length = strnlen(text, kKeywordSize);
        if (length == 0)
            continue;
        known.keywords[k] = AddKeyword(text, length);
        ++sieve_keywords[known.keywords[k]].users;
        known.longest = std::max(known.longest, static_cast<uint16_t>(length));
    }
}

} // namespace

void CollectSieveTable()
{
    sieve_entry_count = sieve_keyword_count = 0;
    copied_length = 0;
    memset(slots, 0, sizeof slots);
    for (int i = 0; i < nCnt && lpVKVMon[i] != nullptr; ++i) {
        if (CanMatch(*lpVKVMon[i]))
            CollectKeywords(i);
    }
}

size_t ShortestOfLongest()
{
    size_t shortest = SIZE_MAX;
    for (int i = 0; i < sieve_entry_count; ++i)
        shortest = std::min<size_t>(shortest, sieve_entries[i].longest);
    return shortest;
}
