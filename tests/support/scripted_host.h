// The host of the unit tests: it supplies every call of platform/, from scripts, and records what
// the module does with them. Any call can be made to fail, by its name or by its number.
#ifndef TESTS_SUPPORT_SCRIPTED_HOST_H
#define TESTS_SUPPORT_SCRIPTED_HOST_H

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/agent.h"
#include "platform/siblings.h"
#include "platform/sync.h"
#include "tests/support/memory_registry.h"

namespace test {

struct TraceRecord {
    int level = 0;
    std::string unit;
    std::string function;
    std::string text; // as rendered
};

// What VKMonitorCall was given, copied.
struct SentReport {
    std::string log_name;
    std::string source;
    uint32_t event_id = 0;
    std::string message;
    bool other_fields_are_zero = false;
};

// One WaitForMultipleObjects call.
struct WaitCall {
    std::vector<HANDLE> handles;
    bool wait_all = false;
    DWORD milliseconds = 0;
};

class ScriptedHost {
  public:
    MemoryRegistry registry;

    // ---- scripts ----

    // Results of the coming WaitForMultipleObjects calls; the action runs first, if there is one.
    // When the script is used up, the wait reports the stop handle, so that no loop goes on for
    // ever.
    struct Wait {
        DWORD result = 0;
        std::function<void()> action;
    };
    std::vector<Wait> waits;
    DWORD mutex_wait_result = WAIT_RESULT_FIRST; // of WaitForSingleObject
    int fault_tolerant = 0;                      // of call_tarsk_is_ft
    std::string root = "/opt/agent";             // of GetTarskRootPath
    void *products = nullptr;                    // of ReadProductsRegisteried
    int products_result = 1;
    std::function<void(const ReportRequest &)> on_report; // called after the report was recorded
    // Of TarskCodeConvert; without one, text is copied. Gets the text and both codes.
    std::function<std::string(const std::string &, int from, int to)> convert;

    // ---- failures ----

    // Makes call number n (from 1) of that name fail, counted from now. 0 switches it off.
    void FailCall(const std::string &name, int n) { fail_[name] = {n, 0}; }
    // Makes call number n (from 1) of any name fail, counted from now.
    void FailAnyCall(int n)
    {
        fail_any_ = n;
        any_calls_ = 0;
    }
    [[nodiscard]] bool AnyFailureWasUsed() const
    {
        return fail_any_ > 0 && any_calls_ >= fail_any_;
    }

    // ---- records ----

    bool record_trace = true;        // off: for tests that run millions of calls
    bool detail_is_on = true;        // the trace level
    bool reports_keep_table = false; // what the host promises
    std::vector<LogPart> parts;      // of logs, as LogPartIsRead was told of them
    std::set<std::string> logs_of_parts;
    FollowPassFn pass_follower = nullptr;
    uint64_t traced = 0; // calls of TraceLog, whatever the level
    std::vector<TraceRecord> trace;
    std::vector<SentReport> reports;
    std::vector<WaitCall> wait_calls;
    std::vector<std::string> calls;       // names of all calls but TraceLog, in order
    std::vector<std::string> loaded;      // paths given to LoadLibrary
    std::vector<HMODULE> freed_libraries; // given to FreeLibrary
    std::vector<void *> cleared_products; // given to TARSKPPLX_PPInfoClear
    std::vector<HANDLE> set_events;
    std::string thread_name;
    // Of calls that had other arguments than the interface fixes. Each test ends with none.
    std::vector<std::string> wrong_arguments;

    [[nodiscard]] std::string
    HandleName(HANDLE handle) const; // as given to CreateEvent, CreateMutex
    [[nodiscard]] bool HandleIsOpen(HANDLE handle) const;
    [[nodiscard]] int OpenHandles() const;
    [[nodiscard]] int Calls(const std::string &name) const;

    // How many records have this text, or this level and text.
    [[nodiscard]] int Traced(const std::string &text) const;
    [[nodiscard]] int Traced(int level, const std::string &text) const;
    // The level of the first record with this text, or -1.
    [[nodiscard]] int LevelOf(const std::string &text) const;
    // All texts of a level, for messages about a failed expectation.
    [[nodiscard]] std::vector<std::string> Texts(int level) const;

    void ForgetRecords(); // trace, reports, calls, waits made
    void Reset();         // everything, as at the start of a test

    // Should this call fail? Counts it. For the host's own functions.
    bool Enter(const char *name);
    // What the interface fixes of a call's arguments. Likewise.
    void Demand(bool is_so, const std::string &what);
    HANDLE NewHandle(const std::string &name);
    bool DropHandle(HANDLE handle);

  private:
    struct Failure {
        int n = 0;
        int seen = 0;
    };
    struct Handle {
        std::string name;
        bool open = false;
    };
    std::map<std::string, Failure> fail_;
    int fail_any_ = 0;
    int any_calls_ = 0;
    std::vector<Handle> handles_;
};

// The one host of the process.
ScriptedHost &Host();

// What LoadLibrary returns for the two sibling libraries.
extern HMODULE const kReportLibrary;
extern HMODULE const kProductLibrary;

} // namespace test

#endif // TESTS_SUPPORT_SCRIPTED_HOST_H
