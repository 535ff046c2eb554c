// The host's trace log.
//
// The level is a kind, not a rank: each has one meaning.
#ifndef PLATFORM_TRACE_H
#define PLATFORM_TRACE_H

constexpr int TRACE_DETAIL = 0;  // entry and exit marks, and detail for a developer
constexpr int TRACE_ERROR = 1;   // something asked for was not done
constexpr int TRACE_SYSTEM = 2;  // a system call or an allocation failed
constexpr int TRACE_NOTABLE = 3; // what an administrator wants to see: start, end, reload, report

extern "C" {

// Writes one trace record. A level that is switched off costs a compare. The result has no meaning.
int TraceLog(int level, const char *unit, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

// Would a record of this level be written now? Returns 1 or 0. A host need not have it: then every record is made.
int TraceLogIsOn(int level) __attribute__((weak));

// Names the calling thread in the records that it writes.
int TraceLogSetThrName(const char *name);

} // extern "C"

// May a record of the level "detail" be written now?
inline bool DetailIsTraced()
{
    return TraceLogIsOn == nullptr || TraceLogIsOn(TRACE_DETAIL) != 0;
}

// A record of the function in which it stands. Each source file names its unit in kUnit.
#define TRACE(level, ...) TraceLog(level, kUnit, __func__, __LINE__, __VA_ARGS__)

// The same in a helper, under the name of the interface function for which it works: kInterface, which the file
// names once, or the helper in its first line. The trace log shows the functions of the interface and no others.
#define TRACE_HELPER(level, ...) TraceLog(level, kUnit, kInterface, __LINE__, __VA_ARGS__)

// The same in a helper that works for several, and is told for which.
#define TRACE_FOR(function, level, ...) TraceLog(level, kUnit, function, __LINE__, __VA_ARGS__)

#endif // PLATFORM_TRACE_H
