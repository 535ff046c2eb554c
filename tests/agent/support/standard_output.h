// Standard output led elsewhere, into a terminal or a pipe of the test.
#ifndef TESTS_AGENT_SUPPORT_STANDARD_OUTPUT_H
#define TESTS_AGENT_SUPPORT_STANDARD_OUTPUT_H

#include <cstdio>
#include <unistd.h>

namespace test {

// Standard output is what the test wants it to be, for its life.
class StandardOutput {
  public:
    explicit StandardOutput(int file) : before_(dup(STDOUT_FILENO))
    {
        fflush(stdout);
        dup2(file, STDOUT_FILENO);
    }
    ~StandardOutput()
    {
        fflush(stdout);
        dup2(before_, STDOUT_FILENO);
        close(before_);
    }
    StandardOutput(const StandardOutput &) = delete;
    StandardOutput &operator=(const StandardOutput &) = delete;

  private:
    int before_;
};

} // namespace test

#endif // TESTS_AGENT_SUPPORT_STANDARD_OUTPUT_H
