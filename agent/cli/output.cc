#include "agent/cli/output.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string_view>
#include <unistd.h>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/text/printable.h"
#include "agent/text/utf8.h"

namespace cli {

bool IsTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

namespace {

// The C library knows how wide the characters of Unicode are when the thread's locale is one of UTF-8. The process keeps
// its own: the module's expressions follow it.
class Utf8Locale {
  public:
    Utf8Locale() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr))
    {
        if (locale_ != nullptr)
            before_ = uselocale(locale_);
    }
    ~Utf8Locale()
    {
        if (locale_ == nullptr)
            return;
        uselocale(before_);
        freelocale(locale_);
    }
    Utf8Locale(const Utf8Locale &) = delete;
    Utf8Locale &operator=(const Utf8Locale &) = delete;

  private:
    locale_t locale_;
    locale_t before_ = nullptr;
};

// Of a character that the C library does not know, one.
size_t ColumnsOf(char32_t code)
{
    const int columns = wcwidth(static_cast<wchar_t>(code));
    return columns < 0 ? 1 : static_cast<size_t>(columns);
}

bool IsAscii(std::string_view text)
{
    return std::ranges::all_of(text, [](unsigned char c) { return c < 0x80U; });
}

} // namespace

size_t DisplayWidth(const std::string &text)
{
    if (IsAscii(text))
        return text.size();
    const Utf8Locale locale;
    size_t columns = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const text::Character first = text::FirstCharacter(rest);
        columns += first.bytes == 0 ? 1 : ColumnsOf(first.code);
        rest.remove_prefix(std::max<size_t>(first.bytes, 1));
    }
    return columns;
}

bool TakesColour()
{
    const char *no_colour = getenv("NO_COLOR");
    const char *terminal = getenv("TERM");
    return IsTerminal() && (no_colour == nullptr || *no_colour == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

std::string Painted(const std::string &text, Paint paint)
{
    if (!TakesColour())
        return text;
    const char *begin = paint == Paint::kBad      ? "\x1b[1;31m"
                        : paint == Paint::kNotice ? "\x1b[33m"
                                                  : "\x1b[32m";
    return begin + text + "\x1b[0m";
}

void PrintValue(const std::string &text)
{
    printf("%s\n", IsTerminal() ? text::Printable(text).c_str() : text.c_str());
}

void PrintError(const std::string &text)
{
    fprintf(stderr, "syslogmon: %s\n", text::Printable(text).c_str());
}

namespace {

constexpr int kOnOneLine = -1;

// Log lines may hold bytes that are no UTF-8; JSON text may not.
std::string Dumped(const nlohmann::json &object, int indentation)
{
    return text::PrintableJson(
               object.dump(indentation, ' ', false, nlohmann::json::error_handler_t::replace)) +
           "\n";
}

} // namespace

std::string JsonText(nlohmann::json object)
{
    object["version"] = kJsonVersion;
    return Dumped(object, 2);
}

void PrintJsonLine(const nlohmann::json &object)
{
    fputs(Dumped(object, kOnOneLine).c_str(), stdout);
}

void PrintJson(nlohmann::json object)
{
    fputs(JsonText(std::move(object)).c_str(), stdout);
}

} // namespace cli
