// The fixture of the tests of the command, which runs as a process on an install root of the test.
#ifndef TESTS_AGENT_SUPPORT_COMMAND_TEST_H
#define TESTS_AGENT_SUPPORT_COMMAND_TEST_H

#include <nlohmann/json_fwd.hpp>

#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace test {

class CommandTest : public RootTest {
  protected:
    // With an empty store, which is what makes the folder an install root.
    CommandTest();
    ~CommandTest() override;

    [[nodiscard]] Finished Syslogmon(const Words &words) const;
    // The command does it, and prints this.
    void ExpectOutput(const Words &words, const std::string &out) const;
    void ExpectDone(const Words &words) const { ExpectOutput(words, ""); }
    // The command fails with this text, prints nothing else, and has changed nothing.
    void ExpectFailed(const Words &words, const std::string &error, int status = 1) const;
    // The words of the command are wrong; what is said about it, in one line, has this text in it.
    void ExpectUsage(const Words &words, const std::string &part) const;
    // What the command prints with --json. A test that calls Json includes <nlohmann/json.hpp>, which
    // takes seconds to compile; JsonText goes with tests/support/json_text.h.
    template <typename Value = nlohmann::json>
    [[nodiscard]] Value Json(const Words &words, int status = 0) const
    {
        return Value::parse(JsonText(words, status), nullptr, false);
    }
    [[nodiscard]] std::string JsonText(const Words &words, int status = 0) const;

    // ---- the same root in this process ----
    void StartHere() const;

  private:
    // Everything in the registry.
    [[nodiscard]] std::string Registry() const;
};

} // namespace test

#endif // TESTS_AGENT_SUPPORT_COMMAND_TEST_H
