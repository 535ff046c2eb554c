// What a program prints on standard output counts when it is written, not when it is printed.
#ifndef AGENT_TEXT_FLUSH_H
#define AGENT_TEXT_FLUSH_H

namespace text {

// Writes what was printed on standard output so far. Throws host::Error when that, or something before it, could not be
// written. To be called before a program waits, and at its end.
void FlushOutput();

} // namespace text

#endif // AGENT_TEXT_FLUSH_H
