#include "agent/fleet/stream_message.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include "agent/sinks/nats_subjects.h"

namespace fleet {

namespace {

int64_t NumberIn(natsMsg *message, const char *header)
{
    const char *value = nullptr;
    const bool is_there = natsMsgHeader_Get(message, header, &value) == NATS_OK && value != nullptr;
    const int64_t number = is_there ? strtoll(value, nullptr, 10) : 0;
    return std::max<int64_t>(number, 0);
}

// Of an alert, by its key, SERIES/NUMBER.
int64_t IdIn(natsMsg *message)
{
    const char *key = nullptr;
    if (natsMsgHeader_Get(message, sinks::kKeyHeader, &key) != NATS_OK || key == nullptr)
        return 0;
    const char *slash = strrchr(key, '/');
    return slash != nullptr ? std::max<int64_t>(strtoll(slash + 1, nullptr, 10), 0) : 0;
}

} // namespace

bool IsMessage(natsMsg *message)
{
    return natsMsg_GetReply(message) != nullptr && *natsMsg_GetReply(message) != '\0';
}

bool HasEnded(natsMsg *answer)
{
    const char *status = nullptr;
    return natsMsgHeader_Get(answer, "Status", &status) == NATS_OK && status != nullptr &&
           strcmp(status, "408") == 0;
}

// It is in the subject to which the message is confirmed:
//   $JS.ACK.STREAM.READER.TIMES.SEQUENCE.NUMBER.NANOSECONDS.PENDING, of some with two words more behind ACK
Delivery DeliveryOf(natsMsg *message)
{
    std::vector<std::string> words;
    std::istringstream subject(natsMsg_GetReply(message));
    for (std::string word; std::getline(subject, word, '.');)
        words.push_back(word);
    const size_t first = words.size() < 11 ? 4 : 6;
    const auto number = [&](size_t i) {
        return first + i < words.size() ? strtoull(words[first + i].c_str(), nullptr, 10) : 0;
    };
    return {number(0), number(1), number(2), static_cast<int64_t>(number(3)), number(4)};
}

Arrived ArrivedOf(natsMsg *message)
{
    Arrived arrived;
    arrived.uuid = natsMsg_GetSubject(message);
    if (arrived.uuid.starts_with(sinks::kAlertSubject))
        arrived.uuid.erase(0, strlen(sinks::kAlertSubject));
    arrived.body.assign(natsMsg_GetData(message),
                        static_cast<size_t>(natsMsg_GetDataLength(message)));
    arrived.id = IdIn(message);
    arrived.after = NumberIn(message, sinks::kAfterHeader);
    arrived.dropped = NumberIn(message, sinks::kDroppedHeader);
    arrived.stored_ms = DeliveryOf(message).stored_ns / kNanosecondsInMs;
    return arrived;
}

} // namespace fleet
