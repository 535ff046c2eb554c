// How results are printed: a table on a terminal, plain columns separated by tabs in a pipe, JSON
// on request.
#ifndef AGENT_CLI_OUTPUT_H
#define AGENT_CLI_OUTPUT_H

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace cli {

// The version of the shape of all JSON output. It grows when a field changes its meaning or goes
// away; a new field does not change it.
constexpr int kJsonVersion = 1;

class Table {
  public:
    explicit Table(std::vector<std::string> heads) : heads_(std::move(heads)) {}
    void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    // Aligned, with heads, on a terminal; otherwise one line per row, columns separated by tabs.
    void Print() const;

  private:
    std::vector<std::string> heads_;
    std::vector<std::vector<std::string>> rows_;
};

// Prints a single text on a line of its own: byte for byte in a pipe, harmless on a terminal.
void PrintValue(const std::string &text);

// "syslogmon: " and the text, on standard error.
void PrintError(const std::string &text);

// Throws host::Error when something that was printed could not be written.
void FlushOutput();

// Prints an object, with the version of its shape in it.
void PrintJson(nlohmann::json object);

// Is standard output a terminal?
bool IsTerminal();

// Terminal columns that a text takes.
size_t DisplayWidth(const std::string &text);

} // namespace cli

#endif // AGENT_CLI_OUTPUT_H
