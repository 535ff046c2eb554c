#include "agent/report/plots.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "agent/text/printable.h"

namespace report {

namespace {

// Units of the drawing, which are pixels at its own size.
constexpr int kWidth = 760;
constexpr int kLeft = 60;
constexpr int kRight = 12;
constexpr int kTop = 34;
constexpr int kPlotHeight = 200;
constexpr int kRow = 24;
constexpr int kNames = 220; // of a row's name
constexpr size_t kLongestName = 34;

// Told apart by people who see few colours as well; on white.
constexpr std::array<const char *, 8> kColours = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                                  "#e69f00", "#56b4e9", "#7e22ce", "#6b7280"};

const char *ColourOf(size_t series)
{
    return kColours[std::min(series, kColours.size() - 1)];
}

std::string Number(double value)
{
    char text[32];
    snprintf(text, sizeof text, "%.1f", value);
    return text;
}

std::string Text(double x, double y, const char *anchor, const std::string &text,
                 const char *more = "")
{
    return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" text-anchor=\"" + anchor + "\"" +
           more + ">" + Escaped(text) + "</text>\n";
}

std::string Rectangle(double x, double y, double width, double height, const char *colour,
                      const std::string &told)
{
    return "<rect x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" width=\"" + Number(width) +
           "\" height=\"" + Number(height) + "\" fill=\"" + colour + "\"><title>" + Escaped(told) +
           "</title></rect>\n";
}

std::string Line(double x1, double y1, double x2, double y2)
{
    return "<line x1=\"" + Number(x1) + "\" y1=\"" + Number(y1) + "\" x2=\"" + Number(x2) +
           "\" y2=\"" + Number(y2) + "\" stroke=\"#d4dae0\"/>\n";
}

std::string Begin(const std::string &title, int height)
{
    const std::string size = std::to_string(kWidth) + " " + std::to_string(height);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size + "\" width=\"" +
           std::to_string(kWidth) + "\" height=\"" + std::to_string(height) +
           "\" role=\"img\" aria-label=\"" + Escaped(title) +
           "\" font-family=\"sans-serif\" font-size=\"12\" fill=\"#1a2129\">\n"
           "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n" +
           Text(kRight, 20, "start", title, " font-size=\"15\" font-weight=\"bold\"");
}

// Cut between characters.
std::string Short(const std::string &name)
{
    std::string text = text::Printable(name);
    if (text.size() <= kLongestName)
        return text;
    size_t end = kLongestName - 3;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
        --end;
    return text.substr(0, end) + "...";
}

// 1, 2 or 5 with zeros: five lines at most.
int64_t StepOfAxis(int64_t most)
{
    int64_t step = 1;
    while (most / step > 5) {
        const int64_t digit = step;
        int64_t leading = digit;
        while (leading >= 10)
            leading /= 10;
        step = leading == 2 ? digit / 2 * 5 : digit * 2;
    }
    return step;
}

std::string Axis(int64_t most)
{
    std::string text;
    const int64_t step = StepOfAxis(most);
    for (int64_t value = 0; value <= most; value += step) {
        const double y = kTop + kPlotHeight -
                         (static_cast<double>(value) / static_cast<double>(most) * kPlotHeight);
        text += Line(kLeft, y, kWidth - kRight, y) +
                Text(kLeft - 6, y + 4, "end", std::to_string(value));
    }
    return text;
}

std::string TimeText(int64_t time_s, int64_t step)
{
    const time_t moment = time_s;
    tm local{};
    char text[32];
    localtime_r(&moment, &local);
    strftime(text, sizeof text,
             step >= 86400  ? "%b %e"
             : step >= 3600 ? "%b %e %H:%M"
                            : "%H:%M",
             &local);
    return text;
}

int64_t LargestSum(const std::vector<Series> &series, size_t steps)
{
    int64_t largest = 1;
    for (size_t i = 0; i < steps; ++i) {
        int64_t sum = 0;
        for (const Series &one : series)
            sum += one.values[i];
        largest = std::max(largest, sum);
    }
    return largest;
}

std::string Legend(const std::vector<Series> &series, int y)
{
    std::string text;
    for (size_t i = 0; i < series.size(); ++i) {
        const int x = kLeft + (static_cast<int>(i) % 3 * 230);
        const int row = y + (static_cast<int>(i) / 3 * 20);
        text += Rectangle(x, row - 10, 11, 11, ColourOf(i), series[i].name) +
                Text(x + 17, row, "start", Short(series[i].name));
    }
    return text;
}

int64_t LargestOf(const std::vector<Bar> &bars)
{
    int64_t largest = 1;
    for (const Bar &bar : bars)
        largest = std::max(largest, bar.value);
    return largest;
}

constexpr char kEnd[] = "</svg>\n";

} // namespace

std::string Escaped(const std::string &text)
{
    std::string escaped;
    for (const char c : text::Printable(text)) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string CoursePlot(const std::string &title, int64_t from, int64_t step,
                       const std::vector<Series> &series)
{
    const size_t steps = series.empty() ? 0 : series[0].values.size();
    const int legend_rows = static_cast<int>((series.size() + 2) / 3);
    std::string text = Begin(title, kTop + kPlotHeight + 40 + (legend_rows * 20));
    const int64_t most = LargestSum(series, steps);
    text += Axis(most);
    const double width = static_cast<double>(kWidth - kLeft - kRight) /
                         static_cast<double>(std::max<size_t>(steps, 1));
    const double unit = static_cast<double>(kPlotHeight) / static_cast<double>(most);
    for (size_t i = 0; i < steps; ++i) {
        const double x = kLeft + (static_cast<double>(i) * width);
        const int64_t begin = from + (static_cast<int64_t>(i) * step);
        double y = kTop + kPlotHeight;
        for (size_t one = 0; one < series.size(); ++one) {
            const int64_t value = series[one].values[i];
            if (value == 0)
                continue;
            const double height = static_cast<double>(value) * unit;
            y -= height;
            text += Rectangle(x, y, std::max(width * 0.9, 0.6), height, ColourOf(one),
                              TimeText(begin, step) + ": " + series[one].name + " " +
                                  std::to_string(value));
        }
    }
    // Six times are read with ease below this width.
    for (size_t i = 0; i < 6 && steps > 0; ++i) {
        const size_t at = i * (steps - 1) / 5;
        text += Text(kLeft + (static_cast<double>(at) * width), kTop + kPlotHeight + 18,
                     i == 0   ? "start"
                     : i == 5 ? "end"
                              : "middle",
                     TimeText(from + (static_cast<int64_t>(at) * step), step));
    }
    return text + Legend(series, kTop + kPlotHeight + 44) + kEnd;
}

std::string BarPlot(const std::string &title, const std::vector<Bar> &bars)
{
    std::string text = Begin(title, kTop + 10 + (static_cast<int>(bars.size()) * kRow));
    const double unit = (kWidth - kNames - 90.0) / static_cast<double>(LargestOf(bars));
    double y = kTop;
    for (const Bar &bar : bars) {
        const double width = std::max(static_cast<double>(bar.value) * unit, 1.0);
        text += Text(kNames - 8, y + 15, "end", Short(bar.name)) +
                Rectangle(kNames, y + 3, width, kRow - 8, kColours[0], bar.name) +
                Text(kNames + width + 6, y + 15, "start", std::to_string(bar.value));
        y += kRow;
    }
    return text + kEnd;
}

std::string ColumnPlot(const std::string &title, const std::vector<Bar> &bars)
{
    std::string text = Begin(title, kTop + kPlotHeight + 30);
    const int64_t most = LargestOf(bars);
    text += Axis(most);
    const double width = static_cast<double>(kWidth - kLeft - kRight) /
                         static_cast<double>(std::max<size_t>(bars.size(), 1));
    double x = kLeft;
    for (const Bar &bar : bars) {
        const double height =
            static_cast<double>(bar.value) / static_cast<double>(most) * kPlotHeight;
        text += Rectangle(x + (width * 0.1), kTop + kPlotHeight - height, width * 0.8, height,
                          kColours[0], bar.name + ": " + std::to_string(bar.value)) +
                Text(x + (width / 2), kTop + kPlotHeight + 18, "middle", bar.name);
        x += width;
    }
    return text + kEnd;
}

} // namespace report
