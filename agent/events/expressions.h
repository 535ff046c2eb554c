// Keywords as extended regular expressions: the monitor of a fault-tolerant server tries each
// keyword that way when it does not find it as plain text.
//
// The monitor itself takes whatever is registered, and counts a keyword that does not compile as
// not found, line after line. So what cannot work is found here, where somebody still looks: when
// rules are applied or tried, when an event is added, and by the doctor.
#ifndef AGENT_EVENTS_EXPRESSIONS_H
#define AGENT_EVENTS_EXPRESSIONS_H

#include <cstddef>
#include <optional>
#include <string>

namespace events {

// Why a keyword cannot be used as an expression, in the words of the C library; empty: it can.
std::string WhyNoExpression(const std::string &keyword);

// Does it refer back to what a group of it has matched, as \1 does?
bool HasBackReference(const std::string &keyword);

// How many characters, classes and groups it stands for when its repeats are written out as the C library does it: 6 for
// "x(ab?){2}y", 2 for "a+", which is "aa*".
// That is what its compiling and each line that is tried takes time and memory for. Of a text that is no expression, some
// number; of a huge one, a huge one.
size_t WrittenOut(const std::string &keyword);

// Is the keyword meant as an expression? A guess, for a hint on a server on which it is not one: it
// holds ".*", "[0-9]" and the like.
bool LooksLikeExpression(const std::string &keyword);

// What is wrong with a keyword on a fault-tolerant server, and what to do: both as parts of a
// message. Nothing for a keyword that can be used.
struct ExpressionFault {
    std::string cause;
    std::string advice;
};
std::optional<ExpressionFault> FaultOfExpression(const std::string &keyword);

} // namespace events

#endif // AGENT_EVENTS_EXPRESSIONS_H
