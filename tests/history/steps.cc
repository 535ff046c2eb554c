#include "tests/history/steps.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "tests/history/slow_clock.h"

namespace history {

namespace {

constexpr const char *kLogNames[] = {"the system log", "the customer log", "the watched file"};
constexpr const char *kCreateNames[] = {"a new empty file", "nothing in its place",
                                        "by copying and truncating"};
constexpr const char *kHarmNames[] = {"removed", "emptied", "a folder in its place",
                                      "a dead link in its place", "compressed"};
constexpr const char *kStyleNames[] = {"plain", "long",  "very long",  "without a stamp", "own",
                                       "twin",  "empty", "odd repeat", "old stamp"};

std::string Number(int n)
{
    return std::to_string(n);
}

std::string NameOr(const char *name, const char *none)
{
    return name[0] != '\0' ? name : none;
}

} // namespace

bool IsWake(Do what)
{
    return what >= Do::kPass;
}

std::string Text(const Step &step)
{
    const std::string log = kLogNames[step.log];
    const std::string n = Number(step.n);
    switch (step.what) {
    case Do::kAppend:
        return log + ": " + n + " line(s), " + kStyleNames[step.m];
    case Do::kRepeat:
        return log + ": last message repeated " + n + " times";
    case Do::kPart:
        return log + ": the first " + n + " percent of a line";
    case Do::kRest:
        return log + ": the rest of the line";
    case Do::kGiveUp:
        return log + ": the rest of the line is given up";
    case Do::kRotate:
        return log + ": rotated, " + (step.m != 0 ? "dated, " : "numbered, ") +
               kCreateNames[step.n];
    case Do::kTruncate:
        return log + ": truncated to nothing";
    case Do::kCutTail:
        return log + ": loses its last " + n + " percent" + (step.m != 0 ? " to zero bytes" : "");
    case Do::kReplace:
        return log + ": replaced by a new file of " + n + " line(s)";
    case Do::kRemoveLine:
        return log + ": " + Number(step.m) + " line(s) at " + n + " percent are edited out";
    case Do::kInsertLine:
        return log + ": " + Number(step.m) + " line(s) are edited in at " + n + " percent";
    case Do::kRewrite:
        return log + ": rewritten in place at equal size";
    case Do::kRemoveLive:
        return log + ": removed";
    case Do::kHarmBackup:
        return log + ": backup " + n + " " + kHarmNames[step.m];
    case Do::kStray:
        return std::string("a file with the name ") + kStrayNames[step.n];
    case Do::kClock:
        return "the clock moves by " + n + " s";
    case Do::kTable:
        return "the table becomes variant " + n;
    case Do::kCustomer:
        return "the customer file becomes " + NameOr(kCustomerNames[step.n], "none");
    case Do::kTarget:
        return "the watched file becomes " + NameOr(kTargetNames[step.n], "none");
    case Do::kPass:
        return step.n % 2 == 0 ? "PASS" : "PASS, asked for";
    case Do::kReload:
        return "RELOAD of the table";
    case Do::kCycle:
        return "CYCLE was changed";
    case Do::kCustomerEvent:
        return "CUSTOMER FILE was changed";
    case Do::kTargetEvent:
        return "WATCHED FILE was changed";
    case Do::kRestart:
        return "RESTART";
    case Do::kKill:
        return "KILL in the middle of a pass, and start";
    case Do::kPassSplit:
        return "PASS while " + log + " gets a line in two writes: " + n +
               " percent before, the rest " + Number(step.m) + " ms later";
    case Do::kPassDuring: {
        std::string text = "PASS; before it opens file number " + n + ":";
        for (const Step &inner : step.inner)
            text += " [" + Text(inner) + "]";
        if (step.m > 0)
            text += " and again each " + Number(step.m) + " files";
        return text;
    }
    case Do::kPassDuringCall: {
        std::string text = "PASS; before its call number " + n + " on files:";
        for (const Step &inner : step.inner)
            text += " [" + Text(inner) + "]";
        return text;
    }
    }
    return "?";
}

std::string Text(const History &history)
{
    const Setup &setup = history.setup;
    char start[64];
    snprintf(start, sizeof start, "%lld in zone %s", static_cast<long long>(setup.start),
             setup.zone.c_str());
    std::string text = std::string("  begins at ") + start + ", customer file " +
                       NameOr(kCustomerNames[setup.customer], "none") + ", watched file " +
                       NameOr(kTargetNames[setup.target], "none") + ", " +
                       (setup.dated ? "dated" : "numbered") + " backups\n";
    int number = 0;
    for (const Step &step : history.steps)
        text += "  " + Number(++number) + ". " + Text(step) + "\n";
    return text;
}

uint64_t Random::Next()
{
    state_ += 0x9E3779B97F4A7C15U;
    uint64_t z = state_;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
}

// ---- generation ----

namespace {

// How often a kind of step is drawn, in a faithful history and in any.
struct Weight {
    Do what;
    int faithful;
    int any;
};
constexpr Weight kWeights[] = {
    {Do::kAppend, 30, 26},   {Do::kRepeat, 6, 6},        {Do::kPart, 2, 3},
    {Do::kRest, 2, 3},       {Do::kGiveUp, 0, 1},        {Do::kRotate, 12, 12},
    {Do::kTruncate, 0, 2},   {Do::kCutTail, 0, 2},       {Do::kReplace, 2, 2},
    {Do::kRemoveLine, 0, 2}, {Do::kRewrite, 0, 1},       {Do::kRemoveLive, 0, 1},
    {Do::kHarmBackup, 3, 4}, {Do::kInsertLine, 0, 1},    {Do::kStray, 1, 1},
    {Do::kClock, 8, 8},      {Do::kTable, 3, 2},         {Do::kCustomer, 0, 2},
    {Do::kTarget, 0, 2},     {Do::kPass, 22, 18},        {Do::kReload, 3, 2},
    {Do::kCycle, 1, 1},      {Do::kCustomerEvent, 0, 2}, {Do::kTargetEvent, 2, 2},
    {Do::kRestart, 2, 2},    {Do::kKill, 3, 2},          {Do::kPassSplit, 3, 3},
    {Do::kPassDuring, 5, 6},
};

// What a history is mostly about: the steps of its theme come more often.
constexpr int kMoreOften = 8;
const std::vector<std::vector<Do>> kThemes = {
    {}, // anything
    {Do::kRotate, Do::kHarmBackup},
    {Do::kRemoveLine, Do::kInsertLine, Do::kCutTail, Do::kClock},
    {Do::kRemoveLine, Do::kInsertLine, Do::kCutTail},
    {Do::kStray, Do::kRotate, Do::kHarmBackup},
    {Do::kRepeat, Do::kPart, Do::kRest, Do::kPassSplit},
    {Do::kPassDuring, Do::kRotate},
    {Do::kClock},
    {Do::kRestart, Do::kKill, Do::kReload, Do::kTable},
    {Do::kCustomer, Do::kCustomerEvent, Do::kTarget, Do::kTargetEvent},
};

int WeightOf(const Weight &weight, bool is_faithful, const std::vector<Do> &theme)
{
    const bool is_theme = std::find(theme.begin(), theme.end(), weight.what) != theme.end();
    return (is_faithful ? weight.faithful : weight.any) * (is_theme ? kMoreOften : 1);
}

Do DrawKind(Random *random, bool is_faithful, const std::vector<Do> &theme)
{
    int total = 0;
    for (const Weight &weight : kWeights)
        total += WeightOf(weight, is_faithful, theme);
    int at = random->Below(total);
    for (const Weight &weight : kWeights) {
        at -= WeightOf(weight, is_faithful, theme);
        if (at < 0)
            return weight.what;
    }
    return Do::kPass;
}

Log DrawLog(Random *random)
{
    const int at = random->Below(10);
    return at < 6 ? kSystemLog : at < 8 ? kCustomerLog : kWatchedFile;
}

// Mostly one to three; now and then more than a block of 16 KiB.
int DrawLines(Random *random)
{
    if (random->OneIn(12))
        return 6 + random->Below(14);
    return random->OneIn(40) ? 250 + random->Below(300) : 1 + random->Below(3);
}

Style DrawStyle(Random *random)
{
    if (!random->OneIn(4))
        return kPlain;
    return static_cast<Style>(random->Below(kStyles));
}

int DrawClock(Random *random)
{
    static constexpr int kUnits[] = {1, 1, 3, kMinute, kHour, kDay, 9 * kDay, 25 * kDay};
    const int unit = kUnits[random->Below(static_cast<int>(std::size(kUnits)))];
    const int amount = unit + random->Below(unit + 1);
    return random->OneIn(6) ? -amount : amount;
}

Step Draw(Random *random, Do what, const Setup &setup, bool is_faithful);

// What can come in between while a pass runs. In a faithful history, rotations by renaming.
std::vector<Step> DrawInner(Random *random, const Setup &setup, bool is_faithful)
{
    static constexpr Do kKinds[] = {Do::kRotate, Do::kAppend,   Do::kRotate,
                                    Do::kAppend, Do::kTruncate, Do::kRemoveLive};
    std::vector<Step> inner;
    const int count = 1 + random->Below(3);
    for (int i = 0; i < count; ++i) {
        const int kind = random->Below(is_faithful ? 2 : static_cast<int>(std::size(kKinds)));
        Step step = Draw(random, kKinds[kind], setup, is_faithful);
        if (is_faithful && step.what == Do::kRotate && step.n == kCopyTruncate)
            step.n = kCreateEmpty;
        inner.push_back(step);
    }
    return inner;
}

Step Draw(Random *random, Do what, const Setup &setup, bool is_faithful)
{
    Step step;
    step.what = what;
    step.log = DrawLog(random);
    switch (what) {
    case Do::kAppend:
        step.n = DrawLines(random);
        step.m = step.n > 5 && step.n < 30 && random->OneIn(2) ? kLong : DrawStyle(random);
        break;
    case Do::kRepeat:
        step.n = 1 + random->Below(9);
        break;
    case Do::kPart:
        step.n = random->Below(101);
        break;
    case Do::kCutTail:
        step.n = random->OneIn(3) ? random->Below(101) : random->Below(20);
        step.m = random->OneIn(3) ? 1 : 0;
        break;
    case Do::kRemoveLine:
    case Do::kInsertLine: // mostly near the end, because that is where the monitor stands
        step.n = random->OneIn(2) ? random->Below(101) : 80 + random->Below(21);
        step.m = 1 + random->Below(4);
        break;
    case Do::kStray:
        step.n = random->Below(static_cast<int>(std::size(kStrayNames)));
        break;
    case Do::kRotate:
        step.n = random->OneIn(3) ? 1 + random->Below(2) : kCreateEmpty;
        step.m = (random->OneIn(20) ? !setup.dated : setup.dated) ? 1 : 0;
        break;
    case Do::kReplace:
        step.n = random->Below(4);
        break;
    case Do::kHarmBackup:
        step.n = 1 + random->Below(3);
        step.m = random->Below(kHarms);
        break;
    case Do::kClock:
        step.n = DrawClock(random);
        break;
    case Do::kTable:
        step.n = random->Below(8);
        break;
    case Do::kCustomer:
        step.n = random->Below(static_cast<int>(std::size(kCustomerNames)));
        break;
    case Do::kTarget:
        step.n = random->Below(static_cast<int>(std::size(kTargetNames)));
        break;
    case Do::kPass:
        step.n = random->Below(2);
        break;
    case Do::kPassSplit:
        step.n = random->Below(101);
        step.m = random->Below(45);
        break;
    case Do::kPassDuring:
        step.n = 1 + random->Below(6);
        step.m = random->OneIn(2) ? 0 : 1 + random->Below(6);
        step.inner = DrawInner(random, setup, is_faithful);
        break;
    default:
        break;
    }
    return step;
}

// The middle of 2024, a month's end, a year's end, a leap day, two changes of the clock.
constexpr time_t kStarts[] = {
    1718445600, // 15 June 2024, 10:00 UTC
    1709243990, // 29 February 2024, 21:59:50
    1704067190, // 31 December 2023, 23:59:50
    1711846790, // 31 March 2024, 00:59:50: Central Europe's clocks go forward
    1729990790, // 27 October 2024, 00:59:50: and back
    1706745000, // 31 January 2024, 23:50
};

Setup DrawSetup(Random *random)
{
    Setup setup;
    setup.zone = random->OneIn(3) ? "CET-1CEST,M3.5.0,M10.5.0/3" : "UTC0";
    setup.start = kStarts[random->Below(static_cast<int>(std::size(kStarts)))] + random->Below(20);
    setup.customer = random->Below(3);
    setup.target = random->Below(2);
    setup.dated = random->OneIn(3);
    setup.hours = static_cast<uint32_t>(random->Next()) & 0xFFFFFFU;
    return setup;
}

} // namespace

History Generate(uint64_t seed, bool is_faithful)
{
    Random random(seed);
    History history;
    history.is_faithful = is_faithful;
    history.setup = DrawSetup(&random);
    const auto &theme =
        kThemes[static_cast<size_t>(random.Below(static_cast<int>(kThemes.size())))];
    const int count = 4 + random.Below(random.OneIn(8) ? 60 : 16);
    for (int i = 0; i < count; ++i)
        history.steps.push_back(
            Draw(&random, DrawKind(&random, is_faithful, theme), history.setup, is_faithful));
    return history;
}

namespace {

bool IsUnedited(const Step &step)
{
    switch (step.what) {
    case Do::kAppend:
    case Do::kRepeat:
    case Do::kRotate:
    case Do::kTruncate:
    case Do::kRemoveLive:
    case Do::kHarmBackup:
    case Do::kClock:
    case Do::kTable:
    case Do::kPass:
    case Do::kReload:
    case Do::kCycle:
    case Do::kRestart:
    case Do::kKill:
        return true;
    default:
        return false;
    }
}

} // namespace

History GenerateUnedited(uint64_t seed)
{
    History history = Generate(seed, false);
    history.tells_losses = true;
    std::erase_if(history.steps, [](const Step &step) { return !IsUnedited(step); });
    return history;
}

} // namespace history
