// A pass against the obvious reading of a log as a list of lines.
#include <cstdint>
#include <random>
#include <string>

#include "tests/unit/vkevmon/pass_fixture.h"
#include "tests/unit/vkevmon/pass_story.h"

namespace {

using test::CheckedList;
using test::Pass;
using test::Strings;

// A log as a list of lines, and how far it was checked.
class ObviousScan {
  public:
    void Append(const std::string &line) { lines_.push_back(line.substr(0, 3328)); }
    void StartAtTheEnd() { next_ = lines_.size(); }

    // What a pass should hand over.
    CheckedList Pass()
    {
        CheckedList list;
        while (next_ < lines_.size()) {
            int times = 0;
            std::string line;
            const bool known = TakeLine(&line, &times);
            int more = 0;
            while (next_ < lines_.size() && IsRepeat(lines_[next_], &more)) {
                times += more;
                ++next_;
            }
            if (known)
                list.push_back({line, times});
        }
        return list;
    }

  private:
    static bool IsRepeat(const std::string &line, int *times)
    {
        const size_t begin = line.find("last message repeated");
        return begin != std::string::npos &&
               sscanf(line.c_str() + begin, "last message repeated %d times", times) == 1;
    }

    // Takes the next line. For a repeat that is the line before it, if there is one.
    bool TakeLine(std::string *line, int *times)
    {
        const size_t index = next_++;
        if (!IsRepeat(lines_[index], times)) {
            *line = lines_[index];
            *times = 1;
            return true;
        }
        int ignored = 0;
        for (size_t before = index; before > 0; --before) {
            if (!IsRepeat(lines_[before - 1], &ignored)) {
                *line = lines_[before - 1];
                return true;
            }
        }
        return false;
    }

    Strings lines_;
    size_t next_ = 0;
};

class PassModel : public Pass {
  protected:
    static std::string RandomLine(std::mt19937 &random)
    {
        const auto number = static_cast<int64_t>(random() % 100);
        switch (random() % 16) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 4:
            return Repeat(number - 5);
        case 5:
            return Line("last message repeated often");
        case 6:
            return "";
        case 7:
            return "no stamp " + std::to_string(number);
        case 8:
            return Line(std::string(random() % 3600, 'x')) + "last message repeated 2 times";
        case 9:
            return Line(std::string(3290 + (random() % 20), 'y'));
        default:
            return Line(std::to_string(number) + std::string(random() % 600, '.'));
        }
    }
};

TEST_F(PassModel, AgreesWithTheObviousReadingOfRandomLogs)
{
    for (uint32_t seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        StartOver();
        ObviousScan obvious;
        Strings lines;
        const auto add = [&](size_t count) {
            Strings fresh;
            for (size_t i = 0; i < count; ++i) {
                fresh.push_back(RandomLine(random));
                obvious.Append(fresh.back());
            }
            lines.insert(lines.end(), fresh.begin(), fresh.end());
            Append(fresh);
        };
        add(1 + (random() % 30));
        obvious.StartAtTheEnd();
        Run();
        for (int pass = 0; pass < 5; ++pass) {
            add(random() % 30);
            if (random() % 4 == 0)
                Restart();
            ASSERT_EQ(obvious.Pass(), Run());
            // The place is that of the last line, whatever it is.
            const std::string text = Text(lines);
            ASSERT_EQ(static_cast<int64_t>(text.size() - lines.back().size() - 1),
                      StoredResumePoint().pos);
            ASSERT_EQ(lines.back().substr(0, 499), StoredResumePoint().content);
        }
    }
}

} // namespace
