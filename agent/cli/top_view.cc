#include "agent/cli/top_view.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>

#include "agent/cli/table.h"
#include "agent/policy/count_text.h"
#include "agent/text/printable.h"

namespace cli {

namespace {

using history::Kind;

constexpr const char *kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char *kMarks[] = {" ", ".", ":", "-", "=", "+", "*", "#", "@"};
constexpr int kLevels = 8;

// ---- texts of a width ----

// Columns of the next character; its bytes are taken off the text. One that cannot be told is one column.
int TakeCharacter(std::string_view *text)
{
    mbstate_t state{};
    wchar_t wide = 0;
    const size_t size = mbrtowc(&wide, text->data(), text->size(), &state);
    const bool is_known =
        size != static_cast<size_t>(-1) && size != static_cast<size_t>(-2) && size > 0;
    text->remove_prefix(is_known ? size : 1);
    return is_known ? std::max(wcwidth(wide), 0) : 1;
}

// Cut or filled to so many columns.
std::string Fit(const std::string &text, int columns, bool to_the_right = false)
{
    const std::string shown = text::Printable(text);
    std::string_view rest = shown;
    int width = 0;
    while (!rest.empty()) {
        std::string_view behind = rest;
        const int next = TakeCharacter(&behind);
        if (width + next > columns)
            break;
        width += next;
        rest = behind;
    }
    std::string fitted = shown.substr(0, shown.size() - rest.size());
    std::ranges::replace(fitted, '\t', ' ');
    const std::string blanks(static_cast<size_t>(std::max(columns - width, 0)), ' ');
    return to_the_right ? blanks + fitted : fitted + blanks;
}

std::string Bytes(int64_t bytes)
{
    auto size = static_cast<double>(bytes);
    const char *unit = "B";
    for (const char *next : {"KiB", "MiB", "GiB"}) {
        if (size < 1024)
            break;
        size /= 1024;
        unit = next;
    }
    char text[32];
    snprintf(text, sizeof text, size < 10 && bytes >= 1024 ? "%.1f %s" : "%.0f %s", size, unit);
    return text;
}

// ---- events ----

struct EventRow {
    const events::EventRecord *event;
    std::string id;
    int64_t hits = 0;
    int64_t alerts = 0;
    int64_t held_back = 0;
    std::vector<int64_t> minutes; // the newest at the end; kNotKept: not known
    int64_t rate = 0;             // of the last whole minute and the one under way
};

// Of a minute in which so many events were hit that the smallest are kept together only.
constexpr int64_t kNotKept = -1;

int64_t HitsAt(const history::Course::Point &point, const events::EventKey &key)
{
    const auto found = point.values.find({Kind::kHits, key.source, key.id});
    if (found != point.values.end())
        return found->second;
    return point.values.contains({Kind::kHits, history::kOthers, 0}) ? kNotKept : 0;
}

std::vector<int64_t> MinutesOf(const history::Course &course, const events::EventKey &key)
{
    std::vector<int64_t> minutes(kTopMinutes);
    for (const auto &point : course.points) {
        const int64_t minute = (point.begin - course.from) / history::kMinute;
        if (minute >= 0 && minute < kTopMinutes)
            minutes[static_cast<size_t>(minute)] = HitsAt(point, key);
    }
    return minutes;
}

std::string Small(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return c < 0x80 ? std::tolower(c) : c; });
    return text;
}

bool IsWanted(const EventRow &row, const std::string &filter)
{
    std::string all = row.event->key.source + " " + row.id;
    for (const std::string &keyword : row.event->keywords)
        all += " " + keyword;
    return Small(all).find(Small(filter)) != std::string::npos;
}

std::vector<EventRow> RowsOf(const TopSight &sight, const TopChoice &choice)
{
    std::vector<EventRow> rows;
    for (const auto &event : sight.view.events) {
        EventRow row;
        row.event = &event;
        row.id = events::FormatEventId(event.key.id);
        if (!IsWanted(row, choice.filter))
            continue;
        const auto &[source, id] = event.key;
        row.hits = sight.view.Total(Kind::kHits, source, id);
        row.alerts = sight.view.Total(Kind::kAlerts, source, id);
        row.held_back = sight.view.Total(Kind::kHeldBack, source, id);
        row.minutes = MinutesOf(sight.course, event.key);
        row.rate = std::max<int64_t>(row.minutes[kTopMinutes - 1], 0) +
                   std::max<int64_t>(row.minutes[kTopMinutes - 2], 0);
        rows.push_back(std::move(row));
    }
    std::ranges::stable_sort(rows, [&](const EventRow &a, const EventRow &b) {
        if (choice.order == TopOrder::kRate && a.rate != b.rate)
            return a.rate > b.rate;
        if (choice.order != TopOrder::kName && a.hits != b.hits)
            return a.hits > b.hits;
        return std::pair(a.event->key.source, a.event->key.id) <
               std::pair(b.event->key.source, b.event->key.id);
    });
    return rows;
}

// Something is never shown as nothing, nor is what is not known.
std::string Spark(const std::vector<int64_t> &minutes, bool is_utf8)
{
    const int64_t most = std::max<int64_t>(*std::ranges::max_element(minutes), 1);
    std::string text;
    for (const int64_t value : minutes)
        text += value == kNotKept
                    ? "?"
                    : (is_utf8 ? kBlocks : kMarks)[((value * kLevels) + most - 1) / most];
    return text;
}

// Of 80 columns, 30 are the spark line's, and 35 the numbers' and blanks. Where there is no room for all minutes, the oldest
// are left out.
std::string RowText(const EventRow &row, int columns, bool is_utf8)
{
    const int source = std::max(columns - 65, 8);
    const int room = std::clamp(columns - source - 35, 1, static_cast<int>(row.minutes.size()));
    return Fit(row.event->key.source, source) + " " + Fit(row.id, 6) +
           Fit(std::to_string(row.rate), 6, true) + Fit(std::to_string(row.hits), 8, true) +
           Fit(std::to_string(row.alerts), 7, true) + Fit(std::to_string(row.held_back), 5, true) +
           "  " + Spark({row.minutes.end() - room, row.minutes.end()}, is_utf8);
}

std::string HeadText(int columns)
{
    return Fit("SOURCE", std::max(columns - 65, 8)) + " " + Fit("ID", 6) + Fit("2 MIN", 6, true) +
           Fit("HITS", 8, true) + Fit("ALERTS", 7, true) + Fit("HELD", 5, true) +
           "  HITS A MINUTE, 30 MINUTES";
}

// ---- the screen ----

class Screen {
  public:
    Screen(int rows, int columns) : rows_(static_cast<size_t>(std::max(rows, 1))), columns_(columns)
    {
    }
    void Add(const std::string &text, TopStyle style = TopStyle::kPlain)
    {
        if (lines_.size() < rows_)
            lines_.push_back({Fit(text, columns_), style});
    }
    void FillTo(size_t row)
    {
        while (lines_.size() < std::min(row, rows_))
            Add("");
    }
    [[nodiscard]] size_t size() const { return lines_.size(); }
    [[nodiscard]] size_t rows() const { return rows_; }
    std::vector<TopLine> Take() { return std::move(lines_); }

  private:
    size_t rows_;
    int columns_;
    std::vector<TopLine> lines_;
};

void AddState(const TopSight &sight, Screen *screen)
{
    const metrics::Overview &view = sight.view;
    std::string text = sight.host + "  " + sight.clock + "  ";
    bool is_bad = true;
    if (!view.is_running) {
        text += "STOPPED: syslogmond is not running";
        if (view.last_look_ms)
            text += "; looked " +
                    std::to_string(status::SecondsSinceLook(*view.last_look_ms, view.now_ms)) +
                    " s ago";
    } else if (!view.stands.empty()) {
        text += "NOT WORKING: " + view.stands;
    } else {
        text += view.status ? status::MonitorStateName(view.status->state) : "starting";
        is_bad = !view.status || view.status->state != status::MonitorState::kRunning;
        const auto seconds = view.status ? status::SecondsSinceLook(*view.status) : std::nullopt;
        if (seconds) {
            const bool is_late = status::IsLate(*view.status, view.cycle_s);
            text += "  looked " + std::to_string(*seconds) + " s ago (at least every " +
                    std::to_string(view.cycle_s) + " s)" + (is_late ? "  LATE" : "");
            is_bad = is_bad || is_late;
        }
    }
    screen->Add(text, is_bad ? TopStyle::kBad : TopStyle::kHead);
    screen->Add("store " + Bytes(view.store_bytes) + "  events " +
                std::to_string(view.events.size()) + "  alerts kept " +
                std::to_string(view.alerts));
    if (view.status && !view.status->watch_problem.empty())
        screen->Add("watching: " + view.status->watch_problem, TopStyle::kBad);
}

// ---- files, inputs, sinks ----

std::string BehindText(int64_t seconds)
{
    return seconds > 0 ? "  behind " + std::to_string(seconds) + " s" : "";
}

void AddFiles(const metrics::Overview &view, std::vector<TopLine> *lines)
{
    for (const auto &log : view.logs) {
        const int64_t behind_s = log.behind_s.value_or(0);
        lines->push_back({log.path + "  unread " + (log.unread ? Bytes(*log.unread) : "?") +
                              BehindText(behind_s),
                          behind_s > view.cycle_s ? TopStyle::kBad : TopStyle::kPlain});
    }
}

void AddInputs(const metrics::Overview &view, std::vector<TopLine> *lines)
{
    if (!view.status)
        return;
    if (!view.status->inputs_wait.empty())
        lines->push_back({"the inputs wait: " + view.status->inputs_wait, TopStyle::kBad});
    for (const auto &input : view.status->inputs) {
        const int64_t behind_s = SecondsBehind(input, view.now_ms);
        const bool is_bad = !input.problems.empty() || behind_s > view.cycle_s;
        lines->push_back({"input " + input.name + "  unread " +
                              (input.behind_bytes < 0 ? "?" : Bytes(input.behind_bytes)) +
                              BehindText(behind_s) +
                              (input.problems.empty() ? "" : "  " + input.problems[0]),
                          is_bad ? TopStyle::kBad : TopStyle::kPlain});
    }
}

void AddSinks(const metrics::Overview &view, std::vector<TopLine> *lines)
{
    for (const auto &sink : view.sinks)
        lines->push_back({"sink " + sink.name + "  delivered " + std::to_string(sink.delivered) +
                              "  waiting " + std::to_string(sink.waiting) +
                              (sink.last_error.empty() ? "" : "  " + sink.last_error),
                          sink.last_error.empty() ? TopStyle::kPlain : TopStyle::kBad});
}

std::vector<TopLine> Watched(const metrics::Overview &view)
{
    std::vector<TopLine> lines;
    AddFiles(view, &lines);
    AddInputs(view, &lines);
    AddSinks(view, &lines);
    return lines;
}

bool IsBad(const TopLine &line)
{
    return line.style == TopStyle::kBad;
}

// What is in trouble comes first when there is no room for all, and what is left out is counted.
void AddWithin(size_t room, std::vector<TopLine> lines, Screen *screen)
{
    size_t shown = lines.size();
    if (shown > room) {
        std::stable_partition(lines.begin(), lines.end(), IsBad);
        shown = room > 0 ? room - 1 : 0;
    }
    const auto left_out = lines.begin() + static_cast<ptrdiff_t>(shown);
    std::for_each(lines.begin(), left_out,
                  [&](const TopLine &line) { screen->Add(line.text, line.style); });
    if (left_out == lines.end())
        return;
    const auto bad = std::count_if(left_out, lines.end(), IsBad);
    screen->Add("and " + std::to_string(lines.end() - left_out) + " more" +
                    (bad > 0 ? ", " + std::to_string(bad) + " of them in trouble" : ""),
                bad > 0 ? TopStyle::kBad : TopStyle::kQuiet);
}

// ---- events on the screen ----

// Rows that events want of those that are there, for their head and the first few, or for the explanation of one. A
// third is left for files and sinks.
size_t RowsForEvents(size_t there, size_t events, const TopChoice &choice)
{
    constexpr size_t kExplanation = 12;
    constexpr size_t kFewEvents = 5;
    const size_t wanted = choice.explains && events > 0
                              ? kExplanation
                              : 1 + std::clamp<size_t>(events, 1, kFewEvents);
    return std::min(wanted, there - (there / 3));
}

// A text of several rows under the column in which the others have theirs.
void AddWrapped(const std::string &name, const std::string &text, int columns, Screen *screen)
{
    constexpr int kIndent = 24;
    std::string begin = Fit(name, kIndent);
    for (const std::string &line : BrokenInLines(
             text::Printable(text), static_cast<size_t>(std::max(columns - kIndent, kIndent)))) {
        screen->Add(begin + line);
        begin.assign(kIndent, ' ');
    }
}

void AddReason(const TopReason &reason, int columns, Screen *screen)
{
    if (reason.time.empty()) {
        screen->Add("  newest alert          none");
        return;
    }
    screen->Add("  newest alert          " + reason.time);
    AddWrapped("  why it came", reason.why, columns, screen);
    AddWrapped("  its line", reason.line, columns, screen);
}

void Explain(const EventRow &row, int columns, Screen *screen)
{
    const events::EventRecord &event = *row.event;
    screen->Add("Event " + event.key.source + " " + row.id, TopStyle::kHead);
    for (const std::string &keyword : event.keywords) {
        if (!keyword.empty())
            screen->Add("  a line must contain   " + keyword);
    }
    if (!event.policy.regex.empty())
        screen->Add("  and match             " + event.policy.regex);
    AddWrapped("  when it is reported", policy::TermsInWords(event), columns, screen);
    screen->Add("  watched hours         " + events::FormatHours(event.hours));
    screen->Add("  hits so far           " + std::to_string(row.hits));
    screen->Add("  reports alerted of    " + std::to_string(row.alerts));
    screen->Add("  reports held back     " + std::to_string(row.held_back));
}

// So many events from the first that is shown on: the selected one is among them.
void AddEvents(const std::vector<EventRow> &rows, size_t room, int columns, bool is_utf8,
               const TopChoice &choice, Screen *screen)
{
    screen->Add(HeadText(columns), TopStyle::kHead);
    if (rows.empty())
        screen->Add(choice.filter.empty() ? "no event is registered" : "no event has that",
                    TopStyle::kQuiet);
    const size_t first = choice.selected < room ? 0 : choice.selected - room + 1;
    for (size_t i = first; i < std::min(rows.size(), first + room); ++i)
        screen->Add(RowText(rows[i], columns, is_utf8),
                    i == choice.selected ? TopStyle::kSelected : TopStyle::kPlain);
}

std::string KeysText(const TopChoice &choice)
{
    if (choice.types_filter)
        return "filter: " + choice.filter + "_   Enter: keep   Esc: none";
    const char *order = choice.order == TopOrder::kRate   ? "rate"
                        : choice.order == TopOrder::kHits ? "hits"
                                                          : "name";
    return std::string("q quit  s sort: ") + order + "  / filter" +
           (choice.filter.empty() ? "" : ": " + choice.filter) + "  up, down choose  Enter explain";
}

} // namespace

std::vector<TopLine> TopScreen(const TopSight &sight, int rows, int columns, bool is_utf8,
                               TopChoice *choice)
{
    Screen screen(rows, columns);
    const std::vector<EventRow> events = RowsOf(sight, *choice);
    choice->selected = std::min(choice->selected, events.empty() ? 0 : events.size() - 1);
    AddState(sight, &screen);
    // The last line is for the keys, those above for the newest alerts: a quarter of the screen.
    const size_t alerts = std::max<size_t>(screen.rows() / 4, 1);
    const size_t behind_events = screen.rows() > alerts + 2 ? screen.rows() - alerts - 2 : 0;
    const size_t there = behind_events > screen.size() ? behind_events - screen.size() : 0;
    AddWithin(there - RowsForEvents(there, events.size(), *choice), Watched(sight.view), &screen);
    choice->explained.reset();
    if (choice->explains && !events.empty()) {
        choice->explained = events[choice->selected].event->key;
        Explain(events[choice->selected], columns, &screen);
        if (sight.reason && sight.reason->event == *choice->explained)
            AddReason(*sight.reason, columns, &screen);
    } else if (behind_events > screen.size() + 1) {
        AddEvents(events, behind_events - screen.size() - 1, columns, is_utf8, *choice, &screen);
    }
    screen.FillTo(behind_events);
    screen.Add("NEWEST ALERTS", TopStyle::kHead);
    for (size_t i = 0; i < std::min(sight.newest.size(), alerts); ++i) {
        if (screen.size() + 1 < screen.rows())
            screen.Add(sight.newest[i]);
    }
    screen.FillTo(screen.rows() - 1);
    std::vector<TopLine> lines = screen.Take();
    lines.resize(screen.rows() - 1);
    lines.push_back({Fit(KeysText(*choice), columns), TopStyle::kQuiet});
    return lines;
}

} // namespace cli
