// metrics: what the monitor has counted, for Prometheus. With and without a daemon, since it is in the store.
#include <cstdio>
#include <optional>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/host/error.h"
#include "agent/metrics/metrics_text.h"
#include "agent/metrics/overview.h"
#include "agent/status/daemon_lock.h"
#include "agent/text/whole_file.h"

namespace cli {

namespace {

struct MetricsOptions {
    std::optional<std::string> textfile;
};

int ShowMetrics(Context &context, const MetricsOptions &options)
{
    if (context.json)
        throw host::Error(
            "cannot print the metrics as JSON", "they are in the text format of Prometheus",
            "leave --json out; the page of syslogmon set web has the counters as JSON");
    context.OpenToRead();
    const std::string text =
        metrics::MetricsText(metrics::Look(context.Host().registry(), context.layout,
                                           status::DaemonLock::Holder(context.layout)),
                             SYSLOGMON_VERSION);
    if (options.textfile)
        text::WriteWhole(*options.textfile, text);
    else
        fputs(text.c_str(), stdout);
    return kExitDone;
}

void SetUpMetrics(Parser &parser, Context &context)
{
    auto options = std::make_shared<MetricsOptions>();
    parser
        .Add("--textfile", options->textfile,
             "Write them into this file, whole, for a collector that reads files")
        .TypeName("FILE");
    parser.Runs([&, options] { return ShowMetrics(context, *options); });
}

} // namespace

const std::vector<Command> kMetricsCommands = {
    {"metrics", "Print what was counted, in the text format of Prometheus", SetUpMetrics},
};

} // namespace cli
