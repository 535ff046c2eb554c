// The host of the module: what the calls of platform/ work with, in one object. `main` makes it, and
// hands it down to whoever needs it.
//
// The C functions, which the module calls and which have no argument for it, work with the host that
// was made last and lives: see Current. One is made inside another for a trial of rules, which leaves
// the outer one alone.
#ifndef AGENT_HOST_HOST_H
#define AGENT_HOST_HOST_H

#include "agent/host/handle_table.h"
#include "agent/host/hit_counters.h"
#include "agent/host/layout.h"
#include "agent/host/moments.h"
#include "agent/host/open_key.h"
#include "agent/host/registry_tree.h"
#include "agent/host/report_source.h"
#include "agent/host/reported_hits.h"
#include "agent/host/store.h"
#include "agent/host/waitable.h"
#include "platform/agent.h"

namespace host {

enum class Role {
    kDaemon,  // runs the module: writes belong to passes, the trace log is written
    kCommand, // a command beside it: each write stands for itself, no trace log
    kReader,  // a command that only reads: it makes no folder and no store
};

class Host {
  public:
    // Opens the store, creates the folders, starts the trace log. Throws StoreError. Before any
    // other thread is started.
    Host(const Layout &layout, Role role);
    // Closes everything. What a pass has written and not committed is rolled back. The host before
    // this one, if any, is the C functions' again.
    ~Host();
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    [[nodiscard]] const Layout &layout() const { return layout_; }
    [[nodiscard]] Store &store() { return store_; }
    [[nodiscard]] RegistryTree &registry() { return registry_; }

    // The monitoring table of the module that this process runs. Without one, its size is 0.
    void SetTable(const ModuleTable &table) { table_ = table; }
    [[nodiscard]] const ModuleTable &table() const { return table_; }
    [[nodiscard]] ReportedHits &reported_hits() { return reported_hits_; }

    // Who knows where a reported line came from; null: nobody. Not while the module runs a pass.
    void SetReportSource(FindReportSource find) { find_source_ = std::move(find); }
    [[nodiscard]] const FindReportSource &report_source() const { return find_source_; }

    // The log that the module reads, or has read last; empty: none yet. On its thread.
    void SetLogInPass(const char *path) { log_in_pass_ = path; }
    [[nodiscard]] const std::string &log_in_pass() const { return log_in_pass_; }

    // Who takes the reports; null: nobody, and each is stored as an alert. Likewise.
    void SetReportTaker(TakeReport take) { take_report_ = std::move(take); }
    [[nodiscard]] const TakeReport &report_taker() const { return take_report_; }

    // Tells somebody of the moments from now on; null: nobody. `table_loaded` is the event that the
    // module sets when it has started. Not while a wait is under way.
    void TellMoments(Moments *moments, HANDLE table_loaded);
    // Who is told, or null; and is this the event behind which the module's table is loaded?
    [[nodiscard]] Moments *moments() { return moments_; }
    [[nodiscard]] bool IsTableLoaded(HANDLE event) const;

    // Who follows the module's passes; null: nobody. Counts from the next pass on.
    void SetPassFollower(FollowPassFn follower) { pass_follower_ = follower; }
    [[nodiscard]] FollowPassFn pass_follower() const { return pass_follower_; }

    // What is behind the handles that were given out.
    [[nodiscard]] HandleTable<Waitable> &waitables() { return waitables_; }
    [[nodiscard]] HandleTable<OpenKey> &keys() { return keys_; }

  private:
    // The trace log of a daemon, which is closed when everything else is.
    struct OwnTrace {
        bool is_open = false;
        ~OwnTrace();
    };

    OwnTrace trace_;
    Layout layout_;
    Store store_;
    RegistryTree registry_;
    // Handles of different kinds have different numbers, so none is taken for one of the other kind.
    HandleTable<Waitable> waitables_{0x10000};
    HandleTable<OpenKey> keys_{0x10000000};
    ModuleTable table_;
    ReportedHits reported_hits_;
    FindReportSource find_source_;
    std::string log_in_pass_;
    TakeReport take_report_;
    FollowPassFn pass_follower_ = nullptr;
    Moments *moments_ = nullptr;
    HANDLE table_loaded_ = nullptr;
    Host *outer_ = nullptr; // the one that was made before this one and lives on
};

// For the C functions alone: the host that they work with. Throws Error when there is none.
Host &Current();
// The same, or null.
Host *CurrentIfAny();

// Tells somebody of the moments for the life of this object.
class MomentsOf {
  public:
    MomentsOf(Host &host, Moments &moments, HANDLE table_loaded) : host_(host)
    {
        host_.TellMoments(&moments, table_loaded);
    }
    ~MomentsOf() { host_.TellMoments(nullptr, nullptr); }
    MomentsOf(const MomentsOf &) = delete;
    MomentsOf &operator=(const MomentsOf &) = delete;

  private:
    Host &host_;
};

} // namespace host

#endif // AGENT_HOST_HOST_H
