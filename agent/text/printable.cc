#include "agent/text/printable.h"

#include <algorithm>
#include <string_view>

#include "agent/text/utf8.h"

namespace text {

// Character by character, not byte by byte: what moves the cursor can be a character of several
// bytes, and a byte of an ordinary one can look like a control character.
std::string Printable(const std::string &text)
{
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        const Character character = FirstCharacter(rest);
        const bool is_shown = character.bytes > 0 && !IsInvisible(character.code);
        shown += is_shown ? rest.substr(0, character.bytes) : "?";
        // A byte that is not UTF-8 is passed alone, so that a whole character behind it is shown.
        rest.remove_prefix(std::max<size_t>(character.bytes, 1));
    }
    return shown;
}

} // namespace text
