#include "agent/fleet/collector.h"

#include <cstring>

#include "agent/fleet/stream_reader.h"
#include "agent/fleet/trace_unit.h"
#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
#include "agent/sinks/nats_options.h"
#include "agent/sinks/nats_subjects.h"
#include "agent/sinks/option_checks.h"
#include "agent/text/say.h"

namespace fleet {

namespace {

using std::chrono::steady_clock;

// So long it is not asked again whether something is missing.
constexpr std::chrono::seconds kNothingMissing{1};

// Part and number of parts; 0 and 0 when the text is none.
std::pair<uint32_t, uint32_t> ReadPart(const std::string &text)
{
    unsigned number = 0;
    unsigned of = 0;
    char rest = 0;
    const bool is_sound = sscanf(text.c_str(), "%4u/%4u%c", &number, &of, &rest) == 2 &&
                          number >= 1 && number <= of && of <= 64;
    return is_sound ? std::pair(number, of) : std::pair(0U, 0U);
}

std::string CheckPart(const std::string &value)
{
    return ReadPart(value).first > 0 ? "" : "NUMBER/PARTS, such as 1/3, of at most 64 parts";
}

std::string CheckReplicas(const std::string &value)
{
    return sinks::CheckWord(value, "1 3 5");
}

} // namespace

sinks::SinkKind CollectKind()
{
    sinks::SinkKind kind;
    kind.name = "collect";
    kind.help = "the alerts of all hosts, from a stream of NATS servers";
    kind.options = sinks::NatsOptions();
    kind.options.push_back({"stream", "NAME", sinks::kDefaultStream, "the stream of the alerts",
                            sinks::CheckStreamName});
    kind.options.push_back({"replicas", "NUMBER", "3",
                            "on how many servers the stream is kept, when it is made: 1, 3 or 5",
                            CheckReplicas});
    kind.options.push_back(
        {"keep", "HOURS", "168", "how long the stream keeps an alert, when it is made",
         [](const std::string &value) { return sinks::CheckRange(value, 1, 10000, "hours"); }});
    kind.options.push_back(
        {"keep-alerts", "NUMBER", "100000",
         "how many alerts of each host the stream keeps, the newest, when it is made",
         [](const std::string &value) {
             return sinks::CheckRange(value, 1000, 100000000, "alerts");
         }});
    kind.options.push_back(
        {"keep-mib", "MIB", "",
         "how much the stream keeps of all hosts, the newest, when it is made",
         [](const std::string &value) { return sinks::CheckRange(value, 1, 100000000, "MiB"); }});
    kind.options.push_back({"part", "NUMBER/PARTS", "",
                            "take the alerts of some hosts only, since other collectors take the "
                            "others",
                            CheckPart});
    kind.warnings = sinks::PlainNatsWarnings;
    return kind;
}

Part::Part(const std::string &text)
{
    if (const auto [number, of] = ReadPart(text); of > 0) {
        number_ = number;
        of_ = of;
    }
}

// By the first digits of the UUID, which are random.
bool Part::Has(const std::string &uuid) const
{
    return strtoul(uuid.substr(0, 8).c_str(), nullptr, 16) % of_ == number_ - 1;
}

std::string Part::PlaceIn(const std::string &stream) const
{
    return of_ == 1 ? stream : stream + " " + std::to_string(number_) + "/" + std::to_string(of_);
}

Collector::Collector(CollectorOptions options)
    : options_(std::move(options)), part_(options_.config.Get("part")), backoff_(options_.pauses)
{
    sinks::Secrets secrets;
    sinks::AccessOf(options_.config, secrets); // for its errors
    thread_ = std::thread([this] { Run(); });
}

Collector::~Collector()
{
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
        news_.notify_one();
    }
    thread_.join();
}

bool Collector::StopRequested()
{
    const std::lock_guard lock(mutex_);
    return stop_;
}

void Collector::Run()
{
    TraceLogSetThrName("collector");
    while (!StopRequested()) {
        try {
            Collect();
        } catch (const std::exception &error) {
            Fail(error.what());
        }
    }
}

// With one connection, until it fails or the end is wanted.
void Collector::Collect()
{
    if (!store_) {
        store_.emplace(options_.layout.Store());
        host::Patience patience;
        patience.leave = [this] { return StopRequested(); };
        store_->SetWait(patience);
    }
    Ledger ledger(*store_, &floods_);
    secrets_ = {};
    StreamReader reader(sinks::AccessOf(options_.config, secrets_), options_.config,
                        "syslogmon-" + store_->uuid());
    // With other hosts than before it begins anew: what it has of them is known.
    StreamPlace place =
        ledger.PlaceIn(part_.PlaceIn(options_.config.Get("stream")), reader.created());
    reader.BeginBehind(place);
    missing_.reset();
    if (!problem_.empty())
        TRACE(TRACE_NOTABLE, "The alerts of all hosts are collected again.");
    problem_.clear();
    ledger.SetProblem("");
    backoff_.Reset();
    while (!StopRequested()) {
        TakeSome(reader, ledger, &place);
        AskForMissing(reader, ledger);
    }
}

// What has come, in one transaction, and then the word that it is stored.
void Collector::TakeSome(StreamReader &reader, Ledger &ledger, StreamPlace *place)
{
    const uint64_t sequence = reader.Read();
    if (sequence == 0)
        return;
    std::vector<Arrived> wanted = reader.Arrivals();
    std::erase_if(wanted, [&](const Arrived &arrived) { return !part_.Has(arrived.uuid); });
    place->sequence = sequence;
    place->stored_ns = reader.stored_ns();
    const size_t taken = ledger.Take(wanted, *place);
    if (taken > 0)
        options_.stored();
    reader.Confirm();
}

// For what is missing of one host, if it is time. However many gaps a host makes, the others wait for a tenth of the time at
// most, and for no longer than a look takes.
void Collector::AskForMissing(const StreamReader &reader, Ledger &ledger)
{
    const auto began = steady_clock::now();
    if (began < ask_at_)
        return;
    if (!missing_)
        missing_ = ledger.NextMissing(host::NowMs());
    if (!missing_) {
        ask_at_ = began + kNothingMissing;
        return;
    }
    if (const auto look = LookForIt(reader, ledger)) {
        ledger.EndLook(missing_->uuid, *look, host::NowMs());
        missing_.reset();
    }
    const auto ended = steady_clock::now();
    ask_at_ = ended + 9 * (ended - began);
}

// How the look has ended; nothing: it goes on. Servers that cannot look are no reason to take nothing; what they do not
// allow is told as always.
std::optional<Ledger::Look> Collector::LookForIt(const StreamReader &reader, Ledger &ledger)
{
    if (!part_.Has(missing_->uuid))
        return Ledger::Look::kNotOurs;
    try {
        const std::string uuid = missing_->uuid;
        const bool is_over = reader.LookBack(&*missing_, [&](const std::vector<Arrived> &some) {
            if (ledger.TakeLate(uuid, some) > 0)
                options_.stored();
        });
        return is_over ? std::optional(Ledger::Look::kDone) : std::nullopt;
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &error) {
        TRACE(TRACE_NOTABLE, "%s", error.what());
        return Ledger::Look::kFailed;
    }
}

// Told once, and written where the command finds it.
void Collector::Fail(const std::string &why)
{
    if (StopRequested())
        return;
    const std::string shown = secrets_.Hide(why);
    if (problem_.empty()) {
        TRACE(TRACE_NOTABLE, "No alerts of other hosts are collected: %s", shown.c_str());
        text::Say("no alerts of other hosts are collected: " + shown);
    }
    if (shown != problem_ && store_) {
        try {
            Ledger(*store_).SetProblem(shown);
        } catch (const host::StoreError &) {
            store_.reset(); // opened anew
        }
    }
    problem_ = shown;
    Pause();
}

void Collector::Pause()
{
    std::unique_lock lock(mutex_);
    news_.wait_for(lock, backoff_.Next(), [this] { return stop_; });
}

} // namespace fleet
