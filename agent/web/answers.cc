#include "agent/web/answers.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "agent/alerts/alert_store.h"
#include "agent/alerts/alert_text.h"
#include "agent/history/history_reader.h"
#include "agent/host/here_and_now.h"
#include "agent/metrics/metrics_text.h"
#include "agent/policy/silence_registry.h"
#include "agent/sinks/alert_json.h"
#include "agent/status/sign_of_life.h"

namespace web {

namespace {

using history::Kind;
using nlohmann::ordered_json;

constexpr std::chrono::milliseconds kKeptFor{1000};
constexpr size_t kMostKept = 64;
// Some of the largest, of 2,048 events. What is above is made anew for each who asks.
constexpr size_t kMostKeptBytes = size_t{4} << 20;
// Points of a course, and series of it.
constexpr int64_t kMostPoints = 1500;
constexpr int64_t kMostSeries = 50;
constexpr int64_t kMostAlerts = 1000;
constexpr int64_t kMsOfSecond = 1000;

// A query that cannot be used.
class BadQuery : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

int64_t NumberIn(const Query &query, const char *name, int64_t missing, int64_t least, int64_t most)
{
    const auto found = query.find(name);
    if (found == query.end() || found->second.empty())
        return missing;
    const std::string &text = found->second;
    int64_t number = 0;
    const auto [stopped, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failed != std::errc() || stopped != text.data() + text.size() || number < least ||
        number > most)
        throw BadQuery(std::string(name) + " must be a number from " + std::to_string(least) +
                       " to " + std::to_string(most));
    return number;
}

std::string TextIn(const Query &query, const char *name, const char *missing)
{
    const auto found = query.find(name);
    return found == query.end() || found->second.empty() ? missing : found->second;
}

std::optional<uint32_t> EventIn(const Query &query)
{
    const std::string id = TextIn(query, "event_id", "");
    if (id.empty())
        return std::nullopt;
    try {
        return events::ParseEventId(id);
    } catch (const host::Error &error) {
        throw BadQuery(error.what());
    }
}

// Bytes that are no UTF-8 are replaced, since JSON has none.
std::string ToText(const ordered_json &object)
{
    return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

ordered_json OrNull(const std::string &text)
{
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json OrNull(std::optional<int64_t> number)
{
    return number ? ordered_json(*number) : ordered_json(nullptr);
}

// ---- the overview ----

ordered_json ToJson(const metrics::LogView &log)
{
    return {{"path", log.path},
            {"role", log.role},
            {"unread_bytes", OrNull(log.unread)},
            {"behind_seconds", OrNull(log.behind_s)}};
}

ordered_json ToJson(const status::InputStatus &input, int64_t now_ms)
{
    return {{"name", input.name},
            {"kind", input.kind},
            {"open_files", input.open_files},
            {"unread_bytes",
             input.behind_bytes < 0 ? ordered_json(nullptr) : ordered_json(input.behind_bytes)},
            {"behind_seconds", SecondsBehind(input, now_ms)},
            {"last_entry_ms",
             input.last_entry_ms == 0 ? ordered_json(nullptr) : ordered_json(input.last_entry_ms)},
            {"problems", input.problems}};
}

ordered_json ToJson(const metrics::SinkView &sink)
{
    return {{"name", sink.name},
            {"kind", sink.kind},
            {"delivered", sink.delivered},
            {"waiting", sink.waiting},
            {"undelivered", sink.undelivered},
            {"dropped", sink.dropped},
            {"last_error", OrNull(sink.last_error)}};
}

// Of the daemon that serves it, so it is running.
ordered_json DaemonToJson(const metrics::Overview &view)
{
    ordered_json object = {{"state", nullptr}, {"stands", OrNull(view.stands)}};
    if (!view.status)
        return object;
    const status::Status &status = *view.status;
    object["state"] = status::MonitorStateName(status.state);
    object["pid"] = status.pid;
    object["started_ms"] = status.started_ms;
    object["restarts"] = status.restarts;
    object["last_error"] = OrNull(status.last_error);
    object["watch_problem"] = OrNull(status.watch_problem);
    object["inputs_wait"] = OrNull(status.inputs_wait);
    object["last_pass"] = {{"number", status.last_pass.number},
                           {"kind", status::PassKindName(status.last_pass.kind)},
                           {"began_ms", status.last_pass.began_ms},
                           {"took_us", status.last_pass.took_us}};
    object["last_full_pass_ms"] = status.last_full_pass.began_ms;
    object["seconds_since_look"] = OrNull(status::SecondsSinceLook(status));
    object["is_late"] = status::IsLate(status, view.cycle_s);
    return object;
}

// Those that are not over.
ordered_json Silences(host::RegistryTree *registry, int64_t now_s)
{
    ordered_json list = ordered_json::array();
    for (const policy::Silence &silence : policy::ReadSilences(*registry)) {
        if (silence.IsOver(now_s))
            continue;
        list.push_back(
            {{"number", silence.number},
             {"source", silence.source},
             {"event_id", silence.event_id ? ordered_json(events::FormatEventId(*silence.event_id))
                                           : ordered_json(nullptr)},
             {"host", silence.host},
             {"labels", OrNull(policy::LabelsText(silence.labels))},
             {"state", silence.StateName(now_s)},
             {"holds", silence.Holds(now_s)},
             {"begin_ms", silence.begin_s * kMsOfSecond},
             {"end_ms", silence.end_s == 0 ? ordered_json(nullptr)
                                           : ordered_json(silence.end_s * kMsOfSecond)},
             {"window", OrNull(silence.window ? policy::WindowText(*silence.window) : "")},
             {"comment", OrNull(silence.comment)},
             {"author", OrNull(silence.author)}});
    }
    return list;
}

// ---- the course of a kind ----

struct KindName {
    const char *name;
    Kind kind;
};
constexpr KindName kKinds[] = {
    {"hits", Kind::kHits},
    {"alerts", Kind::kAlerts},
    {"held_back", Kind::kHeldBack},
    {"lines", Kind::kLines},
    {"bytes", Kind::kBytes},
    {"without_stamp", Kind::kWithoutTime},
    {"behind", Kind::kBehind},
    {"input_entries", Kind::kInputLines},
    {"input_bytes", Kind::kInputBytes},
};

Kind KindIn(const Query &query)
{
    const std::string wanted = TextIn(query, "kind", "hits");
    std::string known;
    for (const KindName &row : kKinds) {
        if (wanted == row.name)
            return row.kind;
        known += std::string(known.empty() ? "" : ", ") + row.name;
    }
    throw BadQuery("kind must be one of " + known);
}

// Values of a series, one for each step; 0 where there is none.
struct Series {
    history::SeriesKey key;
    std::vector<int64_t> values;
    int64_t sum = 0;
};

// The event or the name that is asked for; nothing: all of them.
struct Wanted {
    std::string name;
    std::optional<uint32_t> event_id;

    [[nodiscard]] bool Takes(const history::SeriesKey &key) const
    {
        return (name.empty() || key.name == name) && (!event_id || key.id == *event_id);
    }
};

std::vector<Series> SeriesOf(const history::Course &course, Kind kind, const Wanted &wanted,
                             size_t steps)
{
    std::map<history::SeriesKey, Series> found;
    for (const auto &point : course.points) {
        const auto step = static_cast<size_t>((point.begin - course.from) / course.length);
        if (step >= steps)
            continue;
        for (auto at = point.values.lower_bound({kind, "", 0});
             at != point.values.end() && at->first.kind == kind; ++at) {
            if (!wanted.Takes(at->first))
                continue;
            Series &series = found[at->first];
            series.key = at->first;
            series.values.resize(steps);
            series.values[step] = at->second;
            history::Merge(kind, at->second, &series.sum);
        }
    }
    std::vector<Series> series;
    for (auto &[key, one] : found)
        series.push_back(std::move(one));
    std::ranges::stable_sort(series, std::greater<>(), &Series::sum);
    return series;
}

// Of events that were the smallest of too many, what is kept of them together.
int64_t NotKeptApart(const history::Course &course, Kind kind)
{
    int64_t sum = 0;
    for (const auto &point : course.points) {
        if (const auto found = point.values.find({kind, history::kOthers, 0});
            found != point.values.end())
            history::Merge(kind, found->second, &sum);
    }
    return sum;
}

// The smallest become one, without a name.
void KeepLargest(Kind kind, size_t most, std::vector<Series> *series)
{
    if (series->size() <= most)
        return;
    Series others{{kind, history::kOthers, 0}, {}, 0};
    for (size_t i = most - 1; i < series->size(); ++i) {
        const Series &one = (*series)[i];
        others.values.resize(one.values.size());
        for (size_t step = 0; step < one.values.size(); ++step)
            history::Merge(kind, one.values[step], &others.values[step]);
        history::Merge(kind, one.sum, &others.sum);
    }
    series->resize(most - 1);
    series->push_back(std::move(others));
}

size_t SizeOf(const std::string &path, const Query &query)
{
    size_t bytes = path.size();
    for (const auto &[name, value] : query)
        bytes += name.size() + value.size();
    return bytes;
}

} // namespace

Answers::Answers(const host::Layout &layout, std::string version)
    : version_(std::move(version)), store_(layout.Store()), registry_(store_),
      lookout_(registry_, layout)
{
    // Whatever happens here, nothing is written.
    store_.database().Execute("PRAGMA query_only = ON");
}

Answer Answers::Get(const std::string &path, const Query &query)
{
    if (const uint64_t news = news_; news != known_news_) {
        known_news_ = news;
        kept_.clear();
        view_until_ = {};
    }
    if (events_changed_.exchange(false))
        lookout_.EventsChanged();
    const Question question(path, query);
    const auto now = Clock::now();
    if (const auto found = kept_.find(question); found != kept_.end() && now < found->second.until)
        return found->second.answer;
    Answer answer = Make(path, query);
    Keep(question, now, answer);
    return answer;
}

// Whoever asks for much and for ever something else must not fill the daemon's memory.
void Answers::Keep(const Question &question, Clock::time_point now, const Answer &answer)
{
    std::erase_if(kept_, [&](const auto &kept) { return now >= kept.second.until; });
    if (KeptBytes() + SizeOf(question.first, question.second) + answer.body->size() <=
            kMostKeptBytes &&
        kept_.size() < kMostKept)
        kept_[question] = {now + kKeptFor, answer};
}

size_t Answers::KeptBytes() const
{
    size_t bytes = 0;
    for (const auto &[question, kept] : kept_)
        bytes += SizeOf(question.first, question.second) + kept.answer.body->size();
    return bytes;
}

Answer Answers::Make(const std::string &path, const Query &query)
{
    Answer answer;
    std::string text;
    const auto fail = [&](unsigned status, const std::string &why) {
        answer.status = status;
        text = ToText({{"error", why}});
    };
    try {
        if (path == "/metrics") {
            answer.type = "text/plain; version=0.0.4; charset=utf-8";
            text = metrics::MetricsText(View(), version_);
        } else if (path == "/api/v1/overview") {
            text = Overview();
        } else if (path == "/api/v1/events") {
            text = Events();
        } else if (path == "/api/v1/history") {
            text = History(query);
        } else if (path == "/api/v1/alerts") {
            text = Alerts(query);
        } else {
            fail(404, "there is nothing at " + path + "; docs/web.md lists what there is");
        }
    } catch (const BadQuery &error) {
        fail(400, error.what());
    } catch (const host::Error &error) {
        fail(503, error.what());
    }
    answer.body = std::make_shared<const std::string>(std::move(text));
    return answer;
}

// One for all that is asked for within a second.
const metrics::Overview &Answers::View()
{
    const auto now = Clock::now();
    if (now >= view_until_) {
        view_ = nullptr;
        view_ = &lookout_.Look(getpid());
        view_until_ = now + kKeptFor;
    }
    return *view_;
}

std::string Answers::Overview()
{
    const metrics::Overview &view = View();
    ordered_json object = {{"now_ms", view.now_ms},
                           {"host", host::HostName()},
                           {"version", version_},
                           {"daemon", DaemonToJson(view)},
                           {"cycle_seconds", view.cycle_s},
                           {"store_bytes", view.store_bytes},
                           {"alerts", view.alerts},
                           {"events", view.events.size()},
                           {"logs", ordered_json::array()},
                           {"inputs", ordered_json::array()},
                           {"sinks", ordered_json::array()},
                           {"silences", Silences(&registry_, view.now_ms / kMsOfSecond)}};
    for (const auto &log : view.logs)
        object["logs"].push_back(ToJson(log));
    if (view.status) {
        for (const auto &input : view.status->inputs)
            object["inputs"].push_back(ToJson(input, view.now_ms));
    }
    for (const auto &sink : view.sinks)
        object["sinks"].push_back(ToJson(sink));
    return ToText(object);
}

std::string Answers::Events()
{
    const metrics::Overview &view = View();
    ordered_json list = ordered_json::array();
    for (const auto &event : view.events) {
        const auto &[source, id] = event.key;
        ordered_json keywords = ordered_json::array();
        for (const std::string &keyword : event.keywords) {
            if (!keyword.empty())
                keywords.push_back(keyword);
        }
        list.push_back({{"source", source},
                        {"event_id", events::FormatEventId(id)},
                        {"keywords", keywords},
                        {"report_count", event.report_count},
                        {"severity", OrNull(event.policy.severity)},
                        {"hits", view.Total(Kind::kHits, source, id)},
                        {"alerts", view.Total(Kind::kAlerts, source, id)},
                        {"held_back", view.Total(Kind::kHeldBack, source, id)}});
    }
    return ToText({{"events", list}});
}

std::string Answers::History(const Query &query)
{
    const Kind kind = KindIn(query);
    const int64_t seconds = NumberIn(query, "seconds", history::kHour, history::kMinute,
                                     history::KeptFor(history::kDay));
    const auto most = static_cast<size_t>(NumberIn(query, "top", 10, 1, kMostSeries));
    const Wanted wanted{TextIn(query, "source", ""), EventIn(query)};
    const int64_t now = host::NowMs() / kMsOfSecond;
    const host::Snapshot one_state(store_);
    const history::Course course = history::ReadCourse(
        store_.database(), history::LengthFor(seconds, kMostPoints), now - seconds);
    const auto steps = static_cast<size_t>(((now - course.from) / course.length) + 1);
    std::vector<Series> all = SeriesOf(course, kind, wanted, steps);
    KeepLargest(kind, most, &all);
    ordered_json list = ordered_json::array();
    for (const Series &series : all) {
        ordered_json one = {{"name", series.key.name}};
        if (history::IsOfEvents(kind) && series.key.name != history::kOthers)
            one["event_id"] = events::FormatEventId(series.key.id);
        one["sum"] = series.sum;
        one["values"] = series.values;
        list.push_back(std::move(one));
    }
    return ToText({{"from", course.from},
                   {"step_seconds", course.length},
                   {"steps", steps},
                   {"series", list},
                   {"not_kept_apart", NotKeptApart(course, kind)}});
}

std::string Answers::Alerts(const Query &query)
{
    const int64_t limit = NumberIn(query, "limit", 100, 1, kMostAlerts);
    alerts::AlertFilter filter;
    filter.since_ms = NumberIn(query, "since_ms", 0, 0, INT64_MAX);
    filter.until_ms = NumberIn(query, "until_ms", INT64_MAX, 0, INT64_MAX);
    filter.source = TextIn(query, "source", "*");
    filter.host = TextIn(query, "host", "*");
    filter.text = TextIn(query, "text", "");
    filter.event_id = EventIn(query);
    const alerts::IdsBetween ids{NumberIn(query, "after", 0, 0, INT64_MAX),
                                 NumberIn(query, "before", INT64_MAX, 1, INT64_MAX)};
    const host::Snapshot one_state(store_);
    const int64_t newest = alerts::NewestAlertId(store_.database());
    const auto found = alerts::FindNewest(store_.database(), filter, ids, limit);
    // Each as sinks have it, and why it is there.
    std::string text = "{\"alerts\":[";
    for (const alerts::Alert &alert : found) {
        sinks::Message message;
        message.alert = alert;
        message.key = alert.key;
        text +=
            (text.ends_with('[') ? "" : ",") + sinks::AlertJson(message, alerts::WhyInWords(alert));
    }
    const bool has_more = static_cast<int64_t>(found.size()) == limit;
    text += "],\"before\":" + (has_more ? std::to_string(found.back().id) : "null") +
            ",\"newest\":" + std::to_string(newest) + "}";
    return text;
}

} // namespace web
