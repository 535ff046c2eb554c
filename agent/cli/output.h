// How results are printed, apart from tables: single texts, errors, JSON on request.
//
// What is shown may come from a log, and anybody can write to a log. So on a terminal, and in
// columns, control characters are made visible; JSON has its own escapes. Nothing here checks
// whether a write succeeds: text::FlushOutput does, once, at the end.
#ifndef AGENT_CLI_OUTPUT_H
#define AGENT_CLI_OUTPUT_H

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace cli {

// The version of the shape of all JSON output. It grows when a field changes its meaning or goes
// away; a new field does not change it.
constexpr int kJsonVersion = 1;

// Prints a single text on a line of its own: byte for byte in a pipe, harmless on a terminal.
void PrintValue(const std::string &text);

// "syslogmon: " and the text, on standard error.
void PrintError(const std::string &text);

// An object as text, with the version of its shape in it, on several lines and with a line end.
// Bytes that are no UTF-8 are replaced, so the text can always be parsed.
std::string JsonText(nlohmann::json object);
// Prints that.
void PrintJson(nlohmann::json object);
// Prints an object of a list that goes on: on one line, and without the version.
void PrintJsonLine(const nlohmann::json &object);

// Is standard output a terminal? What else is done for people, such as colours, hangs on it as
// well.
bool IsTerminal();

// Is standard output a terminal that knows colours, and does NO_COLOR allow them? Set and empty, it does: people say with
// it once, to all programs, that they want none.
bool TakesColour();

// A text in colour where standard output takes one; otherwise the text.
enum class Paint { kGood, kNotice, kBad };
std::string Painted(const std::string &text, Paint paint);

// Columns that a text of UTF-8 takes on a terminal: two of a wide character, none of one that joins the one before.
size_t DisplayWidth(const std::string &text);

} // namespace cli

#endif // AGENT_CLI_OUTPUT_H
