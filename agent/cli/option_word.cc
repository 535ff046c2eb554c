#include "agent/cli/option_word.h"

#include "agent/host/error.h"

namespace cli {

std::pair<std::string, std::string> SplitOption(const std::string &word)
{
    const size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0)
        throw host::Error("cannot use the option \"" + word + "\"", "it has no value",
                          "write NAME=VALUE");
    return {word.substr(0, equals), word.substr(equals + 1)};
}

} // namespace cli
