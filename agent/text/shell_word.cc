#include "agent/text/shell_word.h"

namespace text {

std::string ShellWord(std::string_view text)
{
    constexpr std::string_view kForThemselves =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
        "0123456789_-+./:,=@%";
    if (!text.empty() && text.find_first_not_of(kForThemselves) == std::string_view::npos)
        return std::string(text);
    std::string word = "'";
    for (const char c : text) {
        if (c == '\'')
            word += R"('\'')";
        else
            word += c;
    }
    return word + "'";
}

} // namespace text
