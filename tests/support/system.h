// The system under the module, as the unit tests see it: "/var/log" is a folder of the test, the
// clock can be set, and any call can be made to fail. The test programs are linked so that the
// module's calls to the C library come here first (see tests/CMakeLists.txt).
#ifndef TESTS_SUPPORT_SYSTEM_H
#define TESTS_SUPPORT_SYSTEM_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test {

class System {
  public:
    // The folder that stands for "/var/log". Empty: the real one.
    std::string log_dir;

    // What time() gives. Unset: the real time. -1 is what a failing clock gives.
    std::optional<time_t> now;

    // Makes call number n (from 1) of that name fail, counted from now, with this errno. Names:
    // malloc, calloc, stat, stat64 (a stat, too), fstat, open, fdopen, fseek, fread, pread, scandir, regcomp.
    void FailCall(const std::string &name, int n, int error_number = 5);

    // Runs before call number n (from 1) of that name, counted from now: to change a file between
    // two steps of the module.
    void BeforeCall(const std::string &name, int n, std::function<void()> action);
    // The name for any of the calls on files: of those above, all but those for memory and expressions, and pread.
    static constexpr char kAnyFileCall[] = "any file call";

    [[nodiscard]] int Calls(const std::string &name) const; // since the last Reset or ForgetCalls
    void ForgetCalls() { counts_.clear(); }
    void Reset() { *this = System(); }

    // For the wrapped functions. Counts the call; sets errno and returns true when it is to fail.
    bool Enter(const char *name);
    [[nodiscard]] std::string Translate(const char *path) const;
    bool count_memory =
        false; // count (and fail) malloc and calloc: off outside a test's own section

  private:
    int &CountOf(std::string_view name);

    struct Failure {
        int n = 0;
        int seen = 0;
        int error_number = 0;
    };
    struct Action {
        int n = 0;
        int seen = 0;
        std::function<void()> run;
    };
    // In the order in which they were met. They are few, and looking for one of them by itself is what some tests do
    // millions of times.
    std::vector<std::pair<std::string, int>> counts_;
    std::map<std::string, Failure, std::less<>> failures_;
    std::map<std::string, Action, std::less<>> actions_;
};

// The one system of the process.
System &Sys();

} // namespace test

#endif // TESTS_SUPPORT_SYSTEM_H
