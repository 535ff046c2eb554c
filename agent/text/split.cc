#include "agent/text/split.h"

#include <algorithm>

namespace text {

std::vector<std::string> SplitAtCommas(const std::string &list)
{
    std::vector<std::string> parts;
    for (size_t begin = 0; begin <= list.size();) {
        const size_t end = std::min(list.find(',', begin), list.size());
        parts.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

} // namespace text
