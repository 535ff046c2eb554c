#include "agent/sinks/sink_registry.h"

#include <algorithm>
#include <strings.h>

#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/host/registry_values.h"
#include "agent/sinks/delivery_store.h"
#include "agent/sinks/option_checks.h"
#include "platform/registry.h"

namespace sinks {

namespace {

constexpr char kKind[] = "Kind";
using settings::kAlertLimit;
using settings::kAlertMegabytes;
using settings::kLargestAlertLimit;
using settings::kLargestAlertMegabytes;
using settings::kSmallestAlertLimit;
// Bytes of a sink's name. It is a registry key's name and an argument of commands, and in the name
// of a thread.
constexpr size_t kMaxName = 64;

std::string SinksPath()
{
    return std::string(host::kAgentKey) + "\\SINKS";
}

} // namespace

void CheckSinkName(const std::string &name)
{
    const bool ok = !name.empty() && name.size() <= kMaxName &&
                    name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                           "0123456789._-") == std::string::npos;
    if (!ok)
        throw host::Error("cannot use the name \"" + name.substr(0, kMaxName) + "\" for a sink",
                          "it is empty, too long, or holds other characters than those of names",
                          "use 1 to 64 letters, digits, \".\", \"_\" and \"-\"");
}

StoredSink SinkRegistry::Read(host::KeyId key, const std::string &name)
{
    StoredSink sink;
    sink.config.key = key;
    sink.config.name = name;
    sink.config.store_uuid = store_.uuid();
    std::string kind;
    for (const host::RegValue &value : registry_.Values(key)) {
        // Names in the registry have no case; those of options are lower-case, but for headers and
        // labels.
        if (strcasecmp(value.name.c_str(), kKind) == 0)
            kind = TextOf(value);
        else
            sink.config.options[value.name] = TextOf(value);
    }
    // What is wrong is noted and not thrown: one damaged sink must not hide the others.
    try {
        sink.config.kind = &FindKind(kind);
        for (const auto &[option, text] : sink.config.options) {
            const std::string allowed = FindOption(*sink.config.kind, option).check(text);
            if (!allowed.empty())
                throw host::Error("cannot use its " + option, "the value is not accepted",
                                  "use " + allowed);
        }
    } catch (const host::Error &error) {
        sink.problem = error.what();
    }
    return sink;
}

std::vector<StoredSink> SinkRegistry::ReadAll()
{
    std::vector<StoredSink> sinks;
    const auto parent = registry_.Find(host::kRootKey, SinksPath());
    if (!parent)
        return sinks;
    for (const std::string &name : registry_.SubKeys(*parent)) {
        const auto key = registry_.Find(*parent, name);
        if (key) // it may have gone in between
            sinks.push_back(Read(*key, name));
    }
    return sinks;
}

// Names compare as those of the registry's keys do.
StoredSink SinkRegistry::Find(const std::string &name)
{
    std::string known;
    for (StoredSink &sink : ReadAll()) {
        if (strcasecmp(sink.config.name.c_str(), name.c_str()) == 0)
            return sink;
        known += (known.empty() ? "" : ", ") + sink.config.name;
    }
    throw host::Error("cannot find the sink \"" + name + "\"", "there is none of that name",
                      known.empty() ? "add one with syslogmon sink add" : "use one of " + known);
}

void SinkRegistry::Add(SinkConfig config)
{
    CheckSinkName(config.name);
    host::Transaction transaction(store_); // two that add one name do so one after the other
    for (const StoredSink &sink : ReadAll()) {
        if (strcasecmp(sink.config.name.c_str(), config.name.c_str()) == 0)
            throw host::Error("cannot add the sink " + config.name,
                              "there is one of that name already",
                              "choose another name, or change that one with syslogmon sink set");
    }
    CheckSink(config);
    config.key = registry_.Create(host::kRootKey, SinksPath() + "\\" + config.name);
    host::SetText(registry_, config.key, kKind, config.kind->name);
    for (const auto &[name, value] : config.options)
        host::SetText(registry_, config.key, name, value);
    // A sink gets what is reported from now on, not all that is kept. In the same transaction as
    // the key: the deliverer sees both or nothing.
    Delivery begins_now;
    begins_now.last_id = alerts::NewestAlertId(store_.database());
    WriteDeliveries(store_, config.key, {{"", begins_now}});
    transaction.Commit();
}

SinkConfig SinkRegistry::Change(const std::string &name,
                                const std::function<void(StoredSink &)> &edit)
{
    host::Transaction transaction(store_);
    StoredSink sink = Find(name);
    edit(sink);
    const SinkConfig &config = sink.config;
    CheckSink(config);
    // What is no option any more goes. The key stays, and with it what the sink has had: so it goes
    // on where it was.
    for (const host::RegValue &value : registry_.Values(config.key)) {
        if (strcasecmp(value.name.c_str(), kKind) != 0 && !config.options.contains(value.name))
            registry_.DeleteValue(config.key, value.name);
    }
    for (const auto &[option, value] : config.options)
        host::SetText(registry_, config.key, option, value);
    transaction.Commit();
    return config;
}

void SinkRegistry::Remove(const std::string &name)
{
    // What is known of its deliveries goes with the key: see the tables of the store.
    registry_.DeleteKey(Find(name).config.key);
}

void SinkRegistry::SetNumber(const char *name, uint32_t number)
{
    host::Transaction transaction(store_);
    const host::KeyId key = registry_.Create(host::kRootKey, host::kAgentKey);
    host::SetNumber(registry_, key, name, number);
    transaction.Commit();
}

uint32_t SinkRegistry::AlertLimit()
{
    // A value that was written by hand may be anything.
    return std::clamp(host::AgentNumber(registry_, kAlertLimit).value_or(kDefaultAlertLimit),
                      kSmallestAlertLimit, kLargestAlertLimit);
}

void SinkRegistry::SetAlertLimit(const std::string &text)
{
    const std::string allowed = CheckRange(text, kSmallestAlertLimit, kLargestAlertLimit, "alerts");
    if (!allowed.empty())
        throw host::Error("cannot set the limit to \"" + text + "\"", "the value is not accepted",
                          "use " + allowed);
    SetNumber(kAlertLimit, static_cast<uint32_t>(std::stoul(text)));
}

// Without a setting, the alerts must leave something of a small disk to others.
uint32_t SinkRegistry::AlertMegabytes()
{
    constexpr int64_t kMegabyte = int64_t{1024} * 1024;
    const auto set = host::AgentNumber(registry_, kAlertMegabytes);
    if (set && *set != 0)
        return std::min(*set, kLargestAlertMegabytes);
    const int64_t disk = host::SizeOfDisk(store_.database().path());
    if (disk == 0) // it is not known
        return kDefaultAlertMegabytes;
    const int64_t quarter = disk / 4 / kMegabyte;
    return static_cast<uint32_t>(std::clamp<int64_t>(quarter, 1, kDefaultAlertMegabytes));
}

void SinkRegistry::SetAlertMegabytes(const std::string &text)
{
    const std::string allowed = CheckRange(text, 1, kLargestAlertMegabytes, "megabytes");
    if (!allowed.empty())
        throw host::Error("cannot set the limit to \"" + text + "\" megabytes",
                          "the value is not accepted", "use " + allowed);
    SetNumber(kAlertMegabytes, static_cast<uint32_t>(std::stoul(text)));
}

} // namespace sinks
