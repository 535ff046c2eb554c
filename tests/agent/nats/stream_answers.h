// What servers say of the stream "s" and of its readers.
#ifndef TESTS_AGENT_NATS_STREAM_ANSWERS_H
#define TESTS_AGENT_NATS_STREAM_ANSWERS_H

#include <cstdint>
#include <string>

namespace test {

// With messages up to this one.
inline std::string StreamInfo(uint64_t last)
{
    return R"({"type":"io.nats.jetstream.api.v1.stream_info_response","config":{"name":"s"},)"
           R"("created":"2026-11-22T10:00:00Z","state":{"last_seq":)" +
           std::to_string(last) + "}}";
}

// Of the reader "r", which has had all up to this one.
inline std::string ReaderInfo(uint64_t delivered)
{
    return R"({"type":"io.nats.jetstream.api.v1.consumer_info_response","stream_name":"s",)"
           R"("name":"r","created":"2026-11-22T10:00:00Z","config":{"durable_name":"r"},)"
           R"("delivered":{"consumer_seq":0,"stream_seq":)" +
           std::to_string(delivered) + R"(},"num_ack_pending":0,"num_pending":0})";
}

} // namespace test

#endif // TESTS_AGENT_NATS_STREAM_ANSWERS_H
