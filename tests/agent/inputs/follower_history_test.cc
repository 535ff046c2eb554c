// Histories of files, drawn at random: each line counts exactly once. The oracle is the list of the lines that
// were written.
//
//   SYSLOGMON_TEST_SCALE=50 ./inputs_tests --gtest_filter=FileHistories.*
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <unistd.h>

#include "agent/inputs/line_origin.h"
#include "tests/agent/inputs/log_world.h"
#include "tests/support/campaign.h"

namespace {

using std::chrono::milliseconds;

constexpr int kHistories = 400;

// A log, its writer, and who rotates it; and another log beside it, which can be excluded.
class History {
  public:
    explicit History(test::Random *random) : random_(*random)
    {
        world_.Write("a.log",
                     random_.Chance(50) ? test::LogLine("old") + test::LogLine("older") : "");
        if (random_.Chance(30))
            world_.options.rules.paths = {world_.Path("a.log*")};
        if (random_.Chance(20))
            UseOldFolder();
        if (random_.Chance(20))
            world_.options.joining.by_indentation = true;
        if (random_.Chance(30))
            world_.options.rules.excluded = {random_.Chance(50) ? "b.log" : world_.Path("b.log")};
        world_.Start();
        Open();
    }
    ~History() { close(writer_); }
    History(const History &) = delete;
    History &operator=(const History &) = delete;

    void Run()
    {
        const int steps = random_.Between(5, 40);
        for (int i = 0; i < steps; ++i)
            Step();
        End();
    }

    // What was written but not read, or read more than once.
    std::string Fault()
    {
        Count();
        int told = 0;
        std::string fault;
        for (const auto &[message, times] : expected_) {
            const int read = read_[message];
            if (read != times)
                fault += message + " was written " + std::to_string(times) + " times and read " +
                         std::to_string(read) + " times\n";
        }
        for (const auto &[message, times] : read_) {
            if (!expected_.contains(message))
                fault += message + " was never written\n";
        }
        for (const std::string &loss : world_.TakeLosses()) {
            told += loss.find("a.log is gone") != std::string::npos ? 1 : 0;
            // Of a file that was empty when it was seen, nobody can know what it held when it went.
            if (!may_be_told_ && loss.find("behind byte 0 ") == std::string::npos)
                fault += "told: " + loss + "\n";
        }
        if (told < removed_unread_)
            fault += std::to_string(removed_unread_) + " were removed unread, and " +
                     std::to_string(told) + " were told\n";
        return fault.empty() ? fault : fault + story_;
    }

  private:
    void Tell(const std::string &what) { story_ += "  " + what + "\n"; }

    void Open()
    {
        close(writer_);
        writer_ =
            open(world_.Path("a.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    }
    void Put(const std::string &bytes) const
    {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(writer_, bytes.data(), bytes.size()));
    }

    // Lines of a new file begin with one that other files have, too.
    void Append(int count)
    {
        if (!part_.empty())
            EndPart();
        if (lseek(writer_, 0, SEEK_END) == 0)
            count += FurtherLines();
        std::string bytes;
        for (int i = 0; i < count; ++i) {
            const std::string message =
                random_.Chance(10) && i > 0 ? "equal" : "line " + std::to_string(next_line_++);
            ++expected_[message];
            bytes += test::LogLine(message);
        }
        Put(bytes);
    }
    void AppendFirstLine()
    {
        if (lseek(writer_, 0, SEEK_END) != 0 || random_.Chance(40))
            return;
        std::string bytes = test::LogLine("begin");
        ++expected_["begin"];
        for (int i = FurtherLines(); i > 0; --i) {
            const std::string message = "line " + std::to_string(next_line_++);
            ++expected_[message];
            bytes += test::LogLine(message);
        }
        Put(bytes);
    }
    // A log of which a single line was read says too little about itself to be known again in every case, and those that
    // begin with the same one cannot be told from copies of each other. Of joined lines, the last one is not read yet.
    [[nodiscard]] int FurtherLines() const { return world_.options.joining.by_indentation ? 2 : 1; }
    void AppendPart()
    {
        if (!part_.empty())
            return EndPart();
        if (lseek(writer_, 0, SEEK_END) == 0)
            Append(1);
        const std::string message = "line " + std::to_string(next_line_++);
        ++expected_[message];
        const std::string line = test::LogLine(message);
        const size_t cut = 1 + random_.Below(line.size() - 1);
        part_ = line.substr(cut);
        Put(line.substr(0, cut));
    }
    void EndPart()
    {
        Put(part_);
        part_.clear();
    }

    // Rotated files lie in a folder of their own.
    void UseOldFolder()
    {
        std::filesystem::create_directory(world_.Path("old"));
        world_.options.rules.paths = {world_.Path("a.log"), world_.Path("old/*")};
        backup_ = "old/a.log";
    }
    std::vector<std::string> Backups() const
    {
        std::vector<std::string> names;
        for (int i = 1; i < 30; ++i) {
            for (const char *ending : {"", ".gz"}) {
                const std::string name = backup_ + "." + std::to_string(i) + ending;
                if (world_.Exists(name))
                    names.push_back(name);
            }
        }
        return names;
    }
    // Makes place for a backup of number 1.
    void ShiftNumbers() const
    {
        std::vector<std::string> names = Backups();
        std::reverse(names.begin(), names.end());
        for (const std::string &name : names) {
            const int number = std::stoi(name.substr(backup_.size() + 1));
            const std::string ending = name.ends_with(".gz") ? ".gz" : "";
            world_.Rename(name, backup_ + "." + std::to_string(number + 1) + ending);
        }
    }
    std::string BackupName()
    {
        if (is_dated_)
            return backup_ + "-" + std::to_string(20260000 + next_date_++);
        ShiftNumbers();
        return backup_ + ".1";
    }

    void Rotate()
    {
        if (!world_.Exists("a.log"))
            return;
        const std::string name = BackupName();
        Tell("rotate to " + name);
        world_.Rename("a.log", name);
        if (random_.Chance(30)) {
            Tell("the writer goes on with the old file");
            Append(random_.Between(1, 3));
            if (random_.Chance(50))
                Look();
            Append(1);
        }
        if (!part_.empty())
            EndPart();
        Open();
        AppendFirstLine();
    }
    // A copy is put to the disk before the log is emptied; meanwhile the log grows, and is read.
    void ReadBeyondCopy()
    {
        const std::string content = world_.Content("a.log");
        if (world_.options.joining.by_indentation ||
            std::count(content.begin(), content.end(), '\n') < 3)
            return; // what is read last, or before, is not known for certain
        Tell("read beyond the copy");
        ReadAll();
        Append(random_.Between(1, 3));
        ReadAll();
    }
    void CopyAndTruncate()
    {
        if (!world_.Exists("a.log"))
            return;
        const std::string name = BackupName();
        Tell("copy and truncate to " + name);
        if (!part_.empty())
            EndPart();
        if (random_.Chance(30)) {
            // Half of the copy is there when somebody looks.
            const std::string content = world_.Content("a.log");
            world_.Write(name, content.substr(0, content.size() / 2));
            Look();
        }
        if (random_.Chance(30)) {
            world_.Copy("a.log", "copy");
            world_.Pack("copy", name + ".gz", random_.OneOf(kPackings));
            world_.Remove("copy");
            if (world_.Exists(name))
                world_.Remove(name);
        } else {
            world_.Copy("a.log", name);
            if (random_.Chance(40))
                ReadBeyondCopy();
        }
        if (random_.Chance(30))
            Look();
        world_.Empty("a.log");
        AppendFirstLine();
    }
    void Compress()
    {
        std::vector<std::string> names;
        for (const std::string &name : Backups()) {
            if (!name.ends_with(".gz"))
                names.push_back(name);
        }
        if (names.empty())
            return;
        const std::string name = random_.OneOf(names);
        Tell("compress " + name);
        world_.Pack(name, "whole", random_.OneOf(kPackings));
        if (random_.Chance(30)) {
            const std::string bytes = world_.Content("whole");
            world_.Write(name + ".gz", bytes.substr(0, bytes.size() / 2));
            Look();
            world_.Remove(name + ".gz");
        }
        world_.Rename("whole", name + ".gz");
        if (random_.Chance(30))
            Look();
        world_.Remove(name);
    }
    // Somebody keeps what the log holds, or a rotated file of it, under a name that rotation could give. Of few lines it
    // could not be told from a log.
    void KeepCopy()
    {
        std::vector<std::string> of;
        for (const std::string &name : Backups()) {
            if (!name.ends_with(".gz"))
                of.push_back(name);
        }
        if (world_.Exists("a.log"))
            of.emplace_back("a.log");
        if (of.empty() || kept_ == std::size(kKept))
            return;
        const std::string original = random_.OneOf(of);
        const std::string content = world_.Content(original);
        if (std::count(content.begin(), content.end(), '\n') < 3 || !part_.empty())
            return;
        ReadAll();
        Tell("keep a copy of " + original);
        world_.Copy(original, kKept[kept_]);
        // Not in the second of the next rotation: there are file systems that tell no more than that.
        world_.Age(kKept[kept_++], std::chrono::seconds(-2));
        if (random_.Chance(50))
            ReadAll();
    }
    // A file goes when it was read and nobody writes into it: what is gone unread cannot be counted.
    void RemoveRead()
    {
        ReadAll();
        world_.Wait(milliseconds(20000));
        ReadAll();
        const auto names = Backups();
        if (!names.empty() && random_.Chance(50)) {
            const std::string name = random_.OneOf(names);
            Tell("remove " + name);
            world_.Remove(name);
            return;
        }
        if (!world_.Exists("a.log") || !part_.empty())
            return;
        Tell("remove the log and begin it anew");
        world_.Remove("a.log");
        // Somebody may still write into it, so a start soon afterwards cannot know whether there was more.
        may_be_told_ = true;
        if (random_.Chance(50))
            ReadAll();
        Open();
        AppendFirstLine();
    }

    // Of which a part was read, so it is known what goes; unless there is a copy of all of that.
    void RemoveUnread()
    {
        if (!world_.Exists("a.log") || !part_.empty() || kept_ > 0)
            return;
        Append(1);
        ReadAll();
        world_.Wait(milliseconds(20000));
        ReadAll();
        world_.Stop();
        Tell("remove the log unread");
        Put(test::LogLine("lost " + std::to_string(removed_unread_)));
        world_.Remove("a.log");
        ++removed_unread_;
        may_be_told_ = true;
        Open();
        AppendFirstLine();
    }

    // ---- another log of the folder, which is rotated, too ----

    [[nodiscard]] bool NeighbourIsRead() const
    {
        const inputs::PathRules &rules = world_.options.rules;
        return rules.Match(world_.Path("b.log"));
    }
    // The first line can be one of the other log, too.
    void AppendToNeighbour(int count)
    {
        if (!world_.Exists("b.log") || world_.Content("b.log").empty()) {
            world_.Append("b.log", test::LogLine("begin"));
            expected_["begin"] += NeighbourIsRead() ? 1 : 0;
            count += FurtherLines();
        }
        for (int i = 0; i < count; ++i) {
            const std::string message = "neighbour " + std::to_string(next_line_++);
            world_.Append("b.log", test::LogLine(message));
            expected_[message] += NeighbourIsRead() ? 1 : 0;
        }
    }
    void RotateNeighbour()
    {
        if (!world_.Exists("b.log"))
            return;
        const std::string name = "b.log." + std::to_string(100 - next_neighbour_++);
        if (random_.Chance(50)) {
            world_.Rename("b.log", name);
        } else {
            world_.Copy("b.log", name);
            world_.Empty("b.log");
        }
        if (random_.Chance(50)) {
            world_.Pack(name, name + ".gz", random_.OneOf(kPackings));
            world_.Remove(name);
        }
        if (random_.Chance(50))
            AppendToNeighbour(1);
    }
    void Neighbour()
    {
        if (random_.Chance(60)) {
            Tell("append to the neighbour");
            return AppendToNeighbour(random_.Between(1, 3));
        }
        Tell("rotate the neighbour");
        RotateNeighbour();
    }

    void Look()
    {
        if (!world_.IsRunning())
            return;
        Tell("look");
        world_.Step();
        world_.Wait(milliseconds(random_.Between(1, 30)));
    }
    void ReadAll()
    {
        if (!world_.IsRunning())
            world_.Start();
        Tell("read all");
        world_.Settle();
    }
    void Kill()
    {
        if (!world_.IsRunning()) {
            Tell("start");
            world_.Start();
            return;
        }
        if (random_.Chance(50)) {
            Tell("read, and be killed before it is stored");
            world_.Step(false);
        } else {
            Tell("stop");
        }
        world_.Stop();
    }

    // The end of the log that was not synced is gone, or zero. What comes next is written behind it, as by a syslog daemon
    // that starts again.
    void PowerCut()
    {
        if (!world_.Exists("a.log"))
            return;
        if (world_.IsRunning() && random_.Chance(50))
            world_.Step(random_.Chance(50));
        world_.Stop();
        const std::string content = world_.Content("a.log");
        if (content.find('\0') != std::string::npos)
            return; // of one cut
        // They could have what the log has lost; and stand by now for what they were of.
        may_be_told_ = may_be_told_ || kept_ > 0;
        for (; kept_ > 0; --kept_)
            world_.Remove(kKept[kept_ - 1]);
        const auto synced = static_cast<size_t>(world_.SyncedSize("a.log"));
        const size_t kept = std::min(synced, content.size());
        const size_t end = kept + random_.Below(content.size() - kept + 1);
        const std::string half =
            content.substr(BeginOfLineAt(content, end), end - BeginOfLineAt(content, end));
        const size_t lost = content.size() - end;
        const bool is_zero = lost >= 32 && random_.Chance(50);
        Tell("power cut: " + std::to_string(lost) + " bytes are " + (is_zero ? "zero" : "gone"));
        Forget(content.substr(end - half.size()) + part_);
        part_.clear();
        world_.Write("a.log", content.substr(0, end) + std::string(is_zero ? lost : 0, '\0'));
        Open();
        const std::string next = test::LogLine("line " + std::to_string(next_line_++));
        Put(next);
        if (is_zero && !half.empty())
            ++expected_[MessageOf(half)];
        ++expected_[MessageOf(is_zero ? next : half + next)];
        Append(FurtherLines()); // it may be a new log
    }
    static size_t BeginOfLineAt(const std::string &content, size_t at)
    {
        const size_t before = at == 0 ? std::string::npos : content.rfind('\n', at - 1);
        return before == std::string::npos ? 0 : before + 1;
    }
    // These lines are not there any more.
    void Forget(const std::string &lines)
    {
        size_t begin = 0;
        while (begin < lines.size()) {
            const size_t end = std::min(lines.find('\n', begin), lines.size());
            --expected_[MessageOf(lines.substr(begin, end - begin))];
            begin = end + 1;
        }
    }
    static std::string MessageOf(std::string line)
    {
        while (line.ends_with('\n'))
            line.pop_back();
        return std::string(inputs::OriginOfLine(line).message);
    }
    void Step()
    {
        switch (random_.Below(18)) {
        case 15:
            return KeepCopy();
        case 12:
        case 13:
            return Neighbour();
        case 14:
            return RemoveUnread();
        case 11:
            return PowerCut();
        case 0:
        case 1:
        case 2:
            Tell("append");
            return Append(random_.Between(1, 4));
        case 3:
            Tell("append a part");
            return AppendPart();
        case 4:
            return Rotate();
        case 5:
            return CopyAndTruncate();
        case 6:
            return Compress();
        case 7:
            return RemoveRead();
        case 8:
            return Kill();
        case 9:
            world_.Wait(milliseconds(random_.Chance(20)   ? 20000
                                     : random_.Chance(10) ? 700000
                                                          : 500));
            return Look();
        case 10:
            return ReadAll();
        default:
            return Look();
        }
    }
    void End()
    {
        if (!part_.empty())
            EndPart();
        // Of a log that came and was rotated before anybody looked, the rotated files are known when it is there again.
        if (next_neighbour_ > 1)
            AppendToNeighbour(1);
        for (int i = 0; i < 3; ++i) {
            ReadAll();
            world_.Wait(milliseconds(20000));
        }
        ReadAll();
    }
    void Count()
    {
        for (const std::string &message : world_.Take())
            ++read_[message];
    }

    static constexpr const char *kPackings[] = {"gzip", "xz", "zstd", "bzip2"};

    test::Random &random_;
    test::LogWorld world_;
    int writer_ = -1;
    std::string backup_ = "a.log"; // with which the paths of rotated files begin
    bool is_dated_ = random_.Chance(30);
    static constexpr const char *kKept[] = {"a.log.bak", "a.log-old", "a.log.save", "a.log_prev"};
    size_t kept_ = 0;
    int next_date_ = 1101;
    int next_line_ = 1;
    int next_neighbour_ = 1;
    int removed_unread_ = 0;
    bool may_be_told_ = false;
    std::string part_; // of a line that is half written: the rest
    std::map<std::string, int> expected_;
    std::map<std::string, int> read_;
    std::string story_;
};

TEST(FileHistories, EachLineCountsExactlyOnce)
{
    const test::Campaign campaign("file histories", kHistories);
    campaign.Run([](test::Random &random) {
        History history(&random);
        history.Run();
        EXPECT_EQ("", history.Fault());
    });
}

} // namespace
