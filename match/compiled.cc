#include "match/compiled.h"

#include <clocale>
#include <cstdio>
#include <cstring>

#include "platform/contract.h"

uint64_t expressions_compiled = 0;
uint64_t expressions_tried = 0;

namespace {

// Written on the monitor thread.
CompiledPattern compiled[kMostCompiled];
size_t bytes_tried[kMostCompiled]; // since it was compiled
int compiled_count = 0;
uint16_t numbers[kMaxEntries][kKeywordsOfEntry]; // 1 + the number of the compiled one; 0: none
locale_t thread_locale;
char locale_name[256];

// The locale decides what an expression means. A name that is too long is taken for another one each time.
bool LocaleIsTheSame()
{
    const char *const name = setlocale(LC_ALL, nullptr);
    return uselocale(nullptr) == thread_locale && name != nullptr && strcmp(name, locale_name) == 0;
}

void NoteLocale()
{
    const char *const name = setlocale(LC_ALL, nullptr);
    thread_locale = uselocale(nullptr);
    snprintf(locale_name, sizeof locale_name, "%s", name != nullptr ? name : "");
}

// Compiles it if there is no number yet. False when it does not compile: it is tried again the next time.
bool HasNumber(const Pattern &pattern, uint16_t *number)
{
    if (*number != 0)
        return true;
    if (!Compile(pattern, &compiled[compiled_count]))
        return false;
    ++expressions_compiled;
    bytes_tried[compiled_count] = 0;
    *number = static_cast<uint16_t>(++compiled_count);
    return true;
}

// Compiles it anew when it has been tried on enough. Where that fails, the old one serves, and it is tried again.
void Renew(const Pattern &pattern, int i, size_t length)
{
    bytes_tried[i] += length;
    CompiledPattern anew;
    if (bytes_tried[i] <= kBytesOfCompiled || !Compile(pattern, &anew))
        return;
    Free(&compiled[i]);
    compiled[i] = anew;
    ++expressions_compiled;
    bytes_tried[i] = length;
}

} // namespace

void ForgetCompiled()
{
    if (compiled_count == 0)
        return;
    for (int i = 0; i < compiled_count; ++i)
        Free(&compiled[i]);
    compiled_count = 0;
    memset(numbers, 0, sizeof numbers);
}

int ExpressionsKept()
{
    return compiled_count;
}

bool MatchesCompiled(const char *line, const Pattern &pattern, int entry, int keyword)
{
    ++expressions_tried;
    if (!LocaleIsTheSame()) {
        ForgetCompiled();
        NoteLocale();
    }
    uint16_t &number = numbers[entry][keyword];
    const bool has_room = number != 0 || compiled_count < kMostCompiled;
    // A line end inside the text needs another way to compile.
    if (!has_room || strchr(line, '\n') != nullptr)
        return MatchesPattern(line, pattern);
    if (!HasNumber(pattern, &number))
        return false;
    Renew(pattern, number - 1, strlen(line));
    return Matches(line, compiled[number - 1]);
}
