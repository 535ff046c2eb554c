#include "vkevmon/literal_set.h"

#include <cstring>

namespace {

// Numbers that may be missing are kept one higher, so that storage that is all zero is empty.
constexpr int32_t kNone = 0;

struct Literal {
    const char *text;
    uint16_t length;
    bool is_wanted;
};

// How literals of some length are entered and looked up.
struct GramKind {
    size_t size; // bytes of a gram: 2 to 4
    size_t step; // bytes between two looks at the line, and grams entered for each literal
};
constexpr GramKind kLong = {4, 4};
constexpr GramKind kMiddle = {3, 2};
constexpr GramKind kShort = {2, 1};
static_assert(kLong.size + kLong.step - 1 == kLongLiteral);
static_assert(kMiddle.size + kMiddle.step - 1 == kMiddleLiteral);

constexpr int kMaxUses = kMaxLiterals * static_cast<int>(kLong.step);

// One gram of one literal.
struct GramUse {
    int32_t next; // 1 + the next use in the same bucket, or kNone
    LiteralId literal;
    uint16_t offset; // of the gram in the literal
};

// Bits of a map of grams, as a power of two: 64 KiB, which stay in the second-level cache. With 2,048 long
// literals, one gram in 64 that is in no literal passes the map.
constexpr unsigned kMapBits = 19;
constexpr unsigned kBucketBits = 15;

// The grams of one kind.
struct GramTable {
    uint64_t map[1U << (kMapBits - 6)];
    int32_t buckets[1U << kBucketBits]; // 1 + the first use, or kNone
    bool is_used;
};

// The set. Written by the functions below, on the monitor thread.
Literal literals[kMaxLiterals];
int literal_count = 0;
GramUse uses[kMaxUses];
int use_count = 0;
GramTable long_grams;
GramTable middle_grams;
GramTable short_grams;
int32_t literal_of_byte[256]; // 1 + the literal of that one byte, or kNone
bool has_bytes = false;

// For AddLiteral: 1 + the number that a text has, in the slot of its hash or one behind.
constexpr unsigned kTextSlotBits = 15;
int32_t text_slots[1U << kTextSlotBits];
static_assert((1U << kTextSlotBits) >= 2 * kMaxLiterals);

// Reads 4 bytes, of which as many count as the gram has.
template <size_t Size>
uint32_t LoadGram(const char *bytes)
{
    uint32_t gram = 0;
    memcpy(&gram, bytes, sizeof gram);
    return Size == 4 ? gram : gram & ((1U << (8 * Size)) - 1);
}

// Multiplicative hashing: the high bits of the product depend on all bits of the gram.
uint32_t HashGram(uint32_t gram)
{
    return gram * 0x9E3779B1U;
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

// How common a byte is in system logs, roughly: 0 is rare. Only the speed depends on it.
int Commonness(char byte)
{
    static constexpr char kVeryCommon[] = " etaoinsr";
    static constexpr char kCommon[] = "lcdumpfghbvk:0123456789.-[]=/,()";
    if (memchr(kVeryCommon, byte, sizeof kVeryCommon - 1) != nullptr)
        return 3;
    return memchr(kCommon, byte, sizeof kCommon - 1) != nullptr ? 1 : 0;
}

// Where the rarest piece of so many bytes begins in a literal.
size_t RarestPiece(const Literal &literal, size_t piece)
{
    int sum = 0;
    for (size_t i = 0; i < piece; ++i)
        sum += Commonness(literal.text[i]);
    size_t best = 0;
    int best_sum = sum;
    for (size_t begin = 1; begin + piece <= literal.length; ++begin) {
        sum += Commonness(literal.text[begin + piece - 1]) - Commonness(literal.text[begin - 1]);
        if (sum < best_sum) {
            best_sum = sum;
            best = begin;
        }
    }
    return best;
}

template <size_t Size>
void AddGram(GramTable *table, LiteralId id, size_t offset)
{
    char bytes[4] = {};
    memcpy(bytes, literals[id].text + offset, Size); // nothing behind the literal is read
    const uint32_t hash = HashGram(LoadGram<Size>(bytes));
    const uint32_t bit = MapBit(hash);
    table->map[bit / 64] |= uint64_t{1} << (bit % 64);
    int32_t &bucket = table->buckets[Bucket(hash)];
    uses[use_count] = {bucket, id, static_cast<uint16_t>(offset)};
    bucket = ++use_count;
    table->is_used = true;
}

template <size_t Size, size_t Step>
void AddGrams(GramTable *table, LiteralId id)
{
    const size_t begin = RarestPiece(literals[id], Size + Step - 1);
    for (size_t i = 0; i < Step; ++i)
        AddGram<Size>(table, id, begin + i);
}

void AddToTables(LiteralId id)
{
    const Literal &literal = literals[id];
    if (literal.length >= kLongLiteral) {
        AddGrams<kLong.size, kLong.step>(&long_grams, id);
    } else if (literal.length >= kMiddleLiteral) {
        AddGrams<kMiddle.size, kMiddle.step>(&middle_grams, id);
    } else if (literal.length >= kShort.size) {
        AddGram<kShort.size>(&short_grams, id, 0);
    } else {
        literal_of_byte[static_cast<unsigned char>(literal.text[0])] = id + 1;
        has_bytes = true;
    }
}

void ClearGrams(GramTable *table)
{
    if (table->is_used)
        memset(table, 0, sizeof *table);
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
void CompareAt(const Searched &searched, size_t at, int32_t bucket)
{
    for (int32_t next = bucket; next != kNone; next = uses[next - 1].next) {
        const GramUse &use = uses[next - 1];
        const Literal &literal = literals[use.literal];
        const size_t begin = at - use.offset;
        if (use.offset <= at && begin + literal.length <= searched.length &&
            memcmp(searched.line + begin, literal.text, literal.length) == 0)
            NoteFound(use.literal, searched.found);
    }
}

// The last gram looked up may reach into the padding; what is compared never does.
template <size_t Size, size_t Step>
void FindByGrams(const Searched &searched, const GramTable &table)
{
    if (!table.is_used)
        return;
    for (size_t at = 0; at < searched.length; at += Step) {
        const uint32_t hash = HashGram(LoadGram<Size>(searched.line + at));
        const uint32_t bit = MapBit(hash);
        if ((table.map[bit / 64] >> (bit % 64) & 1U) != 0)
            CompareAt(searched, at, table.buckets[Bucket(hash)]);
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

} // namespace

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
    literals[id] = {text, static_cast<uint16_t>(length), false};
    text_slots[slot] = id + 1;
    return id;
}

void WantLiteral(LiteralId id)
{
    literals[id].is_wanted = true;
}

void PrepareLiterals()
{
    use_count = 0;
    ClearGrams(&long_grams);
    ClearGrams(&middle_grams);
    ClearGrams(&short_grams);
    memset(literal_of_byte, 0, sizeof literal_of_byte);
    has_bytes = false;
    for (int id = 0; id < literal_count; ++id) {
        if (literals[id].is_wanted)
            AddToTables(static_cast<LiteralId>(id));
    }
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
    FindByGrams<kLong.size, kLong.step>(searched, long_grams);
    FindByGrams<kMiddle.size, kMiddle.step>(searched, middle_grams);
    FindByGrams<kShort.size, kShort.step>(searched, short_grams);
    FindBytes(searched);
}
