// Many reads of the store that must fit together.
#ifndef AGENT_COMMON_READ_SNAPSHOT_H
#define AGENT_COMMON_READ_SNAPSHOT_H

#include "agent/libtarsk/error.h"
#include "agent/libtarsk/host.h"

namespace agent {

// While it lives, this process reads the store as it is now, whatever others write, and waits for
// nobody. Not for writes.
class ReadSnapshot {
  public:
    explicit ReadSnapshot(tarsk::Store &store) : store_(store)
    {
        store_.Read([](tarsk::Database &database) { database.Execute("BEGIN"); });
    }
    ~ReadSnapshot()
    {
        try {
            store_.Read([](tarsk::Database &database) { database.Execute("ROLLBACK"); });
        } catch (const tarsk::StoreError &) {
            // It was rolled back already; the store says so to whoever reads next.
        }
    }
    ReadSnapshot(const ReadSnapshot &) = delete;
    ReadSnapshot &operator=(const ReadSnapshot &) = delete;

  private:
    tarsk::Store &store_;
};

} // namespace agent

#endif // AGENT_COMMON_READ_SNAPSHOT_H
