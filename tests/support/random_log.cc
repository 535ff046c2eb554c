#include "tests/support/random_log.h"
#include "match/table_data.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace test {

namespace {

constexpr char kLetters[] = "abcdexyz019-_:";
constexpr char kFewLetters[] = "ab";
const std::string kOddBytes = "\x80\x9f\xa0\xc3\xa9\xe2\x82\xff\x01\x7f\t";
const std::array<const char *, 14> kWords = {"error",
                                             "kernel:",
                                             "disk",
                                             "sda",
                                             "failed",
                                             "link down",
                                             "user",
                                             "TARSK",
                                             "out of memory",
                                             "[0]",
                                             "eth0",
                                             "I/O",
                                             "\xC3\xA9t\xC3\xA9",
                                             "\xE6\x97\xA5\xE6\x9C\xAC"};

constexpr size_t kLongestKeyword = 256;

std::string Cut(std::string text, size_t length = kLongestKeyword)
{
    if (text.size() > length)
        text.resize(length);
    return text;
}

// ---- expressions ----

RandomKeyword Same(const std::string &text)
{
    return {text, text};
}

RandomKeyword Join(const RandomKeyword &a, const RandomKeyword &b)
{
    return {a.text + b.text, a.sample + b.sample};
}

RandomKeyword Literal(Random &random)
{
    if (random.Chance(15))
        return Same(random.OneOf(kWords) + std::string(random.Chance(50) ? "x" : ""));
    if (random.Chance(10))
        return Same(random.Text(1 + random.Below(2), kOddBytes));
    return Same(random.Text(1 + random.Below(6), "abxyz 019-_,"));
}

RandomKeyword Bracket(Random &random)
{
    static const std::array<RandomKeyword, 16> kBrackets = {{{"[abc]", "b"},
                                                             {"[^a]", "x"},
                                                             {"[a-z]", "q"},
                                                             {"[[:digit:]]", "7"},
                                                             {"[[:space:]x]", " "},
                                                             {"[]a]", "]"},
                                                             {"[^]a]", "b"},
                                                             {"[a[.-.]]", "-"},
                                                             {"[[=a=]b]", "a"},
                                                             {"[\\]", "\\"},
                                                             {"[a|b]", "|"},
                                                             {"[(]", "("},
                                                             {"[[:alpha:][:digit:]_]", "_"},
                                                             {"[^[:alnum:]]", "-"},
                                                             {"[{}*]", "{"},
                                                             {"[\xC3\xA9x]", "x"}}};
    return random.OneOf(kBrackets);
}

RandomKeyword Escape(Random &random)
{
    static const std::array<RandomKeyword, 18> kEscapes = {{{"\\.", "."},
                                                            {"\\*", "*"},
                                                            {"\\(", "("},
                                                            {"\\)", ")"},
                                                            {"\\|", "|"},
                                                            {"\\\\", "\\"},
                                                            {"\\[", "["},
                                                            {"\\{", "{"},
                                                            {"\\w", "a"},
                                                            {"\\W", "-"},
                                                            {"\\s", " "},
                                                            {"\\S", "x"},
                                                            {"\\b", ""},
                                                            {"\\<", ""},
                                                            {"\\>", ""},
                                                            {"\\B", ""},
                                                            {"\\a", "a"},
                                                            {"\\1", ""}}};
    return random.OneOf(kEscapes);
}

RandomKeyword Sequence(Random &random, int depth);

RandomKeyword Group(Random &random, int depth)
{
    RandomKeyword inner = Sequence(random, depth - 1);
    if (random.Chance(30))
        inner.text += "|" + Sequence(random, depth - 1).text;
    // The first group is the white space before the keyword.
    if (random.Chance(15))
        return {"(" + inner.text + ")\\2", inner.sample + inner.sample};
    return {"(" + inner.text + ")", inner.sample};
}

RandomKeyword Atom(Random &random, int depth)
{
    switch (random.Below(depth > 0 ? 12 : 10)) {
    case 0:
        return {".", random.Text(1, "a.z ")};
    case 1:
    case 2:
        return Bracket(random);
    case 3:
        return Escape(random);
    case 4:
        return random.Chance(50) ? RandomKeyword{"^", ""} : RandomKeyword{"$", ""};
    case 10:
    case 11:
        return Group(random, depth);
    default:
        return Literal(random);
    }
}

std::string Repeated(const std::string &text, int times)
{
    std::string repeated;
    for (int i = 0; i < times; ++i)
        repeated += text;
    return repeated;
}

// A quantifier binds the last character of a literal only, so the sample of the rest stays.
RandomKeyword Quantified(Random &random, const RandomKeyword &atom)
{
    struct Quantifier {
        const char *text;
        int least, most;
    };
    static constexpr std::array<Quantifier, 12> kQuantifiers = {{{"*", 0, 3},
                                                                 {"+", 1, 3},
                                                                 {"?", 0, 1},
                                                                 {"{2}", 2, 2},
                                                                 {"{1,3}", 1, 3},
                                                                 {"{,2}", 0, 2},
                                                                 {"{0}", 0, 0},
                                                                 {"{0,}", 0, 2},
                                                                 {"{1,}", 1, 2},
                                                                 {"+?", 0, 1},
                                                                 {"*{2}", 0, 2},
                                                                 {"{2}*", 0, 0}}};
    const Quantifier &quantifier = random.OneOf(kQuantifiers);
    const int times = random.Between(quantifier.least, quantifier.most);
    const bool is_literal = atom.text == atom.sample && !atom.text.empty();
    const size_t kept = is_literal ? atom.sample.size() - 1 : 0;
    return {atom.text + quantifier.text,
            atom.sample.substr(0, kept) + Repeated(atom.sample.substr(kept), times)};
}

// The C library can take hours for a repeat inside a repeat, or a repeated back reference.
bool MayBeQuantified(const RandomKeyword &atom)
{
    return atom.text.find_first_of("*+?{") == std::string::npos &&
           !(atom.text.starts_with("\\") &&
             isdigit(static_cast<unsigned char>(atom.text[1])) != 0) &&
           !atom.text.ends_with("\\2");
}

RandomKeyword Sequence(Random &random, int depth)
{
    RandomKeyword sequence;
    for (size_t left = 1 + random.Below(3); left > 0; --left) {
        RandomKeyword atom = Atom(random, depth);
        if (random.Chance(30) && MayBeQuantified(atom))
            atom = Quantified(random, atom);
        sequence = Join(sequence, atom);
    }
    return sequence;
}

// A slip of the pen: most of them do not compile.
std::string Damaged(Random &random, std::string text)
{
    const size_t at = random.Below(text.size() + 1);
    if (random.Chance(50))
        return text.insert(at, 1, ".[](){}*+?^$|\\,:="[random.Below(17)]);
    if (at < text.size())
        text.erase(at, 1);
    return text;
}

} // namespace

RandomKeyword RandomExpression(Random &random)
{
    RandomKeyword expression = Sequence(random, 2);
    if (random.Chance(12)) {
        const RandomKeyword other = Sequence(random, 1);
        expression.text += "|" + other.text;
        if (random.Chance(50))
            expression.sample = other.sample;
    }
    if (random.Chance(20))
        expression.text = Damaged(random, expression.text);
    return {Cut(expression.text), expression.sample};
}

// ---- plain keywords ----

RandomKeyword RandomPlainKeyword(Random &random)
{
    static constexpr std::array<size_t, 8> kLengths = {2, 3, 4, 5, 6, 7, 8, 9};
    switch (random.Below(12)) {
    case 0:
    case 1:
        return Same("");
    case 2:
        return Same(random.Text(1, kLetters));
    case 3:
        return Same(random.OneOf(kWords));
    case 4: // many of them overlap
        return Same(random.Text(1 + random.Below(12), kFewLetters));
    case 5:
        return Same(random.Text(random.OneOf(kLengths), kOddBytes));
    case 6:
        return Same(random.Text(kLongestKeyword - random.Below(3),
                                random.Chance(50) ? kFewLetters : kLetters));
    case 7:
        return Same(random.Text(10 + random.Below(60), kLetters));
    default:
        return Same(random.Text(random.OneOf(kLengths), kLetters));
    }
}

// ---- tables ----

TableShape RandomShape(Random &random)
{
    TableShape shape;
    const size_t kind = random.Below(100);
    if (kind < 20)
        shape.entries = 1;
    else if (kind < 82)
        shape.entries = 2 + random.Below(11);
    else if (kind < 96)
        shape.entries = 13 + random.Below(90);
    else if (kind < 99)
        shape.entries = 100 + random.Below(500);
    else
        shape.entries = kMaxEntries;
    shape.expressions = random.Chance(50);
    shape.shared = random.Chance(30);
    shape.only_empty = random.Chance(2);
    return shape;
}

RandomTable::RandomTable(Random &random, const TableShape &shape) : shape_(shape)
{
    for (int i = 0; i < 3; ++i)
        pool_.push_back(RandomPlainKeyword(random));
    for (size_t i = 0; i < shape.entries; ++i)
        AddEntry(random, {Keyword(random), Keyword(random), Keyword(random)});
}

RandomKeyword RandomTable::Keyword(Random &random) const
{
    if (shape_.only_empty)
        return {};
    if (shape_.shared && random.Chance(60))
        return random.OneOf(pool_);
    // Few in a large table: each is compiled for each line, by the slow twin.
    if (shape_.expressions && random.Chance(shape_.entries > 100 ? 3 : 35))
        return RandomExpression(random);
    if (!keywords_.empty() && random.Chance(15))
        return Relative(random);
    return RandomPlainKeyword(random);
}

// A keyword that holds another one, or is held by it, or overlaps it.
RandomKeyword RandomTable::Relative(Random &random) const
{
    const std::string &text = random.OneOf(random.OneOf(keywords_)).text;
    const size_t begin = random.Below(text.size() + 1);
    std::string relative = text.substr(begin, random.Below(text.size() - begin + 1));
    if (random.Chance(50))
        relative += random.Text(random.Below(4), kLetters);
    if (random.Chance(30))
        relative.insert(0, random.Text(random.Below(4), kFewLetters));
    return Same(Cut(relative));
}

void RandomTable::AddEntry(Random &random, const std::array<RandomKeyword, 3> &keywords)
{
    static constexpr std::array<int32_t, 10> kCounts = {1, 1, 1, 2, 3, 7, 0, -1, INT_MIN, INT_MAX};
    static constexpr std::array<const char *, 5> kSources = {"SRC", "FTREPORT", "FTREPORTS",
                                                             "FTREPOR", ""};
    auto *entry = static_cast<VKVMon *>(calloc(1, sizeof(VKVMon)));
    char *const places[] = {entry->Keyword1, entry->Keyword2, entry->Keyword3};
    for (size_t k = 0; k < 3; ++k)
        memcpy(places[k], keywords[k].text.c_str(), keywords[k].text.size() + 1);
    snprintf(entry->Source, sizeof entry->Source, "%s", random.OneOf(kSources));
    entry->EventID = static_cast<uint32_t>(random.Bits());
    entry->ReportCount = random.OneOf(kCounts);
    entry->CurrentCount = random.Chance(5) ? INT_MAX - 1 : static_cast<int32_t>(random.Below(3));
    entry->WatchTime = random.Chance(70) ? 0xFFFFFFU : static_cast<uint32_t>(random.Bits());
    if (random.Chance(5))
        entry->WatchTime = 0;
    lpVKVMon[nCnt++] = entry;
    keywords_.push_back(keywords);
}

std::string RandomTable::Line(Random &random, const std::string &head, size_t length) const
{
    std::string line = head;
    for (size_t left = 1 + random.Below(3); left > 0; --left) {
        std::array<RandomKeyword, 3> keywords = random.OneOf(keywords_);
        std::shuffle(keywords.begin(), keywords.end(),
                     std::minstd_rand(static_cast<uint32_t>(random.Bits())));
        for (const RandomKeyword &keyword : keywords) {
            if (random.Chance(20))
                line += random.OneOf(kWords);
            const std::string &text = random.Chance(60) ? keyword.sample : keyword.text;
            line += random.Chance(15) ? Edited(random, text) : text;
            if (random.Chance(40))
                line += ' ';
        }
    }
    if (random.Chance(4)) {
        const std::string own = random.Chance(50) ? "TARSKvkvmain" : Edited(random, "TARSKvkvmain");
        line.insert(random.Below(line.size() + 1), own);
    }
    if (length == 0)
        return line;
    if (line.size() < length) {
        // In the middle, so that keywords stand at the end of the line as well.
        const size_t at = head.size() + random.Below(line.size() - head.size() + 1);
        line.insert(at, random.Text(length - line.size(), random.Chance(50) ? "x" : kLetters));
    }
    line.resize(length);
    return line;
}

void EmptyTable()
{
    FreeTableEntries();
    nCnt = 0;
}

// ---- lines ----

std::string Edited(Random &random, std::string text)
{
    if (text.empty())
        return text;
    const size_t at = random.Below(text.size());
    switch (random.Below(4)) {
    case 0:
        text[at] = kLetters[random.Below(sizeof kLetters - 1)];
        break;
    case 1:
        text.erase(at, 1);
        break;
    case 2:
        text.insert(at, 1, text[at]);
        break;
    default:
        text[at] = static_cast<char>(static_cast<unsigned char>(text[at]) ^ 0x20U);
        break;
    }
    // A byte that would end the line is another story.
    std::erase_if(text, [](char c) { return c == '\0' || c == '\n'; });
    return text;
}

std::string RandomHead(Random &random, time_t now)
{
    if (random.Chance(5))
        return random.Text(random.Below(12), "Mar 10:2\t");
    const time_t moment =
        now - static_cast<time_t>(random.Below(random.Chance(90) ? 3600 : 86400UL * 90));
    struct tm local {};
    localtime_r(&moment, &local);
    char text[32];
    strftime(text, sizeof text, random.Chance(90) ? "%b %e %H:%M:%S " : "%b %d %H:%M:%S", &local);
    return random.Chance(4) ? Edited(random, text) : text;
}

size_t RandomLineLength(Random &random)
{
    if (random.Chance(90))
        return 0;
    static constexpr std::array<size_t, 9> kLengths = {3326, 3327, 3328, 3329, 3330,
                                                       6656, 8192, 1664, 500};
    return random.OneOf(kLengths);
}

// ---- whole logs ----

namespace {

constexpr size_t kBlock = 16384;

// How long the next line is, its newline not counted.
size_t NextLength(Random &random, size_t written, const LogShape &shape)
{
    const size_t kind = random.Below(100);
    if (kind < 78)
        return random.Below(110);
    if (kind < 83)
        return 0;
    if (kind < 88)
        return 3320 + random.Below(20);
    if (kind < 96) { // to the border of a block, give or take a few bytes
        const size_t border = kBlock - (written % kBlock);
        const size_t length = border + random.Below(7);
        return length >= 4 ? std::min(length - 4, kBlock - 1) : 0;
    }
    return shape.long_lines ? random.Below(3 * kBlock) : random.Below(kBlock - 1);
}

std::string StampOf(time_t moment)
{
    struct tm local {};
    localtime_r(&moment, &local);
    char text[32];
    strftime(text, sizeof text, "%b %e %H:%M:%S", &local);
    return text;
}

} // namespace

std::string RandomLog(Random &random, time_t begin, const LogShape &shape)
{
    std::string log;
    time_t moment = begin;
    while (log.size() < shape.least_bytes || (shape.least_bytes == 0 && random.Chance(90))) {
        const size_t length = NextLength(random, log.size(), shape);
        std::string line;
        if (shape.always_stamped || random.Chance(80))
            line = StampOf(moment) + " ";
        if (random.Chance(30))
            line += random.OneOf(kWords);
        if (line.size() < length)
            line += random.Text(length - line.size(), "ab ");
        line.resize(length);
        if (shape.zero_bytes && length > 0 && random.Chance(3))
            line[random.Below(length)] = '\0';
        if (length > 0 && random.Chance(3))
            line.back() = '\r';
        log += line + "\n";
        if (random.Chance(random.Chance(70) ? 20 : 80)) // many lines of the same second, or few
            moment += random.Between(random.Chance(90) ? 0 : -5, 3);
    }
    if (!log.empty() && random.Chance(30))
        log.resize(log.size() - 1 - random.Below(std::min<size_t>(log.size(), 5)));
    return log;
}

} // namespace test
