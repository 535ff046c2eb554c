// sink undelivered, retry, drop: the alerts that a receiver has refused while it took others. They
// stand in a list until somebody decides; nothing is sent again by itself.
#include <algorithm>
#include <set>

#include <nlohmann/json.hpp>

#include "agent/alerts/alert_store.h"
#include "agent/cli/output.h"
#include "agent/cli/sink_commands.h"
#include "agent/cli/table.h"
#include "agent/sinks/undelivered.h"
#include "agent/text/times.h"

namespace cli {

namespace {

using nlohmann::json;
using sinks::Undelivered;

struct UndeliveredOptions {
    std::string name;
    std::vector<int64_t> ids;
};

alerts::Alert AlertOf(host::Database &database, const Undelivered &row)
{
    // The first one behind the number before. The alert may have left the store: then it is another
    // one, and the row is shown without its text.
    auto found = alerts::ReadAlerts(database, row.alert_id - 1, 0, 1);
    return found.empty() || found[0].id != row.alert_id ? alerts::Alert{} : std::move(found[0]);
}

// The alert's own fields are empty when it has left the store.
json ToJson(const Undelivered &row, const alerts::Alert &alert)
{
    return {{"id", row.alert_id},       {"peer", row.peer},   {"since_ms", row.since_ms},
            {"reason", row.reason},     {"again", row.again}, {"source", alert.source},
            {"message", alert.message}, {"host", alert.host}, {"time_ms", alert.time_ms}};
}

int ListUndelivered(Context &context, const UndeliveredOptions &options)
{
    context.OpenToRead();
    const sinks::SinkConfig sink = Sinks(context).Find(options.name).config;
    json list = json::array();
    Table table({"ALERT", "PUT ASIDE", "PEER", "REASON", "TEXT"});
    host::Database &database = context.Host().store().database();
    for (const Undelivered &row : sinks::ReadUndelivered(database, sink.key)) {
        const alerts::Alert alert = AlertOf(database, row);
        list.push_back(ToJson(row, alert));
        table.Add({std::to_string(row.alert_id), text::LocalTime(row.since_ms),
                   row.peer.empty() ? "-" : row.peer, row.again ? "to be sent again" : row.reason,
                   alert.message});
    }
    if (context.json)
        PrintJson({{"sink", sink.name}, {"undelivered", list}});
    else
        table.Print();
    return kExitDone;
}

// The alerts that are meant: these, or all that are undelivered.
std::set<int64_t> Chosen(host::Database &database, const sinks::SinkConfig &sink,
                         const std::vector<int64_t> &ids)
{
    // By alert: a sink with several receivers has a row for each that does not take it.
    std::set<int64_t> all;
    for (const Undelivered &row : sinks::ReadUndelivered(database, sink.key))
        all.insert(row.alert_id);
    // Before anything is changed, so that a wrong number changes nothing.
    for (const int64_t id : ids) {
        if (!all.contains(id))
            throw host::Error("cannot use the alert " + std::to_string(id),
                              "it is none of the undelivered ones of the sink " + sink.name,
                              "choose from syslogmon sink undelivered " + sink.name);
    }
    return ids.empty() ? all : std::set<int64_t>(ids.begin(), ids.end());
}

// Does it with each of the alerts that are meant; all or none.
int ForEach(Context &context, const UndeliveredOptions &options, const char *done,
            void (*act)(host::Store &, int64_t sink, int64_t alert_id))
{
    context.Open();
    host::Store &store = context.Host().store();
    // Around the look as well: the daemon may deliver one of them meanwhile.
    host::Transaction transaction(store);
    const sinks::SinkConfig sink = Sinks(context).Find(options.name).config;
    const std::set<int64_t> ids = Chosen(store.database(), sink, options.ids);
    for (const int64_t id : ids)
        act(store, sink.key, id);
    transaction.Commit();
    // Behind the commit: it reads what is wanted, and sends at once.
    TellDaemonOfSinks(context);
    if (context.json)
        PrintJson({{"sink", sink.name}, {done, ids}});
    return kExitDone;
}

// The daemon sends them, not this command: what becomes of them is seen in the list.
int Retry(Context &context, const UndeliveredOptions &options)
{
    return ForEach(context, options, "retried", sinks::WantAgain);
}

int Drop(Context &context, const UndeliveredOptions &options)
{
    return ForEach(context, options, "dropped", sinks::RemoveUndelivered);
}

// The options are owned by the action that is made of them.
std::shared_ptr<UndeliveredOptions> AddName(Parser &parser)
{
    auto options = std::make_shared<UndeliveredOptions>();
    parser.Add("name", options->name, "The sink's name").Required();
    return options;
}

std::shared_ptr<UndeliveredOptions> AddNameAndIds(Parser &parser)
{
    auto options = AddName(parser);
    parser.Add("id", options->ids, "Of which alerts; all, when none is given").TypeName("ID ...");
    return options;
}

} // namespace

void SetUpUndelivered(Parser &parser, Context &context)
{
    auto options = AddName(parser);
    parser.Runs([&, options] { return ListUndelivered(context, *options); });
}

void SetUpRetry(Parser &parser, Context &context)
{
    auto options = AddNameAndIds(parser);
    parser.Runs([&, options] { return Retry(context, *options); });
}

void SetUpDrop(Parser &parser, Context &context)
{
    auto options = AddNameAndIds(parser);
    parser.Runs([&, options] { return Drop(context, *options); });
}

} // namespace cli
