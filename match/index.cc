#include "match/index.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

#include "match/compiled.h"
#include "match/expression.h"
#include "match/relied_on.h"
#include "match/report.h"
#include "match/table_data.h"
#include "platform/agent.h"
#include "platform/contract.h"

uint64_t indexes_built = 0;

namespace {

// Building costs about as much as testing thirty lines against the table. Passes that find less news than
// this, the normal ones, never build an index.
constexpr int kLinesBeforeIndex = 32;

// An empty keyword, or an expression of which no required text is known.
constexpr LiteralId kNoLiteral = UINT16_MAX;

// What the index knows of one entry.
struct IndexedEntry {
    LiteralId keywords[kKeywordsOfEntry];
    LiteralId required[kKeywordsOfEntry]; // text that a match as an expression needs
    bool is_expression[kKeywordsOfEntry];
    uint16_t next_of_anchor; // 1 + the next entry with the same anchor; 0: none
};

// The index. Written by BuildIndex and DropIndex, on the monitor thread.
IndexedEntry indexed[kMaxEntries];
int indexed_count = 0;
bool built_for_expressions = false;
uint16_t first_of_anchor[kMaxLiterals];    // 1 + the first entry with this anchor; 0: none
uint64_t without_anchor[kMaxEntries / 64]; // entries whose keywords are all empty: a bit each
bool has_entries_without_anchor = false;
LiteralId own_identifier;
unsigned index_number = kNoIndex;
unsigned last_number = kNoIndex;
int lines_of_pass = 0;

// How many keywords are the same text. Only while the index is built.
uint16_t users[kMaxLiterals];

void SetBit(uint64_t *words, size_t bit)
{
    words[bit / 64] |= uint64_t{1} << (bit % 64);
}

void AddExpression(IndexedEntry *entry, int k, const char *text)
{
    WantLiteral(entry->keywords[k]);
    entry->is_expression[k] = HasOperator(text);
    if (!entry->is_expression[k])
        return;
    const RequiredText required = FindRequiredText(text);
    if (required.length == 0)
        return;
    entry->required[k] = AddLiteral(text + required.begin, required.length);
    WantLiteral(entry->required[k]);
}

void AddKeywords(int index)
{
    IndexedEntry &entry = indexed[index];
    entry = {};
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        const char *text = KeywordOf(*lpVKVMon[index], k);
        const size_t length = strlen(text);
        entry.required[k] = kNoLiteral;
        entry.keywords[k] = length > 0 ? AddLiteral(text, length) : kNoLiteral;
        if (!built_for_expressions)
            continue;
        RelyOnKeyword(text, length);
        if (length == 0)
            continue;
        AddExpression(&entry, k, text);
    }
}

void CountUsers()
{
    memset(users, 0, sizeof users);
    for (int i = 0; i < indexed_count; ++i) {
        for (const LiteralId id : indexed[i].keywords) {
            if (id != kNoLiteral)
                ++users[id];
        }
    }
}

// How good a keyword is as an anchor: shared by few entries, long enough to be searched for in large steps,
// long. A few entries more or less are no reason for small steps.
struct AnchorRank {
    int crowd;   // 0 for up to 8 entries, then growing with the power of two
    size_t step; // in which it can be searched for, as far as it matters
    size_t length;

    bool IsWorseThan(const AnchorRank &other) const
    {
        if (crowd != other.crowd)
            return crowd > other.crowd;
        if (step != other.step)
            return step < other.step;
        return length < other.length;
    }
};

AnchorRank RankOf(LiteralId id, size_t length)
{
    constexpr uint16_t kFew = 8;
    const int crowd = users[id] <= kFew ? 0 : static_cast<int>(std::bit_width(users[id]));
    return {crowd, std::min(length, kLongLiteral), length};
}

// The keyword that is the entry's anchor, or -1.
int ChooseAnchor(int index)
{
    int best = -1;
    AnchorRank best_rank{};
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        const LiteralId id = indexed[index].keywords[k];
        if (id == kNoLiteral)
            continue;
        const AnchorRank rank = RankOf(id, strlen(KeywordOf(*lpVKVMon[index], k)));
        if (best < 0 || best_rank.IsWorseThan(rank)) {
            best = k;
            best_rank = rank;
        }
    }
    return best;
}

// The search looks at this very keyword from now on. The text that was added first may be that of an entry with another
// anchor, whose change would go unnoticed.
void RelyOnAnchor(LiteralId anchor, const char *keyword)
{
    MoveLiteral(anchor, keyword);
    RelyOnKeyword(keyword, strlen(keyword));
}

void ChainUnderAnchor(int index)
{
    const int k = ChooseAnchor(index);
    if (k < 0) {
        SetBit(without_anchor, static_cast<size_t>(index));
        has_entries_without_anchor = true;
        return;
    }
    IndexedEntry &entry = indexed[index];
    const LiteralId anchor = entry.keywords[k];
    WantLiteral(anchor);
    if (!built_for_expressions)
        RelyOnAnchor(anchor, KeywordOf(*lpVKVMon[index], k));
    entry.next_of_anchor = first_of_anchor[anchor];
    first_of_anchor[anchor] = static_cast<uint16_t>(index + 1);
}

int CountEntries()
{
    int count = 0;
    while (count < nCnt && lpVKVMon[count] != nullptr)
        ++count;
    return count;
}

} // namespace

void DropIndex()
{
    index_number = kNoIndex;
    lines_of_pass = 0;
}

void CountLineOfPass()
{
    if (index_number == kNoIndex && ++lines_of_pass > kLinesBeforeIndex)
        BuildIndex();
}

bool IndexIsReady()
{
    return index_number != kNoIndex;
}

unsigned IndexNumber()
{
    return index_number;
}

void BuildIndex()
{
    ClearLiterals();
    ForgetCompiled();
    memset(first_of_anchor, 0, sizeof first_of_anchor);
    memset(without_anchor, 0, sizeof without_anchor);
    has_entries_without_anchor = false;
    own_identifier = AddLiteral(kSyslogIdentifier, sizeof kSyslogIdentifier - 1);
    WantLiteral(own_identifier);
    built_for_expressions = ServerIsFaultTolerant();
    indexed_count = CountEntries();
    RelyOnSlots(indexed_count);
    for (int i = 0; i < indexed_count; ++i)
        AddKeywords(i);
    CountUsers();
    for (int i = 0; i < indexed_count; ++i)
        ChainUnderAnchor(i);
    PrepareLiterals();
    index_number = ++last_number;
    ++indexes_built;
}

bool IndexHolds()
{
    if (ServerIsFaultTolerant() != built_for_expressions)
        return false;
    const bool is_kept = ReportsKeepTable != nullptr && ReportsKeepTable() != 0;
    return is_kept || AllReliedOnIsTheSame();
}

void RelyOnAllKeywords()
{
    RelyOnSlots(indexed_count);
    for (int i = 0; i < indexed_count; ++i) {
        for (int k = 0; k < kKeywordsOfEntry; ++k)
            RelyOnKeyword(KeywordOf(*lpVKVMon[i], k), strlen(KeywordOf(*lpVKVMon[i], k)));
    }
}

int IndexedEntries()
{
    return indexed_count;
}

void SearchLine(const char *line, size_t length, FoundLiterals *found)
{
    ForgetFound(found);
    FindLiterals(line, length, found);
}

bool LineIsOwn(const FoundLiterals &found)
{
    return IsFound(found, own_identifier);
}

void FindCandidates(const FoundLiterals &found, Candidates *candidates)
{
    candidates->count = 0;
    if (found.count == 0 && !has_entries_without_anchor)
        return;
    uint64_t bits[kMaxEntries / 64];
    memcpy(bits, without_anchor, sizeof bits);
    for (int i = 0; i < found.count; ++i) {
        for (unsigned next = first_of_anchor[found.ids[i]]; next != 0;
             next = indexed[next - 1].next_of_anchor)
            SetBit(bits, next - 1);
    }
    for (size_t word = 0; word < std::size(bits); ++word) {
        for (uint64_t left = bits[word]; left != 0; left &= left - 1)
            candidates->entries[candidates->count++] =
                static_cast<uint16_t>((word * 64) + static_cast<size_t>(std::countr_zero(left)));
    }
}

const char *KeywordOf(const VKVMon &entry, int keyword)
{
    const char *const keywords[] = {entry.Keyword1, entry.Keyword2, entry.Keyword3};
    return keywords[keyword];
}

bool IsPlainlyFound(const FoundLiterals &found, int entry, int keyword)
{
    const LiteralId id = indexed[entry].keywords[keyword];
    return id == kNoLiteral || IsFound(found, id);
}

bool CanMatchAsExpression(const FoundLiterals &found, int entry, int keyword)
{
    const IndexedEntry &known = indexed[entry];
    return known.is_expression[keyword] &&
           (known.required[keyword] == kNoLiteral || IsFound(found, known.required[keyword]));
}
