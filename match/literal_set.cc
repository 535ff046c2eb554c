#include "match/literal_set.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

// Numbers that may be missing are kept one higher, so that storage that is all zero is empty.
constexpr int32_t kNone = 0;

struct Literal {
    const char *text;
    uint16_t length;
    uint16_t window; // index of the window, for the wanted ones
    bool is_wanted;
};

// How literals are entered and looked up.
struct GramKind {
    size_t size; // bytes of a gram: 2 to 4
    size_t step; // bytes between two looks at the line, and grams entered for each literal

    // The bytes that the grams of a literal cover: one of them is looked up wherever these stand.
    [[nodiscard]] constexpr size_t window() const { return size + step - 1; }
};

// Literals of at least kWalked bytes share one walk, and the shortest of them tells how large its steps can
// be: longer literals gain nothing from steps that a shorter one does not allow.
constexpr size_t kWalked = 4;
constexpr GramKind kFrom4 = {3, 2};
constexpr GramKind kFrom5 = {4, 2};
constexpr GramKind kFrom6 = {4, 3};
constexpr GramKind kFrom7 = {4, 4};
constexpr GramKind kShort = {2, 1}; // of 2 and 3 bytes: a walk of their own
static_assert(kFrom4.window() == 4 && kFrom5.window() == 5 && kFrom6.window() == 6 &&
              kFrom7.window() == 7 && kShort.window() == 2);
constexpr size_t kMostGrams = 4;

// One gram of one literal. The window is compared before the literal itself: most of what shares a bucket by
// chance ends there, without a look at another place in memory.
struct GramUse {
    uint64_t window; // the bytes, in memory order
    LiteralId literal;
    uint16_t offset; // of the gram in the literal
    uint16_t back;   // from the gram to the beginning of the window
};

// Bits of a map of grams, as a power of two: 64 KiB, which stay in the second-level cache. With 2,048 long
// literals, one gram in 64 that is in no literal passes the map.
constexpr unsigned kMapBits = 19;
constexpr unsigned kBucketBits = 15;
constexpr size_t kBuckets = 1U << kBucketBits;

// The grams of one kind.
struct GramTable {
    uint64_t map[1U << (kMapBits - 6)];
    uint32_t begins[kBuckets + 1]; // uses of bucket b: begins[b] to begins[b + 1] - 1
    bool is_used;
};

// The set. Written by the functions below, on the monitor thread.
Literal literals[kMaxLiterals];
int literal_count = 0;
GramUse uses[static_cast<size_t>(kMaxLiterals) * kMostGrams];
uint32_t use_count = 0;
GramTable walked_grams;
GramTable short_grams;
int32_t literal_of_byte[256]; // 1 + the literal of that one byte, or kNone
bool has_bytes = false;

size_t walk = 0; // the index in kWalks

// How many grams of the literals of a table fall into each bucket. Only while the set is prepared.
uint16_t crowds[kBuckets];

// For AddLiteral: 1 + the number that a text has, in the slot of its hash or one behind.
constexpr unsigned kTextSlotBits = 15;
int32_t text_slots[1U << kTextSlotBits];
static_assert((1U << kTextSlotBits) >= 2 * kMaxLiterals);

constexpr size_t kWord = sizeof(uint64_t);
static_assert(kWord <= kSearchPadding);

// Reads 8 bytes, of which the first `Size` count.
template <size_t Size>
uint64_t LoadBytes(const char *bytes)
{
    uint64_t word = 0;
    memcpy(&word, bytes, sizeof word);
    return word & (UINT64_MAX >> (8 * (kWord - Size)));
}

// Multiplicative hashing: the high bits of the product depend on all bits of the gram.
uint32_t HashGram(uint64_t gram)
{
    return static_cast<uint32_t>(gram) * 0x9E3779B1U;
}

uint32_t MapBit(uint32_t hash)
{
    return hash >> (32 - kMapBits);
}

uint32_t Bucket(uint32_t hash)
{
    return hash >> (32 - kBucketBits);
}

// ---- building ----

// The bytes of which system logs are full, and those that are often met in them: the letters of
// English text, and what stamps, addresses and numbers are written with.
constexpr char kVeryCommon[] = " etaoinsr";
constexpr char kCommon[] = "lcdumpfghbvk:0123456789.-[]=/,()";

// How common a byte is in system logs, roughly: 0 is rare. Only the speed depends on it.
unsigned Commonness(char byte)
{
    if (memchr(kVeryCommon, byte, sizeof kVeryCommon - 1) != nullptr)
        return 3;
    return memchr(kCommon, byte, sizeof kCommon - 1) != nullptr ? 1 : 0;
}

// LoadBytes for a literal: nothing behind it is read.
template <size_t Size>
uint64_t BytesOf(const Literal &literal, size_t offset)
{
    char bytes[kWord] = {};
    memcpy(bytes, literal.text + offset, Size);
    return LoadBytes<Size>(bytes);
}

template <GramKind Kind>
uint32_t HashAt(const Literal &literal, size_t offset)
{
    return HashGram(BytesOf<Kind.size>(literal, offset));
}

// The lengths of the literals in a table.
struct Lengths {
    size_t least;
    size_t most;
};

// Calls `act` with the number of each wanted literal of these lengths.
template <class Act>
void ForEach(Lengths lengths, Act act)
{
    for (int id = 0; id < literal_count; ++id) {
        const Literal &literal = literals[id];
        if (literal.is_wanted && literal.length >= lengths.least && literal.length <= lengths.most)
            act(static_cast<LiteralId>(id));
    }
}

template <GramKind Kind>
void CountCrowds(Lengths lengths)
{
    memset(crowds, 0, sizeof crowds);
    ForEach(lengths, [](LiteralId id) {
        for (size_t offset = 0; offset + Kind.size <= literals[id].length; ++offset) {
            uint16_t &crowd = crowds[Bucket(HashAt<Kind>(literals[id], offset))];
            if (crowd < UINT16_MAX)
                ++crowd;
        }
    });
}

// What it costs to enter a literal under this gram: the literals that share it, each looked at when the gram
// is in a line; and how often it is there, to judge by its bytes.
template <GramKind Kind>
unsigned CostOf(const Literal &literal, size_t offset)
{
    unsigned cost = crowds[Bucket(HashAt<Kind>(literal, offset))] * 2U;
    for (size_t i = 0; i < Kind.size; ++i)
        cost += Commonness(literal.text[offset + i]);
    return cost;
}

// Where the window of a literal begins that costs the least.
template <GramKind Kind>
uint16_t CheapestWindow(const Literal &literal)
{
    unsigned costs[Kind.step] = {}; // of the last grams, by offset modulo `step`
    unsigned sum = 0;
    unsigned best_sum = UINT32_MAX;
    size_t best = 0;
    for (size_t offset = 0; offset + Kind.size <= literal.length; ++offset) {
        unsigned &cost = costs[offset % Kind.step];
        sum -= cost;
        cost = CostOf<Kind>(literal, offset);
        sum += cost;
        if (offset + 1 >= Kind.step && sum < best_sum) {
            best_sum = sum;
            best = offset + 1 - Kind.step;
        }
    }
    return static_cast<uint16_t>(best);
}

// Fills the map, and counts the uses of each bucket in `begins`.
template <GramKind Kind>
void MapGrams(GramTable *table, Lengths lengths)
{
    ForEach(lengths, [table](LiteralId id) {
        Literal &literal = literals[id];
        literal.window = CheapestWindow<Kind>(literal);
        for (size_t i = 0; i < Kind.step; ++i) {
            const uint32_t hash = HashAt<Kind>(literal, literal.window + i);
            const uint32_t bit = MapBit(hash);
            table->map[bit / 64] |= uint64_t{1} << (bit % 64);
            ++table->begins[Bucket(hash)];
            table->is_used = true;
        }
    });
}

// Turns the counts of the buckets into the places behind their uses.
void PlaceBuckets(GramTable *table)
{
    for (uint32_t &begin : table->begins) {
        use_count += begin;
        begin = use_count;
    }
}

// Stores the uses, each bucket's from its end to its beginning.
template <GramKind Kind>
void StoreUses(GramTable *table, Lengths lengths)
{
    ForEach(lengths, [table](LiteralId id) {
        const Literal &literal = literals[id];
        const uint64_t window = BytesOf<Kind.window()>(literal, literal.window);
        for (size_t i = 0; i < Kind.step; ++i) {
            const size_t offset = literal.window + i;
            const uint32_t place = --table->begins[Bucket(HashAt<Kind>(literal, offset))];
            uses[place] = {window, id, static_cast<uint16_t>(offset), static_cast<uint16_t>(i)};
        }
    });
}

template <GramKind Kind>
void PrepareGrams(GramTable *table, Lengths lengths)
{
    if (table->is_used)
        memset(table, 0, sizeof *table);
    CountCrowds<Kind>(lengths);
    MapGrams<Kind>(table, lengths);
    if (!table->is_used)
        return;
    PlaceBuckets(table);
    StoreUses<Kind>(table, lengths);
}

void PrepareBytes()
{
    memset(literal_of_byte, 0, sizeof literal_of_byte);
    has_bytes = false;
    for (int id = 0; id < literal_count; ++id) {
        if (!literals[id].is_wanted || literals[id].length != 1)
            continue;
        literal_of_byte[static_cast<unsigned char>(literals[id].text[0])] = id + 1;
        has_bytes = true;
    }
}

uint32_t HashText(const char *text, size_t length)
{
    uint32_t hash = 2166136261U; // FNV-1a
    for (size_t i = 0; i < length; ++i)
        hash = (hash ^ static_cast<unsigned char>(text[i])) * 16777619U;
    return hash;
}

// ---- searching ----

struct Searched {
    const char *line;
    size_t length;
    FoundLiterals *found;
};

void NoteFound(LiteralId id, FoundLiterals *found)
{
    if (IsFound(*found, id))
        return;
    found->is_found[id / 64] |= uint64_t{1} << (id % 64);
    found->ids[found->count++] = id;
}

// Compares the literals of a bucket with the line around the gram.
template <GramKind Kind>
void CompareAt(const Searched &searched, const GramTable &table, size_t at, uint32_t bucket)
{
    windows_compared += table.begins[bucket + 1] - table.begins[bucket];
    for (uint32_t i = table.begins[bucket]; i < table.begins[bucket + 1]; ++i) {
        const GramUse &use = uses[i];
        if (use.offset > at ||
            LoadBytes<Kind.window()>(searched.line + at - use.back) != use.window)
            continue;
        const Literal &literal = literals[use.literal];
        const size_t begin = at - use.offset;
        if (begin + literal.length <= searched.length &&
            memcmp(searched.line + begin, literal.text, literal.length) == 0)
            NoteFound(use.literal, searched.found);
    }
}

// The last bytes looked at may lie in the padding. A literal that is found never does.
template <GramKind Kind>
void FindByGrams(const Searched &searched, const GramTable &table)
{
    if (!table.is_used)
        return;
    for (size_t at = 0; at < searched.length; at += Kind.step) {
        const uint32_t hash = HashGram(LoadBytes<Kind.size>(searched.line + at));
        const uint32_t bit = MapBit(hash);
        if ((table.map[bit / 64] >> (bit % 64) & 1U) != 0)
            CompareAt<Kind>(searched, table, at, Bucket(hash));
    }
}

void FindBytes(const Searched &searched)
{
    if (!has_bytes)
        return;
    for (size_t at = 0; at < searched.length; ++at) {
        const int32_t next = literal_of_byte[static_cast<unsigned char>(searched.line[at])];
        if (next != kNone)
            NoteFound(static_cast<LiteralId>(next - 1), searched.found);
    }
}

// A walk in the largest steps that the literals allow.
struct Walk {
    void (*prepare)(GramTable *table, Lengths lengths);
    void (*find)(const Searched &searched, const GramTable &table);
};
constexpr Walk kWalks[] = {
    {PrepareGrams<kFrom4>, FindByGrams<kFrom4>},
    {PrepareGrams<kFrom5>, FindByGrams<kFrom5>},
    {PrepareGrams<kFrom6>, FindByGrams<kFrom6>},
    {PrepareGrams<kFrom7>, FindByGrams<kFrom7>},
};
size_t ChooseWalk(Lengths lengths)
{
    size_t shortest = kWalked + std::size(kWalks) - 1;
    ForEach(lengths, [&shortest](LiteralId id) {
        shortest = std::min<size_t>(shortest, literals[id].length);
    });
    return shortest - kWalked;
}

} // namespace

uint64_t windows_compared = 0;

void ClearLiterals()
{
    literal_count = 0;
    memset(text_slots, 0, sizeof text_slots);
}

LiteralId AddLiteral(const char *text, size_t length)
{
    uint32_t slot = HashText(text, length) >> (32 - kTextSlotBits);
    while (text_slots[slot] != kNone) {
        const auto id = static_cast<LiteralId>(text_slots[slot] - 1);
        if (literals[id].length == length && memcmp(literals[id].text, text, length) == 0)
            return id;
        slot = (slot + 1) % (1U << kTextSlotBits);
    }
    const auto id = static_cast<LiteralId>(literal_count++);
    literals[id] = {text, static_cast<uint16_t>(length), 0, false};
    text_slots[slot] = id + 1;
    return id;
}

void MoveLiteral(LiteralId id, const char *text)
{
    literals[id].text = text;
}

void WantLiteral(LiteralId id)
{
    literals[id].is_wanted = true;
}

void PrepareLiterals()
{
    use_count = 0;
    const Lengths walked = {kWalked, SIZE_MAX};
    walk = ChooseWalk(walked);
    kWalks[walk].prepare(&walked_grams, walked);
    PrepareGrams<kShort>(&short_grams, {2, kWalked - 1});
    PrepareBytes();
}

void ForgetFound(FoundLiterals *found)
{
    for (int i = 0; i < found->count; ++i)
        found->is_found[found->ids[i] / 64] = 0;
    found->count = 0;
}

void FindLiterals(const char *line, size_t length, FoundLiterals *found)
{
    const Searched searched = {line, length, found};
    kWalks[walk].find(searched, walked_grams);
    FindByGrams<kShort>(searched, short_grams);
    FindBytes(searched);
}
