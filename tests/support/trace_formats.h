// The formats of the host's trace records, as the module passed them.
#ifndef TESTS_SUPPORT_TRACE_FORMATS_H
#define TESTS_SUPPORT_TRACE_FORMATS_H

#include <set>
#include <string>

namespace test {

// Every format given to TraceLog so far, by this process.
std::set<std::string> &TraceFormats();

} // namespace test

#endif // TESTS_SUPPORT_TRACE_FORMATS_H
