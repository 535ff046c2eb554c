#include "tests/agent/support/the_host.h"

#include <memory>

namespace test {

namespace {

std::unique_ptr<host::Host> the_host;

} // namespace

void StartHost(const host::Layout &layout, host::Role role)
{
    the_host.reset();
    the_host = std::make_unique<host::Host>(layout, role);
}

void StopHost()
{
    the_host.reset();
}

bool HasHost()
{
    return the_host != nullptr;
}

host::Host &TheHost()
{
    return *the_host;
}

host::Store &Store()
{
    return the_host->store();
}

host::RegistryTree &Registry()
{
    return the_host->registry();
}

} // namespace test
