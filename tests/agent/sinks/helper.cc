// The other process of the tests of sinks.
//
//   sink_helper deliver ROOT   delivers until it is killed; writes its progress once, at the start
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <unistd.h>

#include "agent/host/host.h"
#include "agent/sinks/deliverer.h"

int main(int argc, char **argv)
{
    if (argc != 3 || strcmp(argv[1], "deliver") != 0)
        return 2;
    signal(SIGPIPE, SIG_IGN);
    try {
        const host::Layout layout = host::Layout::Below(argv[2]);
        const host::Host host(layout, host::Role::kCommand);
        const sinks::Deliverer deliverer({layout, {}, std::chrono::hours(1)});
        for (;;)
            pause();
    } catch (const std::exception &error) {
        fprintf(stderr, "sink_helper: %s\n", error.what());
        return 1;
    }
}
