// The names by which this machine is asked, as its own files have them, and what else it has hosts listed by
// (nsswitch.conf): no name server is asked, which could keep the daemon waiting, and which a stranger could be the master of.
#ifndef AGENT_WEB_OWN_NAMES_H
#define AGENT_WEB_OWN_NAMES_H

#include <string>
#include <vector>

namespace web {

// Its host name, and the first part of that; the first part with each domain in which /etc/resolv.conf has short names searched; and what /etc/hosts calls
// it in full: the first name of each line that has the host name.
std::vector<std::string> OwnNames();

} // namespace web

#endif // AGENT_WEB_OWN_NAMES_H
