// The logs for which less is promised than for the system log, whose rotations lose no line. A note
// and no finding: it is so on every host that watches such a log.
#include "agent/cli/doctor.h"
#include "platform/contract.h"

namespace cli {

namespace {

// The one other log that is followed through its rotations like the system log.
constexpr char kVmkernel[] = "/var/log/vmkernel";

constexpr char kHowToRotate[] =
    "rotate it as /usr/share/doc/syslogmon/examples/logrotate-other-logs does, which loses "
    "nothing: its program is stopped while syslogmon scan --wait has everything checked";

} // namespace

void CheckPromises(const std::vector<logs::WatchedFile> &files, Examination *examination)
{
    examination->Begin("promise");
    for (const logs::WatchedFile &file : files) {
        if (file.path == kSystemLog || file.path == kVmkernel || file.role == logs::kSpoolRole)
            continue;
        std::string lost = "at its rotation, lines that no pass has checked yet are passed over";
        if (file.role != "file monitor")
            lost += ", and so are new ones until a pass finds the new file";
        examination->Note(file.path, lost, kHowToRotate);
    }
}

} // namespace cli
