// The other process of the tests of sinks.
//
//   sink_helper deliver ROOT   delivers until it is killed; writes its progress once, at the start
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <unistd.h>

#include "agent/alerts/deliverer.h"
#include "agent/libtarsk/host.h"

int main(int argc, char **argv)
{
    if (argc != 3 || strcmp(argv[1], "deliver") != 0)
        return 2;
    signal(SIGPIPE, SIG_IGN);
    try {
        const tarsk::Layout layout = tarsk::Layout::Below(argv[2]);
        tarsk::StartHost(layout, tarsk::Role::kCommand);
        const alerts::Deliverer deliverer({layout, {}, std::chrono::hours(1)});
        for (;;)
            pause();
    } catch (const std::exception &error) {
        fprintf(stderr, "sink_helper: %s\n", error.what());
        return 1;
    }
}
