// The other process of the tests of sinks.
//
//   sink_helper deliver ROOT [MS]   delivers until it is killed; writes its progress once, at the start,
//                                   or so often
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <unistd.h>

#include "agent/host/host.h"
#include "agent/sinks/deliverer.h"

int main(int argc, char **argv)
{
    if (argc < 3 || argc > 4 || strcmp(argv[1], "deliver") != 0)
        return 2;
    std::chrono::milliseconds record_every = std::chrono::hours(1);
    if (argc == 4)
        record_every = std::chrono::milliseconds(atoi(argv[3]));
    signal(SIGPIPE, SIG_IGN);
    try {
        const host::Layout layout = host::Layout::Below(argv[2]);
        const host::Host host(layout, host::Role::kCommand);
        const sinks::Deliverer deliverer({layout, {}, record_every});
        for (;;)
            pause();
    } catch (const std::exception &error) {
        fprintf(stderr, "sink_helper: %s\n", error.what());
        return 1;
    }
}
