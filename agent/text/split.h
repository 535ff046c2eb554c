// Lists that people write on one line.
#ifndef AGENT_TEXT_SPLIT_H
#define AGENT_TEXT_SPLIT_H

#include <string>
#include <vector>

namespace text {

// "a,,b" has the three parts "a", "" and "b", the empty text one that is empty.
std::vector<std::string> SplitAtCommas(const std::string &list);

} // namespace text

#endif // AGENT_TEXT_SPLIT_H
