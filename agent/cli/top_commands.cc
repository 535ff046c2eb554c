// top: the monitor at work, full screen.
#include <clocale>
#include <csignal>
#include <cstring>
#include <ctime>
#include <langinfo.h>
#include <unistd.h>

#include <ncurses.h>

#include "agent/alerts/alert_store.h"
#include "agent/alerts/alert_text.h"
#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/top_view.h"
#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
#include "agent/status/daemon_lock.h"
#include "agent/text/printable.h"

namespace cli {

namespace {

constexpr int64_t kNewestAlerts = 20;
constexpr int kEscape = 27;

struct TopOptions {
    int64_t delay_ms = 1000;
};

// The terminal, which is given back as it was.
class Terminal {
  public:
    // Throws host::Error for one that no screen can be shown on.
    explicit Terminal(int delay_ms)
    {
        Open();
        cbreak();
        noecho();
        keypad(stdscr, TRUE);
        curs_set(0);
        set_escdelay(50);
        timeout(delay_ms);
        if (has_colors() && TakesColour()) {
            start_color();
            use_default_colors();
            init_pair(1, COLOR_RED, -1);
            has_colour_ = true;
        }
    }
    ~Terminal() { endwin(); }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // Only what is different is sent: over a slow line, that is little.
    void Show(const std::vector<TopLine> &lines) const
    {
        erase();
        for (size_t row = 0; row < lines.size(); ++row) {
            const attr_t look = LookOf(lines[row].style);
            attron(look);
            mvaddstr(static_cast<int>(row), 0, lines[row].text.c_str());
            attroff(look);
        }
        refresh();
    }

  private:
    // Not initscr, which ends the process when the terminal is not known.
    static void Open()
    {
        SCREEN *screen = newterm(nullptr, stdout, stdin);
        if (screen == nullptr)
            Refuse("is not known here", "set TERM to one that is, such as xterm");
        char cursor_address[] = "cup"; // the library asks for one that it could change
        if (tigetstr(cursor_address) != nullptr)
            return;
        reset_shell_mode(); // as it was, and without a word, unlike endwin
        delscreen(screen);
        Refuse("cannot show text at a place", "use syslogmon status");
    }
    [[noreturn]] static void Refuse(const std::string &why, const std::string &next)
    {
        const char *name = getenv("TERM");
        throw host::Error(
            "cannot show the full screen",
            "the terminal \"" + text::Printable(name != nullptr ? name : "") + "\" " + why, next);
    }
    [[nodiscard]] attr_t LookOf(TopStyle style) const
    {
        switch (style) {
        case TopStyle::kHead:
            return A_BOLD;
        case TopStyle::kBad:
            return A_BOLD | (has_colour_ ? static_cast<attr_t>(COLOR_PAIR(1)) : A_UNDERLINE);
        case TopStyle::kSelected:
            return A_REVERSE;
        case TopStyle::kQuiet:
            return A_DIM;
        case TopStyle::kPlain:
            break;
        }
        return A_NORMAL;
    }
    bool has_colour_ = false;
};

// What was known of the event that is explained, is so still.
TopSight LookAround(const Context &context, metrics::Lookout *lookout, const TopChoice &choice,
                    const std::optional<TopReason> &known)
{
    TopSight sight;
    host::Host &host = context.Host();
    sight.view = lookout->Look(status::DaemonLock::Holder(context.layout));
    const host::Snapshot one_state(host.store());
    const int64_t now_s = sight.view.now_ms / 1000;
    sight.course = history::ReadCourse(host.store().database(), history::kMinute,
                                       now_s - (kTopMinutes - 1) * history::kMinute);
    for (const auto &alert : alerts::FindNewest(host.store().database(), {}, {}, kNewestAlerts))
        sight.newest.push_back(alerts::AlertLine(alert));
    if (choice.explained)
        sight.reason = ReasonOf(host.store().database(), *choice.explained, known);
    sight.host = host::HostName();
    char clock[16];
    const time_t now = now_s;
    tm local{};
    strftime(clock, sizeof clock, "%H:%M:%S", localtime_r(&now, &local));
    sight.clock = clock;
    return sight;
}

// The screen says which event it explains; what is not known of it yet is looked for then.
std::vector<TopLine> Screen(const Context &context, bool is_utf8, TopSight *sight,
                            TopChoice *choice)
{
    auto lines = TopScreen(*sight, LINES, COLS, is_utf8, choice);
    if (!choice->explained || (sight->reason && sight->reason->event == *choice->explained))
        return lines;
    const host::Snapshot one_state(context.Host().store());
    sight->reason = ReasonOf(context.Host().store().database(), *choice->explained, std::nullopt);
    return TopScreen(*sight, LINES, COLS, is_utf8, choice);
}

void TypeFilter(int key, TopChoice *choice)
{
    if (key == '\n' || key == KEY_ENTER || key == kEscape) {
        choice->types_filter = false;
        if (key == kEscape)
            choice->filter.clear();
    } else if (key == KEY_BACKSPACE || key == 127 || key == '\b') {
        if (!choice->filter.empty())
            choice->filter.pop_back();
    } else if (key >= ' ' && key < 127) {
        choice->filter += static_cast<char>(key);
    }
    choice->selected = 0;
}

// False: it is over.
bool Take(int key, TopChoice *choice)
{
    if (choice->types_filter) {
        TypeFilter(key, choice);
        return true;
    }
    switch (key) {
    case 'q':
        return false;
    case 's':
        choice->order = choice->order == TopOrder::kRate   ? TopOrder::kHits
                        : choice->order == TopOrder::kHits ? TopOrder::kName
                                                           : TopOrder::kRate;
        break;
    case '/':
        choice->types_filter = true;
        choice->explains = false;
        break;
    case KEY_UP:
    case 'k':
        choice->selected -= choice->selected > 0 ? 1 : 0;
        break;
    case KEY_DOWN:
    case 'j':
        ++choice->selected;
        break;
    case '\n':
    case KEY_ENTER:
        choice->explains = !choice->explains;
        break;
    case kEscape:
        choice->explains = false;
        choice->filter.clear();
        break;
    default:
        break;
    }
    return true;
}

int ShowTop(Context &context, const TopOptions &options)
{
    if (context.json)
        throw host::Error("cannot show the full screen as JSON", "it is for people",
                          "use syslogmon --json status");
    if (!IsTerminal() || isatty(STDIN_FILENO) == 0)
        throw host::Error("cannot show the full screen", "this is no terminal",
                          "use syslogmon status or syslogmon metrics in scripts");
    context.OpenToRead();
    setlocale(LC_CTYPE, "");
    const bool is_utf8 = strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    Terminal terminal(static_cast<int>(options.delay_ms));
    TopChoice choice;
    metrics::Lookout lookout(context.Host().registry(), context.layout);
    TopSight sight = LookAround(context, &lookout, choice, std::nullopt);
    for (;;) {
        terminal.Show(Screen(context, is_utf8, &sight, &choice));
        const int key = getch();
        // No key within the time: what is shown is looked at again. A key is answered from what is known.
        if (key == ERR)
            sight = LookAround(context, &lookout, choice, sight.reason);
        else if (!Take(key, &choice))
            return kExitDone;
    }
}

void SetUpTop(Parser &parser, Context &context)
{
    auto options = std::make_shared<TopOptions>();
    parser
        .Add("--delay", options->delay_ms, "Milliseconds between two looks; more over a slow line")
        .TypeName("MS")
        .ShowDefault()
        .Check([](const std::string &word) {
            const long delay = strtol(word.c_str(), nullptr, 10);
            return delay >= 100 && delay <= 3'600'000 ? std::string{}
                                                      : "use a number from 100 to 3600000";
        });
    parser.Runs([&, options] { return ShowTop(context, *options); });
}

} // namespace

const std::vector<Command> kTopCommands = {
    {"top", "Show the monitor at work: hits, files, sinks, alerts, full screen", SetUpTop},
};

} // namespace cli
