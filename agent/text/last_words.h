// What a program says when it cannot go on.
#ifndef AGENT_TEXT_LAST_WORDS_H
#define AGENT_TEXT_LAST_WORDS_H

#include <exception>

namespace text {

// Says on standard error what has failed, without asking for memory: there may be none.
void SayWhatFailed(const std::exception_ptr &failure) noexcept;

// From now on what ends by an exception that nobody takes ends the process with status 1, and says why. To be called before
// anything else, also before the constants of the program are made, for which there may be no memory.
void SayWhyItEnds();

} // namespace text

#endif // AGENT_TEXT_LAST_WORDS_H
