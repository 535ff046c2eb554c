// The slow twins of what a line goes through: time stamp, hours, the two matchers. Each is the rule written
// down in the obvious way, one library call for one step. They trace, count and report like the module does,
// through the same host.
#ifndef TESTS_SUPPORT_TWIN_MATCHER_H
#define TESTS_SUPPORT_TWIN_MATCHER_H

#include <ctime>
#include <string>

#include "platform/types.h"

namespace test::twin {

// By sscanf and mktime.
BOOL GetSyslogTime(const char *buf, time_t *pcur_time);
int OnTime(time_t t, unsigned int watchtime);

// Every entry, every keyword: strstr, and regcomp for each expression.
int CheckLine(char *line, int times);
int CheckFileLine(const char *line);

// Is there such a text in the line, as a pattern with the white space around it?
bool ExpressionMatches(const std::string &line, const std::string &keyword);

} // namespace test::twin

#endif // TESTS_SUPPORT_TWIN_MATCHER_H
