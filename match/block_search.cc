#include "match/block_search.h"

#include <algorithm>
#include <bitset>
#include <cassert>
#include <cstring>

#include "match/log_sample.h"

uint64_t literals_compared = 0;
uint64_t literals_found = 0;

namespace {

uint32_t MaskOf(GramKind kind)
{
    return UINT32_MAX >> (8 * (sizeof(uint32_t) - kind.size));
}

// Multiplicative hashing: the high bits of the product depend on all bits of the gram.
uint32_t HashGram(uint32_t gram)
{
    return gram * 0x9E3779B1U;
}

// Reads four bytes, of which those of the mask count.
uint32_t GramAt(const char *text, uint32_t mask)
{
    uint32_t gram = 0;
    memcpy(&gram, text, sizeof gram);
    return gram & mask;
}

// The same of a literal: nothing behind it is read.
uint32_t GramOf(const char *literal, size_t size)
{
    char bytes[sizeof(uint32_t)] = {};
    memcpy(bytes, literal, size);
    return GramAt(bytes, UINT32_MAX);
}

} // namespace

GramKind KindFor(size_t shortest)
{
    switch (shortest) {
    case 0:
    case 1:
    case 2:
        return {2, 1};
    case 3:
        return {2, 2};
    case 4:
        return {3, 2};
    default:
        return {4, std::min(shortest - 3, kMostStep)};
    }
}

// ---- building ----

namespace {

using Group = BlockSearch::Group;
using Key = BlockSearch::Key;

constexpr size_t kWord = sizeof(uint64_t);
static_assert(kWord <= kGramPadding && ClassFilter::kWidest + 2 <= kGramPadding);

// Reads 8 bytes, of which the first `size` count.
uint64_t BytesAt(const char *text, size_t size)
{
    uint64_t bytes = 0;
    memcpy(&bytes, text, sizeof bytes);
    return bytes & (UINT64_MAX >> (8 * (kWord - size)));
}

uint16_t *BucketOf(BlockSearch *search, uint32_t hash)
{
    return &search->buckets[hash >> (32 - BlockSearch::kBucketBits)];
}

uint64_t HashKey(uint64_t value)
{
    return value * 0x9E3779B97F4A7C15U;
}

size_t KeySlot(uint64_t value)
{
    return static_cast<size_t>(HashKey(value) >> (64 - BlockSearch::kKeyBits));
}

// One gram in 64 that is in no literal passes the map; small maps stay in the first-level cache.
uint32_t MapMaskFor(const Searched *literals, int count, GramKind kind)
{
    size_t grams = static_cast<size_t>(count) * kind.step;
    for (int i = 0; i < count; ++i)
        grams +=
            literals[i].length < kind.window() ? (kind.window() - literals[i].length) * 256 : 0;

    constexpr uint32_t kLeast = 1U << 12;
    uint32_t size = kLeast;
    while (size < BlockSearch::kMapSize && size < grams * 64)
        size *= 2;
    return size - 1;
}

uint32_t MapBit(uint32_t hash)
{
    return hash >> (32 - BlockSearch::kMapBits);
}

void EnterGram(BlockSearch *search, uint32_t gram, int back, size_t length)
{
    const uint32_t hash = HashGram(gram);
    const uint32_t bit = MapBit(hash) & search->map_mask;
    search->map[bit / 64] |= uint64_t{1} << (bit % 64);
    uint16_t *const bucket = BucketOf(search, hash);
    for (uint16_t i = *bucket; i != 0; i = search->groups[i - 1].next) {
        const Group &group = search->groups[i - 1];
        if (group.gram == gram && group.back == back && group.length == length)
            return;
    }
    search->groups[search->group_count++] = {gram, *bucket, static_cast<int8_t>(back),
                                             static_cast<uint8_t>(length)};
    *bucket = static_cast<uint16_t>(search->group_count);
}

// A gram of which `length` bytes are known, and the byte behind or before them is not: it is entered with each.
void EnterCutGram(BlockSearch *search, const char *text, bool is_behind, int back, size_t length)
{
    const size_t known = search->kind.size - 1;
    const uint32_t gram = GramOf(text, known);
    for (uint32_t byte = 0; byte < 256; ++byte)
        EnterGram(search, is_behind ? gram | byte << (8 * known) : gram << 8 | byte, back, length);
}

// Enters the gram that is looked up when a look falls `offset` bytes behind the head of the literal, and its key is
// expected `begin` bytes behind the head.
void EnterGramAt(BlockSearch *search, const Searched &literal, size_t offset, size_t begin,
                 size_t length)
{
    const size_t size = search->kind.size;
    const int back = static_cast<int>(offset) - static_cast<int>(begin);
    if (offset + size <= literal.length)
        EnterGram(search, GramOf(literal.text + offset, size), back, length);
    else if (offset + size == literal.length + size_t{1})
        EnterCutGram(search, literal.text + offset, true, back, length);
    else // the look before this one, at the byte before the literal
        EnterCutGram(search, literal.text, false, -1 - static_cast<int>(begin), length);
}

// Where keys stand, from the window of their literal on, that is tried.
constexpr int kShiftStep = 2;
constexpr int kMostShift = 32;

int key_shifts[kMostSearched]; // by literal, while a search is made ready

size_t KeyBegin(const Searched &literal, int shift)
{
    const auto most = std::max<int>(literal.length - static_cast<int>(kWord), 0);
    return static_cast<size_t>(std::clamp(literal.window + shift, 0, most));
}

uint64_t KeyOf(const Searched &literal, size_t begin)
{
    char bytes[kWord] = {};
    memcpy(bytes, literal.text + begin, std::min<size_t>(literal.length, kWord));
    return BytesAt(bytes, kWord);
}

// The keys that are taken, by a hash: a few that share a bit are taken for one.
constexpr unsigned kTakenBits = 16;
std::bitset<size_t{1} << kTakenBits> taken;

size_t TakenBit(uint64_t value)
{
    return HashKey(value) >> (64 - kTakenBits);
}

// At most so often does the last sample (log_sample.h) have the key.
uint32_t SampledTimesOfKey(uint64_t value)
{
    constexpr size_t kGram = 4;
    char bytes[kWord];
    memcpy(bytes, &value, sizeof bytes);
    uint32_t least = UINT32_MAX;
    for (size_t at = 0; at + kGram <= kWord; ++at)
        least = std::min(least, SampledTimes(bytes + at, kGram));
    return least;
}

// What the keys of the literals of a list cost with this shift: that they are found in vain, that they are those of other
// literals too, and that there is no room for them.
uint64_t CostOfShift(const Searched *literals, const uint16_t *ids, size_t count, int shift)
{
    constexpr uint32_t kCostOfShared = 64;
    constexpr uint32_t kCostOfNoRoom = 64;
    static size_t bits[kMostSearched];
    size_t keys = 0;
    uint64_t cost = 0;
    for (size_t i = 0; i < count; ++i) {
        const Searched &literal = literals[ids[i]];
        const size_t begin = KeyBegin(literal, shift);
        if (static_cast<int>(begin) != literal.window + shift) {
            cost += kCostOfNoRoom;
            continue;
        }
        const uint64_t value = KeyOf(literal, begin);
        const size_t bit = TakenBit(value);
        cost += SampledTimesOfKey(value) + (taken[bit] ? kCostOfShared : 0);
        if (!taken[bit])
            bits[keys++] = bit;
        taken.set(bit);
    }
    for (size_t i = 0; i < keys; ++i)
        taken.reset(bits[i]);
    return cost;
}

int BestShift(const Searched *literals, const uint16_t *ids, size_t count)
{
    int best = 0;
    uint64_t least = CostOfShift(literals, ids, count, 0);
    for (int shift = -kMostShift; shift <= kMostShift && least > 0; shift += kShiftStep) {
        const uint64_t cost = CostOfShift(literals, ids, count, shift);
        if (cost >= least)
            continue;
        best = shift;
        least = cost;
    }
    return best;
}

// Literals that begin their window with the same gram had better differ in their keys, and from those before them.
void PlaceKeys(const Searched *literals, int count, GramKind kind)
{
    static uint16_t ids[kMostSearched];
    static uint32_t grams[kMostSearched];
    taken.reset();
    for (int id = 0; id < count; ++id) {
        const Searched &literal = literals[id];
        ids[id] = static_cast<uint16_t>(id);
        grams[id] = GramOf(literal.text + literal.window,
                           std::min<size_t>(literal.length - literal.window, kind.size));
    }
    std::sort(ids, ids + count, [](uint16_t a, uint16_t b) { return grams[a] < grams[b]; });
    for (int begin = 0, end = 0; begin < count; begin = end) {
        while (end < count && grams[ids[end]] == grams[ids[begin]])
            ++end;
        const int shift = BestShift(literals, ids + begin, static_cast<size_t>(end - begin));
        for (int i = begin; i < end; ++i) {
            const Searched &literal = literals[ids[i]];
            key_shifts[ids[i]] = shift;
            taken.set(TakenBit(KeyOf(literal, KeyBegin(literal, shift))));
        }
    }
}

void EnterLiteral(BlockSearch *search, int id)
{
    const Searched &literal = search->literals[id];
    assert(literal.length + kMostCut >= search->kind.window()); // or it is not found everywhere
    const size_t length = std::min<size_t>(literal.length, kWord);
    const size_t begin = KeyBegin(literal, key_shifts[id]);
    const uint64_t value = KeyOf(literal, begin);
    uint16_t *const slot = &search->key_slots[KeySlot(value)];
    search->keys[id + 1] = {value, static_cast<uint16_t>(begin), static_cast<uint16_t>(id), *slot,
                            static_cast<uint8_t>(length)};
    *slot = static_cast<uint16_t>(id + 1);
    for (size_t i = 0; i < search->kind.step; ++i)
        EnterGramAt(search, literal, literal.window + i, begin, length);
    if (search->is_by_class)
        AddToClasses(&search->classes, literal.text + literal.window,
                     std::min<size_t>(literal.length - literal.window, ClassFilter::kGram));
}

} // namespace

void PrepareSearch(BlockSearch *search, const Searched *literals, int count, GramKind kind)
{
    search->kind = kind;
    search->mask = MaskOf(kind);
    search->map_mask = MapMaskFor(literals, count, kind);
    search->literals = literals;
    search->group_count = 0;
    search->is_by_class = kind.size == ClassFilter::kGram && kind.step == 1 && ClassFilterWorks();
    ClearClasses(&search->classes);
    memset(search->map, 0, sizeof search->map);
    memset(search->buckets, 0, sizeof search->buckets);
    memset(search->key_slots, 0, sizeof search->key_slots);
    PlaceKeys(literals, count, kind);
    for (int id = 0; id < count; ++id)
        EnterLiteral(search, id);
}

// ---- searching ----

namespace {

uint16_t GroupsOf(const BlockSearch &search, uint32_t gram)
{
    return search.buckets[HashGram(gram) >> (32 - BlockSearch::kBucketBits)];
}

// The same by classes of grams.
int PassByClass(SearchWalk *walk)
{
    const size_t begin = walk->next_look;
    walk->next_look = std::min(walk->length, begin + SearchWalk::kRound);
    const int passed =
        PassClasses(walk->search->classes, walk->text, begin, walk->next_look, walk->looks);
    walk->passed += static_cast<uint64_t>(passed);
    return passed;
}

// Collects the next looks that pass the map. Whether one does moves an index and nothing else: there is no branch that
// the processor could guess wrongly.
int PassMap(SearchWalk *walk)
{
    const BlockSearch &search = *walk->search;
    if (search.is_by_class)
        return PassByClass(walk);
    const char *const text = walk->text;
    const uint64_t *const map = search.map;
    const uint32_t mask = search.mask;
    const uint32_t bits = search.map_mask;
    const size_t step = search.kind.step;
    const size_t end = std::min(walk->length, walk->next_look + (SearchWalk::kRound * step));
    uint32_t *const looks = walk->looks;
    int passed = 0;
    size_t at = walk->next_look;
    for (; at < end; at += step) {
        const uint32_t bit = MapBit(HashGram(GramAt(text + at, mask))) & bits;
        looks[passed] = static_cast<uint32_t>(at);
        passed += static_cast<int>(map[bit / 64] >> (bit % 64) & 1U);
    }
    walk->next_look = at;
    walk->passed += static_cast<uint64_t>(passed);
    return passed;
}

// Keeps the looks whose gram really is in a literal. All of a round at once: where each finds its groups does not depend
// on the one before, so the processor waits for memory once and not for each.
void PassGroups(SearchWalk *walk, int passed)
{
    const BlockSearch &search = *walk->search;
    walk->look_count = walk->looks_taken = 0;
    for (int i = 0; i < passed; ++i) {
        const uint32_t look = walk->looks[i];
        const uint32_t gram = GramAt(walk->text + look, search.mask);
        uint16_t group = GroupsOf(search, gram);
        while (group != 0 && search.groups[group - 1].gram != gram)
            group = search.groups[group - 1].next;
        walk->looks[walk->look_count] = look;
        walk->groups[walk->look_count] = group;
        walk->look_count += group != 0 ? 1 : 0;
    }
}

// Takes the next look at a gram of a literal. False behind the last one.
bool TakeLook(SearchWalk *walk)
{
    while (walk->looks_taken == walk->look_count) {
        if (walk->next_look >= walk->length)
            return false;
        PassGroups(walk, PassMap(walk));
    }
    walk->group = walk->groups[walk->looks_taken++];
    return true;
}

// Collects candidates. Whether a place is one moves an index, as in PassMap; what is not one is seldom among them.
bool CollectCandidates(SearchWalk *walk)
{
    const BlockSearch &search = *walk->search;
    int count = 0;
    while (count < SearchWalk::kMostCandidates && (walk->group != 0 || TakeLook(walk))) {
        const uint32_t look = walk->looks[walk->looks_taken - 1];
        const Group &group = search.groups[walk->group - 1];
        const int64_t at = int64_t{look} - group.back;
        const bool fits = (GramAt(walk->text + look, search.mask) == group.gram) & (at >= 0);
        const auto key_at = static_cast<uint32_t>(fits ? at : 0);
        const uint64_t value = BytesAt(walk->text + key_at, group.length);
        const uint16_t key = search.key_slots[KeySlot(value)];
        const bool may_be_key = (search.keys[key].value == value) | (search.keys[key].next != 0);
        walk->candidates[count] = {value, key_at, look, key, group.length};
        count += static_cast<int>(fits & may_be_key);
        walk->group = group.next;
    }
    walk->candidate_count = count;
    walk->candidates_taken = 0;
    return count > 0;
}

// Are these texts of more than a word equal?
bool AreEqual(const char *a, const char *b, size_t length)
{
    for (size_t i = 0; i + kWord < length; i += kWord) {
        if (BytesAt(a + i, kWord) != BytesAt(b + i, kWord))
            return false;
    }
    return BytesAt(a + length - kWord, kWord) == BytesAt(b + length - kWord, kWord);
}

// Is the look one that finds the literal if it stands at `begin`? One that found the gram of another literal may come upon
// its key, too. That of a literal that is cut short can be the one before it.
bool IsLookOf(const BlockSearch &search, const Searched &literal, size_t begin, size_t look)
{
    return look + 1 - begin - literal.window <= search.kind.step;
}

// Takes the next key of the candidate. True when its literal stands here.
bool TakeKey(SearchWalk *walk, Hit *hit)
{
    const SearchWalk::Candidate &candidate = walk->candidates[walk->candidates_taken - 1];
    const Key &key = walk->search->keys[walk->key];
    walk->key = key.next;
    if (key.value != candidate.value || key.length != candidate.length || key.begin > candidate.at)
        return false;
    const Searched &literal = walk->search->literals[key.literal];
    const size_t begin = candidate.at - key.begin;
    if (!IsLookOf(*walk->search, literal, begin, candidate.look))
        return false;
    *hit = {begin, candidate.look, key.literal};
    ++literals_compared;
    return begin + literal.length <= walk->length &&
           (literal.length == key.length ||
            AreEqual(walk->text + begin, literal.text, literal.length));
}

} // namespace

void BeginWalk(SearchWalk *walk, const BlockSearch *search, const char *text, size_t length)
{
    walk->search = search;
    walk->text = text;
    walk->length = length;
    walk->next_look = 0;
    walk->passed = 0;
    walk->group = walk->key = 0;
    walk->look_count = walk->looks_taken = 0;
    walk->candidate_count = walk->candidates_taken = 0;
}

uint64_t CountPassed(const BlockSearch &search, const char *text, size_t length)
{
    SearchWalk walk;
    BeginWalk(&walk, &search, text, length);
    while (walk.next_look < length)
        PassMap(&walk);
    return walk.passed;
}

bool NextHit(SearchWalk *walk, Hit *hit)
{
    for (;;) {
        while (walk->key != 0) {
            if (!TakeKey(walk, hit))
                continue;
            ++literals_found;
            return true;
        }
        if (walk->candidates_taken == walk->candidate_count && !CollectCandidates(walk))
            return false;
        walk->key = walk->candidates[walk->candidates_taken++].key;
    }
}
