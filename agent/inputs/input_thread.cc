#include "agent/inputs/input_thread.h"

#include <algorithm>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/inputs/input_store.h"

namespace inputs {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// After a store that cannot be read.
constexpr milliseconds kLoadAgain{1000};
constexpr milliseconds kLongestWait{10000};
// So often it is looked what the inputs hold by now while a batch waits, in which nothing is read.
constexpr milliseconds kMeasure{1000};

} // namespace

// One input, whatever its kind.
class InputThread::Reader {
  public:
    explicit Reader(const InputConfig &input)
    {
        status_.name = input.name;
        status_.kind = input.kind;
        status_.behind_bytes = -1; // until it was looked
    }
    virtual ~Reader() = default;
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // True: there is more.
    virtual bool Read(int64_t wall, SteadyTime now, Batch *batch) = 0;
    [[nodiscard]] virtual pollfd Changes() const = 0;
    virtual void TakeChanges() = 0;
    [[nodiscard]] virtual SteadyTime Next() const = 0;
    virtual void BeginCatchUp() = 0;
    // Looks how much there is to read by now, without reading it.
    virtual void Measure() = 0;
    // Behind a Read without more.
    [[nodiscard]] virtual bool IsCaughtUp(SteadyTime now) = 0;
    [[nodiscard]] const InputStatus &status() const { return status_; }
    // What the reader of this input before this one knew, and cannot be seen again.
    void TakeOver(const std::vector<InputStatus> &before)
    {
        for (const InputStatus &status : before) {
            if (status.name != status_.name)
                continue;
            status_.last_entry_ms = status.last_entry_ms;
            status_.behind_since_ms = status.behind_since_ms;
        }
    }

  protected:
    // `since`: when the first unread entry was there already.
    void NoteBehind(bool is_behind, int64_t since_ms)
    {
        if (!is_behind)
            status_.behind_since_ms = 0;
        else if (status_.behind_since_ms == 0)
            status_.behind_since_ms = since_ms;
    }
    InputStatus status_;
};

class InputThread::FilesReader : public InputThread::Reader {
  public:
    FilesReader(const InputConfig &input, const FollowOptions &options,
                const std::vector<StoredPlace> &places)
        : Reader(input), follower_(options, places)
    {
        if (places.empty())
            follower_.Begin();
    }
    bool Read(int64_t wall, SteadyTime now, Batch *batch) override
    {
        if (follower_.WantsLook(now))
            follower_.Look(now);
        const size_t before = batch->text.size();
        const bool has_more = follower_.Read(wall, now, batch);
        status_.open_files = static_cast<int64_t>(follower_.OpenFiles());
        status_.behind_bytes = static_cast<int64_t>(follower_.BytesBehind());
        status_.problems = follower_.Problems();
        if (batch->text.size() > before)
            status_.last_entry_ms = wall * 1000;
        // What is there and no whole entry yet is nothing that the monitor is behind with.
        NoteBehind(has_more, wall * 1000);
        return has_more;
    }
    [[nodiscard]] pollfd Changes() const override { return {follower_.ChangesFd(), POLLIN, 0}; }
    void TakeChanges() override { follower_.TakeChanges(); }
    [[nodiscard]] SteadyTime Next() const override { return follower_.Next(); }
    void BeginCatchUp() override { follower_.BeginCatchUp(); }
    void Measure() override
    {
        follower_.Measure();
        status_.behind_bytes = static_cast<int64_t>(follower_.BytesBehind());
    }
    [[nodiscard]] bool IsCaughtUp(SteadyTime now) override { return follower_.IsCaughtUp(now); }

  private:
    FileFollower follower_;
};

class InputThread::JournalsReader : public InputThread::Reader {
  public:
    JournalsReader(const InputConfig &input, const JournalOptions &options,
                   const std::vector<StoredPlace> &places)
        : Reader(input),
          reader_(options, !places.empty()      ? places[0].text
                           : options.from_start ? ""
                                                : JournalReader::NewestCursor(options)),
          has_begun_(places.empty())
    {
    }
    bool Read(int64_t wall, SteadyTime now, Batch *batch) override
    {
        const size_t before = batch->text.size();
        const bool has_more = reader_.Read(wall, now, batch);
        status_.problems.clear();
        if (!reader_.problem().empty())
            status_.problems.push_back(reader_.problem());
        if (batch->text.size() > before)
            status_.last_entry_ms = reader_.last_entry() * 1000;
        NoteBehind(has_more, status_.last_entry_ms);
        reader_.StorePlace(has_begun_, batch);
        has_begun_ = false;
        status_.behind_bytes = -1;
        status_.open_files = reader_.ChangesFd() >= 0 ? 1 : 0;
        return has_more;
    }
    [[nodiscard]] pollfd Changes() const override
    {
        return {reader_.ChangesFd(), reader_.ChangesEvents(), 0};
    }
    void TakeChanges() override { reader_.TakeChanges(); }
    [[nodiscard]] SteadyTime Next() const override { return reader_.Next(); }
    void BeginCatchUp() override { reader_.LookAnew(); }
    void Measure() override {} // how much a journal holds is not known in bytes
    [[nodiscard]] bool IsCaughtUp(SteadyTime /*now*/) override { return true; }

  private:
    JournalReader reader_;
    bool has_begun_; // and that is not stored yet
};

InputThread::InputThread(InputThreadOptions options)
    : options_(std::move(options)), bell_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      status_(options_.before), thread_([this] { Run(); })
{
}

InputThread::~InputThread()
{
    stops_ = true;
    Ring();
    thread_.join();
}

void InputThread::Ring() const
{
    host::Ring(bell_);
}

void InputThread::Reload()
{
    reload_ = true;
    Ring();
}

void InputThread::CatchUp()
{
    catch_up_ = true;
    Ring();
}

void InputThread::Stored()
{
    batch_ = {};
    {
        const std::lock_guard lock(status_mutex_);
        waiting_.clear();
    }
    is_ready_ = false;
    Ring();
}

std::vector<InputStatus> InputThread::Status() const
{
    const std::lock_guard lock(status_mutex_);
    std::vector<InputStatus> status = status_;
    for (InputStatus &input : status) {
        // What waits in a batch is as unread as what is behind it.
        if (waiting_.contains(input.name) && input.behind_since_ms == 0)
            input.behind_since_ms = waiting_since_ms_;
    }
    return status;
}

void InputThread::NoteBatchWaits(int64_t since_ms)
{
    const std::lock_guard lock(status_mutex_);
    for (const Batch::Origin &origin : batch_.origins)
        waiting_.insert(origin.input);
    waiting_since_ms_ = since_ms;
}

void InputThread::MeasureWhileBatchWaits()
{
    if (Clock::now() < measure_at_)
        return;
    measure_at_ = Clock::now() + kMeasure;
    for (const auto &reader : readers_)
        reader->Measure();
    PublishStatus();
}

FollowOptions InputThread::WithoutWhatIsWritten(FollowOptions follow) const
{
    for (const std::filesystem::path &folder : options_.written_folders) {
        follow.rules.excluded.push_back(PatternOf(folder) + "/*"); // and nothing is said of them
        follow.not_in.insert(folder);                              // whatever a link is named
    }
    return follow;
}

// Readers go on from what is committed; so none is made while a batch waits.
void InputThread::Load()
{
    reload_ = false;
    is_loaded_ = false;
    load_again_.reset();
    readers_.clear();
    std::vector<InputStatus> broken;
    try {
        host::Store store(options_.store);
        host::RegistryTree registry(store);
        const std::string charset =
            host::AgentText(registry, "LogCharset").value_or(host::kDefaultLogCharset);
        for (const InputConfig &input : InputRegistry(store, registry).ReadAll()) {
            try {
                CheckInput(input);
                const auto places = store.Read(
                    [&](host::Database &database) { return ReadPlaces(database, input.key); });
                if (input.kind == kFilesKind)
                    readers_.push_back(std::make_unique<FilesReader>(
                        input, WithoutWhatIsWritten(FollowOptionsOf(input, charset)), places));
                else
                    readers_.push_back(std::make_unique<JournalsReader>(
                        input, JournalOptionsOf(input, charset, options_.own_folder), places));
            } catch (const host::StoreError &) {
                throw;
            } catch (const host::Error &error) {
                broken.push_back({input.name, input.kind, 0, -1, 0, 0, {error.what()}});
                load_again_ = Clock::now() + kLongestWait;
            }
        }
        is_loaded_ = true;
    } catch (const host::Error &) {
        load_again_ = Clock::now() + kLoadAgain;
    }
    {
        const std::lock_guard lock(status_mutex_);
        for (const auto &reader : readers_)
            reader->TakeOver(status_);
        status_ = broken;
        for (const auto &reader : readers_)
            status_.push_back(reader->status());
    }
    if (catching_up_)
        BeginCatchUp(); // of the new readers; the moment stays
    options_.status_changed();
}

void InputThread::BeginCatchUp()
{
    for (const auto &reader : readers_)
        reader->BeginCatchUp();
}

// When nothing was left to store.
void InputThread::LookWhetherCaughtUp(SteadyTime now)
{
    const bool is_done = is_loaded_ && !has_more_ &&
                         std::all_of(readers_.begin(), readers_.end(),
                                     [&](const auto &reader) { return reader->IsCaughtUp(now); });
    if (!is_done)
        return;
    caught_up_to_ns_ = *catching_up_;
    catching_up_.reset();
    options_.status_changed();
}

// How far it is, is told with each pass; what nobody would look for otherwise, at once.
void InputThread::PublishStatus()
{
    bool has_changed = false;
    {
        const std::lock_guard lock(status_mutex_);
        for (const auto &reader : readers_) {
            for (InputStatus &status : status_) {
                const InputStatus &now = reader->status();
                if (status.name != now.name)
                    continue;
                has_changed = has_changed || status.problems != now.problems ||
                              status.open_files != now.open_files;
                status = now;
            }
        }
    }
    if (has_changed)
        options_.status_changed();
}

void InputThread::Work()
{
    const auto now = Clock::now();
    if (!catching_up_ && catch_up_.exchange(false)) {
        catching_up_ = status::BootTimeNs();
        BeginCatchUp();
    }
    if (now < next_batch_ && !catching_up_)
        return;
    has_more_ = false;
    const int64_t wall = time(nullptr);
    // Another one begins each time: what an input has to read may be as much as fits.
    if (!readers_.empty())
        std::rotate(readers_.begin(), readers_.begin() + 1, readers_.end());
    for (const auto &reader : readers_) {
        reader->TakeChanges();
        has_more_ = reader->Read(wall, now, &batch_) || has_more_;
    }
    PublishStatus();
    if (batch_.IsEmpty()) {
        if (catching_up_)
            LookWhetherCaughtUp(now);
        return;
    }
    next_batch_ = now + milliseconds(has_more_ ? 0 : interval_ms_.load());
    measure_at_ = now + kMeasure;
    NoteBatchWaits(wall * 1000);
    is_ready_ = true;
    options_.batch_is_ready();
}

// While a batch waits, and in the interval behind one, only the bell is listened to, but for a look at the sizes.
void InputThread::Wait()
{
    std::vector<pollfd> waiting{{bell_.get(), POLLIN, 0}};
    auto until = Clock::now() + kLongestWait;
    if (is_ready_) {
        until = measure_at_;
    } else {
        const bool rests = Clock::now() < next_batch_ && !catching_up_;
        if (rests)
            until = std::min(until, next_batch_);
        for (const auto &reader : readers_) {
            if (rests)
                break;
            waiting.push_back(reader->Changes());
            until = std::min(until, reader->Next());
        }
        if (!catching_up_ && catch_up_)
            until = Clock::now(); // asked for while the one before was under way
        if (load_again_)
            until = std::min(until, *load_again_);
        if (has_more_ && !rests)
            until = Clock::now();
    }
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
    poll(waiting.data(), waiting.size(),
         static_cast<int>(std::clamp(left, milliseconds(0), kLongestWait).count()));
    uint64_t rings = 0;
    [[maybe_unused]] const ssize_t count = read(bell_.get(), &rings, sizeof rings);
}

void InputThread::Run()
{
    while (!stops_) {
        if (!is_ready_) {
            if (reload_ || (load_again_ && Clock::now() >= *load_again_))
                Load();
            Work();
        }
        if (is_ready_)
            MeasureWhileBatchWaits();
        Wait();
    }
}

} // namespace inputs
