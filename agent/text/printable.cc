#include "agent/text/printable.h"

#include <algorithm>
#include <string_view>

#include "agent/text/utf8.h"

namespace text {

std::string Printable(const std::string &text)
{
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        const Character character = FirstCharacter(rest);
        const bool is_shown = character.bytes > 0 && !IsInvisible(character.code);
        shown += is_shown ? rest.substr(0, character.bytes) : "?";
        rest.remove_prefix(std::max<size_t>(character.bytes, 1));
    }
    return shown;
}

} // namespace text
