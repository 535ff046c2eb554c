// A crash of the machine at any moment: of what SQLite has written and not yet synchronised, any part can be missing or
// torn. Whatever files that leaves, the store opens, and what is in it is what one commit has stored: the last one that
// was answered, or the one that was under way.
#include <functional>
#include <set>

#include <sqlite3.h>

#include "agent/alerts/alert_store.h"
#include "agent/host/hit_counters.h"
#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "platform/registry.h"
#include "tests/agent/host/recorded_disk.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/table_of_one.h"
#include "tests/support/campaign.h"

namespace {

namespace fs = std::filesystem;

using test::Files;
using test::Random;
using test::Reached;

// So many crash states of each history are drawn.
constexpr size_t kStatesOfAHistory = 450;
// Of the last so many steps that a crash can undo, all subsets are lost, or any with the same chance.
constexpr size_t kFewSteps = 8;

// All pages of the store, those from the journal among them, as a reader has them now.
std::string ContentOf(host::Database &database)
{
    sqlite3_int64 size = 0;
    unsigned char *pages = sqlite3_serialize(database.handle(), "main", &size, 0);
    EXPECT_NE(nullptr, pages);
    std::string content(reinterpret_cast<const char *>(pages), static_cast<size_t>(size));
    sqlite3_free(pages);
    return content;
}

// What was in the store when a commit was answered, and how many steps had been made at the disk.
struct Commit {
    size_t steps;
    std::string content;
};

// The same files twice are one state.
size_t HashOf(const Files &files)
{
    size_t hash = 0;
    for (const auto &[name, content] : files)
        hash = hash * 31 + std::hash<std::string>{}(name + '\n' + content);
    return hash;
}

class CrashStates : public test::RootTest {
  protected:
    [[nodiscard]] fs::path Folder() const { return Layout().Store().parent_path(); }
    [[nodiscard]] fs::path CrashedFolder() const { return Root() / "crashed"; }
    [[nodiscard]] fs::path CrashedStore() const
    {
        return CrashedFolder() / Layout().Store().filename();
    }

    // ---- a history ----

    void Answered(const test::DiskRecorder &disk, host::Store &store)
    {
        commits_.push_back({disk.steps().size(), ContentOf(store.database())});
    }

    // What a pass stores: a place, hits, alerts of any length; now and then more than SQLite keeps in memory.
    void Pass(Random &random, host::Store &store, host::RegistryTree &registry,
              test::TableOfOne &table)
    {
        const int alerts = random.Chance(10) ? 200 : random.Between(0, 4);
        for (int i = 0; i < alerts; ++i) {
            alerts::Alert alert;
            alert.source = "LOG";
            alert.event_id = static_cast<uint32_t>(i);
            alert.message = random.Text(random.Below(3000), "abcdefgh ");
            alerts::AddAlert(store, alert);
            table.Hit();
        }
        const host::KeyId key = registry.Create(host::kRootKey, "SOFTWARE\\Log");
        registry.Set(key, "place", REG_SZ, random.Text(1 + random.Below(40), "0123456789"));
    }

    // A daemon from its start to its stop, which writes the journal into the file.
    void Live(Random &random, const test::DiskRecorder &disk)
    {
        host::Store store(Layout().Store(), host::StoreUse::kDaemon);
        Answered(disk, store);
        store.StartPasses();
        host::RegistryTree registry(store);
        host::HitCounters counters(store);
        test::TableOfOne table;
        for (int pass = random.Between(1, 4); pass > 0; --pass) {
            Pass(random, store, registry, table);
            counters.Save(table.Get());
            store.CommitPass();
            Answered(disk, store);
        }
    }

    // Of a new store, whose making is another test's.
    struct Record {
        Files before;
        std::vector<test::DiskStep> steps;
    };
    Record Draw(Random &random, int lives)
    {
        commits_.clear();
        fs::remove_all(Folder());
        fs::create_directories(Folder());
        {
            const host::Store made(Layout().Store());
        }
        Record record{test::FilesIn(Folder()), {}};
        const test::DiskRecorder disk(Folder());
        for (; lives > 0; --lives)
            Live(random, disk);
        record.steps = disk.steps();
        return record;
    }

    // ---- a crash ----

    // What of the steps that are not on the disk for certain is there.
    static std::map<size_t, Reached> DrawReached(Random &random, const std::vector<size_t> &loose)
    {
        std::map<size_t, Reached> reached;
        const int kind = random.Between(0, 3);
        if (kind == 0 && !loose.empty()) { // one of them is missing or torn
            constexpr Reached kLess[] = {Reached::kNothing, Reached::kHalf, Reached::kFirstSector,
                                         Reached::kFirstPage};
            reached[random.OneOf(loose)] = random.OneOf(kLess);
        } else if (kind == 1) { // all of them are missing
            for (const size_t step : loose)
                reached[step] = Reached::kNothing;
        } else if (kind == 2) { // any of the last ones
            const size_t few = std::min(loose.size(), kFewSteps);
            for (size_t i = loose.size() - few; i < loose.size(); ++i) {
                if (random.Chance(50))
                    reached[loose[i]] = Reached::kNothing;
            }
        } else { // any of all, and any of those torn
            for (const size_t step : loose) {
                if (random.Chance(50))
                    reached[step] = random.Chance(50) ? Reached::kNothing : Reached::kHalf;
            }
        }
        return reached;
    }

    // Which commits the store can hold after a crash in front of this step.
    [[nodiscard]] std::vector<std::string> Allowed(size_t step) const
    {
        size_t next = 0;
        while (next < commits_.size() && commits_[next].steps <= step)
            ++next;
        std::vector<std::string> allowed;
        if (next > 0)
            allowed.push_back(commits_[next - 1].content);
        if (next < commits_.size())
            allowed.push_back(commits_[next].content);
        return allowed;
    }

    // Opens the files as a daemon does that starts after the crash. Empty: all is well.
    [[nodiscard]] std::string OpenCrashed(const Files &files,
                                          const std::vector<std::string> &allowed) const
    {
        test::WriteFiles(CrashedFolder(), files);
        return Reopen(allowed);
    }
    [[nodiscard]] std::string Reopen(const std::vector<std::string> &allowed) const
    {
        try {
            host::Store store(CrashedStore(), host::StoreUse::kDaemon);
            const std::string content = ContentOf(store.database());
            for (const std::string &commit : allowed) {
                if (content == commit)
                    return "";
            }
            return "what is in the store is of no commit that it can be of";
        } catch (const host::Error &error) {
            return error.what();
        }
    }

    // ---- all crashes of one history ----

    void Begin(const Record &record)
    {
        record_ = &record;
        seen_.clear();
    }

    // A crash in front of the step `end`.
    void Try(size_t end, const std::map<size_t, Reached> &reached)
    {
        if (HasFailure())
            return;
        const Files files = test::After(record_->before, record_->steps, end, reached);
        if (!seen_.insert(HashOf(files)).second)
            return;
        ++states_;
        EXPECT_EQ("", OpenCrashed(files, Allowed(end)))
            << "after " << end << " of " << record_->steps.size() << " steps, " << reached.size()
            << " of them lost or torn";
    }

    // All of what is loose, each of it, each of it torn at a sector or at a page, and every subset of the last of it.
    void TryAllThatIsLost(size_t end, const std::vector<size_t> &loose)
    {
        std::map<size_t, Reached> all;
        for (const size_t step : loose) {
            all[step] = Reached::kNothing;
            for (const Reached less :
                 {Reached::kNothing, Reached::kFirstSector, Reached::kFirstPage})
                Try(end, {{step, less}});
        }
        Try(end, all);
        const size_t few = std::min(loose.size(), kFewSteps);
        for (size_t subset = 0; subset < size_t{1} << few; ++subset) {
            std::map<size_t, Reached> lost;
            for (size_t i = 0; i < few; ++i) {
                if ((subset >> i & 1) != 0)
                    lost[loose[loose.size() - few + i]] = Reached::kNothing;
            }
            Try(end, lost);
        }
    }

    void TearDown() override
    {
        if (states_ != 0)
            printf("%zu distinct states\n", states_);
        test::RootTest::TearDown();
    }

    std::vector<Commit> commits_;
    const Record *record_ = nullptr;
    std::set<size_t> seen_; // hashes of states of this history
    size_t states_ = 0;
};

TEST_F(CrashStates, HoldWhatOneCommitHasStoredAndNoOlderOneThanWasAnswered)
{
    test::Campaign("crash states", 60).Run([&](Random &random) {
        const Record record = Draw(random, random.Between(1, 3));
        ASSERT_GT(record.steps.size(), 10U);
        Begin(record);
        for (size_t i = 0; i < kStatesOfAHistory; ++i) {
            const size_t end = random.Below(record.steps.size() + 1);
            Try(end, DrawReached(random, test::NotSynced(record.steps, end)));
        }
    });
}

TEST_F(CrashStates, HoldOneCommitWhateverOfAShortLifeIsLostOrTorn)
{
    test::Campaign("all crash states of a life", 1).Run([&](Random &random) {
        const Record record = Draw(random, 1);
        Begin(record);
        for (size_t end = 0; end <= record.steps.size(); ++end)
            TryAllThatIsLost(end, test::NotSynced(record.steps, end));
    });
}

// The daemon that starts after a crash writes, too, before it has got to work.
TEST_F(CrashStates, ACrashOfTheStartBehindACrashLeavesTheSame)
{
    test::Campaign("crash states of a start", 10).Run([&](Random &random) {
        const auto [before, steps] = Draw(random, 1);
        for (int i = 0; i < 5; ++i) {
            const size_t end = random.Below(steps.size() + 1);
            const auto allowed = Allowed(end);
            const Files crashed =
                test::After(before, steps, end, DrawReached(random, test::NotSynced(steps, end)));
            test::WriteFiles(CrashedFolder(), crashed);
            std::vector<test::DiskStep> start;
            {
                const test::DiskRecorder disk(CrashedFolder());
                ASSERT_EQ("", Reopen(allowed));
                start = disk.steps();
            }
            for (size_t again = 0; again <= start.size(); ++again) {
                const auto reached = DrawReached(random, test::NotSynced(start, again));
                ASSERT_EQ("", OpenCrashed(test::After(crashed, start, again, reached), allowed))
                    << "after " << end << " steps, and " << again << " of the start";
            }
        }
    });
}

// Were nothing synchronised, it would show.
TEST_F(CrashStates, AreFoundWrongWhenNothingIsSynchronised)
{
    Random random(1);
    const Record record = Draw(random, 1);
    std::vector<test::DiskStep> steps(
        record.steps.begin(), record.steps.begin() + static_cast<ptrdiff_t>(commits_.back().steps));
    std::erase_if(steps, [](const auto &step) { return step.kind == test::DiskStep::Kind::kSync; });
    std::map<size_t, Reached> nothing;
    for (const size_t step : test::NotSynced(steps, steps.size()))
        nothing[step] = Reached::kNothing;
    EXPECT_EQ("what is in the store is of no commit that it can be of",
              OpenCrashed(test::After(record.before, steps, steps.size(), nothing),
                          {commits_.back().content}));
}

} // namespace
