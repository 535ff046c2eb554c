// The syslog daemon: what makes it write the system log, and whether it writes each line, and whole.
#include <sstream>

#include "agent/cli/doctor.h"
#include "agent/cli/rsyslog_config.h"
#include "agent/cli/rsyslog_rule.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

// Of this host, whatever --root names: its syslog daemon writes the logs.
constexpr char kRsyslogConfig[] = "/etc/rsyslog.conf";
// The package's. The advice names it as well, so that no host has two rules that write the log.
constexpr char kDropIn[] = "/etc/rsyslog.d/syslogmon.conf";
constexpr char kRestart[] = "restart rsyslog: systemctl restart rsyslog";

// Nothing is packaged for it, so the lines stand here.
constexpr char kSyslogNgRule[] =
    "with syslog-ng, put these lines into /etc/syslog-ng/conf.d/messages.conf, with the name of "
    "your source, and restart syslog-ng:\n"
    "    destination d_messages { file(\"/var/log/messages\" ts-format(bsd) owner(root) "
    "group(adm) perm(0640)); };\n"
    "    log { source(s_src); destination(d_messages); };";

// The package's rules, which are put in place where rsyslog is used.
constexpr char kRule[] = SYSLOGMON_SHARE "/rsyslog.conf";
constexpr char kPutInPlace[] =
    "install -D -m 644 " SYSLOGMON_SHARE
    "/rsyslog.conf /etc/rsyslog.d/syslogmon.conf && install -D -m "
    "644 " SYSLOGMON_SHARE "/logrotate.conf /etc/logrotate.d/syslogmon && systemctl restart "
    "rsyslog";

std::string Indented(const std::string &text)
{
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);)
        result += "\n    " + line;
    return result;
}

// As people look for it.
std::string PlaceOf(const RsyslogSetting &setting)
{
    return setting.file.string() + " line " + std::to_string(setting.line);
}

// The monitor's target waits for the end of a line; the others do not.
std::vector<fs::path> LogsOfWholeLines(const std::vector<logs::WatchedFile> &files)
{
    std::vector<fs::path> logs;
    for (const logs::WatchedFile &file : files) {
        if (file.role != "file monitor")
            // As the reader of the configuration compares names: without . and .. and double
            // slashes.
            logs.push_back(file.path.lexically_normal());
    }
    return logs;
}

} // namespace

bool HasRsyslog()
{
    return fs::exists(kRsyslogConfig);
}

std::string HowToWriteTheSystemLog()
{
    // Where both are installed, rsyslog is the one that the package brings a rule for.
    const bool has_rsyslog = HasRsyslog();
    if (fs::exists("/etc/syslog-ng") && !has_rsyslog)
        return kSyslogNgRule;
    const std::string install = has_rsyslog ? "" : "install rsyslog: apt install rsyslog; ";
    if (fs::exists(kDropIn))
        return has_rsyslog ? std::string(kRestart) + "; it then follows " + kDropIn
                           : install + "it follows " + kDropIn;
    if (fs::exists(kRule))
        return install + "with rsyslog, this writes the log and rotates it: " + kPutInPlace;
    return install + "with rsyslog, put these lines into " + kDropIn + " and " + kRestart +
           Indented(kRsyslogRule);
}

void CheckRsyslog(const std::vector<logs::WatchedFile> &files, Examination *examination)
{
    examination->Begin("rsyslog");
    const RsyslogConfig config = ReadRsyslogConfig("/", LogsOfWholeLines(files));
    const size_t findings = examination->Findings();
    // A part that was not read could say anything, so nothing is well.
    for (const fs::path &file : config.unreadable)
        examination->Finding(file, "it cannot be read", "run this command as root");
    if (config.reduction)
        examination->Finding(PlaceOf(*config.reduction),
                             config.reduction->text +
                                 ": equal lines in a row are written as one, \"message repeated 29 "
                                 "times: [ ... ]\", which counts once in the system log",
                             "write $RepeatedMsgReduction off in its place, and " +
                                 std::string(kRestart));
    for (const RsyslogSetting &setting : config.buffered)
        examination->Finding(
            PlaceOf(setting),
            setting.text + ": " + setting.log.string() +
                " can end in the middle of a line for a while; its first part "
                "then counts for the whole, and a keyword in the rest is not found",
            "remove it there, and " + std::string(kRestart));
    if (examination->Findings() > findings)
        return;
    if (config.is_there)
        examination->Well(kRsyslogConfig, "it writes every line, and writes it whole");
    else
        examination->Well(kRsyslogConfig, "it is not there: rsyslog writes no log of this host");
}

} // namespace cli
