// Whether somebody else can change a file on which the agent relies: a program that it runs with its
// rights, a log that is to be believed.
#ifndef AGENT_SINKS_FILE_TRUST_H
#define AGENT_SINKS_FILE_TRUST_H

#include <string>
#include <sys/stat.h>

namespace sinks {

// What is wrong with a file, of which this is the status that lstat or fstat gives: it is a link, or
// others than its owner may write to it. Empty: nothing.
std::string WhyNotTrusted(const struct stat &status);

// The same of a program: its owner has to be root or the agent's user as well, and its folder must
// not let others put another file in its place. Empty also when there is no such file.
std::string WhyProgramNotTrusted(const std::string &path);

} // namespace sinks

#endif // AGENT_SINKS_FILE_TRUST_H
