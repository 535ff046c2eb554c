// A module's table of one event, LOG, as the host gets it.
#ifndef TESTS_AGENT_SUPPORT_TABLE_OF_ONE_H
#define TESTS_AGENT_SUPPORT_TABLE_OF_ONE_H

#include <cstring>

#include "agent/host/hit_counters.h"

namespace test {

class TableOfOne {
  public:
    TableOfOne()
    {
        strcpy(entry_.Source, "LOG");
        entry_.ReportCount = 1;
    }
    [[nodiscard]] host::ModuleTable Get() { return {slots_, &count_}; }
    void Hit() { ++entry_.CurrentCount; }

  private:
    VKVMon entry_{};
    VKVMon *slots_[2] = {&entry_, nullptr};
    int count_ = 1;
};

} // namespace test

#endif // TESTS_AGENT_SUPPORT_TABLE_OF_ONE_H
