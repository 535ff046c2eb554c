// Plots as SVG, each a document of its own that can stand in a page as well. No script and no outside address; texts of
// strangers are escaped.
#ifndef AGENT_REPORT_PLOTS_H
#define AGENT_REPORT_PLOTS_H

#include <cstdint>
#include <string>
#include <vector>

namespace report {

// For HTML and SVG: text, and values of attributes in quotes. Bytes that are no UTF-8 become U+FFFD's stand-in "?".
std::string Escaped(const std::string &text);

struct Series {
    std::string name;
    std::vector<int64_t> values; // one for each step
};

// Columns over time, the series on top of each other; the first one at the bottom. `from`: seconds since 1970, and the
// length of a step. At most eight series have a colour of their own.
std::string CoursePlot(const std::string &title, int64_t from, int64_t step,
                       const std::vector<Series> &series);

struct Bar {
    std::string name;
    int64_t value = 0;
};

// A row for each, in the order given.
std::string BarPlot(const std::string &title, const std::vector<Bar> &bars);

// A column for each, in the order given, with its name below.
std::string ColumnPlot(const std::string &title, const std::vector<Bar> &bars);

} // namespace report

#endif // AGENT_REPORT_PLOTS_H
