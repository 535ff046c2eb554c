#include "match/relied_on.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>

#include "match/table_data.h"
#include "platform/contract.h"

uint64_t tables_compared = 0;

namespace {

// Most keywords end within so many bytes. Comparing these for all entries is one short loop without a branch.
constexpr size_t kHeadSize = 32;
static_assert(kHeadSize <= kKeywordSize, "the head of any keyword can be read");

using Head = uint64_t __attribute__((vector_size(kHeadSize)));

struct Keyword {
    const char *text;
    uint16_t length;
};

constexpr int kMostKeywords = kMaxEntries * kKeywordsOfEntry; // of a full table, all of them

// Written by RelyOnSlots and RelyOnKeyword, on the monitor thread.
int slot_count = 0;
const VKVMon *slots[kMaxEntries];
int keyword_count = 0;
Keyword keywords[kMostKeywords];
Head heads[kMostKeywords]; // the first bytes of each keyword's buffer
int long_count = 0;
uint16_t long_keywords[kMostKeywords]; // those that go on behind their head
size_t long_digests[kMostKeywords];

bool SlotsAreTheSame()
{
    const bool ends_there = nCnt == slot_count || (nCnt > slot_count && slot_count < kMaxEntries &&
                                                   lpVKVMon[slot_count] == nullptr);
    return ends_there && std::equal(slots, slots + slot_count, lpVKVMon);
}

bool HeadsAreTheSame()
{
    Head difference{};
    for (int i = 0; i < keyword_count; ++i) {
        Head head;
        memcpy(&head, keywords[i].text, sizeof head);
        difference |= head ^ heads[i];
    }
    return (difference[0] | difference[1] | difference[2] | difference[3]) == 0;
}

// The zero byte belongs to it: a longer keyword is another one.
size_t DigestOf(const Keyword &keyword)
{
    return std::hash<std::string_view>()({keyword.text, size_t{keyword.length} + 1});
}

bool LongKeywordsAreTheSame()
{
    for (int i = 0; i < long_count; ++i) {
        if (DigestOf(keywords[long_keywords[i]]) != long_digests[i])
            return false;
    }
    return true;
}

} // namespace

void RelyOnSlots(int entries)
{
    slot_count = entries;
    std::copy_n(lpVKVMon, entries, slots);
    keyword_count = long_count = 0;
}

void RelyOnKeyword(const char *keyword, size_t length)
{
    keywords[keyword_count] = {keyword, static_cast<uint16_t>(length)};
    memcpy(&heads[keyword_count], keyword, sizeof heads[0]);
    if (length >= kHeadSize) {
        long_keywords[long_count] = static_cast<uint16_t>(keyword_count);
        long_digests[long_count++] = DigestOf(keywords[keyword_count]);
    }
    ++keyword_count;
}

bool AllReliedOnIsTheSame()
{
    ++tables_compared;
    return SlotsAreTheSame() && HeadsAreTheSame() && LongKeywordsAreTheSame();
}
