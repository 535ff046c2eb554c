#include "agent/web/own_names.h"

#include <netdb.h>
#include <resolv.h>

#include <algorithm>
#include <strings.h>

#include "agent/host/here_and_now.h"

namespace web {

namespace {

bool IsCalled(const hostent &host, const std::string &name)
{
    if (strcasecmp(host.h_name, name.c_str()) == 0)
        return true;
    for (char **alias = host.h_aliases; *alias != nullptr; ++alias) {
        if (strcasecmp(*alias, name.c_str()) == 0)
            return true;
    }
    return false;
}

std::vector<std::string> InHosts(const std::string &name)
{
    std::vector<std::string> names;
    sethostent(0);
    while (const hostent *host = gethostent()) {
        if (IsCalled(*host, name))
            names.emplace_back(host->h_name);
    }
    endhostent();
    return names;
}

std::vector<std::string> InDomains(const std::string &name)
{
    std::vector<std::string> names;
    struct __res_state resolver {};
    if (res_ninit(&resolver) != 0)
        return names;
    for (char **domain = resolver.dnsrch; *domain != nullptr; ++domain)
        names.push_back(name + "." + *domain);
    res_nclose(&resolver);
    return names;
}

} // namespace

std::vector<std::string> OwnNames()
{
    const std::string name = host::HostName();
    if (name.empty())
        return {};
    // Some hosts have their full name for it.
    const std::string first = name.substr(0, name.find('.'));
    std::vector<std::string> names = InDomains(first);
    names.push_back(name);
    names.push_back(first);
    std::ranges::copy(InHosts(name), std::back_inserter(names));
    return names;
}

} // namespace web
