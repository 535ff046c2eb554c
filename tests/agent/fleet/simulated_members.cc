// Members of a group without logs and without monitors: each has a store, and the thread of the daemon that takes the
// rules of its groups. For tests that have more hosts than a machine has room for daemons.
//
//   simulated_members FOLDER COUNT SERVERS
//
// Each lies below FOLDER. Says "begun" when all are there, and goes on until it is ended.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "agent/fleet/member.h"
#include "agent/fleet/setup.h"

namespace {

std::unique_ptr<fleet::Member> Begin(const std::filesystem::path &root, const std::string &servers)
{
    const host::Layout layout = host::Layout::Below(root);
    layout.CreateFolders();
    host::Store store(layout.Store());
    sinks::SinkConfig config = fleet::NewSetup(fleet::SetupPart::kMember, store);
    config.options = {{"groups", "web"}, {"servers", servers}, {"every", "60"}, {"timeout", "30"}};
    return std::make_unique<fleet::Member>(fleet::MemberOptions{layout, config});
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: simulated_members FOLDER COUNT SERVERS\n");
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    std::vector<std::unique_ptr<fleet::Member>> members;
    for (int i = 0; i < atoi(argv[2]); ++i)
        members.push_back(Begin(std::filesystem::path(argv[1]) / std::to_string(i), argv[3]));
    puts("begun");
    fflush(stdout);
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}
