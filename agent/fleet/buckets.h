// The servers' two buckets of keys and values: the files of the groups, and what each host says of itself.
//
//   syslogmon-rules    GROUP.all, GROUP.canary   see group_files.h; eight revisions of each are kept
//   syslogmon-status   UUID                      see host_status.h; one that nobody has renewed for 30 days goes
//
// They are buckets as the servers' other tools know them: a stream each, whose subjects are $KV.BUCKET.KEY. A host reads
// its keys one by one, and has no reader of the stream at the servers: that would be one for each host, and a right that
// cannot be bounded to what is the host's.
#ifndef AGENT_FLEET_BUCKETS_H
#define AGENT_FLEET_BUCKETS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/nats/connection.h"

namespace fleet {

inline constexpr char kRulesBucket[] = "syslogmon-rules";
inline constexpr char kStatusBucket[] = "syslogmon-status";

// Bytes of what a host says of itself.
inline constexpr size_t kMaxStatus = 64 * size_t{1024};

std::string AllKey(const std::string &group);
std::string CanaryKey(const std::string &group);
std::string SubjectOf(const std::string &bucket, const std::string &key);

// A value, or that a key was taken away.
struct KeyValue {
    std::string key;
    uint64_t revision = 0; // the bucket's own, which grows with each change of any key
    bool is_deleted = false;
    int64_t stored_ms = 0; // since 1970, by the clock of the server that stored it
    std::string value;
};

// All throw host::Error when the servers do not answer, or refuse.

// Makes those that are not there, on so many servers; without a number on three of them, or on the one that stands alone.
void MakeBuckets(const nats::Connection &connection, std::optional<int64_t> replicas);
// When a bucket was made, in nanoseconds since 1970; 0: there is none of that name.
int64_t CreatedOf(const nats::Connection &connection, const std::string &bucket);

// The newest one, as any of the servers has it at this moment: another one may have a newer one already. Nothing: it
// has none.
std::optional<KeyValue> ReadKey(const nats::Connection &connection, const std::string &bucket,
                                const std::string &key);
// Each newest one; or of one key all that are kept, the oldest first.
std::vector<KeyValue> ReadBucket(const nats::Connection &connection, const std::string &bucket);
std::vector<KeyValue> ReadHistory(const nats::Connection &connection, const std::string &bucket,
                                  const std::string &key);

// Returns the revision that it has. With `behind`: refused unless that is the revision of the key (0: it has none, and
// never had).
uint64_t WriteKey(const nats::Connection &connection, const std::string &bucket,
                  const std::string &key, const std::string &value,
                  std::optional<uint64_t> behind = std::nullopt);
void DeleteKey(const nats::Connection &connection, const std::string &bucket,
               const std::string &key);
// Nothing of it is left in the bucket, not even that it was there. It needs the right to change the bucket.
void PurgeKey(const nats::Connection &connection, const std::string &bucket,
              const std::string &key);

// The time by the servers' clock, which also stamps what they store: so what was stored how long ago is no matter of
// this host's clock. Asks once, when it is made, and needs the bucket of statuses.
class ServersClock {
  public:
    explicit ServersClock(const nats::Connection &connection);
    // Milliseconds since 1970.
    [[nodiscard]] int64_t NowMs() const;

  private:
    int64_t asked_ms_;
    std::chrono::steady_clock::time_point asked_at_;
};

} // namespace fleet

#endif // AGENT_FLEET_BUCKETS_H
