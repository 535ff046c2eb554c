#include "agent/cli/author.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace cli {

std::string Author()
{
    const char *sudo = getenv("SUDO_USER");
    if (sudo != nullptr)
        return sudo;
    const struct passwd *user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : std::to_string(geteuid());
}

} // namespace cli
