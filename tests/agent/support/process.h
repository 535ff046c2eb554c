// Other processes of a test. They die with the test at the latest.
#ifndef TESTS_AGENT_SUPPORT_PROCESS_H
#define TESTS_AGENT_SUPPORT_PROCESS_H

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

#include "agent/host/waitable.h"

namespace test {

using Words = std::vector<std::string>;

// What a process has come to.
struct Finished {
    int status = 0; // its exit status, or 128 + the signal that ended it
    std::string out;
    std::string err;
};

// Runs a program to its end.
Finished RunToEnd(const Words &command);

// The words of `host_helper`, which works on an install root.
Words Helper(const std::filesystem::path &root, const Words &words);

// The words of the command, on an install root.
Words Command(const std::filesystem::path &root, const Words &words);

// What host_helper exits with when it is not allowed to do what the test needs: the test then fails
// with what the helper says.
constexpr int kNotPermitted = 125;

// A running process that talks with the test, line by line.
class Child {
  public:
    explicit Child(const Words &command);
    ~Child(); // kills it
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // The next line of its standard output; "(silent)" when none comes within the limit, "(ended)"
    // when none will.
    std::string ReadLine();
    void Say(const std::string &line) const;
    void Signal(int number) const;
    // Waits for its end, and tells how it ended: see Finished::status.
    int Wait();
    // SIGKILL, and Wait.
    void Kill();
    [[nodiscard]] pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
    host::Fd input_;
    host::Fd output_;
    std::string read_;
};

} // namespace test

#endif // TESTS_AGENT_SUPPORT_PROCESS_H
